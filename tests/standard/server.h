// A server and its client in one process, as programs of the standard mapping are written.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "echo.h"
#include "poa.h"
#include "policy_list.h"

/// Does what the interface says; tests look at what it saw.
class EchoServant : public POA_Demo::Echo {
 public:
  char* echo_string(const char* s) override { return ran(), CORBA::string_dup(s); }
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return ran(), a + b; }
  Demo::Octets* echo_octets(const Demo::Octets& d) override { return ran(), new Demo::Octets(d); }
  void refuse(const char* why, CORBA::Long code) override {
    ran();
    throw Demo::Refused(why, code);
  }
  void note(const char* s) override {
    ran();
    noted.set_value(s);
  }
  CORBA::Long notes() override { return ran(), calls; }
  char* who() override { return ran(), CORBA::string_dup("echo"); }
  /// Waits until it is released.
  void sleep_ms(CORBA::ULong) override {
    ran();
    released.wait_for(std::chrono::seconds(20));
  }

  std::atomic<int> calls{0};
  std::atomic<std::thread::id> thread;
  std::promise<std::string> noted;
  std::promise<void> release;

 protected:
  std::shared_future<void> released = release.get_future().share();

 private:
  void ran() { ++calls, thread = std::this_thread::get_id(); }
};

inline CORBA::ORB_ptr make_orb(std::vector<std::string> arguments = {}, const char* id = "") {
  std::vector<char*> argv{const_cast<char*>("test")};
  for (std::string& a : arguments) argv.push_back(a.data());
  auto argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  return CORBA::ORB_init(argc, argv.data(), id);
}

/// The ORB with the adapter, and an Echo object in it.
class StandardTest : public testing::Test {
 protected:
  /// Whether run() is called, or the test does the work itself.
  enum class Serving { ByTheOrb, ByTheProgram };
  explicit StandardTest(std::vector<std::string> arguments = {}, Serving how = Serving::ByTheOrb)
      : orb(make_orb(std::move(arguments))) {
    const CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    root = PortableServer::POA::_narrow(object);
    PortableServer::POAManager_var(root->the_POAManager())->activate();
    echo = servant->_this();
    if (how == Serving::ByTheOrb) serving = std::thread([this] { orb->run(); });
  }
  ~StandardTest() override {
    try {
      const PortableServer::ObjectId_var id = root->servant_to_id(servant.get());
      root->deactivate_object(id);
      orb->shutdown(false);
      if (serving.joinable()) serving.join();
      orb->destroy();
    } catch (const CORBA::Exception& e) {
      ADD_FAILURE() << e;
    }
  }

  static std::string port() {
    const std::string at = ZR_published_endpoint(CORBA::OM_this_ORB, 0);
    return at.substr(at.rfind(':') + 1);
  }
  /// The text of a reference that calls go over a socket for.
  static std::string far(const std::string& key) {
    return "corbaloc:iiop:1.2@localhost:" + port() + "/" + key;
  }
  /// The Echo object over a socket, as `of` sees it.
  Demo::Echo_var far_echo(CORBA::ORB_ptr of) {
    orb->register_key("Echo", echo);
    const CORBA::Object_var object = of->string_to_object(far("Echo").c_str());
    return Demo::Echo::_narrow(object);
  }

  /// A POA of these policies: make_poa("child", PortableServer::USER_ID, PortableServer::NON_RETAIN).
  template <class... Policy>
  PortableServer::POA_var make_poa(const char* name, Policy... values) {
    return root->create_POA(name, PortableServer::POAManager::_nil(), policies(root.in(), values...));
  }
  /// A list with that limit for the time of a call.
  CORBA::PolicyList time_limit_of(std::chrono::milliseconds ms) {
    CORBA::Any value;
    value <<= TimeBase::TimeT(ms.count()) * 10000;
    CORBA::PolicyList list;
    list.length(1);
    list[0] = orb->create_policy(Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE, value);
    return list;
  }
  CORBA::Object_var limited(CORBA::Object_ptr object, long milliseconds) {
    return object->_set_policy_overrides(time_limit_of(std::chrono::milliseconds(milliseconds)),
                                         CORBA::SET_OVERRIDE);
  }

  CORBA::ORB_var orb;
  PortableServer::POA_var root;
  std::unique_ptr<EchoServant> servant = std::make_unique<EchoServant>();
  Demo::Echo_var echo;

 private:
  std::thread serving;
};
