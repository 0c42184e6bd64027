// Policies: the shared objects, and what a list makes of a record.
#include <set>

#include "objects.h"
#include "records/policyset.h"

using namespace PortableServer;
using testing::ElementsAre;

namespace {

template <class Kind>
CORBA::Policy* made_by(CORBA::ULong value, CORBA::Environment& ev) {
  Kind* policy = shared_policy<Kind>(static_cast<typename Kind::value_type>(value), ev);
  EXPECT_EQ(policy->value(), value);
  return policy;
}

/// The kinds in the order of their types; the tags of a kind's values follow each other.
const struct {
  CORBA::Policy* (*make)(CORBA::ULong value, CORBA::Environment& ev);
  CORBA::PolicyType type;
  std::vector<PolicyTag> tags;
} kinds[] = {
    {made_by<ThreadPolicy>, 16, {0, 1}},
    {made_by<LifespanPolicy>, 17, {2, 3}},
    {made_by<IdUniquenessPolicy>, 18, {4, 5}},
    {made_by<IdAssignmentPolicy>, 19, {6, 7}},
    {made_by<ImplicitActivationPolicy>, 20, {8, 9}},
    {made_by<ServantRetentionPolicy>, 21, {10, 11}},
    {made_by<RequestProcessingPolicy>, 22, {12, 13, 14}},
};

class Policies : public ObjectTest {
 protected:
  std::vector<PolicyTag> tags_of(const CORBA::PolicyList& list) {
    POA_var poa = child(top, unique_name("p"), list);
    const POAInfoPtr record = record_of(poa);
    std::vector<PolicyTag> tags;
    for (const PolicyKind& kind : policy_kinds) tags.push_back(record->policies.*kind.field);
    poa->destroy(false, false);
    return tags;
  }
  /// The list is rejected by the rule of that trace; the exception tells the element that completed it.
  void expect_rejected(const CORBA::PolicyList& list, const std::string& rule, CORBA::UShort index) {
    TraceRecorder trace;
    const auto thrown =
        expect_raised<POA::InvalidPolicy>([&](auto& ev) { top->create_POA("rejected", nullptr, list, ev); });
    EXPECT_TRUE(trace.in_order(
        {"ERROR InvaridPolicy! " + rule, "POAInfo::POAInfo [ERROR InvaridPolicy! " + rule + ".]"}));
    EXPECT_EQ(thrown.index(), index);
  }
};

}  // namespace

TEST_F(Policies, OneSharedObjectAValueWhoeverAsksFirst) {
  std::set<CORBA::Policy*> got[4];
  run_together(4, [&](auto i) {
    CORBA::Environment ev;
    for (const auto& kind : kinds) {
      const auto values = static_cast<CORBA::ULong>(kind.tags.size());
      for (CORBA::ULong value = 0; value < values; ++value) got[i].insert(kind.make(value, ev));
      expect_raised<CORBA::BAD_PARAM>([&](auto& own) { kind.make(values, own); });
      expect_raised<CORBA::BAD_PARAM>([&](auto& own) { kind.make(~0u, own); });
    }
  });
  EXPECT_EQ(got[0].size(), POLICY_TAGS);
  for (const auto& mine : got) EXPECT_EQ(mine, got[0]);
  for (const auto& kind : kinds) EXPECT_EQ(kind.make(0, own_ev)->policy_type(), kind.type);
}

TEST_F(Policies, EveryCombination) {
  // What must not be together, in the order in which it is found out.
  const std::tuple<std::set<PolicyTag>, const char*, CORBA::UShort> rules[] = {
      {{11, 12}, "NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY", 6},
      {{4, 13}, "USE_DEFAULT_SERVANT,UNIQUE_ID", 6},
      {{7, 8, 11}, "IMPLICIT_ACTIVATION,SYSTEM_ID,NON_RETAIN", 5},
      {{6, 8}, "IMPLICIT_ACTIVATION,USER_ID", 4}};
  int accepted = 0;
  for (std::size_t number = 0; number < 64 * 3; ++number) {
    std::vector<PolicyTag> wanted;
    CORBA::PolicyList list;
    list.length(7);
    std::size_t rest = number;
    for (const auto& kind : kinds) {
      const std::size_t value = rest % kind.tags.size();
      rest /= kind.tags.size();
      list[static_cast<CORBA::ULong>(wanted.size())] =
          kind.make(static_cast<CORBA::ULong>(value), own_ev)->copy();
      wanted.push_back(kind.tags[value]);
    }
    SCOPED_TRACE(testing::PrintToString(wanted));
    const auto broken = std::ranges::find_if(
        rules, [&](const auto& rule) { return std::ranges::includes(wanted, std::get<0>(rule)); });
    if (broken != std::end(rules)) {
      expect_rejected(list, std::get<1>(*broken), std::get<2>(*broken));
    } else {
      EXPECT_EQ(tags_of(list), wanted);
      ++accepted;
    }
  }
  EXPECT_EQ(accepted, 84);
}

TEST_F(Policies, DefaultsFillWhatAListDoesNotSay) {
  EXPECT_THAT(tags_of({}), ElementsAre(0, 2, 4, 7, 9, 10, 12));
  EXPECT_THAT(tags_of(policies(root, PERSISTENT, TRANSIENT)), ElementsAre(0, 2, 4, 7, 9, 10, 12))
      << "the later one wins";
  expect_rejected(policies(root, NON_RETAIN), "NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY", 0);
  expect_rejected(policies(root, SYSTEM_ID, IMPLICIT_ACTIVATION, USER_ID, PERSISTENT),
                  "IMPLICIT_ACTIVATION,USER_ID", 2);
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("rejected", false, ev); });
}

TEST_F(Policies, AnyReferenceIsTakenForAPolicy) {
  const auto carrying = [&](std::uint32_t octets, std::uint32_t number) {
    CORBA_sequence_octet data{octets, octets, reinterpret_cast<unsigned char*>(&number)};
    CORBA::Policy* policy = new PortableServer_ThreadPolicy_impl;
    policy->set_ref(create_reference_handle(&data, "IDL:x:1.0", "IDL:x:1.0", own_ev._evp));
    return policy;
  };
  const std::tuple<const char*, CORBA::Policy*, PolicyTag> rows[] = {
      {"nil is skipped", nullptr, 1},
      {"no reference", new PortableServer_ThreadPolicy_impl, 1},
      {"short data counts as tag 0", carrying(3, 5), 0},
      {"no such tag", carrying(4, 15), 1}};
  for (const auto& [name, policy, thread] : rows) {
    CORBA::PolicyList list = policies(root, SINGLE_THREAD_MODEL, PERSISTENT);
    list.length(3);
    list[2] = policy;
    EXPECT_THAT(tags_of(list), ElementsAre(thread, 3, 4, 7, 9, 10, 12)) << name;
  }
}
