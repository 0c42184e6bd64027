// Activating and deactivating objects, references without objects, servant managers and default servants.
#include <malloc.h>

#include <atomic>

#include "objects.h"

using namespace PortableServer;

namespace {

class Activation : public ObjectTest {
 protected:
  const POAInfoPtr retain = record_of(top);
  const POAInfoPtr user = make(USER_ID);
  const POAInfoPtr managed = make(USE_SERVANT_MANAGER, USER_ID);
  const POAInfoPtr defaulted = make(USE_DEFAULT_SERVANT, MULTIPLE_ID);
  Etherealizer activator;
};

/// Four threads do this at once; all but one are refused so.
template <class Refusal, class Work>
void expect_one(Work&& work) {
  std::atomic<int> count{0};
  run_together(4, [&](std::size_t i) {
    CORBA::Environment own;
    try {
      work(i, own);
      ++count;
    } catch (const Refusal&) {
    }
  });
  EXPECT_EQ(count, 1);
}

}  // namespace

TEST_F(Activation, Failures) {
  using CORBA::BAD_PARAM;
  const POAInfoPtr located = make(NON_RETAIN, USE_SERVANT_MANAGER);
  const char* const intf = "IDL:x:1.0";
  PortableServer_ServantLocator_impl locator;
  user->activate_object_with_id(a, &servant, own_ev);
  retain->activate_object_with_id(a, &servant, own_ev);

  REFUSED(BAD_PARAM, located, activate_object, "servant is null", nullptr);
  REFUSED(POA::WrongPolicy, user, activate_object, "wrong policy", &other);
  REFUSED(POA::ServantAlreadyActive, retain, activate_object, "already activate", &servant);

  REFUSED(BAD_PARAM, located, activate_object_with_id, "id length is invalid", empty, nullptr);
  REFUSED(BAD_PARAM, located, activate_object_with_id, "servant is null", a, nullptr);
  REFUSED(POA::WrongPolicy, located, activate_object_with_id, "wrong policy", a, &other);
  REFUSED(POA::ServantAlreadyActive, user, activate_object_with_id, "already activate", b, &servant);
  REFUSED(POA::ObjectAlreadyActive, user, activate_object_with_id, "already activate", a, &other);

  REFUSED(BAD_PARAM, located, deactivate_object, "oid invalid", empty);
  REFUSED(POA::WrongPolicy, located, deactivate_object, "wrong policy", a);
  REFUSED(POA::ObjectNotActive, user, deactivate_object, "servant is null", b);

  REFUSED(BAD_PARAM, user, create_reference, "intf is null", nullptr);
  REFUSED(BAD_PARAM, retain, create_reference_with_id, "intf is null", empty, nullptr);
  REFUSED(BAD_PARAM, retain, create_reference_with_id, "oid is invalid", empty, intf);
  REFUSED(POA::WrongPolicy, retain, create_reference_with_id, "wrong policy", a, intf);

  REFUSED(POA::WrongPolicy, user, get_servant_manager, "wrong policy");
  REFUSED(POA::WrongPolicy, user, set_servant_manager, "wrong policy", &activator);
  REFUSED(BAD_PARAM, managed, set_servant_manager, "BAD_PARAM", &locator);
  REFUSED(BAD_PARAM, located, set_servant_manager, "BAD_PARAM", &activator);
  REFUSED(POA::WrongPolicy, retain, set_servant, "wrong policy", &servant);
}

TEST_F(Activation, MultipleIdsAndRepeatedOnes) {
  const POAInfoPtr multiple = make(USER_ID, MULTIPLE_ID);
  for (PlainServant* s : {&servant, &servant, &other}) multiple->activate_object_with_id(a, s, own_ev);
  multiple->activate_object_with_id(b, &servant, own_ev);
  EXPECT_EQ(entries_of(*multiple, servant), 3);
  for (const PlainServant* next : {&servant, &servant, &other}) {
    EXPECT_EQ(multiple->id_to_servant(a, own_ev), next);
    multiple->deactivate_object(a, own_ev);
  }
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { multiple->deactivate_object(a, ev); });
}

TEST_F(Activation, DeactivationWithdrawsTheReferenceAndEtherealizes) {
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { managed->poa_object->get_servant_manager(ev); });
  managed->set_servant_manager(&activator, own_ev);
  EXPECT_EQ(managed->poa_object->get_servant_manager(own_ev), &activator) << "not a duplicate";
  managed->activate_object_with_id(a, &servant, own_ev);
  const uint32_t bound = ZR_bound_objects();
  CORBA::release(managed->id_to_reference(a, own_ev));
  EXPECT_EQ(ZR_bound_objects(), bound + 1);
  managed->deactivate_object(a, own_ev);
  EXPECT_EQ(ZR_bound_objects(), bound);
  EXPECT_EQ(servant.get_ObjectReference(managed->poa_object, &a), nullptr);
  EXPECT_THAT(activator.calls,
              testing::ElementsAre(Etherealizer::Call("a", managed->poa_object, &servant, true, true)));
  EXPECT_EQ(servant.get_ref_counter(), 0u);

  const POAInfoPtr without = make(USE_SERVANT_MANAGER, USER_ID);
  without->activate_object_with_id(a, &servant, own_ev);
  without->deactivate_object(a, own_ev);  // nobody to tell, and no failure
  EXPECT_EQ(entries_of(*without, servant), 0);
  top->destroy(false, false);  // before its managers go
}

