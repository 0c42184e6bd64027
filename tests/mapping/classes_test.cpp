// A program may declare the module's classes ahead, and make them its friends.
namespace PortableServer {
class ThreadPolicy;
class POA_var;
class ObjectId_var;
class POAList_var;
class ServantActivator_var;
}  // namespace PortableServer

#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"

namespace {

using namespace PortableServer;

template <class E>
class UserExceptions : public testing::Test {};

using Exceptions =
    testing::Types<POA::AdapterAlreadyExists, POA::AdapterNonExistent, POA::InvalidPolicy, POA::NoServant,
                   POA::ObjectAlreadyActive, POA::ObjectNotActive, POA::ServantAlreadyActive,
                   POA::ServantNotActive, POA::WrongAdapter, POA::WrongPolicy, POAManager::AdapterInactive,
                   ForwardRequest, Current::NoContext>;
TYPED_TEST_SUITE(UserExceptions, Exceptions);

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

TYPED_TEST(UserExceptions, AVarMayHoldNone) {
  CORBA::ExceptionVar<TypeParam> none(static_cast<TypeParam*>(nullptr)), copy(none), assigned;
  EXPECT_NE(static_cast<TypeParam*>(assigned), nullptr);
  assigned = none;
  EXPECT_EQ(static_cast<TypeParam*>(copy), nullptr);
  EXPECT_EQ(static_cast<TypeParam*>(assigned), nullptr);
}

TEST(ForwardRequest, OwnsItsReference) {
  CORBA::Object* const target = test_root_poa();
  ForwardRequest source(target), assigned;
  CORBA::Object* const own = source.forward_reference();
  EXPECT_NE(own, target) << "a duplicate";
  {
    ForwardRequest copy(source), &self = assigned;
    assigned = copy;
    assigned = self;
    EXPECT_NE(copy.forward_reference(), own);
  }
  EXPECT_TRUE(assigned.forward_reference()->_is_equivalent(target));
  EXPECT_TRUE(own->_is_equivalent(target)) << "what copies let go of was theirs";
  EXPECT_EQ(source.forward_reference.in(), own) << "the member and the accessor are one";
  source.forward_reference(own);
  EXPECT_EQ(source.forward_reference(), own) << "the same pointer stays";
  source.forward_reference(nullptr);
  EXPECT_EQ(source.forward_reference(), nullptr);
}

class Befriending {
  friend class PortableServer::POA_var;
  friend class PortableServer::ThreadPolicy;
  friend class PortableServer::POA::WrongPolicy;
};

static_assert(std::is_abstract_v<ServantManager> && !std::is_abstract_v<PortableServer_ServantManager_impl>);

template <class X>
class References : public testing::Test {};

using Interfaces =
    testing::Types<POA, POAManager, ThreadPolicy, LifespanPolicy, IdUniquenessPolicy, IdAssignmentPolicy,
                   ImplicitActivationPolicy, ServantRetentionPolicy, RequestProcessingPolicy,
                   AdapterActivator, ServantManager, ServantActivator, ServantLocator, Current>;
TYPED_TEST_SUITE(References, Interfaces);

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

}  // namespace
