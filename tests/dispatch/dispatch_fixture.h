// What the dispatch tests share: two roads to an object, servants that do what a test wants, and witnesses.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "echo.h"
#include "orb_fixture.h"
#include "poainfo.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

/// How long a test waits for what has to come.
inline constexpr std::chrono::seconds patience{30};
/// How long it watches that something does not come.
inline constexpr std::chrono::milliseconds a_while{50};
/// How many requests the ORB of these tests runs at once.
inline constexpr int requests_at_once = 12;

// ---- Calls ----------------------------------------------------------------------------------------------

/// Where a client is: in this process, or behind a socket.
enum class Road { InProcess, Socket };
std::string road_name(const testing::TestParamInfo<Road>& info);

/// `object` as a client on that road knows it.
CORBA::Object_var seen_from(Road road, CORBA::Object* object);
Demo::Echo_var echo_from(Road road, CORBA::Object* object);

/// What a call came to: "done", a user exception's id, or a system exception as "TRANSIENT 0x4b510301 NO".
std::string outcome(const std::function<void()>& call);
/// The same of an operation without arguments, by its name. "sent" without `response_expected`.
std::string outcome(CORBA::Object* object, const char* operation, bool response_expected = true);

// ---- Servants -------------------------------------------------------------------------------------------

PortableServer::ObjectId oid(const std::string& text);
std::string text(const PortableServer::ObjectId& id);
/// "poa:id" of the calling thread's request as the POA Current tells it; "none" outside requests.
std::string current_object();

class TestServant : public POA_Demo::Echo {
 public:
  explicit TestServant(std::function<void()> what = [] {}) : work(std::move(what)) {}
  ~TestServant() override { gone(); }

  char* echo_string(const char* s, CORBA::Environment& env) override;
  CORBA::Long add(CORBA::Long a, CORBA::Long b, CORBA::Environment& env) override;
  Demo::Octets* echo_octets(const Demo::Octets& data, CORBA::Environment& env) override;
  void refuse(const char* why, CORBA::Long code, CORBA::Environment& env) override;
  void note(const char* s, CORBA::Environment& env) override;
  CORBA::Long notes(CORBA::Environment& env) override;
  char* who(CORBA::Environment& env) override;
  void sleep_ms(CORBA::ULong ms, CORBA::Environment& env) override;
  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& env) override;

  /// Its lifespan is over now.
  void expire() { _timer = 1; }
  std::vector<std::string> noted();

  std::function<void()> work;       // what every operation of Echo does first
  std::function<void()> in_invoke;  // in place of the skeleton, when set
  std::function<void()> gone = [] {};

 private:
  std::mutex mutex_;
  std::vector<std::string> notes_;  // guarded by mutex_
};

class Activator : public PortableServer_ServantActivator_impl {
 public:
  PortableServer::ServantBase* incarnate(const PortableServer::ObjectId& id, PortableServer::POA* poa,
                                         CORBA::Environment&) override {
    return on_incarnate(id, poa);
  }
  void etherealize(const PortableServer::ObjectId& id, PortableServer::POA*, PortableServer::ServantBase* s,
                   CORBA::Boolean cleanup, CORBA::Boolean remaining, CORBA::Environment&) override {
    on_etherealize(text(id), s, cleanup, remaining);
  }
  std::function<PortableServer::ServantBase*(const PortableServer::ObjectId&, PortableServer::POA*)>
      on_incarnate = [](auto&, auto*) { return nullptr; };
  std::function<void(std::string, PortableServer::ServantBase*, bool, bool)> on_etherealize =
      [](std::string, auto*, bool, bool) {};
};

class Locator : public PortableServer_ServantLocator_impl {
 public:
  PortableServer::ServantBase* preinvoke(const PortableServer::ObjectId& id, PortableServer::POA*,
                                         const char* operation, Cookie& cookie,
                                         CORBA::Environment&) override {
    return on_preinvoke(text(id) + "." + operation, cookie);
  }
  void postinvoke(const PortableServer::ObjectId& id, PortableServer::POA*, const char* operation,
                  Cookie cookie, PortableServer::ServantBase* servant, CORBA::Environment&) override {
    on_postinvoke(text(id) + "." + operation, cookie, servant);
  }
  std::function<PortableServer::ServantBase*(std::string, Cookie&)> on_preinvoke = [](auto, auto&) {
    return nullptr;
  };
  std::function<void(std::string, Cookie, PortableServer::ServantBase*)> on_postinvoke = [](auto, auto,
                                                                                            auto*) {};
};

