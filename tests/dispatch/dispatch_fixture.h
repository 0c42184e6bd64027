// What the dispatch tests share: two roads to an object, servants that do what a test wants, and witnesses.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <mutex>
#include <ostream>
#include <semaphore>

#include "any_echo.h"
#include "base/corehandles.h"
#include "base/locks.h"
#include "dispatch/upcalls.h"
#include "objects/activeobjectmap.h"
#include "objects/servantreferences.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "records/currentinfo.h"
#include "records/poainfo.h"
#include "records/poamanagerinfo.h"
#include "records/registration.h"
#include "trace_recorder.h"

inline constexpr std::chrono::seconds patience{30};      // for what has to come
inline constexpr std::chrono::milliseconds a_while{50};  // for what is not to come
inline constexpr int requests_at_once = 12;              // that the ORB of these tests runs

/// Where a client is: in this process, or behind a socket.
enum class Road { InProcess, Socket };
inline std::ostream& operator<<(std::ostream& out, Road road) {
  return out << (road == Road::InProcess ? "InProcess" : "Socket");
}

/// `object` as a client on that road knows it.
CORBA::Object_var seen_from(Road road, CORBA::Object* object);

/// What a call came to: "done", a user exception's id, or a system exception as "TRANSIENT 0x4b510301 NO".
std::string outcome(const std::function<void()>& call);
/// The same of an operation without arguments, by its name. "sent" without `response_expected`.
std::string outcome(CORBA::Object* object, const char* operation = "notes", bool response_expected = true);
inline std::future<std::string> outcome_of_a_thread(CORBA::Object* object) {
  return std::async(std::launch::async, [object] { return outcome(object); });
}

inline PortableServer::ObjectId oid(const std::string& text) {
  return PortableServer::ObjectId_var(PortableServer::string_to_ObjectId(text.c_str())).in();
}
inline std::string text(const PortableServer::ObjectId& id) { return std::string(oid_view(id)); }
/// "poa:id" of the calling thread's request as the POA Current tells it; "none" outside requests.
std::string current_object();

class TestServant : public AnyEcho {
 public:
  explicit TestServant(std::function<void()> what = [] {}) : work(std::move(what)) {}
  ~TestServant() override { gone(); }

  CORBA::Long notes() override { return work(), 0; }
  char* who() override { return CORBA::string_dup(current_object().c_str()); }
  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) override {
    if (!in_invoke) return Echo::invoke(request, ev);
    in_invoke();
    return 1;
  }
  /// Its lifespan is over now.
  void expire() { _timer = 1; }

  std::function<void()> work;       // of the operation notes
  std::function<void()> in_invoke;  // in place of the skeleton, when set
  std::function<void()> gone = [] {};
};

using PortableServer::ObjectId;
using PortableServer::ServantBase;

class Activator : public PortableServer_ServantActivator_impl {
 public:
  ServantBase* incarnate(const ObjectId& id, PortableServer::POA* poa, CORBA::Environment&) override {
    return on_incarnate(id, poa);
  }
  void etherealize(const ObjectId& id, PortableServer::POA*, ServantBase* servant, CORBA::Boolean cleanup,
                   CORBA::Boolean remaining, CORBA::Environment&) override {
    on_etherealize(text(id), servant, cleanup, remaining);
  }
  std::function<ServantBase*(const ObjectId&, PortableServer::POA*)> on_incarnate = [](auto&, auto*) {
    return nullptr;
  };
  std::function<void(std::string, ServantBase*, bool, bool)> on_etherealize = [](auto, auto*, bool, bool) {};
};

class Locator : public PortableServer_ServantLocator_impl {
 public:
  ServantBase* preinvoke(const ObjectId& id, PortableServer::POA*, const char* operation, Cookie& cookie,
                         CORBA::Environment&) override {
    return on_preinvoke(text(id) + "." + operation, cookie);
  }
  void postinvoke(const ObjectId& id, PortableServer::POA*, const char* operation, Cookie cookie,
                  ServantBase* servant, CORBA::Environment&) override {
    on_postinvoke(text(id) + "." + operation, cookie, servant);
  }
  std::function<ServantBase*(std::string, Cookie&)> on_preinvoke = [](auto, auto&) { return nullptr; };
  std::function<void(std::string, Cookie, ServantBase*)> on_postinvoke = [](auto, auto, auto*) {};
};

/// A POA with a manager of its own, ACTIVE, and what may serve in it. Destroyed at the end.
class Scene {
 public:
  explicit Scene(PortableServer::POA* parent) : parent_(parent) { manager->activate(); }
  ~Scene() {
    if (poa.in()) outcome([this] { poa->destroy(false, false); });  // unless the test did it
    CORBA::release(manager);
  }

