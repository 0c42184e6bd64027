// What the tests of objects, servants and references share.
#pragma once

#include <cstdlib>
#include <latch>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "orb_fixture.h"
#include "poainfo.h"
#include "policy_list.h"
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

inline std::string text_of(const PortableServer::ObjectId& oid) { return std::string(oid_view(oid)); }

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

/// `call` raises an E and traces, last of all, `where`: which of its checks it failed.
template <class E, CORBA::ULong Minor = 0x4B510007, class Call>
void refused(const char* where, Call&& call) {
  SCOPED_TRACE(where);
  TraceRecorder trace;
  expect_raised<E>(call, Minor);
  EXPECT_EQ(trace.lines().back(), where);
}
/// The same of an operation of a POA's record with these arguments, and the reason it gives.
#define REFUSED(E, poa, operation, reason, ...)       \
  refused<E>("POAInfo::" #operation " [" reason ".]", \
             [&](auto& ev) { poa->operation(__VA_ARGS__ __VA_OPT__(, ) ev); })

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
void run_together(std::size_t n, Work&& work) {
  std::latch start(static_cast<std::ptrdiff_t>(n));
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < n; ++i)
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
}

/// Tests of objects in POAs of any kind, and what they need again and again.
class ObjectTest : public AdapterTest {
 protected:
  template <class... Value>
  POAInfoPtr make(Value... values) {
    CORBA::PolicyList list;
    if constexpr (sizeof...(values) != 0) list = policies(root, values...);
    return record_of(PortableServer::POA_var(top->create_POA(unique_name("poa").c_str(), nullptr, list)));
  }

  PlainServant servant, other;
  const PortableServer::ObjectId a = oid_of("a"), b = oid_of("b"), empty = oid_of("");
  CORBA::Environment env;
};
