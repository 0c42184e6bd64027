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

TYPED_TEST(References, NarrowAndAreOwnedOnce) {
  using Var = CORBA::ObjectVar<TypeParam>;
  EXPECT_EQ(TypeParam::_narrow(nullptr), TypeParam::_nil());
  EXPECT_EQ(TypeParam::_duplicate(nullptr), TypeParam::_nil());
  CORBA::Object empty;
  const Var of_empty = TypeParam::_narrow(&empty);
  ASSERT_NE(of_empty.in(), nullptr) << "a wrapper without a handle is not nil";

  Var held = TypeParam::_narrow(test_root_poa());
  TypeParam* const pointer = held.in();
  ASSERT_NE(pointer, nullptr);
  held = pointer;
  Var& self = held;
  held = self;
  EXPECT_EQ(held.in(), pointer);
  Var copy(held), assigned;
  assigned = held;
  EXPECT_TRUE(copy.in() != pointer && assigned.in() != pointer);
  EXPECT_TRUE(copy->_is_equivalent(test_root_poa()) && assigned->_is_equivalent(test_root_poa()));
  TypeParam* const own = copy._retn();
  EXPECT_EQ(copy.in(), nullptr);
  copy.reset(own);
  copy = Var();
  EXPECT_EQ(copy.in(), nullptr);
}

TEST(ServantManagers, TellTheirKind) {
  PortableServer_ServantActivator_impl activator;
  PortableServer_ServantLocator_impl locator;
  PortableServer_ServantManager_impl neither;
  EXPECT_TRUE(activator.is_activator() && !locator.is_activator() && neither.is_activator());
  EXPECT_EQ(activator.get_servant_activator(), static_cast<ServantActivator*>(&activator));
  EXPECT_EQ(locator.get_servant_locator(), static_cast<ServantLocator*>(&locator));
  EXPECT_TRUE(!activator.get_servant_locator() && !locator.get_servant_activator() &&
              !neither.get_servant_activator() && !neither.get_servant_locator());
}

}  // namespace
