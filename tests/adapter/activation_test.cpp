// Activating and deactivating objects, references without objects, servant managers and default servants.
#include <gmock/gmock.h>
#include <malloc.h>

#include <atomic>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;

namespace {

class Etherealizer : public PortableServer_ServantActivator_impl {
 public:
  void etherealize(const ObjectId& oid, POA* poa, ServantBase* servant, CORBA::Boolean cleanup,
                   CORBA::Boolean remaining, CORBA::Environment&) override {
    calls.push_back(std::string(oid_view(oid)) + (cleanup ? " cleanup" : "") +
                    (remaining ? " remaining" : ""));
    last_poa = poa;
    last_servant = servant;
  }
  std::vector<std::string> calls;
  POA* last_poa = nullptr;
  ServantBase* last_servant = nullptr;
};

class Locator : public PortableServer_ServantLocator_impl {};

class Activation : public AdapterTest {
 protected:
  template <class... Value>
  POAInfoPtr make(Value... values) {
    CORBA::PolicyList list;
    if constexpr (sizeof...(values) != 0) list = policies(root, values...);
    return record_of(POA_var(top->create_POA(unique_name("poa").c_str(), nullptr, list)));
  }

  const POAInfoPtr retain = record_of(top);
  const POAInfoPtr user = make(USER_ID);
  const POAInfoPtr user_multiple = make(USER_ID, MULTIPLE_ID);
  const POAInfoPtr managed = make(USE_SERVANT_MANAGER, USER_ID);
  const POAInfoPtr located = make(NON_RETAIN, USE_SERVANT_MANAGER);
  const POAInfoPtr defaulted = make(USE_DEFAULT_SERVANT, MULTIPLE_ID);
  PlainServant servant, second;
  Etherealizer activator;
  Locator locator;
  const ObjectId a = oid_of("a"), b = oid_of("b"), empty = oid_of("");
  CORBA::Environment env;
};

}  // namespace