  /// Makes the POA: USER_ID and these policies.
  template <class... Policy>
  Scene& with(Policy... values) {
    name = unique_name("scene");
    poa = parent_->create_POA(name.c_str(), manager, policies(parent_, PortableServer::USER_ID, values...));
    return *this;
  }
  Scene& with_activator() {
    with(PortableServer::USE_SERVANT_MANAGER).poa->set_servant_manager(&activator);
    return *this;
  }
  Scene& with_locator() {
    using namespace PortableServer;
    with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID).poa->set_servant_manager(&locator);
    return *this;
  }
  Scene& activate(const std::string& id, ServantBase* s) {
    poa->activate_object_with_id(oid(id), s);
    return *this;
  }
  CORBA::Object_var reference(const std::string& id) {
    return poa->create_reference_with_id(oid(id), Demo::Echo::repository_id);
  }
  POAInfoPtr record() { return POAInfo::findPOAInfo(poa, CORBA::Environment().self()); }

  POAManagerInfo manager_record;
  PortableServer::POAManager* const manager = manager_record.poamanager_object;
  std::string name;
  PortableServer::POA_var poa;
  TestServant servant, other;
  Activator activator;
  Locator locator;

 private:
  PortableServer::POA* const parent_;
};

/// A test of clients that are lost, with servants whose end it can see.
class LostClients : public AdapterTest {
 protected:
  class Callback : public PortableServer::POAdisconnect {
   public:
    CORBA::Boolean release_instance(PortableServer::POA* poa, ServantBase* servant, ObjectId& id,
                                    CORBA::Environment&) override {
      objects.push_back(CORBA::String_var(poa->the_name()).in() + (":" + text(id)));
      asked.push_back(servant);
      return answer(servant);
    }
    std::vector<std::string> objects;
    std::vector<ServantBase*> asked;
    std::function<bool(ServantBase*)> answer = [](auto*) { return true; };
  };
  ~LostClients() override { PortableServer::POAdisconnect::setDisconnect(nullptr, own_ev); }
  TestServant* mortal() {
    auto* servant = new TestServant;
    ++alive;
    servant->gone = [this] { --alive; };
    return servant;
  }

  std::atomic<int> alive{0};
  Callback callback;
  Scene scene{top};
  CORBA::Environment own_ev;
};

/// A test on both roads, each in a POA of its own.
class Dispatch : public AdapterTest, public testing::WithParamInterface<Road> {
 protected:
  /// There is a child POA by now, so this announces the process: requests are served from here on.
  Dispatch() { default_poa_manager->activate(); }
  CORBA::Object_var seen(CORBA::Object* object) { return seen_from(GetParam(), object); }
  Demo::Echo_var echo(CORBA::Object* object) { return Demo::Echo::_unchecked_narrow(seen(object)); }
};
#define BOTH_ROADS(Suite)                                                                \
  INSTANTIATE_TEST_SUITE_P(Roads, Suite, testing::Values(Road::InProcess, Road::Socket), \
                           testing::PrintToStringParamName())

/// Something that happens once; waiting is bounded.
class Event {
 public:
  void set() { passes_.release(1000); }
  bool wait() { return passes_.try_acquire_for(patience); }

 private:
  std::counting_semaphore<> passes_{0};
};

/// While one lives, it sees the adapter's calls of the ORB core for registration and queues: "lookup NAME",
/// "ready", "queue CODE NAME". One at a time.
class CoreCalls {
 public:
  CoreCalls() { current = this; }
  ~CoreCalls() { current = nullptr; }
  std::vector<std::string> take() {
    std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
  }
  /// Calls that start with this fail with NO_RESOURCES.
  void refuse(std::string start) {
    std::lock_guard lock(mutex_);
    refused_ = std::move(start);
  }
  /// Called for each: true when it is to fail.
  bool note(const std::string& call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(call);
    return call.starts_with(refused_);
  }
  static inline std::atomic<CoreCalls*> current{nullptr};

 private:
  std::mutex mutex_;
  std::vector<std::string> calls_;  // guarded by mutex_, as the next
  std::string refused_ = "nothing";
};

/// For the length of a test: a process that has announced nothing.
class Unregistered {
 public:
  Unregistered() { clear_implementation_table(); }
  ~Unregistered() {
    clear_implementation_table();
    CORBA::string_free(const_cast<char*>(POA_impl_name.exchange(name_)));
    POA_impl_is_ready_fl = ready_;
  }
  Unregistered(const Unregistered&) = delete;
  Unregistered& operator=(const Unregistered&) = delete;

 private:
  const char* const name_ = POA_impl_name.exchange(nullptr);
  const int ready_ = POA_impl_is_ready_fl.exchange(0);
};
