// What the tests of objects, servants and references share.
#pragma once

#include <cstdlib>
#include <latch>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "poainfo.h"
#include "raised.h"
#include "trace_recorder.h"

/// A servant of one interface, with nothing to serve.
class PlainServant : public virtual PortableServer::ServantBase {
 public:
  explicit PlainServant(const char* repository_id = "IDL:test/Plain:1.0") { _intf = repository_id; }
};

inline PortableServer::ObjectId oid_of(std::string_view octets) {
  const std::unique_ptr<PortableServer::ObjectId> oid(make_oid(octets));
  return *oid;
}

inline POAInfoPtr record_of(PortableServer::POA* poa) {
  return POAInfo::findPOAInfo(poa, CORBA::Environment().self());
}

/// How many entries of a map hold this id for this servant.
inline int entries_of(const POAInfo& record, const PortableServer::ServantBase& servant) {
  int count = 0;
  for (const ActiveObjectMap* block = record.active_object_map; block; block = block->next)
    for (const _ActiveObjectEntry& entry : block->entries) count += entry.oid && entry.p_servant == &servant;
  return count;
}

/// `call` raises an E, after the trace line `reason` (if there is one) and, last of all, `where`.
template <class E, CORBA::ULong Minor = 0x4B510007, class Call>
void refused(const char* reason, const char* where, Call&& call) {
  SCOPED_TRACE(where);
  TraceRecorder trace;
  expect_raised<E>(call, Minor);
  EXPECT_EQ(trace.lines().back(), where);
  if (reason) {
    EXPECT_TRUE(trace.in_order({reason, where}));
  }
}

/// Sets (or, with null, unsets) an environment variable for a scope.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old, had_ = true;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedVariable() { had_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
  std::string old_;
  bool had_ = false;
};

/// Runs work(0) ... work(n - 1), each on a thread of its own, all started at once.
template <class Work>
void run_together(int n, Work&& work) {
  std::latch start(n);
  std::vector<std::jthread> threads;
  for (int i = 0; i < n; ++i)
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
}
