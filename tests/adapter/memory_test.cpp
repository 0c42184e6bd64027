// What operations leave behind when memory runs out in the middle of them.
#include "any_echo.h"
#include "dispatch/upcalls.h"
#include "objects.h"
#include "records/currentinfo.h"
#include "replaced_new.h"

using namespace PortableServer;

namespace {

thread_local int allocations_left = -1;  // of the calling thread; below 0: any number
thread_local bool none_from_then_on = false;

class Memory : public ObjectTest {
 protected:
  /// Runs the operation with its n-th allocation failing, for every n, until it works: else it raises NO_MEMORY, or
  /// one of `instead`, where it has an exception for all failures, and reports the same in `ev`. `check` looks at what a
  /// failure left behind. Each n comes twice, for the first time may have made a table grow for good.
  template <class Operation, class Check>
  void sweep(Operation&& operation, Check&& check, std::string_view instead = "BAD_PARAM") {
    for (int round = 0; round < 2000 && !HasFailure(); ++round) {
      const int n = round / 2;
      SCOPED_TRACE(n);
      CORBA::Environment ev;
      std::string raised;
      allocations_left = n;
      try {
        operation(ev);
        if (allocations_left >= 0) round = 2000;  // none has failed
        allocations_left = -1;
        continue;
      } catch (const CORBA::Exception& e) {
        EXPECT_LT(std::exchange(allocations_left, -1), 0)
            << e._name() << " was raised, and no allocation had failed";
        raised = e._name();
      } catch (...) {
        allocations_left = -1;
        raised = "something else";
      }
      EXPECT_TRUE(raised == "NO_MEMORY" || instead.find(raised) != instead.npos) << raised;
      EXPECT_STREQ(ev.exception() ? ev.exception()->_name() : "nothing", raised.c_str());
      check();
    }
    EXPECT_LT(allocations_left, 0);
  }
};

}  // namespace

void* allocate_for_new(std::size_t octets) noexcept {
  if (allocations_left == 0) {
    if (!none_from_then_on) allocations_left = -1;  // one fails; whoever reports it has memory
    return nullptr;
  }
  if (allocations_left > 0) --allocations_left;
  return std::malloc(octets ? octets : 1);
}

TEST_F(Memory, APoaIsMadeWholeOrNotAtAll) {
  POA_var made;
  sweep([&](auto& ev) { made = top->create_POA("new", nullptr, {}, ev); },
        [&] { EXPECT_EQ(POAList_var(top->the_children())->length(), 0u); });
  EXPECT_TRUE(made.in());
}

// Where not even the exception's copy for the environment can be had, it is thrown all the same.
TEST_F(Memory, WithoutAnyItIsNoMemory) {
  child(top, "A");
  const std::function<void(CORBA::Environment&)> operations[] = {
      [&](auto& ev) { POA_var made = top->create_POA("B", nullptr, {}, ev); },
      [&](auto& ev) { POAList_var list = top->the_children(ev); },
      [&](auto& ev) { POA_var found = top->find_POA("A", false, ev); },
      [&](auto& ev) { ObjectId_var id = top->activate_object(&servant, ev); },
      [&](auto& ev) { CORBA::Object_var made = top->create_reference("IDL:test/Plain:1.0", ev); },
      [&](auto& ev) { servant.set_timer(9, ev); }};
  for (const auto& operation : operations) {
    std::string raised;
    for (int n = 0; n < 100 && raised != "nothing"; ++n) {
      SCOPED_TRACE(testing::Message() << &operation - operations << ", " << n);
      CORBA::Environment ev;
      raised = "nothing";
      allocations_left = n;
      none_from_then_on = true;
      try {
        operation(ev);
        allocations_left = -1;
      } catch (const CORBA::Exception& e) {
        allocations_left = -1;
        raised = e._name();
      } catch (...) {
        allocations_left = -1;
        raised = "something else";
      }
      none_from_then_on = false;
      EXPECT_TRUE(raised == "NO_MEMORY" || (n > 0 && raised == "nothing")) << raised;
      EXPECT_EQ(ev.exception(), nullptr);
    }
    EXPECT_EQ(raised, "nothing");
  }
}

TEST_F(Memory, LookingAtTheTree) {
  child(top, "A");
  child(top, "B");
  const auto whole = [&] { EXPECT_EQ(POAList_var(top->the_children())->length(), 2u); };
  sweep([&](auto& ev) { POA_var found = top->find_POA("A", false, ev); }, whole);
  sweep([&](auto& ev) { POAList_var list = top->the_children(ev); }, whole);
  sweep([&](auto& ev) { const CORBA::OctetSeq_var id = top->id(ev); }, whole);
}

