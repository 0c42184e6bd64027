// The frame of the POA's operations.
#include <gmock/gmock.h>

#include <functional>

#include "orb_fixture.h"
#include "poainfo.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;

namespace {

class TestServant : public ServantBase {
 public:
  TestServant() { _intf = "IDL:test/Frame:1.0"; }
};

using Call = std::function<void(POA*, CORBA::Environment&)>;

class Frame : public AdapterTest {
 protected:
  TestServant servant;
  ObjectId oid{3, 3, octets};
  unsigned char octets[3] = {1, 2, 3};
  CORBA::PolicyList none;
  CORBA::Environment env;

  /// All operations, by name.
  const std::vector<std::pair<const char*, Call>> operations = {
      {"the_name", [](POA* p, auto& ev) { p->the_name(ev); }},
      {"the_parent", [](POA* p, auto& ev) { p->the_parent(ev); }},
      {"the_children", [](POA* p, auto& ev) { p->the_children(ev); }},
      {"the_POAManager", [](POA* p, auto& ev) { p->the_POAManager(ev); }},
      {"the_activator", [](POA* p, auto& ev) { p->the_activator(nullptr, ev); }},
      {"the_activator", [](POA* p, auto& ev) { p->the_activator(ev); }},
      {"create_POA", [this](POA* p, auto& ev) { p->create_POA("x", nullptr, none, ev); }},
      {"find_POA", [](POA* p, auto& ev) { p->find_POA("x", true, ev); }},
      {"destroy", [](POA* p, auto& ev) { p->destroy(true, true, ev); }},
      {"create_thread_policy", [](POA* p, auto& ev) { p->create_thread_policy(ORB_CTRL_MODEL, ev); }},
      {"create_lifespan_policy", [](POA* p, auto& ev) { p->create_lifespan_policy(TRANSIENT, ev); }},
      {"create_id_uniqueness_policy",
       [](POA* p, auto& ev) { p->create_id_uniqueness_policy(UNIQUE_ID, ev); }},
      {"create_id_assignment_policy", [](POA* p, auto& ev) { p->create_id_assignment_policy(USER_ID, ev); }},
      {"create_implicit_activation_policy",
       [](POA* p, auto& ev) { p->create_implicit_activation_policy(IMPLICIT_ACTIVATION, ev); }},
      {"create_servant_retention_policy",
       [](POA* p, auto& ev) { p->create_servant_retention_policy(RETAIN, ev); }},
      {"create_request_processing_policy",
       [](POA* p, auto& ev) { p->create_request_processing_policy(USE_SERVANT_MANAGER, ev); }},
      {"get_servant_manager", [](POA* p, auto& ev) { p->get_servant_manager(ev); }},
      {"set_servant_manager", [](POA* p, auto& ev) { p->set_servant_manager(nullptr, ev); }},
      {"get_servant", [](POA* p, auto& ev) { p->get_servant(ev); }},
      {"set_servant", [this](POA* p, auto& ev) { p->set_servant(&servant, ev); }},
      {"activate_object", [this](POA* p, auto& ev) { p->activate_object(&servant, ev); }},
      {"activate_object_with_id",
       [this](POA* p, auto& ev) { p->activate_object_with_id(oid, &servant, ev); }},
      {"deactivate_object", [this](POA* p, auto& ev) { p->deactivate_object(oid, ev); }},
      {"create_reference", [](POA* p, auto& ev) { p->create_reference("IDL:x:1.0", ev); }},
      {"create_reference_with_id",
       [this](POA* p, auto& ev) { p->create_reference_with_id(oid, "IDL:x:1.0", ev); }},
      {"servant_to_id", [this](POA* p, auto& ev) { p->servant_to_id(&servant, ev); }},
      {"servant_to_reference", [this](POA* p, auto& ev) { p->servant_to_reference(&servant, ev); }},
      {"reference_to_servant", [](POA* p, auto& ev) { p->reference_to_servant(p, ev); }},
      {"reference_to_id", [](POA* p, auto& ev) { p->reference_to_id(p, ev); }},
      {"id_to_servant", [this](POA* p, auto& ev) { p->id_to_servant(oid, ev); }},
      {"id_to_reference", [this](POA* p, auto& ev) { p->id_to_reference(oid, ev); }},
  };
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

TEST_F(Frame, AMissingResultIsABadParameter) {
  PortableServer_ServantActivator_impl activator;
  POA_var managed = top->create_POA("managed", nullptr, policies(root, USE_SERVANT_MANAGER));
  const struct {
    POA* poa;
    Call call;
    const char* trace;
  } rows[] = {
      {top, [](POA* p, auto& ev) { p->the_activator(ev); },
       "PortableServer_POA_impl::the_activator [activator is null.]"},
      {managed, [](POA* p, auto& ev) { p->get_servant_manager(ev); },
       "PortableServer_POA_impl::get_servant_manager [servant manager is nil.]"},
  };
  for (const auto& row : rows) {
    TraceRecorder trace;
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { row.call(row.poa, ev); });
    EXPECT_TRUE(trace.has(row.trace)) << row.trace;
  }
  managed->set_servant_manager(&activator);
  EXPECT_EQ(managed->get_servant_manager(), &activator) << "not a duplicate";
  managed->destroy(false, false);  // before its manager goes
}

TEST_F(Frame, ResultsBelongToTheCaller) {
  CORBA::String_var name = top->the_name();
  const std::string kept = name.in();
  name[0] = '#';
  EXPECT_EQ(kept, CORBA::String_var(top->the_name()).in());
  const POAInfoPtr record = POAInfo::findPOAInfo(top, env);
  EXPECT_NE(top.in(), record->poa_object);
  POAManager_var manager = top->the_POAManager();
  EXPECT_NE(manager.in(), record->poa_manager);
  POA_var found = root->find_POA(kept.c_str(), false);
  POA_var parent = POA_var(top->create_POA("child", nullptr, none))->the_parent();
  ThreadPolicy_var policy = top->create_thread_policy(SINGLE_THREAD_MODEL);
  EXPECT_NE(static_cast<CORBA::Policy*>(policy.in()),
            POAInfo::shared_policy(threadPolicy_SINGLE_THREAD_MODEL_tag));
  EXPECT_EQ(policy->value(), SINGLE_THREAD_MODEL);
  top->destroy(false, false);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { found->the_name(ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { parent->the_name(ev); });
}

TEST_F(Frame, ThePoaObjectOnWhichDestroyRunsMayGoWithIt) {
  // The record's own object, as activators are given it: nothing else holds it.
  POAInfo::findPOAInfo(top, env)->poa_object->destroy(false, false);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { top->the_name(ev); });
}

TEST_F(Frame, SetServantTracesTheServant) {
  TraceRecorder trace;
  expect_raised<POA::WrongPolicy>([&](auto& ev) { top->set_servant(&servant, ev); });
  EXPECT_THAT(trace.lines().front(), testing::StartsWith("PortableServer_POA_impl::set_servant servant=0x"));
}

TEST_F(Frame, TheDefaultManagersAndActivatorDoNothing) {
  PortableServer_ServantActivator_impl activator;
  EXPECT_EQ(activator.incarnate(oid, top), nullptr);
  activator.etherealize(oid, top, &servant, true, true);
  EXPECT_TRUE(activator.is_activator());
  EXPECT_EQ(activator.get_servant_activator(), static_cast<ServantActivator*>(&activator));
  PortableServer_ServantLocator_impl locator;
  ServantLocator::Cookie cookie = 77;
  EXPECT_EQ(locator.preinvoke(oid, top, "op", cookie), nullptr);
  EXPECT_EQ(cookie, 77u);
  locator.postinvoke(oid, top, "op", cookie, &servant);
  EXPECT_FALSE(locator.is_activator());
  EXPECT_EQ(locator.get_servant_activator(), nullptr);
  PortableServer_AdapterActivator_impl adapters;
  EXPECT_TRUE(adapters.unknown_adapter(top, "none"));
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { top->find_POA("none", false, ev); });
}
