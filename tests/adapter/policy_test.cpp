// Policies: the shared objects, their classes, and what a list makes of a record.
#include <gmock/gmock.h>

#include <set>
#include <vector>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "policykinds.h"

using namespace PortableServer;

namespace {

/// One value of one policy, through the factory of the records.
struct Row {
  PolicyTag tag;
  CORBA::PolicyType type;
  CORBA::ULong value;
  const char* factory;
  const char* shared_name;
  CORBA::Policy* (*make)(CORBA::ULong value, CORBA::Environment& ev);
};

template <class Kind, Kind* (*Factory)(typename Kind::value_type, CORBA::Environment&)>
CORBA::Policy* made_by(CORBA::ULong value, CORBA::Environment& ev) {
  Kind* policy = Factory(static_cast<typename Kind::value_type>(value), ev);
  EXPECT_EQ(policy->value(), value);
  return policy;
}

constexpr auto thread_ = made_by<ThreadPolicy, POAInfo::create_thread_policy>;
constexpr auto lifespan = made_by<LifespanPolicy, POAInfo::create_lifespan_policy>;
constexpr auto uniqueness = made_by<IdUniquenessPolicy, POAInfo::create_id_uniqueness_policy>;
constexpr auto assignment = made_by<IdAssignmentPolicy, POAInfo::create_id_assignment_policy>;
constexpr auto activation = made_by<ImplicitActivationPolicy, POAInfo::create_implicit_activation_policy>;
constexpr auto retention = made_by<ServantRetentionPolicy, POAInfo::create_servant_retention_policy>;
constexpr auto processing = made_by<RequestProcessingPolicy, POAInfo::create_request_processing_policy>;

#define ROW(tag, type, value, stem, Stem, Value, make) \
  { tag, type, value, "create_" #stem "_policy", #Stem "Policy_" #Value, make }
const Row rows[] = {
    ROW(0, 16, 0, thread, thread, ORB_CTRL_MODEL, thread_),
    ROW(1, 16, 1, thread, thread, SINGLE_THREAD_MODEL, thread_),
    ROW(2, 17, 0, lifespan, lifespan, TRANSIENT, lifespan),
    ROW(3, 17, 1, lifespan, lifespan, PERSISTENT, lifespan),
    ROW(4, 18, 0, id_uniqueness, idUniqueness, UNIQUE_ID, uniqueness),
    ROW(5, 18, 1, id_uniqueness, idUniqueness, MULTIPLE_ID, uniqueness),
    ROW(6, 19, 0, id_assignment, idAssignment, USER_ID, assignment),
    ROW(7, 19, 1, id_assignment, idAssignment, SYSTEM_ID, assignment),
    ROW(8, 20, 0, implicit_activation, implicitActivation, IMPLICIT_ACTIVATION, activation),
    ROW(9, 20, 1, implicit_activation, implicitActivation, NO_IMPLICIT_ACTIVATION, activation),
    ROW(10, 21, 0, servant_retention, servantRetention, RETAIN, retention),
    ROW(11, 21, 1, servant_retention, servantRetention, NON_RETAIN, retention),
    ROW(12, 22, 0, request_processing, requestProcessing, USE_ACTIVE_OBJECT_MAP_ONLY, processing),
    ROW(13, 22, 1, request_processing, requestProcessing, USE_DEFAULT_SERVANT, processing),
    ROW(14, 22, 2, request_processing, requestProcessing, USE_SERVANT_MANAGER, processing)};
#undef ROW

class Policies : public AdapterTest {
 protected:
  std::vector<PolicyTag> tags_of(const CORBA::PolicyList& list) {
    POA_var poa = top->create_POA(unique_name("p").c_str(), nullptr, list);
    const POAInfoPtr record = POAInfo::findPOAInfo(poa, env);
    std::vector<PolicyTag> tags;
    for (const PolicyKind& kind : policy_kinds) tags.push_back((*record).*kind.field);
    poa->destroy(false, false);
    return tags;
  }
  /// The list is rejected by the rule of that trace; gives the exception's index.
  CORBA::UShort rejected(const CORBA::PolicyList& list, const std::string& rule) {
    TraceRecorder trace;
    const auto thrown =
        expect_raised<POA::InvalidPolicy>([&](auto& ev) { top->create_POA("rejected", nullptr, list, ev); });
    EXPECT_TRUE(trace.in_order(
        {"ERROR InvaridPolicy! " + rule, "POAInfo::POAInfo [ERROR InvaridPolicy! " + rule + ".]"}));
    EXPECT_EQ(trace.count_starting("ERROR InvaridPolicy!"), 1u);
    return thrown.index();
  }
  CORBA::Environment env;
};

/// The rule that a whole set of tags breaks first, or "".
std::string broken_rule(const std::vector<PolicyTag>& tags) {
  const std::set<PolicyTag> has(tags.begin(), tags.end());
  if (has.count(11) && has.count(12)) return "NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY";
  if (has.count(13) && has.count(4)) return "USE_DEFAULT_SERVANT,UNIQUE_ID";
  if (has.count(8) && has.count(7) && has.count(11)) return "IMPLICIT_ACTIVATION,SYSTEM_ID,NON_RETAIN";
  if (has.count(8) && has.count(6)) return "IMPLICIT_ACTIVATION,USER_ID";
  return "";
}

}  // namespace

// First: the objects are made here, by whoever comes first.
TEST_F(Policies, OneSharedObjectAValueWhoeverAsksFirst) {
  CORBA::Policy* got[4][POLICY_TAGS] = {};
  run_together(4, [&](auto i) {
    CORBA::Environment ev;
    for (const Row& row : rows) got[i][row.tag] = row.make(row.value, ev);
  });
  for (auto& mine : got) {
    for (const Row& row : rows) EXPECT_EQ(mine[row.tag], POAInfo::shared_policy(row.tag)) << row.shared_name;
  }
  EXPECT_EQ(std::set<CORBA::Policy*>(got[0], got[0] + POLICY_TAGS).size(), POLICY_TAGS);
}

TEST_F(Policies, EachObjectKnowsItsValueTypeAndTag) {
  for (const Row& row : rows) {
    const std::size_t is_new = POAInfo::shared_policy(row.tag) ? 0 : 1;
    const std::string end = std::string("POAInfo::") + row.factory + " end...[" + row.shared_name + "]";
    TraceRecorder trace;
    CORBA::Policy* policy = row.make(row.value, env);
    EXPECT_EQ(row.make(row.value, env), policy);
    EXPECT_EQ(trace.count(end), is_new) << "made once";
    EXPECT_EQ(policy->policy_type(), row.type);
    PolicyTag tag = 99;
    std::uint32_t length = 0;
    const unsigned char* data = nullptr;
    ASSERT_TRUE(ZR_object_peek_id(policy->get_ref(), &data, &length));
    ASSERT_EQ(length, sizeof tag);
    std::memcpy(&tag, data, sizeof tag);
    EXPECT_EQ(tag, row.tag);
  }
}

TEST_F(Policies, OtherValuesAreRefused) {
  const std::pair<const Row&, CORBA::ULong> refused[] = {{rows[0], 2},  {rows[2], 2},   {rows[4], 2},
                                                         {rows[6], 2},  {rows[8], 2},   {rows[10], 2},
                                                         {rows[12], 3}, {rows[0], ~0u}, {rows[14], ~0u}};
  for (const auto& [row, bad] : refused) {
    TraceRecorder trace;
    expect_raised<CORBA::BAD_PARAM>([&, make = row.make, value = bad](auto& ev) { make(value, ev); });
    EXPECT_TRUE(trace.in_order({std::string("POAInfo::") + row.factory + " called...",
                                "bad param, throw CORBA::StExcep::BAD_PARAM",
                                std::string("POAInfo::") + row.factory + " [bad param.]"}));
  }
}

TEST_F(Policies, EveryCombination) {
  const std::vector<PolicyTag> choices[] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {8, 9}, {10, 11}, {12, 13, 14}};
  int accepted = 0;
  for (int number = 0; number < 64 * 3; ++number) {
    std::vector<PolicyTag> wanted;
    CORBA::PolicyList list;
    list.length(7);
    int rest = number;
    for (const auto& choice : choices) {
      const auto size = static_cast<int>(choice.size());
      const PolicyTag tag = choice[static_cast<std::size_t>(rest % size)];
      rest /= size;
      list[static_cast<CORBA::ULong>(wanted.size())] = rows[tag].make(rows[tag].value, env)->copy();
      wanted.push_back(tag);
    }
    const std::string rule = broken_rule(wanted);
    SCOPED_TRACE(testing::PrintToString(wanted));
    if (rule.empty()) {
      EXPECT_EQ(tags_of(list), wanted);
      ++accepted;
    } else {
      rejected(list, rule);
    }
  }
  EXPECT_EQ(accepted, 84);
}

