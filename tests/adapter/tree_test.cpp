// The POA tree: creation, lookup, adapter activators, destruction.
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"

using namespace PortableServer;

namespace {

const CORBA::PolicyList no_policies;

class Activator : public PortableServer_AdapterActivator_impl {
 public:
  CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA::Environment&) override {
    ++calls;
    return answer(parent, name);
  }
  std::function<bool(POA*, const char*)> answer;
  int calls = 0;
};

class Etherealizer : public PortableServer_ServantActivator_impl {
 public:
  void etherealize(const ObjectId&, POA* adapter, ServantBase*, CORBA::Boolean, CORBA::Boolean,
                   CORBA::Environment&) override {
    ++calls;
    work(adapter);
  }
  std::function<void(POA*)> work = [](POA*) {};
  int calls = 0;
};

class Tree : public AdapterTest {
 protected:
  POA_var child(POA* parent, const std::string& name, POAManager* manager = nullptr) {
    return parent->create_POA(name.c_str(), manager, no_policies);
  }
  /// A child of `parent` with one active object, whose end `activator` is told.
  POA_var child_with_activator(POA* parent, const char* name, Etherealizer& activator) {
    POA_var poa = parent->create_POA(name, nullptr, policies(root, USE_SERVANT_MANAGER));
    poa->set_servant_manager(&activator);
    ObjectId_var oid = poa->activate_object(&servant);
    return poa;
  }
  std::vector<std::string> names(POA* parent) {
    POAList_var children = parent->the_children();
    std::vector<std::string> all;
    for (CORBA::ULong i = 0; i < children->length(); ++i)
      all.emplace_back(CORBA::String_var(children[i]->the_name()));
    return all;
  }
  bool is_gone(POA* poa) { return POAInfo::findPOAInfo(poa, env) == nullptr; }

  CORBA::Environment env;
  PlainServant servant;
};

}  // namespace

TEST_F(Tree, ChildrenAreListedNewestFirst) {
  EXPECT_THAT(names(top), testing::IsEmpty());
  POA_var a = child(top, "A"), b = child(top, "B");
  POA_var below = child(a, "A");  // the same name, another parent
  EXPECT_THAT(names(top), testing::ElementsAre("B", "A"));
  for (const POA_var& same : {POA_var(below->the_parent()), POA_var(top->find_POA("A", false))})
    EXPECT_TRUE(CORBA_object_is_equivalent(same->get_ref(), a->get_ref()));
  a->destroy(false, false);
  POA_var again = child(top, "A");  // the name is free
  EXPECT_THAT(names(top), testing::ElementsAre("A", "B"));
}

TEST_F(Tree, Refusals) {
  child(top, "taken");
  using Call = std::function<void(CORBA::Environment&)>;
  const auto bad_param = [](const Call& call) { expect_raised<CORBA::BAD_PARAM>(call); };
  const auto exists = [](const Call& call) { expect_raised<POA::AdapterAlreadyExists>(call); };
  const auto non_existent = [](const Call& call) { expect_raised<POA::AdapterNonExistent>(call); };
  const struct {
    void (*expect)(const Call&);
    Call call;
    const char *first, *second;
  } rows[] = {
      {bad_param, [&](auto& ev) { top->create_POA(nullptr, nullptr, no_policies, ev); },
       "name=NULL, throw CORBA::StExcep::BAD_PARAM", "POAInfo::create_POA [adapter_name is nil.]"},
      {bad_param, [&](auto& ev) { top->create_POA("", nullptr, no_policies, ev); },
       "name=\"\", throw CORBA::StExcep::BAD_PARAM", "POAInfo::create_POA [adapter_name[0] is 0.]"},
      {exists, [&](auto& ev) { top->create_POA("taken", nullptr, policies(root, NON_RETAIN), ev); },
       "name=taken exists, throw PortableServer::POA::AdapterAlreadyExists",
       "POAInfo::create_POA [adapter already exists.]"},
      {bad_param, [&](auto& ev) { top->find_POA(nullptr, true, ev); },
       "name=NULL, throw CORBA::StExcep::BAD_PARAM", "POAInfo::find_POA [adapter_name is null.]"},
      {bad_param, [&](auto& ev) { top->find_POA("", true, ev); },
       "name=\"\", throw CORBA::StExcep::BAD_PARAM", "POAInfo::find_POA [adapter_name[0] is 0.]"},
      {non_existent, [&](auto& ev) { top->find_POA("Taken", true, ev); },
       "not found name,non adapter_act,throw AdapterNonExistent",
       "POAInfo::findChildByName [adapter_activator is nil.]"},
      {bad_param, [&](auto& ev) { root->the_parent(ev); }, "poa_info=NULL, throw CORBA::StExcep::BAD_PARAM",
       "POAInfo::the_parent [poa_info is null.]"},
      {bad_param, [&](auto& ev) { root->destroy(true, true, ev); },
       "pos is root, throw CORBA::StExcep::BAD_PARAM", "POAInfo::_destroy [this is root_poa_info.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.second);
    TraceRecorder trace;
    row.expect(row.call);
    EXPECT_TRUE(trace.in_order({row.first, row.second}));
    EXPECT_THAT(names(top), testing::ElementsAre("taken"));
  }
  EXPECT_FALSE(is_gone(root));
}

TEST_F(Tree, WithoutAManagerTheDefaultOneIsShared) {
  POA_var with_default = child(top, "default");
  POAManager_var shared = with_default->the_POAManager();
  EXPECT_EQ(POAManagerInfo::findPOAManagerInfo(shared, env), default_poa_manager_info);
  POAManagerInfo own(env);
  POA_var with_own = child(top, "own", own.poamanager_object);
  EXPECT_EQ(POAInfo::findPOAInfo(with_own, env)->get_poa_manager_info(), &own);
  with_own->destroy(false, false);
  CORBA::release(own.poamanager_object);
}

TEST_F(Tree, AnActivatorMakesMissingChildren) {
  Activator activator;
  activator.answer = [](POA* parent, const char* name) {
    // No lock of the adapter is held: another thread can work on the same parent meanwhile.
    auto made =
        std::async(std::launch::async, [=] { POA_var(parent->create_POA(name, nullptr, no_policies)); });
    EXPECT_EQ(made.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    return true;
  };
  top->the_activator(&activator);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("X", false, ev); });
  EXPECT_EQ(activator.calls, 0);
  POA_var made = top->find_POA("X", true);
  EXPECT_STREQ(CORBA::String_var(made->the_name()).in(), "X");
  POA_var found = top->find_POA("X", true);
  EXPECT_EQ(activator.calls, 1);

  top->the_activator(nullptr);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("Y", true, ev); });
  EXPECT_EQ(activator.calls, 1);
}

