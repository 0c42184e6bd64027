// Every class of the module used the way programs use it, against the shared library.

#include <gtest/gtest.h>

#include <memory>

#include "orb_fixture.h"
#include "poa.h"
#include "poa/remote.h"

namespace {

using namespace PortableServer;

/// Makes the child POAs it is asked for.
class Adapters : public PortableServer_AdapterActivator_impl {
 public:
  CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA_ENV) override {
    env.clear();
    const POA_var made = parent->create_POA(name, nullptr, CORBA::PolicyList());
    return 1;
  }
};

class Activator : public PortableServer_ServantActivator_impl {
 public:
  explicit Activator(ServantBase* servant) : servant_(servant) {}
  ServantBase* incarnate(const ObjectId&, POA*, CORBA_ENV) override { return env.clear(), servant_; }

 private:
  ServantBase* servant_;
};

class Locator : public _sk_PortableServer_ServantLocator {
 public:
  ServantBase* preinvoke(const ObjectId& oid, POA*, const char*, Cookie& cookie, CORBA_ENV) override {
    env.clear();
    cookie = oid.length();
    throw ForwardRequest(nullptr);
  }
  void postinvoke(const ObjectId&, POA*, const char*, Cookie, ServantBase*, CORBA_ENV) override {
    env.clear();
  }
};

class Disconnect : public POAdisconnect {
 public:
  CORBA::Boolean release_instance(POA*, ServantBase*, ObjectId&, CORBA::Environment&) override { return 0; }
};

class Counted : public virtual RefCountServantBase {
 public:
  explicit Counted(bool& gone) : gone_(gone) { _intf = "IDL:test/Counted:1.0"; }
  ~Counted() override { gone_ = true; }

 private:
  bool& gone_;
};

TEST(Program, WorksOnPOAs) {
  POA* const root = test_root_poa();
  const POAManager_var manager = root->the_POAManager();
  CORBA::PolicyList policies;
  policies.length(7);
  policies[0] = root->create_thread_policy(ORB_CTRL_MODEL);
  policies[1] = root->create_lifespan_policy(TRANSIENT);
  policies[2] = root->create_id_uniqueness_policy(UNIQUE_ID);
  policies[3] = root->create_id_assignment_policy(USER_ID);
  policies[4] = root->create_implicit_activation_policy(NO_IMPLICIT_ACTIVATION);
  policies[5] = root->create_servant_retention_policy(RETAIN);
  policies[6] = root->create_request_processing_policy(USE_SERVANT_MANAGER);
  const POA_var poa = root->create_POA(unique_name("program").c_str(), manager.in(), policies);

  bool gone = false;
  {
    ServantBase_var servant = new Counted(gone);
    Activator activator(servant.in());
    poa->set_servant_manager(&activator);
    EXPECT_EQ(poa->get_servant_manager(), &activator);
    Adapters adapters;
    poa->the_activator(&adapters);
    const POA_var child = poa->find_POA("child", 1);
    const CORBA::String_var name = child->the_name();
    EXPECT_STREQ(name.in(), "child");
    const POAList_var children = poa->the_children();
    EXPECT_EQ(children->length(), 1u);

    const ObjectId_var id = string_to_ObjectId("id");
    poa->activate_object_with_id(*id, servant.in());
    const CORBA::Object_var object = poa->id_to_reference(*id);
    EXPECT_EQ(poa->reference_to_servant(object.in()), servant.in());
    const ObjectId_var same = poa->servant_to_id(servant.in());
    const CORBA::String_var text = ObjectId_to_string(*same);
    EXPECT_STREQ(text.in(), "id");
    try {
      poa->activate_object_with_id(*id, servant.in());
      ADD_FAILURE() << "active already";
    } catch (const POA::ServantAlreadyActive& e) {
      EXPECT_STREQ(e.id(), POA::ServantAlreadyActive::repository_id);
    }
    EXPECT_THROW(poa->activate_object(servant.in()), POA::WrongPolicy);
    EXPECT_THROW(poa->get_servant(), CORBA::UserException);
    poa->deactivate_object(*id);
    poa->destroy(0, 0);
  }
  EXPECT_TRUE(gone) << "the last count of the servant was given back";
  EXPECT_THROW(poa->the_name(), CORBA::BAD_PARAM);
}

