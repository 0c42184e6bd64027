// Start-up, the root POA, records and their proof of life.
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "orb_fixture.h"
#include "poainfo.h"
#include "policy_list.h"
#include "policykinds.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;
using testing::Contains;

namespace {

class StartUp : public AdapterTest {
 protected:
  POAInfoPtr record_of(POA* poa) { return POAInfo::findPOAInfo(poa, env); }
  POA_var child(POA* parent, const char* name) {
    return parent->create_POA(name, nullptr, CORBA::PolicyList());
  }
  CORBA::Environment env;
};

}  // namespace

TEST(FirstStart, WhenItFailsTheNextOneDoesItAll) {
  if (initialised) GTEST_SKIP() << "only in a process of its own, as ctest runs it";
  char no_orb = 0;
  EXPECT_EQ(_poa_init(&no_orb, nullptr), nullptr) << "the repositories cannot be resolved there";
  EXPECT_FALSE(initialised);
  EXPECT_EQ(_call_cpp_, call_cpp_handler);
  EXPECT_EQ(POAInfo::system_id, 0x01234567u);
  EXPECT_NE(test_root_poa(), nullptr);
  EXPECT_TRUE(initialised);
}

TEST_F(StartUp, TheRootPoaStandsWhole) {
  ASSERT_TRUE(initialised);
  EXPECT_STREQ(CORBA::String_var(POAInfo::root_poa->the_name()).in(), "rootPOA");
  const POAInfoPtr record = record_of(root);
  ASSERT_EQ(record.get(), root_poa_info);
  EXPECT_EQ(record->parent, nullptr);
  EXPECT_EQ(record->poa_managerInfo_ptr, default_poa_manager_info);
  std::vector<PolicyTag> tags;
  for (const PolicyKind& kind : policy_kinds) tags.push_back((*record).*kind.field);
  EXPECT_THAT(tags, testing::ElementsAre(0, 2, 4, 7, 8, 10, 12));
  for (auto* id : {ZR_object_get_IntfID, ZR_object_get_ImplID})
    EXPECT_STREQ(id(POAInfo::root_poa->get_ref(), 0, env._evp), "IDL:org.omg/PortableServer/POA:1.0");
  EXPECT_EQ(_call_cpp_, call_cpp_handler);
  EXPECT_EQ(_call_disconnect_cpp_, call_disconnect_cpp_handler);
  EXPECT_EQ(_call_poa_inst_lifespan_, call_poa_inst_lifespan);
  CORBA::Object current;
  current.set_ref(CORBA_ORB_resolve_initial_references(test_orb(), "POACurrent", env._evp));
  EXPECT_TRUE(CORBA_object_is_equivalent(current.get_ref(), poa_current->get_ref()));
}

TEST_F(StartUp, AgainItOnlyTakesOverTheHandles) {
  void *const orb = POAInfo::_orb, *const boa = POAInfo::_boa;
  char other_orb = 0, other_boa = 0;
  POAInfo* const before = root_poa_info;
  EXPECT_EQ(_poa_init(&other_orb, &other_boa), POAInfo::root_poa->get_ref());
  EXPECT_TRUE(POAInfo::_orb == &other_orb && POAInfo::_boa == &other_boa && root_poa_info == before);
  EXPECT_EQ(_poa_init(orb, boa), POAInfo::root_poa->get_ref());
}