// No servant is handed over without its id, and none is forgotten.
TEST_F(Memory, ATeardownThatStopsGoesOn) {
  Etherealizer etherealizer;
  POA_var poa = child(top, "torn down", policies(root, USE_SERVANT_MANAGER, USER_ID));
  poa->set_servant_manager(&etherealizer);
  poa->activate_object_with_id(a, &servant);
  poa->activate_object_with_id(b, &other);
  std::string handed_over;
  etherealizer.calls.reserve(8);
  sweep([&](auto& ev) { poa->destroy(true, false, ev); }, [] {});
  for (const auto& call : etherealizer.calls) handed_over += std::get<0>(call);
  EXPECT_EQ(handed_over, "ab");
}

// The last request that leaves has nobody to tell that there is no memory.
TEST_F(Memory, AServantIsListedForDeletionWithoutMemory) {
  struct Doomed : PlainServant {
    explicit Doomed(std::atomic<int>& count) : left(count) {}
    ~Doomed() override { --left; }
    std::atomic<int>& left;
  };
  std::atomic<int> left{3};
  auto *first = new Doomed(left), *second = new Doomed(left), *third = new Doomed(left);
  const MutexGuard no_other_tick(poa_svt_delete_mutex);
  {
    const ServantUse request(second);
    allocations_left = 0;
    for (ServantBase* each : {first, second, third}) each->servant_delete();
  }
  EXPECT_EQ(std::exchange(allocations_left, -1), 0) << "it asked for memory";
  call_poa_inst_lifespan();
  EXPECT_EQ(left, 0);
}

// ---- Every operation ----

/// A row: the operation, and what it raises whatever has failed.
struct Operation {
  const char* name;
  std::function<void(CORBA::Environment&)> run;
  const char* instead = "";
};

class MemoryOfEach : public Memory {
 protected:
  void sweep_all(const std::vector<Operation>& operations) {
    for (const Operation& each : operations) {
      SCOPED_TRACE(each.name);
      sweep(
          each.run, [] {}, each.instead);
    }
  }

  POA_var by_name = child(top, "by name", policies(root, USER_ID));
  POA_var implicit = child(top, "implicit", policies(root, IMPLICIT_ACTIVATION));
  POA_var managed = child(top, "managed", policies(root, USER_ID, USE_SERVANT_MANAGER));
  POA_var by_default = child(top, "by default", policies(root, MULTIPLE_ID, USE_DEFAULT_SERVANT));
  POA_var found;
  CORBA::Object_var reference;
  ObjectId_var oid;
  PlainServant another;
};

TEST_F(MemoryOfEach, OfTheTreeAndItsPolicies) {
  PortableServer_AdapterActivator_impl activator;
  CORBA::Policy_var policy;
  CORBA::String_var text;
  POAList_var children;
  POAManager_var manager;
  sweep_all({
      {"the_name", [&](auto& ev) { text = top->the_name(ev); }, "BAD_PARAM"},
      {"the_parent", [&](auto& ev) { found = by_name->the_parent(ev); }},
      {"the_children", [&](auto& ev) { children = top->the_children(ev); }},
      {"the_POAManager", [&](auto& ev) { manager = top->the_POAManager(ev); }},
      {"the_activator", [&](auto& ev) { top->the_activator(&activator, ev); }},
      {"the_activator, asked", [&](auto& ev) { AdapterActivator_var(top->the_activator(ev)); }},
      {"find_POA", [&](auto& ev) { found = top->find_POA("managed", false, ev); }},
      {"id", [&](auto& ev) { CORBA::OctetSeq_var(top->id(ev)); }},
      {"create_thread_policy", [&](auto& ev) { policy = top->create_thread_policy(ORB_CTRL_MODEL, ev); }},
      {"create_lifespan_policy", [&](auto& ev) { policy = top->create_lifespan_policy(PERSISTENT, ev); }},
      {"create_id_uniqueness_policy",
       [&](auto& ev) { policy = top->create_id_uniqueness_policy(UNIQUE_ID, ev); }},
      {"create_id_assignment_policy",
       [&](auto& ev) { policy = top->create_id_assignment_policy(USER_ID, ev); }},
      {"create_implicit_activation_policy",
       [&](auto& ev) { policy = top->create_implicit_activation_policy(IMPLICIT_ACTIVATION, ev); }},
      {"create_servant_retention_policy",
       [&](auto& ev) { policy = top->create_servant_retention_policy(RETAIN, ev); }},
      {"create_request_processing_policy",
       [&](auto& ev) { policy = top->create_request_processing_policy(USE_SERVANT_MANAGER, ev); }},
      {"a policy's copy", [&](auto& ev) { CORBA::Policy_var(policy->copy(ev)); }},
  });
  top->destroy(false, false);
}

