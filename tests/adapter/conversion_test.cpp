// Servants, ids and references, each from the other.
#include <cctype>

#include "objects.h"

using namespace PortableServer;

namespace {

class Conversion : public ObjectTest {};

/// What an operation came to: a word, or the capitals of an exception's name.
template <class Call>
std::string outcome(Call&& call) {
  CORBA::Environment ev;
  try {
    return call(ev);
  } catch (const CORBA::Exception& e) {
    std::string name = e._name();
    std::erase_if(name, [](unsigned char c) { return !std::isupper(c); });
    return name;
  }
}

}  // namespace

// For each kind of POA: what the operations come to for the servant that is active under `a` (where the POA
// retains), and for another servant and another id. The default servant, where there is one, is a third.
TEST_F(Conversion, DecisionTable) {
  PlainServant fallback, another;
  const struct {
    POAInfoPtr poa;
    // servant_to_id, servant_to_reference: of the active servant, of another;
    // reference_to_servant, id_to_servant, id_to_reference: of a, of b
    const char* expected;
  } rows[] = {
      {make(), "a SNA a SNA active ONA active ONA a ONA"},
      {make(IMPLICIT_ACTIVATION), "a new a new active ONA active ONA a ONA"},
      {make(IMPLICIT_ACTIVATION, MULTIPLE_ID), "new new new new active ONA active ONA a ONA"},
      {make(MULTIPLE_ID), "WP WP WP WP active ONA active ONA a ONA"},
      {make(USER_ID), "a SNA WP WP active ONA active ONA a ONA"},
      {make(USER_ID, MULTIPLE_ID), "WP WP WP WP active ONA active ONA a ONA"},
      {make(USE_DEFAULT_SERVANT, MULTIPLE_ID), "default default WP WP active fallback active fallback a ONA"},
      {make(USE_DEFAULT_SERVANT, MULTIPLE_ID, IMPLICIT_ACTIVATION),
       "new new new new active fallback active fallback a ONA"},
      {make(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID),
       "default default WP WP fallback fallback fallback fallback WP WP"},
      {make(NON_RETAIN, USE_SERVANT_MANAGER), "WP WP WP WP WP WP WP WP WP WP"},
      {make(USE_SERVANT_MANAGER), "a SNA a SNA active ONA active ONA a ONA"},
  };
  for (const auto& row : rows) {
    POAInfo* const poa = row.poa.get();
    if (poa->policies.retains()) poa->activate_object_with_id(a, &servant, own_ev);
    if (poa->policies.uses_default_servant()) poa->set_servant(&fallback, own_ev);
    const auto id_word = [&](ObjectId* oid) {
      const ObjectId_var owned(oid);
      const auto default_oid = poa->default_servant.oid();
      if (oid_is_equivalent(*oid, a)) return "a";
      return default_oid && oid_is_equivalent(*oid, *default_oid) ? "default" : "new";
    };
    const auto reference_word = [&](CORBA::Object* reference, CORBA::Environment& ev) {
      const CORBA::Object_var owned(reference);
      return id_word(poa->reference_to_id(reference, ev));
    };
    const auto servant_word = [&](const ServantBase* s) {
      return s == &servant ? "active" : s == &fallback ? "fallback" : "?";
    };
    std::string got;
    const auto add = [&](auto&& call) { got += (got.empty() ? "" : " ") + outcome(call); };
    for (PlainServant* s : {&servant, &other})
      add([&](auto& ev) { return id_word(poa->servant_to_id(s, ev)); });
    for (PlainServant* s : {&servant, &another})
      add([&](auto& ev) { return reference_word(poa->servant_to_reference(s, ev), ev); });
    for (const ObjectId* oid : {&a, &b}) {
      const CORBA::Object_var reference(poa->POACreateReference(*oid, "IDL:x:1.0", own_ev));
      EXPECT_EQ(text_of(ObjectId_var(poa->reference_to_id(reference.in(), own_ev)).in()), text_of(*oid));
      add([&](auto& ev) { return servant_word(poa->reference_to_servant(reference.in(), ev)); });
    }
    for (const ObjectId* oid : {&a, &b})
      add([&](auto& ev) { return servant_word(poa->id_to_servant(*oid, ev)); });
    for (const ObjectId* oid : {&a, &b})
      add([&](auto& ev) { return reference_word(poa->id_to_reference(*oid, ev), ev); });
    EXPECT_EQ(got, row.expected) << "row " << &row - rows;
    POA_var(POA::_duplicate(poa->poa_object))->destroy(false, false);
  }
}

// What the table has not: arguments that stand for nothing, references of others, nothing installed.
TEST_F(Conversion, Failures) {
  using CORBA::BAD_PARAM;
  const POAInfoPtr plain = make(), user = make(USER_ID), located = make(NON_RETAIN, USE_SERVANT_MANAGER);
  const POAInfoPtr defaulted = make(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID);
  const CORBA::Object_var foreign(user->create_reference_with_id(a, "IDL:x:1.0", own_ev));

  REFUSED(BAD_PARAM, located, servant_to_id, "servant is null", nullptr);
  REFUSED(POA::ServantNotActive, defaulted, servant_to_id, "ServantNotActive", &servant);
  REFUSED(BAD_PARAM, located, servant_to_reference, "servant is null", nullptr);
  refused<BAD_PARAM>("findPOAInfoByReference [reference is nil.]",
                     [&](auto& ev) { plain->reference_to_servant(nullptr, ev); });
  REFUSED(POA::WrongAdapter, plain, reference_to_servant, "wrong adapter", foreign.in());
  REFUSED(POA::WrongAdapter, plain, reference_to_id, "wrong adapter", foreign.in());
  REFUSED(BAD_PARAM, located, id_to_servant, "oid is invalid", empty);
  REFUSED(POA::ObjectNotActive, defaulted, id_to_servant, "PortableServer::POA::ObjectNotActive", a);
  REFUSED(BAD_PARAM, located, id_to_reference, "oid is invalid", empty);
}