TEST_F(StartUp, FindPoaInfoTellsWhyItFindsNothing) {
  POA_var gone = child(top, "gone");
  gone->destroy(false, false);
  POA_var again = child(top, "gone");  // does not bring the old one back
  POA_var no_handle = new PortableServer_POA_impl;
  ThreadPolicy_var policy = root->create_thread_policy(ORB_CTRL_MODEL);
  POA_var four_octets = POA::_narrow(policy);
  POA_var never_given_out = new PortableServer_POA_impl;
  ValueReferenceData<Identity> data(~Identity{0});
  never_given_out->set_ref(
      POAInfo::createObject(&data.sequence, "IDL:x:1.0", "IDL:x:1.0", nullptr, env._evp));
  const std::pair<POA*, const char*> rows[] = {
      {gone, "POAInfo::findPOAInfo end... [return NULL 2]"},
      {never_given_out, "POAInfo::findPOAInfo end... [return NULL 2]"},
      {four_octets, "POAInfo::findPOAInfo end... [return NULL 1]"},
      {no_handle, "POAInfo::findPOAInfo end... [return NULL : exeption]"},
      {nullptr, "POAInfo::findPOAInfo end... [return NULL : exeption]"},
  };
  for (const auto& [poa, why] : rows) {
    TraceRecorder trace;
    EXPECT_EQ(record_of(poa), nullptr) << why;
    EXPECT_TRUE(trace.in_order({"POAInfo::findPOAInfo called...", why}));
    EXPECT_EQ(env._exp, nullptr);
  }
  EXPECT_NE(record_of(again), nullptr);
}

TEST_F(StartUp, RemovingARecordKeepsTheOrderOfTheOthers) {
  for (const char* name : {"a", "b", "c", "d"}) child(top, name);
  const POAInfoPtr parent = record_of(top);
  const POAInfoPtr middle = parent->findChildByName("b", env, false);
  const POAInfoPtr first = parent->findChildByName("d", env, false);
  const POAInfo stranger;
  const auto removed = [&](POAInfo* record) {
    POAInfo::remove_from_list(record);
    EXPECT_TRUE(record == root_poa_info || !POAInfo::is_existent(record));
    std::string all;
    for (POAInfo* at = parent->the_first_child(); at; at = at->siblings) all += at->the_adapter_name();
    return all;
  };
  TraceRecorder trace;
  EXPECT_EQ(removed(nullptr), "dcba");
  EXPECT_EQ(removed(middle.get()), "dca");
  EXPECT_EQ(trace.count_starting("POAInfo::remove_from_list end...[removed. POAInfo=0x"), 1u);
  EXPECT_EQ(removed(middle.get()) + removed(root_poa_info), "dcadca");
  EXPECT_EQ(trace.count("POAInfo::remove_from_list end...[not removed]"), 2u);
  EXPECT_EQ(removed(first.get()), "ca");
  EXPECT_TRUE(POAInfo::is_existent(root_poa_info));
  EXPECT_FALSE(POAInfo::is_existent(&stranger));
}

TEST_F(StartUp, ARecordInUseOutlivesItsPoaAndHoldsItsParents) {
  POA_var below = child(top, "below");
  POA_var deep = child(below, "deep");
  POAInfoPtr held = record_of(deep);
  TraceRecorder trace;
  top->destroy(false, false);
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 0u)
      << "each record is the parent of one in use";
  EXPECT_STREQ(held->parent->the_adapter_name(), "below");
  EXPECT_NE(POA_var(POA::_duplicate(held->the_parent(env))).in(), nullptr);
  expect_raised<CORBA::BAD_PARAM>(
      [&](auto& ev) { held->create_POA("late", nullptr, CORBA::PolicyList(), ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { held->destroy(false, false, ev); });
  held.reset();
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 3u);
}

TEST(Mutexes, ExcludeOtherThreadsAndAreReentrant) {
  test_root_poa();
  using Step = unsigned char (*)();
  const std::pair<Step, Step> mutexes[] = {
      {poa_mutex_reserve, poa_mutex_release},
      {poa_svt_delete_mutex_reserve, poa_svt_delete_mutex_release},
      {poa_svt_ref_counter_mutex_reserve, poa_svt_ref_counter_mutex_release},
      {poa_svt_lifespan_mutex_reserve, poa_svt_lifespan_mutex_release},
      {poa_default_servant_ref_mutex_reserve, poa_default_servant_ref_mutex_release},
      {poa_svt_objref_mutex_reserve, poa_svt_objref_mutex_release}};
  for (const auto& mutex : mutexes) {
    int count = 0;
    const auto work = [&] {
      for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(mutex.first() && mutex.first());
        const int seen = count;
        EXPECT_TRUE(mutex.second());
        count = seen + 1;
        EXPECT_TRUE(mutex.second());
      }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(count, 2000);
  }
}
