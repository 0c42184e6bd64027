// Every class of the module used the way programs use it, against the shared library.

#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"
#include "poa/remote.h"
#include "policy_list.h"

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
  Counted() { _intf = "IDL:test/Counted:1.0"; }
};

TEST(Program, WorksOnPOAs) {
  POA* const root = test_root_poa();
  const POAManager_var manager = root->the_POAManager();
  const POA_var poa = root->create_POA(unique_name("program").c_str(), manager.in(),
                                       policies(root, ORB_CTRL_MODEL, TRANSIENT, UNIQUE_ID, USER_ID,
                                                NO_IMPLICIT_ACTIVATION, RETAIN, USE_SERVANT_MANAGER));
  const ServantBase_var servant = new Counted;
  Activator activator(servant.in());
  poa->set_servant_manager(&activator);
  EXPECT_EQ(poa->get_servant_manager(), &activator);
  Adapters adapters;
  poa->the_activator(&adapters);
  const POA_var child = poa->find_POA("child", 1);
  EXPECT_STREQ(CORBA::String_var(child->the_name()), "child");

  const ObjectId_var id = string_to_ObjectId("id");
  poa->activate_object_with_id(*id, servant.in());
  const CORBA::Object_var object = poa->id_to_reference(*id);
  EXPECT_EQ(poa->reference_to_servant(object.in()), servant.in());
  const ObjectId_var same = poa->servant_to_id(servant.in());
  EXPECT_STREQ(CORBA::String_var(ObjectId_to_string(*same)), "id");
  EXPECT_THROW(poa->activate_object_with_id(*id, servant.in()), POA::ServantAlreadyActive);
  EXPECT_THROW(poa->get_servant(), CORBA::UserException);
  poa->destroy(0, 0);
}

/// Objects of these classes can be made and let go.
template <class... Class>
void expect_no_reference() {
  EXPECT_TRUE(((Class().get_ref() == nullptr) && ...));
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
  expect_no_reference<_st_PortableServer_POA, _st_PortableServer_POAManager, _st_PortableServer_ThreadPolicy,
                      _st_PortableServer_LifespanPolicy, _st_PortableServer_IdUniquenessPolicy,
                      _st_PortableServer_IdAssignmentPolicy, _st_PortableServer_ImplicitActivationPolicy,
                      _st_PortableServer_ServantRetentionPolicy, _st_PortableServer_RequestProcessingPolicy,
                      _st_PortableServer_AdapterActivator, _st_PortableServer_ServantManager,
                      _st_PortableServer_ServantActivator, _st_PortableServer_ServantLocator,
                      _st_PortableServer_Current, PortableServer_POA_impl, PortableServer_POAManager_impl,
                      PortableServer_ThreadPolicy_impl, PortableServer_LifespanPolicy_impl,
                      PortableServer_IdUniquenessPolicy_impl, PortableServer_IdAssignmentPolicy_impl,
                      PortableServer_ImplicitActivationPolicy_impl,
                      PortableServer_ServantRetentionPolicy_impl, PortableServer_RequestProcessingPolicy_impl,
                      PortableServer_ServantManager_impl, PortableServer_ServantLocator_impl>();
}

TEST(Program, ConvertsPoliciesBetweenTheirInterfaces) {
  const IdUniquenessPolicy_var policy = test_root_poa()->create_id_uniqueness_policy(MULTIPLE_ID);
  const CORBA::Policy_var copy = policy->copy();
  EXPECT_EQ(IdUniquenessPolicy_var(IdUniquenessPolicy::_narrow(copy.in()))->value(), MULTIPLE_ID);
  EXPECT_EQ(copy->_cast("IDL:omg.org/PortableServer/ThreadPolicy:1.0"), nullptr);
}

}  // namespace