TEST_F(Activation, Failures) {
  user->activate_object_with_id(a, &servant, env);
  retain->activate_object_with_id(a, &servant, env);
  located->set_servant_manager(&locator, env);

  // activate_object
  refused<CORBA::BAD_PARAM>("throw CORBA::StExcep::BAD_PARAM", "POAInfo::activate_object [servant is null.]",
                            [&](auto& ev) { user->activate_object(nullptr, ev); });
  refused<POA::WrongPolicy>("non_retain.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object [wrong policy.]",
                            [&](auto& ev) { located->activate_object(&second, ev); });
  refused<POA::WrongPolicy>("user_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object [wrong policy.]",
                            [&](auto& ev) { user->activate_object(&second, ev); });
  refused<POA::ServantAlreadyActive>("throw PortableServer::POA::ServantAlreadyActive",
                                     "POAInfo::activate_object [already activate.]",
                                     [&](auto& ev) { retain->activate_object(&servant, ev); });
  // activate_object_with_id
  refused<CORBA::BAD_PARAM>("id.length()<1 throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object_with_id [id length is invalid.]",
                            [&](auto& ev) { located->activate_object_with_id(empty, nullptr, ev); });
  refused<CORBA::BAD_PARAM>("p_servant=NULL throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object_with_id [servant is null.]",
                            [&](auto& ev) { located->activate_object_with_id(a, nullptr, ev); });
  refused<POA::WrongPolicy>("non_retain...  PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object_with_id [wrong policy.]",
                            [&](auto& ev) { located->activate_object_with_id(a, &second, ev); });
  refused<POA::ServantAlreadyActive>("ActiveObjectMap::findOidByServant end...[return oid]",
                                     "POAInfo::activate_object_with_id [already activate.]",
                                     [&](auto& ev) { user->activate_object_with_id(b, &servant, ev); });
  refused<POA::ObjectAlreadyActive>("already activated. throw PortableServer::POA::ObjectAlreadyActive",
                                    "POAInfo::activate_object_with_id [already activate.]",
                                    [&](auto& ev) { user->activate_object_with_id(a, &second, ev); });
  // deactivate_object
  refused<CORBA::BAD_PARAM>("oid.length() < 1, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::deactivate_object [oid invalid.]",
                            [&](auto& ev) { located->deactivate_object(empty, ev); });
  refused<POA::WrongPolicy>("non_retain, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::deactivate_object [wrong policy.]",
                            [&](auto& ev) { located->deactivate_object(a, ev); });
  refused<POA::ObjectNotActive>("active_object_map = NULL, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::deactivate_object [activate_object_map is null.]",
                                [&](auto& ev) { managed->deactivate_object(a, ev); });
  refused<POA::ObjectNotActive>("servant == NULL, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::deactivate_object [servant is null.]",
                                [&](auto& ev) { user->deactivate_object(b, ev); });
  // create_reference and create_reference_with_id
  refused<CORBA::BAD_PARAM>("intf == NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference [intf is null.]",
                            [&](auto& ev) { user->create_reference(nullptr, ev); });
  refused<POA::WrongPolicy>("not system_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::create_reference [wrong policy.]",
                            [&](auto& ev) { user->create_reference("IDL:x:1.0", ev); });
  refused<CORBA::BAD_PARAM>("intf=NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference_with_id [intf is null.]",
                            [&](auto& ev) { retain->create_reference_with_id(empty, nullptr, ev); });
  refused<CORBA::BAD_PARAM>("oid.length() < 1,throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference_with_id [oid is invalid.]",
                            [&](auto& ev) { retain->create_reference_with_id(empty, "IDL:x:1.0", ev); });
  refused<POA::WrongPolicy>("system_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::create_reference_with_id [wrong policy.]",
                            [&](auto& ev) { retain->create_reference_with_id(a, "IDL:x:1.0", ev); });
  refused<CORBA::BAD_PARAM>("POAInfo::POACreateReference [createPOAReferenceData.]",
                            "POAInfo::POACreateReference [other exception.]", [&](auto& ev) {
                              user->create_reference_with_id(oid_of(std::string(2056, 'x')), "IDL:x:1.0", ev);
                            });
  // servant managers
  refused<POA::WrongPolicy>("throw PortableServer::POA::WrongPolicy",
                            "POAInfo::get_servant_manager [wrong policy.]",
                            [&](auto& ev) { user->get_servant_manager(ev); });
  refused<POA::WrongPolicy>("throw PortableServer::POA::WrongPolicy",
                            "POAInfo::set_servant_manager [wrong policy.]",
                            [&](auto& ev) { user->set_servant_manager(&activator, ev); });
  refused<CORBA::BAD_INV_ORDER, 0x4B510303>(nullptr, "POAInfo::set_servant_manager [BAD_INV_ORDER.]",
                                            [&](auto& ev) { located->set_servant_manager(&locator, ev); });
  refused<CORBA::BAD_PARAM>("retain. throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::set_servant_manager [BAD_PARAM.]",
                            [&](auto& ev) { managed->set_servant_manager(&locator, ev); });
  refused<CORBA::BAD_PARAM>(
      "non_retain. throw CORBA::StExcep::BAD_PARAM", "POAInfo::set_servant_manager [BAD_PARAM.]",
      [&](auto& ev) { make(NON_RETAIN, USE_SERVANT_MANAGER)->set_servant_manager(&activator, ev); });
  // default servants
  refused<POA::WrongPolicy>("non_retain.\tPortableServer::POA::WrongPolicy",
                            "POAInfo::get_servant [wrong policy.]",
                            [&](auto& ev) { retain->get_servant(ev); });
  refused<POA::NoServant>("non_retain.\tPortableServer::POA::NoServant",
                          "POAInfo::get_servant [default servant is null.]",
                          [&](auto& ev) { defaulted->get_servant(ev); });
  refused<POA::WrongPolicy>("throw PortableServer::POA::WrongPolicy", "POAInfo::set_servant [wrong policy.]",
                            [&](auto& ev) { retain->set_servant(&servant, ev); });
  located->servant_retention_policy = 99;
  refused<CORBA::OBJ_ADAPTER, 0x4B510302>("throw CORBA::StExcep::OBJ_ADAPTER",
                                          "POAInfo::get_servant_manager [OBJ_ADAPTER.]",
                                          [&](auto& ev) { located->get_servant_manager(ev); });
}