TEST_F(MemoryOfEach, OfObjectsAndTheirServants) {
  Etherealizer etherealizer;
  by_name->activate_object_with_id(b, &other);
  sweep_all({
      {"set_servant_manager", [&](auto& ev) { managed->set_servant_manager(&etherealizer, ev); }},
      {"get_servant_manager", [&](auto& ev) { managed->get_servant_manager(ev); }},
      {"set_incarnation_limit", [&](auto& ev) { managed->set_incarnation_limit(5, ev); }},
      {"set_servant", [&](auto& ev) { by_default->set_servant(&another, ev); }, "BAD_PARAM"},
      {"get_servant", [&](auto& ev) { by_default->get_servant(ev); }},
      {"activate_object",
       [&](auto& ev) {
         oid = top->activate_object(&servant, ev);
         const int left = std::exchange(allocations_left, -1);
         top->deactivate_object(oid);
         allocations_left = left;
       },
       "BAD_PARAM ServantAlreadyActive"},
      {"activate_object_with_id", [&](auto& ev) { by_name->activate_object_with_id(a, &servant, ev); },
       "ServantAlreadyActive"},
      {"create_reference", [&](auto& ev) { reference = top->create_reference("IDL:x:1.0", ev); },
       "BAD_PARAM"},
      {"create_reference_with_id",
       [&](auto& ev) { reference = by_name->create_reference_with_id(a, "IDL:x:1.0", ev); }, "BAD_PARAM"},
      {"reference_to_servant", [&](auto& ev) { by_name->reference_to_servant(reference, ev); },
       "ObjectNotActive WrongAdapter"},
      {"reference_to_id", [&](auto& ev) { oid = by_name->reference_to_id(reference, ev); }, "WrongAdapter"},
      {"id_to_servant", [&](auto& ev) { by_name->id_to_servant(a, ev); }, "ObjectNotActive"},
      {"id_to_reference", [&](auto& ev) { reference = by_name->id_to_reference(a, ev); }, "ObjectNotActive"},
      {"servant_to_id", [&](auto& ev) { oid = implicit->servant_to_id(&servant, ev); }, "ServantNotActive"},
      {"servant_to_id, of the default servant",
       [&](auto& ev) { oid = by_default->servant_to_id(&servant, ev); }, "ServantNotActive"},
      {"servant_to_reference", [&](auto& ev) { reference = implicit->servant_to_reference(&other, ev); },
       "ServantNotActive"},
      {"deactivate_object", [&](auto& ev) { by_name->deactivate_object(a, ev); }},
      {"set_servant, of none", [&](auto& ev) { by_default->set_servant(nullptr, ev); }},
  });
  EXPECT_EQ(entries_of(*record_of(by_name), servant) + entries_of(*record_of(by_name), other), 1);
  top->destroy(false, false);
}

TEST_F(MemoryOfEach, OfManagersAndTheCurrent) {
  const std::string id = unique_name("manager");
  const CurrentContext context(top, "served", true, top, &servant);
  POAManagerFactory_var factory;
  POAManager_var manager;
  POAManagerList_var all;
  CORBA::String_var text;
  sweep_all({
      {"the_POAManagerFactory", [&](auto& ev) { factory = top->the_POAManagerFactory(ev); }},
      {"create_POAManager", [&](auto& ev) { manager = factory->create_POAManager(id.c_str(), {}, ev); },
       "BAD_PARAM"},
      {"list", [&](auto& ev) { all = factory->list(ev); }},
      {"find", [&](auto& ev) { manager = factory->find(id.c_str(), ev); }},
      {"get_id", [&](auto& ev) { text = manager->get_id(ev); }},
      {"get_state", [&](auto& ev) { manager->get_state(ev); }},
      {"activate", [&](auto& ev) { manager->activate(ev); }, "AdapterInactive BAD_PARAM"},
      {"hold_requests", [&](auto& ev) { manager->hold_requests(false, ev); }, "AdapterInactive"},
      {"discard_requests", [&](auto& ev) { manager->discard_requests(false, ev); }, "AdapterInactive"},
      {"get_POA", [&](auto& ev) { found = poa_current->get_POA(ev); }},
      {"get_object_id", [&](auto& ev) { oid = poa_current->get_object_id(ev); }},
      {"get_reference", [&](auto& ev) { reference = poa_current->get_reference(ev); }},
      {"Current::get_servant", [&](auto& ev) { poa_current->get_servant(ev); }},
  });
  EXPECT_STREQ(text.in(), id.c_str());
  EXPECT_EQ(text_of(oid), "served");
}