TEST_F(Conversion, ABindingThatIsRefusedEndsTheConversion) {
  const POAInfoPtr poa = make();
  poa->activate_object_with_id(a, &servant, own_ev);
  const CORBA::Object_var bound_before(poa->POACreateReference(a, "IDL:test/Plain:1.0", own_ev));
  CORBA_ORB_bind_object2(core_handles.orb, bound_before->get_ref(), nullptr, own_ev._evp);
  expect_raised<POA::ServantNotActive>([&](auto& ev) { poa->servant_to_reference(&servant, ev); });
  poa->deactivate_object(a, own_ev);
  PlainServant nameless(nullptr);
  poa->activate_object_with_id(a, &nameless, own_ev);
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { poa->id_to_reference(a, ev); });
  top->destroy(false, false);
}

TEST_F(Conversion, ImplicitActivationIsTracedStepByStep) {
  constexpr const char* looked = "ActiveObjectMap::findOidByServant called...[p_servant = 0x";
  for (const auto& [poa, looks] :
       {std::pair(make(IMPLICIT_ACTIVATION), 2u), std::pair(make(IMPLICIT_ACTIVATION, MULTIPLE_ID), 1u)}) {
    poa->activate_object_with_id(a, &other, own_ev);
    TraceRecorder trace;
    const ObjectId_var made(poa->servant_to_id(&servant, own_ev));
    EXPECT_EQ(trace.count_starting(looked), looks);
    EXPECT_TRUE(trace.in_order({"ActiveObjectMap::findOidByServant end...[return NULL]",
                                "POAInfo::genSystemId called...", "POAInfo::genSystemId end...",
                                "ActiveObjectMap::insertActiveObjectMap end...[insert ActiveObjectMap[1]]",
                                "  POA_impl_is_ready call", "POAInfo::POA_impl_is_ready called...",
                                "POAInfo::servant_to_id end...[return oid : MULTIPLE_ID or make oid]"}));
    trace.clear();
    const ObjectId_var again(poa->servant_to_id(&servant, own_ev));
    EXPECT_EQ(trace.count_starting(looked), 1u);
    EXPECT_EQ(trace.in_order({"ActiveObjectMap::findOidByServant end...[return oid]",
                              "POAInfo::servant_to_id end...[return oid : UNIQUE_ID]",
                              "POAInfo::PortableServer_ObjectId_duplicate called..."}),
              looks == 2);
    trace.clear();
    CORBA::Object_var(poa->servant_to_reference(&servant, own_ev));
    EXPECT_EQ(trace.count_starting(looked), looks - 1)
        << "a reference is not looked for where it is made anew";
  }
}

TEST_F(Conversion, TheDefaultServantsIdIsTracedBeforeItsCopy) {
  const POAInfoPtr poa = make(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID);
  poa->set_servant(&servant, own_ev);
  TraceRecorder trace;
  const ObjectId_var copy(poa->servant_to_id(&servant, own_ev));
  EXPECT_TRUE(trace.in_order({"POAInfo::servant_to_id end...[return oid : USE_DEFAULT_SERVANT]",
                              "POAInfo::PortableServer_ObjectId_duplicate called..."}));
}

TEST_F(Conversion, OneServantAndIdYieldOneBoundReference) {
  const POAInfoPtr poa = make();
  const ObjectId_var oid(poa->activate_object(&servant, own_ev));
  const uint32_t bound = ZR_bound_objects();
  const CORBA::Object_var first(poa->servant_to_reference(&servant, own_ev));
  const CORBA::Object_var more[] = {poa->servant_to_reference(&servant, own_ev),
                                    poa->id_to_reference(oid.in(), own_ev)};
  for (const CORBA::Object_var& each : more) EXPECT_TRUE(first->_is_equivalent(each.in()));
  EXPECT_EQ(ZR_bound_objects(), bound + 1);
  EXPECT_STREQ(ZR_object_type_id(first->get_ref()), "IDL:test/Plain:1.0");
  EXPECT_NE(servant.get_ObjectReference(poa->poa_object, oid), first.in());
  poa->deactivate_object(oid.in(), own_ev);
  EXPECT_EQ(ZR_bound_objects(), bound);
}

TEST_F(Conversion, ImplicitActivationByManyThreadsIsOneActivation) {
  for (int round = 0; round < 25; ++round) {
    const POAInfoPtr poa = make(IMPLICIT_ACTIVATION);
    std::vector<ObjectId_var> ids(4);
    run_together(4, [&](std::size_t i) {
      CORBA::Environment own;
      if (i % 2) CORBA::release(poa->servant_to_reference(&servant, own));
      ids[i] = poa->poa_object->servant_to_id(&servant, own);
    });
    EXPECT_EQ(entries_of(*poa, servant), 1);
    for (const ObjectId_var& oid : ids) EXPECT_TRUE(oid_is_equivalent(oid.in(), ids[0].in()));
    poa->deactivate_object(ids[0].in(), own_ev);
  }
}
