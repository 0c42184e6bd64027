// Servant managers, adapter activators and POA managers as programs of the standard mapping write them.

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "server.h"

namespace {

using CORBA::Object_var;
using PortableServer::ObjectId;
using PortableServer::POA_ptr;
using PortableServer::POA_var;
using PortableServer::Servant;

std::string text_of(const ObjectId& oid) {
  return {reinterpret_cast<const char*>(oid.get_buffer()), oid.length()};
}

/// What a manager was asked.
struct Asked {
  std::string log() const {
    std::string all;
    for (const std::string& line : lines) all += line + '\n';
    return all;
  }
  std::vector<std::string> lines;
  CORBA::Object_ptr elsewhere = nullptr;  // where "moved" is
  EchoServant* servant = nullptr;

  Servant give(const ObjectId& oid) {
    const std::string id = text_of(oid);
    if (id == "moved") throw PortableServer::ForwardRequest(elsewhere);
    if (id == "gone") throw CORBA::OBJECT_NOT_EXIST(7, CORBA::COMPLETED_NO);
    if (id == "none") return nullptr;
    return servant;
  }
};

/// An activator and a locator in both styles: as a servant, and as a local object.
template <class Base, class... More>
class Activator : public virtual Base, public virtual More... {
 public:
  explicit Activator(Asked& asked) : asked_(asked) {}
  ~Activator() override { asked_.lines.push_back("~"); }
  Servant incarnate(const ObjectId& oid, POA_ptr) override {
    asked_.lines.push_back("incarnate " + text_of(oid));
    return asked_.give(oid);
  }
  void etherealize(const ObjectId& oid, POA_ptr, Servant, CORBA::Boolean ending,
                   CORBA::Boolean remaining) override {
    asked_.lines.push_back("etherealize " + text_of(oid) + (ending ? " ending" : "") +
                           (remaining ? " remaining" : ""));
  }

 private:
  Asked& asked_;
};

template <class Base, class... More>
class Locator : public virtual Base, public virtual More... {
 public:
  explicit Locator(Asked& asked) : asked_(asked) {}
  ~Locator() override { asked_.lines.push_back("~"); }
  Servant preinvoke(const ObjectId& oid, POA_ptr, const char* operation, void*& cookie) override {
    asked_.lines.push_back("preinvoke " + text_of(oid) + ' ' + operation);
    cookie = new std::string(text_of(oid));
    Servant servant = nullptr;
    try {
      servant = asked_.give(oid);
    } catch (...) {
      delete static_cast<std::string*>(cookie);
      throw;
    }
    if (!servant) delete static_cast<std::string*>(cookie);
    return servant;
  }
  void postinvoke(const ObjectId& oid, POA_ptr, const char* operation, void* cookie, Servant) override {
    const std::unique_ptr<std::string> text(static_cast<std::string*>(cookie));
    asked_.lines.push_back("postinvoke " + text_of(oid) + ' ' + operation);
    EXPECT_EQ(text ? *text : "no cookie", text_of(oid));
    if (text_of(oid) == "late") throw CORBA::NO_RESOURCES();
  }

 private:
  Asked& asked_;
};

using ServantActivator = Activator<POA_PortableServer::ServantActivator>;
using LocalActivator = Activator<PortableServer::ServantActivator, CORBA::LocalObject>;
using ServantLocator = Locator<POA_PortableServer::ServantLocator>;
using LocalLocator = Locator<PortableServer::ServantLocator, CORBA::LocalObject>;

class ManagersTest : public StandardTest {
 protected:
  /// A POA that asks a manager, and the Echo object of that id in it, over a socket.
  POA_var managed(PortableServer::ServantRetentionPolicyValue retention) {
    return make_poa("managed", PortableServer::USER_ID, retention, PortableServer::USE_SERVANT_MANAGER);
  }
  Demo::Echo_var object(POA_ptr poa, const char* id) {
    const PortableServer::ObjectId_var oid = PortableServer::string_to_ObjectId(id);
    const Object_var made = poa->create_reference_with_id(oid, Demo::Echo::repository_id);
    orb->register_key(id, made);
    return Demo::Echo::_unchecked_narrow(Object_var(orb->string_to_object(far(id).c_str())));
  }
  /// Both ways to the object: over a socket and within the process.
  Demo::Echo_var near_object(POA_ptr poa, const char* id) {
    const PortableServer::ObjectId_var oid = PortableServer::string_to_ObjectId(id);
    return Demo::Echo::_unchecked_narrow(
        Object_var(poa->create_reference_with_id(oid, Demo::Echo::repository_id)));
  }