TEST_F(Policies, DefaultsFillWhatAListDoesNotSay) {
  EXPECT_THAT(tags_of(CORBA::PolicyList()), testing::ElementsAre(0, 2, 4, 7, 9, 10, 12));
  EXPECT_THAT(tags_of(policies(root, IMPLICIT_ACTIVATION)), testing::ElementsAre(0, 2, 4, 7, 8, 10, 12));
  EXPECT_THAT(tags_of(policies(root, NON_RETAIN, USE_SERVANT_MANAGER)),
              testing::ElementsAre(0, 2, 4, 7, 9, 11, 14));
  EXPECT_THAT(tags_of(policies(root, MULTIPLE_ID, USE_DEFAULT_SERVANT)),
              testing::ElementsAre(0, 2, 5, 7, 9, 10, 13));
  EXPECT_THAT(tags_of(policies(root, PERSISTENT, TRANSIENT)), testing::ElementsAre(0, 2, 4, 7, 9, 10, 12))
      << "the later one wins";
}

TEST_F(Policies, TheIndexIsTheElementThatCompletedTheCombination) {
  EXPECT_EQ(rejected(policies(root, NON_RETAIN), "NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY"), 0);
  EXPECT_EQ(rejected(policies(root, PERSISTENT, USE_DEFAULT_SERVANT, SINGLE_THREAD_MODEL),
                     "USE_DEFAULT_SERVANT,UNIQUE_ID"),
            1);
  EXPECT_EQ(rejected(policies(root, USE_SERVANT_MANAGER, IMPLICIT_ACTIVATION, PERSISTENT, NON_RETAIN),
                     "IMPLICIT_ACTIVATION,SYSTEM_ID,NON_RETAIN"),
            3);
  EXPECT_EQ(rejected(policies(root, SYSTEM_ID, IMPLICIT_ACTIVATION, USER_ID, PERSISTENT),
                     "IMPLICIT_ACTIVATION,USER_ID"),
            2);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("rejected", false, ev); });
}

