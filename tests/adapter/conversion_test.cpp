// Servants, ids and references, each from the other.
#include <gmock/gmock.h>

#include <functional>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;

namespace {

class Conversion : public AdapterTest {
 protected:
  template <class... Value>
  POAInfoPtr make(Value... values) {
    CORBA::PolicyList list;
    if constexpr (sizeof...(values) != 0) list = policies(root, values...);
    return record_of(POA_var(top->create_POA(unique_name("poa").c_str(), nullptr, list)));
  }
  ObjectId_var system_id() { return POAInfo::genSystemId(); }

  PlainServant servant, other, fallback;
  const ObjectId a = oid_of("a"), b = oid_of("b"), empty = oid_of("");
  CORBA::Environment env;
};

/// What an operation came to, as a word.
std::string outcome(const std::function<std::string(CORBA::Environment&)>& call) {
  CORBA::Environment ev;
  try {
    return call(ev);
  } catch (const CORBA::Exception& e) {
    EXPECT_TRUE(ev.exception());
    EXPECT_STREQ(ev.exception() ? ev.exception()->id() : "", e.id());
    return e._name();
  }
}

}  // namespace

// For each kind of POA: what the operations come to for the servant that is active under `a` (where the POA
// retains), and for another servant and another id. The default servant, where there is one, is a third.
TEST_F(Conversion, DecisionTable) {
  const struct {
    const char* name;
    POAInfoPtr poa;
    // servant_to_id, servant_to_reference: of the active servant, of another; reference_to_servant and
    // id_to_servant: of a, of b; id_to_reference
    std::vector<std::string> expected;
  } rows[] = {
      {"UNIQUE_ID SYSTEM_ID",
       make(),
       {"a", "ServantNotActive", "a", "ServantNotActive", "active", "ObjectNotActive", "active",
        "ObjectNotActive", "a", "ObjectNotActive"}},
      {"UNIQUE_ID SYSTEM_ID IMPLICIT",
       make(IMPLICIT_ACTIVATION),
       {"a", "new", "a", "a new one", "active", "ObjectNotActive", "active", "ObjectNotActive", "a",
        "ObjectNotActive"}},
      {"MULTIPLE_ID SYSTEM_ID IMPLICIT",
       make(IMPLICIT_ACTIVATION, MULTIPLE_ID),
       {"new", "new", "a new one", "a new one", "active", "ObjectNotActive", "active", "ObjectNotActive", "a",
        "ObjectNotActive"}},
      {"MULTIPLE_ID SYSTEM_ID",
       make(MULTIPLE_ID),
       {"WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy", "active", "ObjectNotActive", "active",
        "ObjectNotActive", "a", "ObjectNotActive"}},
      {"UNIQUE_ID USER_ID",
       make(USER_ID),
       {"a", "ServantNotActive", "WrongPolicy", "WrongPolicy", "active", "ObjectNotActive", "active",
        "ObjectNotActive", "a", "ObjectNotActive"}},
      {"MULTIPLE_ID USER_ID",
       make(USER_ID, MULTIPLE_ID),
       {"WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy", "active", "ObjectNotActive", "active",
        "ObjectNotActive", "a", "ObjectNotActive"}},
      {"RETAIN USE_DEFAULT_SERVANT",
       make(USE_DEFAULT_SERVANT, MULTIPLE_ID),
       {"default", "default", "WrongPolicy", "WrongPolicy", "active", "fallback", "active", "fallback", "a",
        "ObjectNotActive"}},
      {"RETAIN USE_DEFAULT_SERVANT IMPLICIT",
       make(USE_DEFAULT_SERVANT, MULTIPLE_ID, IMPLICIT_ACTIVATION),
       {"new", "new", "a new one", "a new one", "active", "fallback", "active", "fallback", "a",
        "ObjectNotActive"}},
      {"NON_RETAIN USE_DEFAULT_SERVANT",
       make(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID),
       {"default", "default", "WrongPolicy", "WrongPolicy", "fallback", "fallback", "fallback", "fallback",
        "WrongPolicy", "WrongPolicy"}},
      {"NON_RETAIN USE_SERVANT_MANAGER",
       make(NON_RETAIN, USE_SERVANT_MANAGER),
       {"WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy",
        "WrongPolicy", "WrongPolicy", "WrongPolicy", "WrongPolicy"}},
      {"RETAIN USE_SERVANT_MANAGER",
       make(USE_SERVANT_MANAGER),
       {"a", "ServantNotActive", "a", "ServantNotActive", "active", "ObjectNotActive", "active",
        "ObjectNotActive", "a", "ObjectNotActive"}},
  };
  for (const auto& [name, poa, expected] : rows) {
    if (poa->retains()) poa->activate_object_with_id(a, &servant, env);
    if (poa->uses_default_servant()) poa->set_servant(&fallback, env);
    const auto id_word = [&, poa = poa](const ObjectId& oid, const char* other_word) -> std::string {
      if (oid_is_equivalent(oid, a)) return "a";
      const auto default_oid = poa->default_oid();
      return default_oid && oid_is_equivalent(oid, *default_oid) ? "default" : other_word;
    };
    const auto to_id = [&, poa = poa](ServantBase& s) {
      return outcome([&](auto& ev) { return id_word(ObjectId_var(poa->servant_to_id(&s, ev)).in(), "new"); });
    };
    const auto id_of = [&, poa = poa](CORBA::Object* reference, CORBA::Environment& ev,
                                      const char* other_word) {
      const CORBA::Object_var owned(reference);
      return id_word(ObjectId_var(poa->reference_to_id(reference, ev)).in(), other_word);
    };
    const auto to_reference = [&, poa = poa](ServantBase& s) {
      return outcome([&](auto& ev) { return id_of(poa->servant_to_reference(&s, ev), ev, "a new one"); });
    };
    const auto servant_word = [&](const ServantBase* s) {
      return s == &servant ? "active" : s == &fallback ? "fallback" : "?";
    };
    const auto from_reference = [&, poa = poa](const ObjectId& oid) {
      const CORBA::Object_var reference(poa->POACreateReference(oid, "IDL:x:1.0", env));
      EXPECT_TRUE(oid_is_equivalent(ObjectId_var(poa->reference_to_id(reference.in(), env)).in(),
                                    oid));  // whatever the policies
      return outcome([&](auto& ev) { return servant_word(poa->reference_to_servant(reference.in(), ev)); });
    };
    const auto from_id = [&, poa = poa](const ObjectId& oid) {
      return outcome([&](auto& ev) { return servant_word(poa->id_to_servant(oid, ev)); });
    };
    const auto reference_of = [&, poa = poa](const ObjectId& oid) {
      return outcome([&](auto& ev) { return id_of(poa->id_to_reference(oid, ev), ev, "?"); });
    };
    PlainServant second;
    const std::vector<std::string> got = {to_id(servant),       to_id(other),      to_reference(servant),
                                          to_reference(second), from_reference(a), from_reference(b),
                                          from_id(a),           from_id(b),        reference_of(a),
                                          reference_of(b)};
    EXPECT_EQ(got, expected) << name;
    const POA_var object(POA::_duplicate(poa->poa_object));
    object->destroy(false, false);
  }
}

