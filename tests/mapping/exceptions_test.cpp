#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa.h"

namespace {

using namespace PortableServer;

struct Naming {
  template <class E>
  static std::string GetName(int) {
    return E()._name();
  }
};

template <class E>
class UserExceptions : public testing::Test {};

using All = testing::Types<POA::AdapterAlreadyExists, POA::AdapterNonExistent, POA::InvalidPolicy,
                           POA::NoServant, POA::ObjectAlreadyActive, POA::ObjectNotActive,
                           POA::ServantAlreadyActive, POA::ServantNotActive, POA::WrongAdapter,
                           POA::WrongPolicy, POAManager::AdapterInactive, ForwardRequest, Current::NoContext>;
TYPED_TEST_SUITE(UserExceptions, All, Naming);

/// An exception of no other test.
using Other = CORBA::PlainUserException<"IDL:omg.org/PortableServer/Other:1.0">;

TYPED_TEST(UserExceptions, NarrowById) {
  TypeParam e;
  Other other;
  EXPECT_EQ(TypeParam::_narrow(&e), &e);
  EXPECT_EQ(TypeParam::_narrow(&other), TypeParam::_nil());
  EXPECT_EQ(TypeParam::_narrow(nullptr), nullptr);
  CORBA::UserException just_the_id;
  just_the_id.id(e.id());
  EXPECT_EQ(TypeParam::_narrow(&just_the_id), nullptr) << "an id alone is not the object";
}

TYPED_TEST(UserExceptions, CloneAndRaiseAsThemselves) {
  const TypeParam e;
  const std::unique_ptr<CORBA::Exception> clone(e._clone());
  EXPECT_NE(TypeParam::_narrow(clone.get()), nullptr);
  EXPECT_THROW(clone->_raise(), TypeParam);
}

TYPED_TEST(UserExceptions, VarsOwnOneException) {
  using Var = CORBA::ExceptionVar<TypeParam>;
  Var fresh;
  ASSERT_NE(static_cast<TypeParam*>(fresh), nullptr);
  TypeParam* const held = fresh;
  fresh = held;
  fresh = *held;
  Var& self = fresh;
  fresh = self;
  EXPECT_EQ(static_cast<TypeParam*>(fresh), held);
  Var copy(fresh), from_value{TypeParam()};
  EXPECT_NE(static_cast<TypeParam*>(copy), held);
  copy = from_value;
  copy = TypeParam();
  copy = new TypeParam;
  EXPECT_STREQ(copy->id(), TypeParam::repository_id);
}

TEST(UserExceptionIds, AreTheModules) {
  EXPECT_STREQ(POA::WrongPolicy().id(), "IDL:omg.org/PortableServer/POA/WrongPolicy:1.0");
  EXPECT_STREQ(POA::InvalidPolicy().id(), "IDL:omg.org/PortableServer/POA/InvalidPolicy:1.0");
  EXPECT_STREQ(POAManager::AdapterInactive().id(),
               "IDL:omg.org/PortableServer/POAManager/AdapterInactive:1.0");
  EXPECT_STREQ(ForwardRequest().id(), "IDL:omg.org/PortableServer/ForwardRequest:1.0");
  EXPECT_STREQ(Current::NoContext().id(), "IDL:omg.org/PortableServer/Current/NoContext:1.0");
}

TEST(InvalidPolicy, CarriesItsIndex) {
  POA::InvalidPolicy e;
  e.index(3);
  const POA::InvalidPolicy copy(e);
  e.index(9);
  POA::InvalidPolicy assigned;
  assigned = copy;
  EXPECT_EQ(assigned.index(), 3);
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
