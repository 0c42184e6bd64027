// Start-up, the root POA, records and their proof of life, and the frame of the POA's operations.
#include "objects.h"
#include "policykinds.h"

using namespace PortableServer;

namespace {

class StartUp : public ObjectTest {};
class Frame : public ObjectTest {};

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
  EXPECT_STREQ(CORBA::String_var(POAInfo::root_poa->the_name()).in(), "rootPOA");
  const POAInfoPtr record = record_of(root);
  EXPECT_TRUE(record.get() == root_poa_info && !record->parent);
  EXPECT_EQ(record->poa_managerInfo_ptr, default_poa_manager_info);
  std::vector<PolicyTag> tags;
  for (const PolicyKind& kind : policy_kinds) tags.push_back((*record).*kind.field);
  EXPECT_THAT(tags, testing::ElementsAre(0, 2, 4, 7, 8, 10, 12));
  for (auto* id : {ZR_object_get_IntfID, ZR_object_get_ImplID})
    EXPECT_STREQ(id(POAInfo::root_poa->get_ref(), 0, env._evp), "IDL:org.omg/PortableServer/POA:1.0");
  EXPECT_EQ(_call_disconnect_cpp_, call_disconnect_cpp_handler);
  EXPECT_EQ(_call_poa_inst_lifespan_, call_poa_inst_lifespan);
  CORBA::Object current;
  current.set_ref(CORBA_ORB_resolve_initial_references(test_orb(), "POACurrent", env._evp));
  EXPECT_TRUE(CORBA_object_is_equivalent(current.get_ref(), poa_current->get_ref()));
}

TEST_F(StartUp, ARecordInUseOutlivesItsPoaAndHoldsItsParents) {
  POA_var below = child(top, "below");
  POAInfoPtr held = record_of(child(below, "deep"));
  TraceRecorder trace;
  top->destroy(false, false);
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 0u)
      << "each record is the parent of one in use";
  EXPECT_STREQ(held->parent->the_adapter_name(), "below");
  EXPECT_NE(POA_var(POA::_duplicate(held->the_parent(env))).in(), nullptr);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { held->create_POA("late", nullptr, {}, ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { held->destroy(false, false, ev); });
  held.reset();
  EXPECT_EQ(trace.count_starting("POAInfo::~POAInfo called..."), 3u);
}

TEST_F(Frame, NoOperationWorksOnADestroyedPoa) {
  const std::string top_name = CORBA::String_var(top->the_name()).in();
  const CORBA::PolicyList none;
  // clang-format off
#define OP(name, ...) {#name, [&](POA* p, auto& ev) { p->name(__VA_ARGS__ __VA_OPT__(, ) ev); }}
  const std::pair<const char*, std::function<void(POA*, CORBA::Environment&)>> operations[] = {
      OP(the_name), OP(the_parent), OP(the_children), OP(the_POAManager), OP(the_activator, nullptr),
      OP(the_activator), OP(create_POA, "x", nullptr, none), OP(find_POA, "x", true), OP(destroy, true, true),
      OP(create_thread_policy, ORB_CTRL_MODEL), OP(create_lifespan_policy, TRANSIENT),
      OP(create_id_uniqueness_policy, UNIQUE_ID), OP(create_id_assignment_policy, USER_ID),
      OP(create_implicit_activation_policy, IMPLICIT_ACTIVATION), OP(create_servant_retention_policy, RETAIN),
      OP(create_request_processing_policy, USE_SERVANT_MANAGER), OP(get_servant_manager),
      OP(set_servant_manager, nullptr), OP(get_servant), OP(set_servant, &servant),
      OP(activate_object, &servant), OP(activate_object_with_id, a, &servant), OP(deactivate_object, a),
      OP(create_reference, "IDL:x:1.0"), OP(create_reference_with_id, a, "IDL:x:1.0"),
      OP(servant_to_id, &servant), OP(servant_to_reference, &servant), OP(reference_to_servant, p),
      OP(reference_to_id, p), OP(id_to_servant, a), OP(id_to_reference, a)};
#undef OP
  // clang-format on
  // The record's own object, as activators are given it: nothing else holds it, and it goes with the POA.
  record_of(top)->poa_object->destroy(false, false);
  const POA_var again = child(root, top_name);  // does not bring the old one back
  POA_var no_poa = POA::_narrow(ThreadPolicy_var(root->create_thread_policy(ORB_CTRL_MODEL)));
  POA_var no_handle = new PortableServer_POA_impl, never_given_out = new PortableServer_POA_impl;
  ValueReferenceData<Identity> data(~Identity{0});
  never_given_out->set_ref(
      POAInfo::createObject(&data.sequence, "IDL:x:1.0", "IDL:x:1.0", nullptr, env._evp));
  for (POA* poa : {top.in(), no_poa.in(), no_handle.in(), never_given_out.in()}) {
    for (const auto& [name, call] : operations) {
      refused<CORBA::BAD_PARAM>(std::string("PortableServer_POA_impl::") + name + " [poa_info is null.]",
                                [&, run = call](auto& ev) { run(poa, ev); });
    }
  }
  EXPECT_EQ(record_of(nullptr), nullptr);
  again->destroy(false, false);
}

TEST_F(Frame, ResultsBelongToTheCaller) {
  CORBA::String_var name = top->the_name();
  name[0] = '#';
  EXPECT_NE(std::string(name), CORBA::String_var(top->the_name()).in());
  const POAInfoPtr record = record_of(top);
  EXPECT_NE(top.in(), record->poa_object);
  EXPECT_NE(POAManager_var(top->the_POAManager()).in(), record->poa_manager);
  ThreadPolicy_var policy = top->create_thread_policy(SINGLE_THREAD_MODEL);
  EXPECT_NE(static_cast<CORBA::Policy*>(policy.in()),
            POAInfo::shared_policy(threadPolicy_SINGLE_THREAD_MODEL_tag));
  PortableServer_ServantActivator_impl activator;
  POA_var managed = child(top, "managed", policies(root, USE_SERVANT_MANAGER));
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { managed->get_servant_manager(ev); });
  managed->set_servant_manager(&activator);
  EXPECT_EQ(managed->get_servant_manager(), &activator) << "not a duplicate";
  managed->destroy(false, false);  // before its manager goes
}