TEST_F(Tree, AnActivatorThatMakesNothing) {
  Activator activator;
  top->the_activator(&activator);
  for (const bool claims : {false, true}) {
    activator.answer = [=](POA*, const char*) { return claims; };
    TraceRecorder trace;
    expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("X", true, ev); });
    EXPECT_TRUE(trace.in_order({"call adapter_activator->unknown_adapter..",
                                claims ? "POAInfo::findChildByName [adapter_act returns null.]"
                                       : "POAInfo::findChildByName [adapter_activator->unknown_adapter.]"}));
  }
  activator.answer = [](POA*, const char*) -> bool { throw CORBA::NO_PERMISSION(7); };
  EXPECT_THROW(top->find_POA("X", true), CORBA::NO_PERMISSION) << "its own exception passes";
}

TEST_F(Tree, OneOfManyCreatorsGetsTheName) {
  std::atomic<int> made{0}, refused{0};
  run_together(4, [&](auto) {
    for (int name = 0; name < 50; ++name) {
      try {
        child(top, std::to_string(name));
        ++made;
      } catch (const POA::AdapterAlreadyExists&) {
        ++refused;
      }
    }
  });
  EXPECT_EQ(made, 50);
  EXPECT_EQ(refused, 150);
  EXPECT_EQ(names(top).size(), 50u);
}

TEST_F(Tree, DestroyTakesTheWholeSubtree) {
  POA_var a = child(top, "a"), a1 = child(a, "a1"), a2 = child(a, "a2"), b = child(top, "b");
  TraceRecorder trace;
  a->destroy(false, false);
  EXPECT_EQ(trace.count("POAInfo::_destroy called..."), 3u);
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 3u);
  EXPECT_TRUE(trace.in_order({"POAInfo::destroy called...", "POAInfo::_destroy called...",
                              "POAInfo::destroy end...", "POAInfo::remove_from_list called..."}));
  EXPECT_TRUE(is_gone(a) && is_gone(a1) && is_gone(a2));
  EXPECT_THAT(names(top), testing::ElementsAre("b"));
}

TEST_F(Tree, DestroyTellsTheServantActivator) {
  Etherealizer activator;
  POA_var poa = child_with_activator(top, "told", activator);
  std::string seen;
  activator.work = [&](POA* adapter) {  // the lock is held, and this thread may take it again
    seen = CORBA::String_var(adapter->the_name());
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { adapter->create_POA("late", nullptr, no_policies, ev); });
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { adapter->destroy(true, true, ev); });
  };
  TraceRecorder trace;
  poa->destroy(true, false);
  EXPECT_EQ(seen, "told");
  EXPECT_TRUE(trace.in_order({"call clear_servants", " active_object_map->ethrealize call",
                              "POAInfo::_destroy end...[Servant Manager is not NULL]"}));
  EXPECT_TRUE(is_gone(poa));

  poa = child_with_activator(top, "not told", activator);
  activator.calls = 0;
  poa->destroy(false, false);
  EXPECT_EQ(activator.calls, 0);
  EXPECT_TRUE(is_gone(poa));
}

