// What the tests of the adapter share.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <latch>
#include <thread>

#include "base/corehandles.h"
#include "base/locks.h"
#include "objects/activeobjectmap.h"
#include "objects/servantreferences.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "records/poainfo.h"
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

/// How many entries of a map are for this servant.
inline int entries_of(const POAInfo& record, const PortableServer::ServantBase& servant) {
  int count = 0;
  for (const ActiveObjectMap* block = record.active_object_map; block; block = block->next)
    for (const _ActiveObjectEntry& entry : block->entries) count += entry.p_servant == &servant;
  return count;
}

/// Notes what it is told, and does what a test wants.
class Etherealizer : public PortableServer_ServantActivator_impl {
 public:
  void etherealize(const PortableServer::ObjectId& oid, PortableServer::POA* poa,
                   PortableServer::ServantBase* servant, CORBA::Boolean cleanup, CORBA::Boolean remaining,
                   CORBA::Environment&) override {
    calls.emplace_back(text_of(oid), poa, servant, cleanup != 0, remaining != 0);
    work(poa, servant);
  }
  using Call = std::tuple<std::string, PortableServer::POA*, PortableServer::ServantBase*, bool, bool>;
  std::vector<Call> calls;
  std::function<void(PortableServer::POA*, PortableServer::ServantBase*)> work = [](auto*, auto*) {};
};

/// `call` raises an E and traces, last of all, `where`: which of its checks it failed.
template <class E, CORBA::ULong Minor = 0x4B510007, class Call>
void refused(const std::string& where, Call&& call) {
  SCOPED_TRACE(where);
  TraceRecorder trace;
  expect_raised<E>(call, Minor);
  EXPECT_EQ(trace.lines().back(), where);
}
/// The same of an operation of a POA's record with these arguments, and the reason it gives.
#define REFUSED(E, poa, operation, reason, ...)       \
  refused<E>("POAInfo::" #operation " [" reason ".]", \
             [&](auto& ev) { poa->operation(__VA_ARGS__ __VA_OPT__(, ) ev); })

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

/// Tests of POAs of any kind, and what they need again and again.
class ObjectTest : public AdapterTest {
 protected:
  static PortableServer::POA_var child(PortableServer::POA* parent, const std::string& name,
                                       const CORBA::PolicyList& list = {}) {
    return parent->create_POA(name.c_str(), nullptr, list);
  }
  template <class... Value>
  POAInfoPtr make(Value... values) {
    return record_of(child(top, unique_name("poa"), policies(root, values...)));
  }

  PlainServant servant, other;
  const PortableServer::ObjectId a = oid_of("a"), b = oid_of("b"), empty = oid_of("");
  CORBA::Environment own_ev;
};