TEST(Program, UsesTheOtherClasses) {
  const Current_var current = new PortableServer_Current_impl;
  EXPECT_THROW(current->get_POA(), CORBA::Exception);
  Locator locator;
  ServantLocator::Cookie cookie = 0;
  EXPECT_THROW(locator.preinvoke(ObjectId(), nullptr, "op", cookie), ForwardRequest);
  Disconnect disconnect;
  POAdisconnect::setDisconnect(&disconnect);
  POAdisconnect::resetDisconnect();
  DynamicImplementation dynamic;
  EXPECT_EQ(dynamic._default_POA(), nullptr);
  EXPECT_EQ(dynamic._this(), nullptr);
  // Objects of every stub and implementation class can be made and let go.
  const std::unique_ptr<CORBA::Object> objects[] = {
      std::make_unique<_st_PortableServer_POA>(),
      std::make_unique<_st_PortableServer_POAManager>(),
      std::make_unique<_st_PortableServer_ThreadPolicy>(),
      std::make_unique<_st_PortableServer_LifespanPolicy>(),
      std::make_unique<_st_PortableServer_IdUniquenessPolicy>(),
      std::make_unique<_st_PortableServer_IdAssignmentPolicy>(),
      std::make_unique<_st_PortableServer_ImplicitActivationPolicy>(),
      std::make_unique<_st_PortableServer_ServantRetentionPolicy>(),
      std::make_unique<_st_PortableServer_RequestProcessingPolicy>(),
      std::make_unique<_st_PortableServer_AdapterActivator>(),
      std::make_unique<_st_PortableServer_ServantManager>(),
      std::make_unique<_st_PortableServer_ServantActivator>(),
      std::make_unique<_st_PortableServer_ServantLocator>(),
      std::make_unique<_st_PortableServer_Current>(),
      std::make_unique<PortableServer_POA_impl>(),
      std::make_unique<PortableServer_POAManager_impl>(),
      std::make_unique<PortableServer_ThreadPolicy_impl>(),
      std::make_unique<PortableServer_LifespanPolicy_impl>(),
      std::make_unique<PortableServer_IdUniquenessPolicy_impl>(),
      std::make_unique<PortableServer_IdAssignmentPolicy_impl>(),
      std::make_unique<PortableServer_ImplicitActivationPolicy_impl>(),
      std::make_unique<PortableServer_ServantRetentionPolicy_impl>(),
      std::make_unique<PortableServer_RequestProcessingPolicy_impl>(),
      std::make_unique<PortableServer_ServantManager_impl>(),
      std::make_unique<PortableServer_ServantLocator_impl>(),
  };
  for (const auto& object : objects) EXPECT_EQ(object->get_ref(), nullptr);
}

TEST(Program, ConvertsPoliciesBetweenTheirInterfaces) {
  POA* const root = test_root_poa();
  const IdUniquenessPolicy_var policy = root->create_id_uniqueness_policy(MULTIPLE_ID);
  const CORBA::Policy_var copy = policy->copy();
  EXPECT_EQ(copy->policy_type(), ID_UNIQUENESS_POLICY_ID);
  const IdUniquenessPolicy_var narrowed = IdUniquenessPolicy::_narrow(copy.in());
  EXPECT_EQ(narrowed->value(), MULTIPLE_ID);
  EXPECT_NE(copy->_cast("IDL:omg.org/PortableServer/IdUniquenessPolicy:1.0"), nullptr);
  EXPECT_EQ(copy->_cast("IDL:omg.org/PortableServer/ThreadPolicy:1.0"), nullptr);
}

}  // namespace