TEST_F(Tree, AnActivatorMayDestroyAboveWhatIsDestroyed) {
  Etherealizer activator;
  POA_var above = child(top, "above");
  POA_var poa = child_with_activator(above, "below", activator);
  activator.work = [&](POA*) { above->destroy(false, false); };
  poa->destroy(true, false);
  EXPECT_EQ(activator.calls, 1);
  EXPECT_TRUE(is_gone(poa) && is_gone(above));
  EXPECT_THAT(names(top), testing::IsEmpty());
}

TEST_F(Tree, AFailedTeardownLeavesAWholeTree) {
  Etherealizer activator;
  POA_var above = child(top, "above"), older = child(above, "older");
  POA_var failing = child_with_activator(above, "failing", activator);
  POA_var newer = child(above, "newer");
  activator.work = [](POA*) { throw CORBA::NO_RESOURCES(3); };
  EXPECT_THROW(above->destroy(true, false), CORBA::NO_RESOURCES);
  EXPECT_TRUE(is_gone(newer)) << "newest first";
  EXPECT_THAT(names(above), testing::ElementsAre("failing", "older"));
  POA_var works_on = child(failing, "child of failing");
  PlainServant other;
  ObjectId_var active = failing->activate_object(&other);
  activator.work = [](POA*) { throw CORBA::BAD_INV_ORDER(3); };
  try {
    above->destroy(true, false);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CORBA::Exception& plain) {
    EXPECT_EQ(typeid(plain), typeid(CORBA::Exception)) << "it loses its type under the lock";
    EXPECT_STREQ(plain.id(), CORBA::BAD_INV_ORDER().id());
  }
  activator.work = [](POA*) {};
  above->destroy(true, false);
  EXPECT_TRUE(is_gone(above) && is_gone(older) && is_gone(failing) && is_gone(works_on));
}

TEST_F(Tree, DestroyWithdrawsTheDefaultServant) {
  POA_var poa = top->create_POA("default servant", nullptr,
                                policies(root, USE_DEFAULT_SERVANT, MULTIPLE_ID, NON_RETAIN));
  poa->set_servant(&servant);
  const POAInfoPtr record = POAInfo::findPOAInfo(poa, env);
  const auto oid = record->default_oid();
  const uint32_t bound = ZR_bound_objects();
  CORBA::Object_var reference = record->POACreateReference(*oid, "IDL:test/Tree:1.0", env);
  CORBA_ORB_bind_object2(POAInfo::_orb, reference->get_ref(), nullptr, env._evp);
  servant.set_ObjectReference(record->poa_object, reference, 1, POAInfo::_boa, oid.get());
  ASSERT_NE(servant.get_ObjectReference(record->poa_object, oid.get()), nullptr);
  ASSERT_EQ(ZR_bound_objects(), bound + 1);
  poa->destroy(false, false);
  EXPECT_EQ(servant.get_ObjectReference(record->poa_object, oid.get()), nullptr);
  EXPECT_EQ(ZR_bound_objects(), bound);
}

// Every operation either works or says that the POA is gone; sanitizers see the rest.
TEST_F(Tree, OperationsRaceWithDestroy) {
  std::atomic<bool> over{false};
  std::atomic<int> worked{0};
  const auto user = [&] {
    while (!over) {
      try {
        POA_var poa = top->find_POA("racing", false);
        CORBA::String_var name = poa->the_name();
        POA_var parent = poa->the_parent();
        POA_var(poa->create_POA("below", nullptr, no_policies))->destroy(false, false);
        POAList_var children = parent->the_children();
        ++worked;
      } catch (const POA::AdapterNonExistent&) {
      } catch (const POA::AdapterAlreadyExists&) {
      } catch (const CORBA::BAD_PARAM& gone) {
        EXPECT_EQ(gone.minor(), 0x4B510007u);
      }
    }
  };
  std::thread one(user), other(user);
  for (int i = 0; i < 300 || worked < 10; ++i) {
    POA_var poa = child(top, "racing");
    POA_var below = child(poa, "deep");
    if (i % 2) std::this_thread::yield();
    poa->destroy(false, false);
  }
  over = true;
  one.join();
  other.join();
  EXPECT_THAT(names(top), testing::IsEmpty());
}