TEST_F(Conversion, Failures) {
  const POAInfoPtr plain = make(), user = make(USER_ID), multiple = make(MULTIPLE_ID);
  const POAInfoPtr located = make(NON_RETAIN, USE_SERVANT_MANAGER),
                   defaulted = make(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID);
  const CORBA_sequence_octet no_data{};
  CORBA::Object empty_reference;
  empty_reference.set_ref(ZR_create_object_reference(&no_data, "IDL:x:1.0", "x", env._evp));
  const CORBA::Object_var foreign(user->create_reference_with_id(a, "IDL:x:1.0", env));
  const CORBA::Object_var no_default(defaulted->create_reference("IDL:x:1.0", env));
  const CORBA::Object_var not_served(located->create_reference("IDL:x:1.0", env));

  refused<CORBA::BAD_PARAM>("p_servant = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::servant_to_id [servant is null.]",
                            [&](auto& ev) { plain->servant_to_id(nullptr, ev); });
  refused<POA::WrongPolicy>("non_retain,no use_def_servant, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_id [wrong policy.]",
                            [&](auto& ev) { located->servant_to_id(&servant, ev); });
  refused<POA::WrongPolicy>("implicit,multiple_id,no use_def_serv, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_id [wrong policy.]",
                            [&](auto& ev) { multiple->servant_to_id(&servant, ev); });
  refused<POA::ServantNotActive>("other ex, throw\tPortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_id [ServantNotActive.]",
                                 [&](auto& ev) { plain->servant_to_id(&servant, ev); });
  refused<POA::ServantNotActive>("other ex, throw\tPortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_id [ServantNotActive.]",
                                 [&](auto& ev) { defaulted->servant_to_id(&servant, ev); });
  refused<CORBA::BAD_PARAM>("p_servant==NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::servant_to_reference [servant is null.]",
                            [&](auto& ev) { located->servant_to_reference(nullptr, ev); });
  refused<POA::WrongPolicy>("non_retain, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_reference [wrong policy.]",
                            [&](auto& ev) { located->servant_to_reference(&servant, ev); });
  refused<POA::WrongPolicy>("retain,user_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_reference [wrong policy.]",
                            [&](auto& ev) { user->servant_to_reference(&servant, ev); });
  refused<POA::WrongPolicy>("multiple,no_implicit.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_reference [wrong policy.]",
                            [&](auto& ev) { multiple->servant_to_reference(&servant, ev); });
  refused<POA::ServantNotActive>("other ex.. throw PortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_reference [ServantNotActive.]",
                                 [&](auto& ev) { plain->servant_to_reference(&servant, ev); });
  refused<CORBA::BAD_PARAM>(nullptr, "findPOAInfoByReference [reference is nil.]",
                            [&](auto& ev) { plain->reference_to_servant(nullptr, ev); });
  refused<POA::WrongAdapter>(nullptr, "POAInfo::reference_to_servant [wrong adapter.]",
                             [&](auto& ev) { plain->reference_to_servant(foreign.in(), ev); });
  refused<POA::WrongPolicy>("not use_default_servant_policy,throw PortableServer::POA::WrongPolicy",
                            "POAInfo::reference_to_servant [wrong policy.]",
                            [&](auto& ev) { located->reference_to_servant(not_served.in(), ev); });
  refused<POA::ObjectNotActive>("throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::reference_to_servant [PortableServer::POA::ObjectNotActive.]",
                                [&](auto& ev) { defaulted->reference_to_servant(no_default.in(), ev); });
  refused<CORBA::BAD_PARAM>(nullptr, "findPOAInfoByReference [reference is nil.]",
                            [&](auto& ev) { plain->reference_to_id(nullptr, ev); });
  refused<POA::WrongAdapter>("poa_info != this,throw PortableServer::POA::WrongAdapter",
                             "POAInfo::reference_to_id [wrong adapter.]",
                             [&](auto& ev) { plain->reference_to_id(foreign.in(), ev); });
  refused<CORBA::BAD_PARAM>("oid is empty, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::id_to_servant [oid is invalid.]",
                            [&](auto& ev) { located->id_to_servant(empty, ev); });
  refused<POA::WrongPolicy>("non_retain, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::id_to_servant [wrong policy.]",
                            [&](auto& ev) { located->id_to_servant(a, ev); });
  refused<POA::ObjectNotActive>("not use_default_servant_policy,throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::id_to_servant [PortableServer::POA::ObjectNotActive.]",
                                [&](auto& ev) { plain->id_to_servant(a, ev); });
  refused<POA::ObjectNotActive>("other ex, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::id_to_servant [PortableServer::POA::ObjectNotActive.]",
                                [&](auto& ev) { defaulted->id_to_servant(a, ev); });
  refused<CORBA::BAD_PARAM>("oid is empty, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::id_to_reference [oid is invalid.]",
                            [&](auto& ev) { located->id_to_reference(empty, ev); });
  refused<POA::WrongPolicy>("non_retain.., throw PortableServer::POA::WrongPolicy",
                            "POAInfo::id_to_reference [wrong policy.]",
                            [&](auto& ev) { located->id_to_reference(a, ev); });
  refused<POA::ObjectNotActive>("no servant, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::id_to_reference [PortableServer::POA::ObjectNotActive.]",
                                [&](auto& ev) { user->id_to_reference(a, ev); });
}

