// Every class of the module used the way programs use it, against the shared library.

#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"
#include "poa/remote.h"

namespace {

using namespace PortableServer;

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