  void use_activator(PortableServer::ServantManager_ptr manager) {
    const POA_var poa = managed(PortableServer::RETAIN);
    poa->set_servant_manager(manager);
    EXPECT_EQ(object(poa, "a")->add(1, 2), 3);
    EXPECT_EQ(object(poa, "a")->add(1, 2), 3) << "incarnated once";
    EXPECT_EQ(near_object(poa, "moved")->add(2, 2), 4);
    EXPECT_STREQ(CORBA::String_var(object(poa, "moved")->who()).in(), "echo");
    EXPECT_THROW(object(poa, "gone")->add(1, 2), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(object(poa, "none")->add(1, 2), CORBA::UNKNOWN);
    const PortableServer::ObjectId_var a = PortableServer::string_to_ObjectId("a");
    poa->deactivate_object(a);
    EXPECT_EQ(object(poa, "b")->add(1, 2), 3);
    poa->destroy(true, true);
  }
  void use_locator(PortableServer::ServantManager_ptr manager) {
    const POA_var poa = managed(PortableServer::NON_RETAIN);
    poa->set_servant_manager(manager);
    EXPECT_EQ(object(poa, "a")->add(1, 2), 3);
    EXPECT_THROW(object(poa, "a")->refuse("no", 1), Demo::Refused);
    EXPECT_EQ(object(poa, "a")->_get_component(), nullptr) << "an operation that there is not";
    EXPECT_EQ(near_object(poa, "moved")->add(2, 2), 4);
    EXPECT_THROW(object(poa, "gone")->add(1, 2), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(object(poa, "late")->add(1, 2), CORBA::NO_RESOURCES) << "from postinvoke";
    poa->destroy(true, true);
  }

  Asked asked_{{}, echo, &other_};
  EchoServant other_;
};

constexpr const char* activator_log =
    "incarnate a\nincarnate moved\nincarnate moved\nincarnate gone\nincarnate none\n"
    "etherealize a\nincarnate b\netherealize b ending\n";
constexpr const char* locator_log =
    "preinvoke a add\npostinvoke a add\npreinvoke a refuse\npostinvoke a refuse\n"
    "preinvoke a _component\npostinvoke a _component\npreinvoke moved add\npreinvoke gone add\n"
    "preinvoke late add\npostinvoke late add\n";

TEST_F(ManagersTest, ActivatorsAreServantsOrLocalObjects) {
  {
    ServantActivator activator(asked_);
    const PortableServer::ServantActivator_var reference = activator._this();
    use_activator(reference);
    EXPECT_EQ(asked_.log(), activator_log);
  }
  asked_.lines.clear();
  use_activator(PortableServer::ServantManager_var(new LocalActivator(asked_)));
  EXPECT_EQ(asked_.log(), std::string(activator_log) + "~\n") << "the POA's count was the last";
}

TEST_F(ManagersTest, LocatorsAreServantsOrLocalObjects) {
  {
    ServantLocator locator(asked_);
    const PortableServer::ServantLocator_var reference = locator._this();
    use_locator(reference);
    EXPECT_EQ(asked_.log(), locator_log);
  }
  asked_.lines.clear();
  use_locator(PortableServer::ServantManager_var(new LocalLocator(asked_)));
  EXPECT_EQ(asked_.log(), std::string(locator_log) + "~\n") << "the POA's count was the last";
}

class Maker : public virtual POA_PortableServer::AdapterActivator {
 public:
  CORBA::Boolean unknown_adapter(POA_ptr parent, const char* name) override {
    if (name == std::string("Atlantis")) return false;
    POA_var(parent->create_POA(name, PortableServer::POAManager::_nil(), CORBA::PolicyList()));
    return true;
  }
};

TEST_F(ManagersTest, AdapterActivatorsMakePOAs) {
  Maker maker;
  root->the_activator(PortableServer::AdapterActivator_var(maker._this()));
  const POA_var made = root->find_POA("made", true);
  EXPECT_STREQ(CORBA::String_var(made->the_name()).in(), "made");
  EXPECT_THROW(root->find_POA("Atlantis", true), PortableServer::POA::AdapterNonExistent);
  EXPECT_NE(PortableServer::AdapterActivator_var(root->the_activator()).in(), nullptr);
  root->the_activator(nullptr);
  const CORBA::OctetSeq_var one = root->id(), another = made->id();
  EXPECT_FALSE(std::equal(one->get_buffer(), one->get_buffer() + one->length(), another->get_buffer()));
  made->destroy(true, true);
}

/// Tells through the Current who it is, and calls the object that it was given.
class Nesting : public EchoServant {
 public:
  explicit Nesting(PortableServer::Current_ptr current) : current_(current) {}
  CORBA::Long notes() override {
    const Object_var self = current_->get_reference();
    EXPECT_EQ(PortableServer::ServantBase_var(current_->get_servant()).in(), this);
    return Demo::Echo_var(Demo::Echo::_narrow(self))->add(20, 22);
  }
  /// Counts how many are in it at once.
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override {
    const int now = ++in_;
    if (now > most) most = now;
    if (now == 1) std::this_thread::yield();
    --in_;
    return a + b;
  }
  void sleep_ms(CORBA::ULong) override {
    entered.set_value();
    released.wait_for(std::chrono::seconds(20));
  }
  std::promise<void> entered;
  std::atomic<int> most{0};

 private:
  PortableServer::Current_ptr current_;
  std::atomic<int> in_{0};
};

TEST_F(ManagersTest, SingleThreadPOAsRunOneRequestAtATime) {
  const POA_var single = make_poa("single", PortableServer::SINGLE_THREAD_MODEL);
  const PortableServer::Current_var current =
      PortableServer::Current::_narrow(Object_var(orb->resolve_initial_references("POACurrent")));
  Nesting nesting(current);
  const PortableServer::ObjectId_var id = single->activate_object(&nesting);
  const Object_var reference = single->id_to_reference(id);
  const Demo::Echo_var here = Demo::Echo::_narrow(reference);
  orb->register_key("Single", reference);
  const Demo::Echo_var there = Demo::Echo::_narrow(Object_var(orb->string_to_object(far("Single").c_str())));

  EXPECT_EQ(here->notes(), 42) << "a nested call of the same chain goes through";
  EXPECT_EQ(there->notes(), 42);
  nesting.most = 0;
  auto slow = std::async(std::launch::async, [&] { there->sleep_ms(0); });
  ASSERT_EQ(nesting.entered.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  // More of them than the ORB has slots: they wait without one, and others are served meanwhile.
  std::vector<std::future<CORBA::Long>> calls;
  for (int i = 0; i < 40; ++i)
    calls.push_back(std::async(std::launch::async, [&, i] { return (i % 2 ? here : there)->add(i, i); }));
  EXPECT_EQ(far_echo(orb)->add(1, 2), 3);
  EXPECT_EQ(nesting.most, 0);
  nesting.release.set_value();
  slow.get();
  for (int i = 0; i < 40; ++i) EXPECT_EQ(calls[static_cast<std::size_t>(i)].get(), 2 * i);
  EXPECT_EQ(nesting.most, 1);
  single->destroy(true, true);
}

TEST_F(ManagersTest, EachPOAManagerHasAStateOfItsOwn) {
  using PortableServer::POAManager;
  const PortableServer::POAManagerFactory_var factory = root->the_POAManagerFactory();
  const CORBA::ULong before = PortableServer::POAManagerList_var(factory->list())->length();
  const std::string name = "own " + std::to_string(before);  // managers last as long as the process
  const PortableServer::POAManager_var own = factory->create_POAManager(name.c_str(), {});
  EXPECT_THROW(factory->create_POAManager(name.c_str(), {}),
               PortableServer::POAManagerFactory::ManagerAlreadyExists);
  EXPECT_STREQ(CORBA::String_var(PortableServer::POAManager_var(factory->find(name.c_str()))->get_id()).in(),
               name.c_str());
  EXPECT_EQ(PortableServer::POAManagerList_var(factory->list())->length(), before + 1);
  EXPECT_EQ(own->get_state(), POAManager::HOLDING);

  const POA_var poa = root->create_POA("own", own, CORBA::PolicyList());
  EchoServant servant_of_own;
  const PortableServer::ObjectId_var id = poa->activate_object(&servant_of_own);
  const Object_var reference = poa->id_to_reference(id);
  orb->register_key("Own", reference);
  const Demo::Echo_var here = Demo::Echo::_unchecked_narrow(reference);
  const Demo::Echo_var there =
      Demo::Echo::_unchecked_narrow(Object_var(orb->string_to_object(far("Own").c_str())));
  const Demo::Echo_var others = far_echo(orb);

  const auto held = [&](Demo::Echo_ptr object) {
    auto call = std::async(std::launch::async, [object] { return object->add(1, 2); });
    for (int i = 0; i < 3; ++i) EXPECT_EQ(others->add(i, 1), i + 1) << "the others go on";
    EXPECT_EQ(servant_of_own.calls, 0);
    return call;
  };
  auto first = held(here), second = held(there);
  own->activate();
  EXPECT_EQ(first.get() + second.get(), 6);
  own->discard_requests(false);
  EXPECT_THROW(there->add(1, 2), CORBA::TRANSIENT);
  EXPECT_EQ(others->add(1, 2), 3);

  // The root POA's holds alone, too.
  const PortableServer::POAManager_var shared = root->the_POAManager();
  own->activate();
  shared->hold_requests(false);
  auto waiting = std::async(std::launch::async, [&] { return others->add(3, 4); });
  EXPECT_EQ(there->add(1, 2), 3);
  shared->activate();
  EXPECT_EQ(waiting.get(), 7);
  own->deactivate(true, true);
  EXPECT_THROW(there->add(1, 2), CORBA::UNKNOWN);
  EXPECT_THROW(own->activate(), POAManager::AdapterInactive);
  poa->destroy(true, true);
}

}  // namespace
