#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"

namespace {

using namespace PortableServer;

template <class X>
class References : public testing::Test {};

using All =
    testing::Types<POA, POAManager, ThreadPolicy, LifespanPolicy, IdUniquenessPolicy, IdAssignmentPolicy,
                   ImplicitActivationPolicy, ServantRetentionPolicy, RequestProcessingPolicy,
                   AdapterActivator, ServantManager, ServantActivator, ServantLocator, Current>;
TYPED_TEST_SUITE(References, All);

TYPED_TEST(References, AnyObjectNarrows) {
  using Var = CORBA::ObjectVar<TypeParam>;
  EXPECT_EQ(TypeParam::_narrow(nullptr), TypeParam::_nil());
  EXPECT_EQ(TypeParam::_duplicate(nullptr), TypeParam::_nil());

  CORBA::Object empty;
  const Var of_empty = TypeParam::_narrow(&empty);
  ASSERT_FALSE(CORBA::is_nil(of_empty.in())) << "a wrapper without a handle is not nil";
  EXPECT_EQ(of_empty->get_ref(), nullptr);

  CORBA::Object* const root = test_root_poa();
  const Var narrowed = TypeParam::_narrow(root);
  ASSERT_NE(narrowed.in(), nullptr);
  EXPECT_TRUE(narrowed->_is_equivalent(root));
  const Var duplicate = TypeParam::_duplicate(narrowed.in());
  ASSERT_NE(duplicate.in(), nullptr);
  EXPECT_NE(duplicate.in(), narrowed.in());
  EXPECT_TRUE(duplicate->_is_equivalent(root));
}

TYPED_TEST(References, VarsOwnOneReference) {
  using Var = CORBA::ObjectVar<TypeParam>;
  const Var nil;
  EXPECT_EQ(nil.in(), nullptr);
  Var held = TypeParam::_narrow(test_root_poa());
  TypeParam* const pointer = held.in();
  held = pointer;
  Var& self = held;
  held = self;
  EXPECT_EQ(held.in(), pointer);
  Var copy(held), assigned;
  assigned = held;
  EXPECT_NE(copy.in(), pointer);
  EXPECT_NE(assigned.in(), pointer);
  TypeParam* const own = copy._retn();
  EXPECT_EQ(copy.in(), nullptr);
  copy.reset(own);
  copy = nil;
  EXPECT_EQ(copy.in(), nullptr);
}

TEST(ServantManagers, TellTheirKind) {
  PortableServer_ServantActivator_impl activator;
  PortableServer_ServantLocator_impl locator;
  PortableServer_ServantManager_impl neither;
  EXPECT_TRUE(activator.is_activator());
  EXPECT_FALSE(locator.is_activator());
  EXPECT_TRUE(neither.is_activator());
  EXPECT_EQ(activator.get_servant_activator(), static_cast<ServantActivator*>(&activator));
  EXPECT_EQ(locator.get_servant_locator(), static_cast<ServantLocator*>(&locator));
  EXPECT_EQ(activator.get_servant_locator(), nullptr);
  EXPECT_EQ(locator.get_servant_activator(), nullptr);
  EXPECT_EQ(neither.get_servant_activator(), nullptr);
  EXPECT_EQ(neither.get_servant_locator(), nullptr);
}

}  // namespace