TEST_F(Activation, TheDefaultServantHasAnIdAsLongAsItIsInstalled) {
  defaulted->set_servant(&servant, own_ev);
  const auto first = defaulted->default_servant.oid();
  ASSERT_NE(first, nullptr);
  defaulted->set_servant(&servant, own_ev);
  EXPECT_EQ(defaulted->default_servant.oid(), first);
  EXPECT_EQ(ServantAccess::default_count(servant), 1u);
  defaulted->set_servant(&other, own_ev);
  EXPECT_EQ(defaulted->get_servant(own_ev), &other);
  EXPECT_FALSE(oid_is_equivalent(*defaulted->default_servant.oid(), *first));
  EXPECT_EQ(ServantAccess::default_count(servant), 0u);
  defaulted->set_servant(nullptr, own_ev);
  EXPECT_EQ(defaulted->default_servant.oid(), nullptr);
  EXPECT_EQ(ServantAccess::default_count(other), 0u);
  expect_raised<POA::NoServant>([&](auto& ev) { defaulted->get_servant(ev); });
}

TEST_F(Activation, ADefaultServantThatIsTakenAwayKeepsNoReference) {
  const uint32_t bound = ZR_bound_objects();
  for (ServantBase* next : {static_cast<ServantBase*>(nullptr), static_cast<ServantBase*>(&other)}) {
    defaulted->set_servant(&servant, own_ev);
    const auto oid = defaulted->default_servant.oid();
    CORBA::Object* reference = defaulted->POACreateReference(*oid, "IDL:test/Plain:1.0", own_ev);
    CORBA_ORB_bind_object2(core_handles.orb, reference->get_ref(), nullptr, own_ev._evp);
    servant.set_ObjectReference(defaulted->poa_object, reference, 0, core_handles.boa, oid.get());
    EXPECT_EQ(list_references(servant).size(), 1u);
    defaulted->set_servant(next, own_ev);
    EXPECT_EQ(list_references(servant).size(), 0u);
    EXPECT_EQ(ZR_bound_objects(), bound);
  }
}

TEST_F(Activation, OneOfManyThreadsActivatesDeactivatesAndSetsTheManager) {
  for (int round = 0; round < 25; ++round) {
    const POAInfoPtr poa = make(USER_ID), to_manage = make(USE_SERVANT_MANAGER);
    to_manage->set_servant_manager(nullptr, own_ev);  // sets none
    EXPECT_EQ(to_manage->get_servant_manager(own_ev), nullptr);
    expect_one<CORBA::BAD_INV_ORDER>(
        [&](auto, auto& own) { to_manage->set_servant_manager(&activator, own); });
    EXPECT_EQ(to_manage->get_servant_manager(own_ev), &activator);
    expect_one<POA::ServantAlreadyActive>(
        [&](auto i, auto& own) { poa->activate_object_with_id(i % 2 ? a : b, &servant, own); });
    EXPECT_EQ(entries_of(*poa, servant), 1);
    const ObjectId_var oid(poa->servant_to_id(&servant, own_ev));
    const auto deactivate = [&](auto, auto& own) { poa->deactivate_object(oid.in(), own); };
    expect_one<POA::ObjectNotActive>(deactivate);
    std::vector<PlainServant> servants(4);
    expect_one<POA::ObjectAlreadyActive>(
        [&](auto i, auto& own) { poa->activate_object_with_id(oid.in(), &servants[i], own); });
    expect_one<POA::ObjectNotActive>(deactivate);
  }
}

TEST_F(Activation, AHundredThousandObjectsComeAndGo) {
  constexpr std::size_t PER_POA = 100, ROUNDS = 1000;
  std::vector<PlainServant> servants(PER_POA);
  const uint32_t bound = ZR_bound_objects();
  std::size_t converted = 0, memory_before = 0;
  for (std::size_t round = 0; round < ROUNDS; ++round) {
    if (round == 1) memory_before = mallinfo2().uordblks;  // what stays for good is there by now
    const POA_var poa = child(top, "many");
    std::vector<ObjectId_var> oids;
    for (PlainServant& each : servants) oids.emplace_back(poa->activate_object(&each));
    for (std::size_t i = 0; i < PER_POA; ++i) {
      const CORBA::Object_var reference(poa->id_to_reference(oids[i].in()));
      converted += poa->reference_to_servant(reference.in()) == &servants[i];
    }
    EXPECT_EQ(ZR_bound_objects(), bound + PER_POA);
    for (const ObjectId_var& oid : oids) poa->deactivate_object(oid.in());
    EXPECT_EQ(ZR_bound_objects(), bound);
    poa->destroy(false, false);
  }
  EXPECT_EQ(converted, PER_POA * ROUNDS);
  EXPECT_LT(mallinfo2().uordblks, memory_before + 256 * 1024);
}
