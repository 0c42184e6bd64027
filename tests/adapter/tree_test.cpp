// The POA tree: creation, lookup, adapter activators, destruction.
#include <atomic>
#include <future>

#include "objects.h"

using namespace PortableServer;
using testing::ElementsAre;

namespace {

class Activator : public PortableServer_AdapterActivator_impl {
 public:
  CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA::Environment&) override {
    ++calls;
    return answer(parent, name);
  }
  std::function<bool(POA*, const char*)> answer;
  int calls = 0;
};

class Tree : public ObjectTest {
 protected:
  /// A child of `parent` with one active object, whose end `etherealizer` is told.
  POA_var child_with_activator(POA* parent, const char* name) {
    POA_var poa = child(parent, name, policies(root, USE_SERVANT_MANAGER));
    poa->set_servant_manager(&etherealizer);
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
  bool is_gone(POA* poa) { return record_of(poa) == nullptr; }

  Etherealizer etherealizer;
  Activator activator;
};

}  // namespace

TEST_F(Tree, ChildrenAreListedNewestFirst) {
  POA_var first = child(top, "A"), second = child(top, "B");
  POA_var below = child(first, "A");  // the same name, another parent
  EXPECT_THAT(names(top), ElementsAre("B", "A"));
  for (const POA_var& same : {POA_var(below->the_parent()), POA_var(top->find_POA("A", false))})
    EXPECT_TRUE(same->_is_equivalent(first));
  first->destroy(false, false);
  EXPECT_TRUE(is_gone(first) && is_gone(below));
  POA_var again = child(top, "A"), newest = child(top, "C");  // the name is free
  EXPECT_THAT(names(top), ElementsAre("C", "A", "B"));
  again->destroy(false, false);
  newest->destroy(false, false);
  EXPECT_THAT(names(top), ElementsAre("B"));
}

TEST_F(Tree, Refusals) {
  child(top, "taken");
  refused<POA::AdapterAlreadyExists>("POAInfo::create_POA [adapter already exists.]", [&](auto& ev) {
    top->create_POA("taken", nullptr, policies(root, NON_RETAIN), ev);
  });
  const POAInfoPtr record = record_of(top), root_record = record_of(root);
  using CORBA::BAD_PARAM;
  REFUSED(BAD_PARAM, record, create_POA, "adapter_name is nil", nullptr, nullptr, {});
  REFUSED(BAD_PARAM, record, create_POA, "adapter_name[0] is 0", "", nullptr, {});
  REFUSED(BAD_PARAM, record, find_POA, "adapter_name is null", nullptr, true);
  REFUSED(BAD_PARAM, record, find_POA, "adapter_name[0] is 0", "", true);
  for (const char* name : {"a\xFF"
                           "b",
                           "\xFF"})  // no reference could carry them
    REFUSED(BAD_PARAM, record, create_POA, "adapter_name is invalid", name, nullptr, {});
  expect_raised<BAD_PARAM>([&](auto& ev) { root->the_parent(ev); });
  expect_raised<BAD_PARAM>([&](auto& ev) { root->destroy(true, true, ev); });
  EXPECT_THAT(names(top), ElementsAre("taken"));
  EXPECT_FALSE(is_gone(root));
}

TEST_F(Tree, AnActivatorMakesMissingChildren) {
  top->the_activator(&activator);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("X", false, ev); });
  EXPECT_EQ(activator.calls, 0);
  for (const bool claims : {false, true}) {  // and makes nothing
    activator.answer = [=](POA*, const char*) { return claims; };
    refused<POA::AdapterNonExistent>(claims
                                         ? "POAInfo::findChildByName [adapter_act returns null.]"
                                         : "POAInfo::findChildByName [adapter_activator->unknown_adapter.]",
                                     [&](auto& ev) { record_of(top)->find_POA("X", true, ev); });
  }
  activator.answer = [](POA*, const char*) -> bool { throw CORBA::NO_PERMISSION(7); };
  EXPECT_THROW(top->find_POA("X", true), CORBA::NO_PERMISSION) << "its own exception passes";

  activator.answer = [](POA* parent, const char* name) {
    // No lock of the adapter is held: another thread can work on the same parent meanwhile.
    auto made = std::async(std::launch::async, [=] { child(parent, name); });
    EXPECT_EQ(made.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    return true;
  };
  for (int i = 0; i < 2; ++i)
    EXPECT_STREQ(CORBA::String_var(POA_var(top->find_POA("X", true))->the_name()).in(), "X");
  EXPECT_EQ(activator.calls, 4);
  top->the_activator(nullptr);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("Y", true, ev); });
  EXPECT_EQ(activator.calls, 4);
}

