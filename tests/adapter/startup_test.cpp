// Start-up, the root POA, records and their proof of life, and the frame of the POA's operations.
#include "dispatch/upcalls.h"
#include "objects.h"
#include "operations/poainit.h"
#include "records/policyset.h"

using namespace PortableServer;

namespace {

class StartUp : public ObjectTest {};

}  // namespace

TEST(FirstStart, WhenItFailsTheNextOneDoesItAll) {
  if (initialised) GTEST_SKIP() << "only in a process of its own, as ctest runs it";
  char no_orb = 0;
  EXPECT_EQ(_poa_init(&no_orb, nullptr), nullptr) << "the repositories cannot be resolved there";
  EXPECT_FALSE(initialised);
  EXPECT_EQ(_call_cpp_, call_cpp_handler);
  EXPECT_EQ(next_system_id(), 0x01234567u);
  EXPECT_NE(test_root_poa(), nullptr);
  EXPECT_TRUE(initialised);
}

TEST_F(StartUp, TheRootPoaStandsWhole) {
  EXPECT_STREQ(CORBA::String_var(POAInfo::root_poa->the_name()).in(), "rootPOA");
  const POAInfoPtr record = record_of(root);
  EXPECT_TRUE(record.get() == root_poa_info && !record->parent);
  std::vector<PolicyTag> tags;
  for (const PolicyKind& kind : policy_kinds) tags.push_back(record->policies.*kind.field);
  EXPECT_THAT(tags, testing::ElementsAre(0, 2, 4, 7, 8, 10, 12));
  for (auto* id : {ZR_object_get_IntfID, ZR_object_get_ImplID})
    EXPECT_STREQ(id(POAInfo::root_poa->get_ref(), 0, own_ev._evp), "IDL:org.omg/PortableServer/POA:1.0");
}

TEST_F(StartUp, ARecordInUseOutlivesItsPoaAndHoldsItsParents) {
  POA_var below = child(top, "below");
  POAInfoPtr held = record_of(child(below, "deep"));
  TraceRecorder trace;
  top->destroy(false, false);
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 0u)
      << "each record is the parent of one in use";
  EXPECT_STREQ(held->parent->the_adapter_name(), "below");
  EXPECT_NE(POA_var(POA::_duplicate(held->the_parent(own_ev))).in(), nullptr);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { held->create_POA("late", nullptr, {}, ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { held->destroy(false, false, ev); });
  held.reset();
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 3u);
}

TEST_F(StartUp, NoOperationWorksOnADestroyedPoa) {
  const std::string top_name = CORBA::String_var(top->the_name()).in();
  // The record's own object, as activators are given it: nothing else holds it, and it goes with the POA.
  record_of(top)->poa_object->destroy(false, false);
  const POA_var again = child(root, top_name);  // does not bring the old one back
  POA_var no_poa = POA::_narrow(ThreadPolicy_var(root->create_thread_policy(ORB_CTRL_MODEL)));
  POA_var no_handle = new PortableServer_POA_impl, never_given_out = new PortableServer_POA_impl;
  ValueReferenceData<Identity> data(~Identity{0});
  never_given_out->set_ref(create_reference_handle(&data.sequence, "IDL:x:1.0", "IDL:x:1.0", own_ev._evp));
  for (POA* poa : {top.in(), no_poa.in(), no_handle.in(), never_given_out.in()}) {
    refused<CORBA::BAD_PARAM>("PortableServer_POA_impl::the_name [poa_info is null.]",
                              [&](auto& ev) { poa->the_name(ev); });
    refused<CORBA::BAD_PARAM>("PortableServer_POA_impl::destroy [poa_info is null.]",
                              [&](auto& ev) { poa->destroy(true, true, ev); });
  }
  EXPECT_EQ(record_of(nullptr), nullptr);
  again->destroy(false, false);
}