TEST_F(Conversion, AReferenceWithoutDataHasNoId) {
  // Such a reference is served by the POA named by its interface under the one named by its implementation.
  const ScopedVariable no_name("ZR_IMPLID", nullptr);
  const POAInfoPtr poa = make();
  const CORBA_sequence_octet no_data{};
  CORBA::Object reference;
  reference.set_ref(
      ZR_create_object_reference(&no_data, poa->adapter_name, record_of(top)->adapter_name, env._evp));
  TraceRecorder trace;
  expect_raised<POA::WrongAdapter>([&](auto& ev) { poa->reference_to_id(&reference, ev); });
  EXPECT_TRUE(trace.in_order({"referenceData is empty,throw PortableServer::POA::WrongAdapter",
                              "POAInfo::reference_to_id [wrong adapter.]"}));
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { poa->reference_to_servant(&reference, ev); });
}

TEST_F(Conversion, ABindingThatIsRefusedEndsTheConversion) {
  const POAInfoPtr poa = make();
  poa->activate_object_with_id(a, &servant, env);
  const CORBA::Object_var bound_before(poa->POACreateReference(a, "IDL:test/Plain:1.0", env));
  CORBA_ORB_bind_object2(POAInfo::_orb, bound_before->get_ref(), nullptr, env._evp);
  TraceRecorder trace;
  expect_raised<POA::ServantNotActive>([&](auto& ev) { poa->servant_to_reference(&servant, ev); });
  EXPECT_TRUE(trace.in_order({"other ex.. throw PortableServer::POA::ServantNotActive",
                              "POAInfo::servant_to_reference [ServantNotActive.]"}));
  poa->deactivate_object(a, env);
  poa->activate_object_with_id(b, &servant, env);
  PlainServant nameless(nullptr);
  poa->activate_object_with_id(a, &nameless, env);
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { poa->id_to_reference(a, ev); });
  top->destroy(false, false);
}

