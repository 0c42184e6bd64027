#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"

namespace {

using namespace PortableServer;

template <class E>
class UserExceptions : public testing::Test {};

using All = testing::Types<POA::AdapterAlreadyExists, POA::AdapterNonExistent, POA::InvalidPolicy,
                           POA::NoServant, POA::ObjectAlreadyActive, POA::ObjectNotActive,
                           POA::ServantAlreadyActive, POA::ServantNotActive, POA::WrongAdapter,
                           POA::WrongPolicy, POAManager::AdapterInactive, ForwardRequest, Current::NoContext>;
TYPED_TEST_SUITE(UserExceptions, All);

/// An exception of no other test.
using Other = CORBA::PlainUserException<"IDL:omg.org/PortableServer/Other:1.0">;

TYPED_TEST(UserExceptions, NarrowCloneAndRaiseAsThemselves) {
  TypeParam e;
  Other other;
  EXPECT_EQ(TypeParam::_narrow(&e), &e);
  EXPECT_EQ(TypeParam::_narrow(&other), TypeParam::_nil());
  EXPECT_EQ(TypeParam::_narrow(nullptr), nullptr);
  CORBA::UserException just_the_id;
  just_the_id.id(e.id());
  EXPECT_EQ(TypeParam::_narrow(&just_the_id), nullptr) << "an id alone is not the object";
  const std::unique_ptr<CORBA::Exception> clone(e._clone());
  EXPECT_NE(TypeParam::_narrow(clone.get()), nullptr);
  EXPECT_THROW(clone->_raise(), TypeParam);
}

TEST(UserException, VarsOwnOneException) {
  POA::InvalidPolicy_var fresh;
  POA::InvalidPolicy* const held = fresh;
  ASSERT_NE(held, nullptr);
  held->index(3);
  fresh = held;
  fresh = *held;
  POA::InvalidPolicy_var& self = fresh;
  fresh = self;
  EXPECT_EQ(static_cast<POA::InvalidPolicy*>(fresh), held);
  POA::InvalidPolicy_var copy(fresh), assigned{POA::InvalidPolicy(9)};
  EXPECT_NE(static_cast<POA::InvalidPolicy*>(copy), held);
  assigned = copy;
  copy = new POA::InvalidPolicy;
  EXPECT_EQ(assigned->index(), 3);
}

TEST(ForwardRequest, OwnsItsReference) {
  EXPECT_EQ(ForwardRequest().forward_reference(), nullptr);
  CORBA::Object* const target = test_root_poa();
  ForwardRequest source(target);
  CORBA::Object* const own = source.forward_reference();
  EXPECT_NE(own, target) << "a duplicate";
  {
    ForwardRequest copy(source), assigned;
    assigned = copy;
    ForwardRequest& self = assigned;
    assigned = self;
    EXPECT_NE(copy.forward_reference(), own);
    EXPECT_EQ(assigned.forward_reference()->get_ref(), target->get_ref());
  }
  EXPECT_EQ(own->get_ref(), target->get_ref()) << "what copies let go of was theirs";
  source.forward_reference(own);
  EXPECT_EQ(source.forward_reference(), own) << "the same pointer stays";
  source.forward_reference(nullptr);
  EXPECT_EQ(source.forward_reference(), nullptr);
}

}  // namespace
