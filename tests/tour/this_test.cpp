// POA_Demo::Echo::_this: which object a servant takes itself for.
#include <gtest/gtest.h>

#include "any_echo.h"
#include "orb_fixture.h"
#include "policy_list.h"

namespace {

namespace ps = PortableServer;

CORBA::Object* asked = nullptr;  // the object that is called

/// Says whether the reference that it takes for its own is that of the object called.
class Self : public AnyEcho {
 public:
  char* who() override {
    const Demo::Echo_var self = _this();
    return CORBA::string_dup(self->_is_equivalent(asked) ? "I" : "another");
  }
};

void expect_knows_itself(CORBA::Object* object) {
  asked = object;
  const Demo::Echo_var echo = Demo::Echo::_narrow(object);
  EXPECT_STREQ(CORBA::String_var(echo->who()), "I");
}

TEST(This, IsTheObjectThatWasCalled) {
  int none = 0;
  const CORBA::ORB_var orb = CORBA::ORB_init(none, nullptr);
  ps::POA* const root = test_root_poa();
  Self implicit, active, standing_in;
  const ps::POA_var poa = root->create_POA(
      "this", nullptr, policies(root, ps::USER_ID, ps::MULTIPLE_ID, ps::USE_DEFAULT_SERVANT));
  poa->set_servant(&standing_in);
  ps::POAManager_var(root->the_POAManager())->activate();

  const Demo::Echo_var first = implicit._this(), again = implicit._this();
  EXPECT_TRUE(first->_is_equivalent(again.in())) << "activated twice";
  expect_knows_itself(first.in());
  for (const char* text : {"a", "active", "active too"}) {
    const ps::ObjectId_var id = ps::string_to_ObjectId(text);
    if (text[1]) poa->activate_object_with_id(id.in(), &active);
    expect_knows_itself(CORBA::Object_var(poa->create_reference_with_id(id.in(), Demo::Echo::repository_id)));
  }
  poa->destroy(0, 1);

  const ps::POA_var rows =
      root->create_POA("rows", nullptr, policies(root, ps::MULTIPLE_ID, ps::USE_DEFAULT_SERVANT));
  rows->set_servant(&standing_in);
  expect_knows_itself(CORBA::Object_var(rows->create_reference(Demo::Echo::repository_id)));
  rows->destroy(0, 1);
  orb->destroy();
}

}  // namespace