/// Lends one servant out, and knows whether it has it back.
template <class Base>
struct Lender : Base {
  AnyEcho echo;
  int out = 0;
};
struct LendingActivator : Lender<PortableServer_ServantActivator_impl> {
  ServantBase* incarnate(const ObjectId&, POA*, CORBA::Environment&) override { return ++out, &echo; }
  void etherealize(const ObjectId&, POA*, ServantBase*, CORBA::Boolean, CORBA::Boolean,
                   CORBA::Environment&) override {
    --out;
  }
};
struct LendingLocator : Lender<POA_PortableServer::ServantLocator> {  // whose postinvoke is always called
  ServantBase* preinvoke(const ObjectId&, POA*, const char*, void*&) override { return ++out, &echo; }
  void postinvoke(const ObjectId&, POA*, const char*, void*, ServantBase*) override { --out; }
};

// A count that was taken is given back, and a manager that could not be counted is not set.
TEST_F(MemoryOfEach, OfManagersThatCount) {
  struct Counting : ServantActivator, AdapterActivator, CORBA::LocalObject {
    explicit Counting(int& count) : left(count) { ++left; }
    ~Counting() override { --left; }
    int& left;
  };
  int left = 0;
  ServantManager_var manager = new Counting(left);
  AdapterActivator_var activator = new Counting(left);
  LendingLocator locator;
  sweep_all({
      {"a manager's _this", [&](auto& ev) { ServantLocator_var(locator._this(ev)); }},
      {"set_servant_manager", [&](auto& ev) { managed->set_servant_manager(manager, ev); }},
      {"the_activator", [&](auto& ev) { managed->the_activator(activator, ev); }},
  });
  EXPECT_EQ(left, 2);
  manager = nullptr;
  activator = nullptr;
  managed->destroy(false, false);
  EXPECT_EQ(left, 0);
}

// A request that has no memory is refused, leaves nobody in the servant, and what an activator or a locator has lent
// goes back to it.
TEST_F(MemoryOfEach, OfRequests) {
  POAManager_var(root->the_POAManager())->activate();
  AnyEcho echo;
  LendingActivator activator;
  LendingLocator locator;
  POA_var located = child(top, "located", policies(root, USER_ID, NON_RETAIN, USE_SERVANT_MANAGER));
  managed->set_servant_manager(&activator);
  located->set_servant_manager(ServantLocator_var(locator._this()));
  by_default->set_servant(&echo);
  by_name->activate_object_with_id(a, &echo);
  const struct {
    const char* name;
    POA* poa;
    ServantBase& servant;
    std::function<bool()> kept;
  } scenes[] = {
      {"active", by_name, echo, [] { return true; }},
      {"default", by_default, echo, [] { return true; }},
      {"activator's", managed, activator.echo, [&] { return activator.out <= 1; }},
      {"locator's", located, locator.echo, [&] { return locator.out == 0; }},
  };
  for (const auto& scene : scenes) {
    SCOPED_TRACE(scene.name);
    const bool by_system = scene.poa == by_default.in();
    const CORBA::Object_var object = by_system
                                         ? scene.poa->create_reference(Demo::Echo::repository_id)
                                         : scene.poa->create_reference_with_id(a, Demo::Echo::repository_id);
    const Demo::Echo_var target = Demo::Echo::_narrow(object);
    for (int round = 0; round < 2000 && !HasFailure(); ++round) {
      SCOPED_TRACE(round / 2);
      std::string raised = "nothing";
      allocations_left = round / 2;
      try {
        target->add(1, 2);
      } catch (const CORBA::Exception& e) {
        allocations_left = -1;
        raised = e._name();
      }
      if (std::exchange(allocations_left, -1) >= 0) round = 2000;
      EXPECT_TRUE(raised == "NO_MEMORY" || raised == "nothing") << raised;
      EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
      EXPECT_TRUE(scene.kept());
    }
  }
  top->destroy(true, false);
  EXPECT_EQ(activator.out, 0);
}

TEST_F(MemoryOfEach, OfServants) {
  struct Echo : AnyEcho {
    explicit Echo(POA* its_poa) : poa(its_poa) {}
    POA* _default_POA() override { return POA::_duplicate(poa); }
    POA* const poa;
  } echo(implicit);
  Demo::Echo_var object;
  sweep_all({
      {"_this", [&](auto& ev) { object = echo._this(ev); }, "ServantNotActive"},
      {"set_timer", [&](auto& ev) { servant.set_timer(1000, ev); }},
      {"set_timer, cleared", [&](auto& ev) { servant.set_timer(0, ev); }},
      {"_get_interface", [&](auto& ev) { CORBA::InterfaceDef_var(servant._get_interface(ev)); }},
  });
  EXPECT_TRUE(object->_is_a("IDL:Demo/Echo:1.0"));
}

TEST_F(Memory, AnIdOfATextIsNullWithoutMemory) {
  for (int n = 0; n < 2; ++n) {
    allocations_left = n;
    ObjectId* oid = string_to_ObjectId("a rather long text for an id");
    allocations_left = -1;
    EXPECT_EQ(oid, nullptr);
  }
}