TEST_F(Conversion, OneServantAndIdYieldOneBoundReference) {
  const POAInfoPtr poa = make();
  const ObjectId_var oid(poa->activate_object(&servant, env));
  const uint32_t bound = ZR_bound_objects();
  TraceRecorder trace;
  const CORBA::Object_var first(poa->servant_to_reference(&servant, env));
  EXPECT_EQ(trace.lines().back(),
            "POAInfo::servant_to_reference end...[return duplicated object reference : UNIQUE_ID]");
  const CORBA::Object_var second(poa->servant_to_reference(&servant, env));
  EXPECT_EQ(trace.lines().back(),
            "POAInfo::servant_to_reference end...[return registerd object reference : UNIQUE_ID]");
  const CORBA::Object_var third(poa->id_to_reference(oid.in(), env));
  EXPECT_EQ(trace.lines().back(), "POAInfo::id_to_reference end... [return duplicated object reference]");
  EXPECT_EQ(ZR_bound_objects(), bound + 1);
  EXPECT_TRUE(CORBA_object_is_equivalent(first->get_ref(), second->get_ref()));
  EXPECT_TRUE(CORBA_object_is_equivalent(first->get_ref(), third->get_ref()));
  EXPECT_STREQ(ZR_object_type_id(first->get_ref()), "IDL:test/Plain:1.0");
  CORBA::Object* kept = servant.get_ObjectReference(poa->poa_object, oid);
  EXPECT_TRUE(kept && kept != first.in());
  poa->deactivate_object(oid.in(), env);
  EXPECT_EQ(ZR_bound_objects(), bound);
}

TEST_F(Conversion, ImplicitActivationUnderMultipleIdIsOneMoreEachTime) {
  const POAInfoPtr poa = make(IMPLICIT_ACTIVATION, MULTIPLE_ID);
  const ObjectId_var one(poa->servant_to_id(&servant, env)), two(poa->servant_to_id(&servant, env));
  EXPECT_FALSE(oid_is_equivalent(one.in(), two.in()));
  EXPECT_EQ(entries_of(*poa, servant), 2);
  const CORBA::Object_var reference(poa->servant_to_reference(&servant, env));
  EXPECT_EQ(entries_of(*poa, servant), 3);
  servant.deactivate_ObjectReference();
  ActiveObjectMap::forget_servant(&servant);
}

TEST_F(Conversion, ImplicitActivationByManyThreadsIsOneActivation) {
  for (int round = 0; round < 25; ++round) {
    const POAInfoPtr poa = make(IMPLICIT_ACTIVATION);
    std::vector<ObjectId_var> ids(4);
    run_together(4, [&](int i) {
      CORBA::Environment own;
      if (i % 2) {
        ids[static_cast<std::size_t>(i)] = poa->servant_to_id(&servant, own);
      } else {
        const CORBA::Object_var reference(poa->servant_to_reference(&servant, own));
        ids[static_cast<std::size_t>(i)] = poa->reference_to_id(reference.in(), own);
      }
    });
    EXPECT_EQ(entries_of(*poa, servant), 1);
    for (const ObjectId_var& oid : ids) EXPECT_TRUE(oid_is_equivalent(oid.in(), ids[0].in()));
    poa->deactivate_object(ids[0].in(), env);
  }
}