TEST_F(Tree, AnActivatorThatDeclaresTheNameAsCharPointerIsAsked) {
  class Old : public PortableServer_AdapterActivator_impl {
   public:
    CORBA::Boolean unknown_adapter(POA* parent, char* name, CORBA::Environment&) override {
      child(parent, name);
      return 1;
    }
  } old;
  top->the_activator(&old);
  EXPECT_STREQ(CORBA::String_var(POA_var(top->find_POA("X", true))->the_name()).in(), "X");
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

TEST_F(Tree, DestroyTellsTheServantActivator) {
  POA_var poa = child_with_activator(top, "not told");
  poa->destroy(false, false);
  EXPECT_TRUE(is_gone(poa) && etherealizer.calls.empty());

  POA_var above = child(top, "above");
  poa = child_with_activator(above, "below");
  etherealizer.work = [&](POA* adapter, auto*) {  // the lock is held, and this thread may take it again
    EXPECT_STREQ(CORBA::String_var(adapter->the_name()).in(), "below");
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { adapter->create_POA("late", nullptr, {}, ev); });
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { adapter->destroy(true, true, ev); });
    above->destroy(false, false);
  };
  poa->destroy(true, false);
  EXPECT_EQ(etherealizer.calls.size(), 1u);
  EXPECT_TRUE(is_gone(poa) && is_gone(above));
}

TEST_F(Tree, AFailedTeardownLeavesAWholeTree) {
  POA_var above = child(top, "above"), older = child(above, "older");
  POA_var failing = child_with_activator(above, "failing"), newer = child(above, "newer");
  etherealizer.work = [](auto*, auto*) { throw CORBA::NO_RESOURCES(3); };
  EXPECT_THROW(above->destroy(true, false), CORBA::NO_RESOURCES);
  EXPECT_TRUE(is_gone(newer)) << "newest first";
  EXPECT_THAT(names(above), ElementsAre("failing", "older"));
  POA_var works_on = child(failing, "child of failing");
  ObjectId_var active = failing->activate_object(&other);
  etherealizer.work = [](auto*, auto*) { throw CORBA::BAD_INV_ORDER(3); };
  EXPECT_THROW(above->destroy(true, false), CORBA::Exception);  // it loses its type under the lock
  etherealizer.work = [](auto*, auto*) {};
  above->destroy(true, false);
  EXPECT_TRUE(is_gone(above) && is_gone(older) && is_gone(failing) && is_gone(works_on));
}

TEST_F(Tree, DestroyWithdrawsTheDefaultServant) {
  const POAInfoPtr record = make(USE_DEFAULT_SERVANT, MULTIPLE_ID, NON_RETAIN);
  record->set_servant(&servant, own_ev);
  const auto oid = record->default_servant.oid();
  const uint32_t bound = ZR_bound_objects();
  CORBA::Object* reference = record->POACreateReference(*oid, "IDL:test/Tree:1.0", own_ev);
  CORBA_ORB_bind_object2(core_handles.orb, reference->get_ref(), nullptr, own_ev._evp);
  servant.set_ObjectReference(record->poa_object, reference, 0, core_handles.boa, oid.get());
  ASSERT_EQ(ZR_bound_objects(), bound + 1);
  POA_var(POA::_duplicate(record->poa_object))->destroy(false, false);
  EXPECT_EQ(PortableServer::list_references(servant).size(), 0u);
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
        child(poa, "below")->destroy(false, false);
        POAList_var children = parent->the_children();
        ++worked;
      } catch (const POA::AdapterNonExistent&) {
      } catch (const POA::AdapterAlreadyExists&) {
      } catch (const CORBA::BAD_PARAM& gone) {
        EXPECT_EQ(gone.minor(), 0x4B510007u);
      }
    }
  };
  std::jthread one(user), another(user);
  for (int i = 0; i < 300 || worked < 10; ++i) {
    POA_var poa = child(top, "racing");
    POA_var below = child(poa, "deep");
    if (i % 2) std::this_thread::yield();
    poa->destroy(false, false);
  }
  over = true;
}