TEST_F(Activation, AnActivatedObjectHasItsIdUntilItIsDeactivated) {
  TraceRecorder trace;
  const ObjectId_var oid(retain->activate_object(&servant, env));
  EXPECT_TRUE(trace.in_order({"POAInfo::activate_object called...", "POAInfo::genSystemId end...",
                              "  POAInfo::activate_object_with_id call", "  POA_impl_is_ready call",
                              "POAInfo::activate_object_with_id end...", "POAInfo::activate_object end..."}));
  EXPECT_EQ(retain->id_to_servant(oid.in(), env), &servant);
  EXPECT_EQ(servant.get_ref_counter(), 0u);
  EXPECT_EQ(ServantAccess::references(servant), nullptr);  // references come later
  retain->deactivate_object(oid.in(), env);
  EXPECT_EQ(env.exception(), nullptr);
  EXPECT_EQ(entries_of(*retain, servant), 0);
  retain->activate_object_with_id(oid.in(), &second, env);
  EXPECT_EQ(retain->id_to_servant(oid.in(), env), &second);
}

TEST_F(Activation, MultipleIdsAndRepeatedOnes) {
  for (ServantBase* s : std::initializer_list<ServantBase*>{&servant, &servant, &second})
    user_multiple->activate_object_with_id(a, s, env);
  user_multiple->activate_object_with_id(b, &servant, env);
  EXPECT_EQ(entries_of(*user_multiple, servant), 3);
  for (const ServantBase* next : std::initializer_list<const ServantBase*>{&servant, &servant, &second}) {
    EXPECT_EQ(user_multiple->id_to_servant(a, env), next);
    user_multiple->deactivate_object(a, env);
  }
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { user_multiple->deactivate_object(a, ev); });
}

TEST_F(Activation, DeactivationWithdrawsTheReferenceAndEtherealizes) {
  managed->set_servant_manager(&activator, env);
  EXPECT_EQ(managed->get_servant_manager(env), &activator);
  managed->activate_object_with_id(a, &servant, env);
  const uint32_t bound = ZR_bound_objects();
  CORBA::release(managed->id_to_reference(a, env));
  EXPECT_EQ(ZR_bound_objects(), bound + 1);
  managed->deactivate_object(a, env);
  EXPECT_EQ(ZR_bound_objects(), bound);
  EXPECT_EQ(servant.get_ObjectReference(managed->poa_object, &a), nullptr);
  EXPECT_THAT(activator.calls, testing::ElementsAre("a cleanup remaining"));
  EXPECT_EQ(activator.last_poa, managed->poa_object);
  EXPECT_EQ(activator.last_servant, &servant);
  EXPECT_EQ(servant.get_ref_counter(), 0u);

  const POAInfoPtr without = make(USE_SERVANT_MANAGER, USER_ID), plain = make(USE_SERVANT_MANAGER, USER_ID);
  ServantManager* const neither = new PortableServer_ServantManager_impl;
  plain->set_servant_manager(neither, env);
  const struct {
    POAInfo* poa;
    const char* last_line;
  } rows[] = {{without.get(), "  ServantManager_ptr is NULL, return..."},
              {plain.get(), "  ServantActivator is NULL, return..."},
              {user.get(), "POAInfo::get_servant_manager [wrong policy.]"}};
  for (const auto& row : rows) {
    row.poa->activate_object_with_id(a, &servant, env);
    TraceRecorder trace;
    row.poa->deactivate_object(a, env);
    EXPECT_EQ(trace.lines().back(), row.last_line);
    EXPECT_EQ(env.exception(), nullptr);
  }
  top->destroy(false, false);
  delete neither;
}

TEST_F(Activation, ReferencesWithoutAnObject) {
  const CORBA::Object_var by_system(retain->create_reference("IDL:test/Later:1.0", env));
  const CORBA::Object_var by_user(user->create_reference_with_id(a, "IDL:test/Later:1.0", env));
  EXPECT_EQ(retain->active_object_map.load(), nullptr);
  EXPECT_STREQ(ZR_object_get_IntfID(by_system->get_ref(), 0, env._evp), "IDL:test/Later:1.0");
  EXPECT_EQ(ObjectId_var(retain->reference_to_id(by_system.in(), env)).in().length(), 36u);
  EXPECT_TRUE(oid_is_equivalent(ObjectId_var(user->reference_to_id(by_user.in(), env)).in(), a));
  user->activate_object_with_id(a, &servant, env);
  EXPECT_EQ(user->reference_to_servant(by_user.in(), env), &servant);
}

TEST_F(Activation, TheServantManagerIsSetOnce) {
  const POAInfoPtr poa = make(USE_SERVANT_MANAGER);
  EXPECT_EQ(poa->get_servant_manager(env), nullptr);
  poa->set_servant_manager(nullptr, env);
  std::atomic<int> set{0};
  run_together(4, [&](int) {
    CORBA::Environment own;
    try {
      poa->set_servant_manager(&activator, own);
      ++set;
    } catch (const CORBA::BAD_INV_ORDER& e) {
      EXPECT_EQ(e.minor(), 0x4B510303u);
    }
  });
  EXPECT_EQ(set, 1);
  EXPECT_EQ(poa->get_servant_manager(env), &activator);
}