TEST_F(Policies, AnyReferenceIsTakenForAPolicy) {
  const auto with = [&](CORBA::Policy* element) {
    CORBA::PolicyList list = policies(root, SINGLE_THREAD_MODEL, PERSISTENT);
    list.length(3);
    list[2] = element;
    return tags_of(list);
  };
  const auto carrying = [&](std::uint32_t octets, std::uint64_t number) {
    CORBA_sequence_octet data{octets, octets, reinterpret_cast<unsigned char*>(&number)};
    CORBA::Policy* policy = new PortableServer_ThreadPolicy_impl;
    policy->set_ref(POAInfo::createObject(&data, "IDL:x:1.0", "IDL:x:1.0", nullptr, env._evp));
    return policy;
  };
  using testing::ElementsAre;
  EXPECT_THAT(with(nullptr), ElementsAre(1, 3, 4, 7, 9, 10, 12)) << "nil is skipped";
  EXPECT_THAT(with(new PortableServer_ThreadPolicy_impl), ElementsAre(1, 3, 4, 7, 9, 10, 12))
      << "no reference";
  EXPECT_THAT(with(carrying(3, 5)), ElementsAre(0, 3, 4, 7, 9, 10, 12)) << "short data counts as tag 0";
  EXPECT_THAT(with(carrying(4, 2)), ElementsAre(1, 2, 4, 7, 9, 10, 12));
  EXPECT_THAT(with(carrying(8, 5)), ElementsAre(1, 3, 5, 7, 9, 10, 12)) << "the first four octets";
  EXPECT_THAT(with(carrying(4, 15)), ElementsAre(1, 3, 4, 7, 9, 10, 12)) << "no such tag";
}

TEST_F(Policies, CopiesStandForTheSameValue) {
  LifespanPolicy* shared = POAInfo::create_lifespan_policy(PERSISTENT, env);
  LifespanPolicy_var duplicate = LifespanPolicy::_duplicate(shared);
  ASSERT_NE(duplicate.in(), shared);
  CORBA::Policy_var copy = duplicate->copy();
  LifespanPolicy_var narrowed = LifespanPolicy::_narrow(copy);
  for (LifespanPolicy* each : {duplicate.in(), narrowed.in()}) {
    EXPECT_EQ(each->value(), PERSISTENT);
    EXPECT_EQ(each->policy_type(), LIFESPAN_POLICY_ID);
  }
  shared->destroy();  // of one reference: the shared object stays
  EXPECT_EQ(POAInfo::create_lifespan_policy(PERSISTENT, env), shared);
}
