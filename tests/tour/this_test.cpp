// POA_Demo::Echo::_this: which object a servant takes itself for.
#include <gtest/gtest.h>

#include "echo.h"
#include "orb_of_test.h"

namespace {

namespace ps = PortableServer;

/// Answers who() with the reference that it takes for its own.
class Self : public POA_Demo::Echo {
 public:
  char* who(CORBA::Environment& env) override {
    const Demo::Echo_var self = _this(env);
    return orb()->object_to_string(self.in());
  }
  char* echo_string(const char*, CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
  CORBA::Long add(CORBA::Long, CORBA::Long, CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
  Demo::Octets* echo_octets(const Demo::Octets&, CORBA::Environment&) override {
    throw CORBA::NO_IMPLEMENT();
  }
  void refuse(const char*, CORBA::Long, CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
  void note(const char*, CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
  CORBA::Long notes(CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
  void sleep_ms(CORBA::ULong, CORBA::Environment&) override { throw CORBA::NO_IMPLEMENT(); }
};

/// Calls the object, and expects its servant to take itself for it.
void expect_knows_itself(CORBA::Object* object) {
  const Demo::Echo_var echo = Demo::Echo::_narrow(object);
  const CORBA::String_var answer = echo->who();
  const CORBA::Object_var self = orb()->string_to_object(answer.in());
  EXPECT_TRUE(self->_is_equivalent(object)) << answer.in();
}

TEST(This, IsTheObjectThatWasCalled) {
  const CORBA::Object_var resolved = orb()->resolve_initial_references("RootPOA");
  const ps::POA_var root = ps::POA::_narrow(resolved.in());
  Self implicit, active, standing_in;
  CORBA::PolicyList list;
  list.length(3);
  list[0] = root->create_id_assignment_policy(ps::USER_ID);
  list[1] = root->create_id_uniqueness_policy(ps::MULTIPLE_ID);
  list[2] = root->create_request_processing_policy(ps::USE_DEFAULT_SERVANT);
  const ps::POA_var poa = root->create_POA("this", nullptr, list);
  poa->set_servant(&standing_in);
  const ps::POAManager_var manager = root->the_POAManager();
  manager->activate();

  const Demo::Echo_var first = implicit._this(), again = implicit._this();
  EXPECT_TRUE(first->_is_equivalent(again.in())) << "activated twice";
  expect_knows_itself(first.in());
  for (const char* text : {"a", "b", "active", "active too"}) {
    const ps::ObjectId_var id = ps::string_to_ObjectId(text);
    if (std::string_view(text).starts_with("active")) poa->activate_object_with_id(id.in(), &active);
    const CORBA::Object_var object = poa->create_reference_with_id(id.in(), Demo::Echo::repository_id);
    expect_knows_itself(object.in());
  }
  poa->destroy(0, 1);
}

}  // namespace