TEST_F(Activation, TheDefaultServantHasAnIdAsLongAsItIsInstalled) {
  defaulted->set_servant(&servant, env);
  const auto first = defaulted->default_oid();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(ServantAccess::default_count(servant), 1u);
  TraceRecorder trace;
  defaulted->set_servant(&servant, env);
  EXPECT_EQ(trace.lines().size(), 1u);  // no end
  EXPECT_EQ(defaulted->default_oid(), first);
  defaulted->set_servant(&second, env);
  EXPECT_EQ(trace.lines().back(), "POAInfo::set_servant end...");
  EXPECT_EQ(defaulted->get_servant(env), &second);
  EXPECT_FALSE(oid_is_equivalent(*defaulted->default_oid(), *first));
  EXPECT_EQ(ServantAccess::default_count(servant), 0u);
  defaulted->set_servant(nullptr, env);
  EXPECT_EQ(defaulted->default_oid(), nullptr);
  EXPECT_EQ(ServantAccess::default_count(second), 0u);
  expect_raised<POA::NoServant>([&](auto& ev) { defaulted->get_servant(ev); });
}

TEST_F(Activation, OneServantActivatedByManyThreadsIsActiveOnce) {
  for (int round = 0; round < 25; ++round) {
    const POAInfoPtr poa = make(USER_ID);
    std::atomic<int> activated{0}, refused{0}, deactivated{0};
    run_together(4, [&](int i) {
      CORBA::Environment own;
      try {
        poa->activate_object_with_id(i % 2 ? a : b, &servant, own);
        ++activated;
      } catch (const POA::ServantAlreadyActive&) {
        ++refused;
      }
    });
    EXPECT_EQ(activated, 1);
    EXPECT_EQ(refused, 3);
    EXPECT_EQ(entries_of(*poa, servant), 1);
    const ObjectId_var oid(poa->servant_to_id(&servant, env));
    run_together(4, [&](int) {
      CORBA::Environment own;
      try {
        poa->deactivate_object(oid.in(), own);
        ++deactivated;
      } catch (const POA::ObjectNotActive&) {
      }
    });
    EXPECT_EQ(deactivated, 1);
  }
}

TEST_F(Activation, OneIdActivatedByManyThreadsHasOneServant) {
  std::vector<PlainServant> servants(4);
  std::atomic<int> activated{0};
  run_together(4, [&](int i) {
    CORBA::Environment own;
    try {
      user->activate_object_with_id(a, &servants[static_cast<std::size_t>(i)], own);
      ++activated;
    } catch (const POA::ObjectAlreadyActive&) {
    }
  });
  EXPECT_EQ(activated, 1);
  user->deactivate_object(a, env);
}

// The map is searched linearly, so the objects come in POAs of 100.
TEST_F(Activation, AHundredThousandObjectsComeAndGo) {
  constexpr std::size_t PER_POA = 100, ROUNDS = 1000;
  std::vector<PlainServant> servants(PER_POA);
  const uint32_t bound = ZR_bound_objects();
  std::size_t converted = 0, memory_before = 0;
  for (std::size_t round = 0; round < ROUNDS; ++round) {
    if (round == 1) memory_before = mallinfo2().uordblks;  // what stays for good is there by now
    const POAInfoPtr poa = make();
    std::vector<ObjectId_var> oids;
    for (PlainServant& each : servants) oids.emplace_back(poa->activate_object(&each, env));
    for (std::size_t i = 0; i < PER_POA; ++i) {
      const CORBA::Object_var reference(poa->id_to_reference(oids[i].in(), env));
      converted += poa->reference_to_servant(reference.in(), env) == &servants[i];
    }
    EXPECT_EQ(ZR_bound_objects(), bound + PER_POA);
    for (const ObjectId_var& oid : oids) poa->deactivate_object(oid.in(), env);
    EXPECT_EQ(ZR_bound_objects(), bound);
    POA_var(POA::_duplicate(poa->poa_object))->destroy(false, false);
  }
  EXPECT_EQ(converted, PER_POA * ROUNDS);
  EXPECT_LT(mallinfo2().uordblks, memory_before + 256 * 1024);
}
