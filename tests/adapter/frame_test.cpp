// The frame of the POA's operations.
#include <gmock/gmock.h>

#include <functional>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"

using namespace PortableServer;

namespace {

using Row = std::pair<const char*, std::function<void(POA*, CORBA::Environment&)>>;

class Frame : public AdapterTest {
 protected:
  PlainServant servant;
  ObjectId oid{3, 3, octets};
  unsigned char octets[3] = {1, 2, 3};
  CORBA::PolicyList none;
  CORBA::Environment env;

  /// All operations, by name.
#define OP(name, ...) Row(#name, [&](POA* p, auto& ev) { p->name(__VA_ARGS__ __VA_OPT__(, ) ev); })
  const std::vector<Row> operations = {OP(the_name),
                                       OP(the_parent),
                                       OP(the_children),
                                       OP(the_POAManager),
                                       OP(the_activator, nullptr),
                                       OP(the_activator),
                                       OP(create_POA, "x", nullptr, none),
                                       OP(find_POA, "x", true),
                                       OP(destroy, true, true),
                                       OP(create_thread_policy, ORB_CTRL_MODEL),
                                       OP(create_lifespan_policy, TRANSIENT),
                                       OP(create_id_uniqueness_policy, UNIQUE_ID),
                                       OP(create_id_assignment_policy, USER_ID),
                                       OP(create_implicit_activation_policy, IMPLICIT_ACTIVATION),
                                       OP(create_servant_retention_policy, RETAIN),
                                       OP(create_request_processing_policy, USE_SERVANT_MANAGER),
                                       OP(get_servant_manager),
                                       OP(set_servant_manager, nullptr),
                                       OP(get_servant),
                                       OP(set_servant, &servant),
                                       OP(activate_object, &servant),
                                       OP(activate_object_with_id, oid, &servant),
                                       OP(deactivate_object, oid),
                                       OP(create_reference, "IDL:x:1.0"),
                                       OP(create_reference_with_id, oid, "IDL:x:1.0"),
                                       OP(servant_to_id, &servant),
                                       OP(servant_to_reference, &servant),
                                       OP(reference_to_servant, p),
                                       OP(reference_to_id, p),
                                       OP(id_to_servant, oid),
                                       OP(id_to_reference, oid)};
#undef OP
};

}  // namespace

TEST_F(Frame, NoOperationWorksOnADestroyedPoa) {
  ASSERT_EQ(operations.size(), 31u);
  top->destroy(false, false);
  POA_var no_poa =
      POA::_narrow(CORBA::Object_var(POAInfo::create_thread_policy(ORB_CTRL_MODEL, env)->copy()));
  for (POA* poa : {top.in(), no_poa.in()}) {
    for (const auto& [name, call] : operations) {
      SCOPED_TRACE(name);
      TraceRecorder trace;
      expect_raised<CORBA::BAD_PARAM>([&, run = call](auto& ev) { run(poa, ev); });
      EXPECT_EQ(trace.lines().back(),
                std::string("PortableServer_POA_impl::") + name + " [poa_info is null.]");
    }
  }
}

TEST_F(Frame, ResultsBelongToTheCaller) {
  CORBA::String_var name = top->the_name();
  const std::string kept = name.in();
  name[0] = '#';
  EXPECT_EQ(kept, CORBA::String_var(top->the_name()).in());
  const POAInfoPtr record = POAInfo::findPOAInfo(top, env);
  EXPECT_NE(top.in(), record->poa_object);
  EXPECT_NE(POAManager_var(top->the_POAManager()).in(), record->poa_manager);
  ThreadPolicy_var policy = top->create_thread_policy(SINGLE_THREAD_MODEL);
  EXPECT_NE(static_cast<CORBA::Policy*>(policy.in()),
            POAInfo::shared_policy(threadPolicy_SINGLE_THREAD_MODEL_tag));
  PortableServer_ServantActivator_impl activator;
  POA_var managed = top->create_POA("managed", nullptr, policies(root, USE_SERVANT_MANAGER));
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { managed->get_servant_manager(ev); });
  managed->set_servant_manager(&activator);
  EXPECT_EQ(managed->get_servant_manager(), &activator) << "not a duplicate";
  managed->destroy(false, false);  // before its manager goes
}

TEST_F(Frame, ThePoaObjectOnWhichDestroyRunsMayGoWithIt) {
  // The record's own object, as activators are given it: nothing else holds it.
  POAInfo::findPOAInfo(top, env)->poa_object->destroy(false, false);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { top->the_name(ev); });
}

TEST_F(Frame, TheDefaultManagersAndActivatorDoNothing) {
  PortableServer_ServantActivator_impl activator;
  EXPECT_EQ(activator.incarnate(oid, top), nullptr);
  activator.etherealize(oid, top, &servant, true, true);
  PortableServer_ServantLocator_impl locator;
  ServantLocator::Cookie cookie = 77;
  EXPECT_EQ(locator.preinvoke(oid, top, "op", cookie), nullptr);
  EXPECT_EQ(cookie, 77u);
  locator.postinvoke(oid, top, "op", cookie, &servant);
  EXPECT_TRUE(PortableServer_AdapterActivator_impl().unknown_adapter(top, "none"));
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("none", false, ev); });
}