/// A POA with a manager of its own, ACTIVE, and what may serve in it. Destroyed at the end.
class Scene {
 public:
  explicit Scene(PortableServer::POA* parent) : parent_(parent) { manager->activate(); }
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// Makes the POA: USER_ID and these policies.
  template <class... Policy>
  Scene& with(Policy... values) {
    name = unique_name("scene");
    poa = parent_->create_POA(name.c_str(), manager, policies(parent_, PortableServer::USER_ID, values...));
    return *this;
  }
  Scene& activate(const std::string& id, PortableServer::ServantBase* s) {
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

/// A test on both roads, each in a POA of its own.
class Dispatch : public AdapterTest, public testing::WithParamInterface<Road> {
 protected:
  /// There is a child POA by now, so this announces the process: requests are served from here on.
  Dispatch() { default_poa_manager->activate(); }
  CORBA::Object_var seen(CORBA::Object* object) { return seen_from(GetParam(), object); }
  Demo::Echo_var echo(CORBA::Object* object) { return echo_from(GetParam(), object); }
};
#define BOTH_ROADS(Suite) \
  INSTANTIATE_TEST_SUITE_P(Roads, Suite, testing::Values(Road::InProcess, Road::Socket), road_name)

// ---- Witnesses ------------------------------------------------------------------------------------------

/// Something that happens once; waiting is bounded.
class Event {
 public:
  void set() {
    std::lock_guard lock(mutex_);
    if (!std::exchange(happened_, true)) promise_.set_value();
  }
  /// True when it happened within the time.
  bool wait(std::chrono::milliseconds limit = patience) const {
    return future_.wait_for(limit) == std::future_status::ready;
  }

 private:
  std::mutex mutex_;
  bool happened_ = false;
  std::promise<void> promise_;
  std::shared_future<void> future_ = promise_.get_future().share();
};

/// One request as it left the adapter's upcall.
struct Handled {
  std::string operation;
  bool response_expected = false;
  uint32_t major = 0;  // of the upcall's environment
  std::string reply;   // the message as far as it was encoded
};

/// While one lives, it sees what the upcall made of each request. One at a time.
class UpcallWitness {
 public:
  UpcallWitness();
  ~UpcallWitness();
  UpcallWitness(const UpcallWitness&) = delete;
  UpcallWitness& operator=(const UpcallWitness&) = delete;

  /// The first `count` requests; fewer, and a failure, when they do not come.
  std::vector<Handled> wait_for(std::size_t count);
  /// The next requests are for this target instead.
  std::function<void*(void* target)> redirect = [](void* target) { return target; };

  static void handle(void* target, void* request, CORBA_Environment* env);

 private:
  std::mutex mutex_;
  std::condition_variable more_;
  std::vector<Handled> handled_;  // guarded by mutex_
};

/// While one lives, it sees the adapter's calls of the ORB core for registration and queues: "lookup NAME",
/// "ready NAME", "queue CODE NAME". One at a time.
class CoreCalls {
 public:
  CoreCalls();
  ~CoreCalls();
  CoreCalls(const CoreCalls&) = delete;
  CoreCalls& operator=(const CoreCalls&) = delete;

  std::vector<std::string> take();
  /// Calls that start with this fail with NO_RESOURCES.
  void refuse(std::string start);
  /// Called for each: true when it is to fail.
  bool note(const std::string& call);

 private:
  std::mutex mutex_;
  std::vector<std::string> calls_;  // guarded by mutex_, as the next
  std::string refused_ = "nothing";
};

/// For the length of a test: a process that has announced nothing.
class Unregistered {
 public:
  Unregistered();
  ~Unregistered();
  Unregistered(const Unregistered&) = delete;
  Unregistered& operator=(const Unregistered&) = delete;

 private:
  const char* const name_;
  const int ready_;
};
