// Calls and servants that are put together at run time.

#include <set>

#include "calls.h"
#include "server.h"

namespace {

using CORBA::Object_var;

/// An Echo without a skeleton: what a bridge to another language would be.
class Bridge : public virtual PortableServer::DynamicImplementation {
 public:
  explicit Bridge(CORBA::ORB_ptr orb) : orb_(orb) {}

  void invoke(CORBA::ServerRequest_ptr request) override {
    const std::string operation = request->operation();
    CORBA::NVList_ptr arguments = nullptr;
    orb_->create_list(0, arguments);
    CORBA::Any result;
    if (operation == "add") {
      want(arguments, CORBA::_tc_long);
      want(arguments, CORBA::_tc_long);
      request->arguments(arguments);
      result <<= number(arguments, 0) + number(arguments, 1);
      request->set_result(result);
    } else if (operation == "divide") {  // of Calls::Target
      want(arguments, CORBA::_tc_long, CORBA::ARG_INOUT);
      want(arguments, CORBA::_tc_long);
      want(arguments, CORBA::_tc_long, CORBA::ARG_OUT);
      request->arguments(arguments);
      const CORBA::Long dividend = number(arguments, 0), divisor = number(arguments, 1);
      *arguments->item(0)->value() <<= dividend / divisor;
      *arguments->item(2)->value() <<= dividend % divisor;
    } else if (operation == "refuse") {
      want(arguments, CORBA::_tc_string);
      want(arguments, CORBA::_tc_long);
      request->arguments(arguments);
      const char* why = nullptr;
      *arguments->item(0)->value() >>= why;
      result <<= Demo::Refused(why, 7);
      request->set_exception(result);
    } else {
      CORBA::release(arguments);
      throw CORBA::BAD_OPERATION(5, CORBA::COMPLETED_NO);
    }
  }
  char* _primary_interface(const PortableServer::ObjectId&, PortableServer::POA_ptr) override {
    return CORBA::string_dup(Demo::Echo::repository_id);
  }

 private:
  static void want(CORBA::NVList_ptr list, CORBA::TypeCode_ptr type, CORBA::Flags mode = CORBA::ARG_IN) {
    CORBA::Any empty;
    empty.replace(type, nullptr);
    list->add_value("", empty, mode);
  }
  static CORBA::Long number(CORBA::NVList_ptr list, CORBA::ULong at) {
    CORBA::Long value = 0;
    EXPECT_TRUE(*list->item(at)->value() >>= value);
    return value;
  }
  CORBA::ORB_ptr orb_;
};

class DynamicTest : public StandardTest {
 protected:
  CORBA::Request_var request_to_add(CORBA::Object_ptr object, CORBA::Long a, CORBA::Long b) {
    CORBA::Request_var request = object->_request("add");
    request->add_in_arg("a") <<= a;
    request->add_in_arg("b") <<= b;
    request->set_return_type(CORBA::_tc_long);
    return request;
  }
  static CORBA::Long result_of(CORBA::Request_ptr request) {
    CORBA::Long value = -1;
    EXPECT_TRUE(request->return_value() >>= value);
    return value;
  }
};

TEST_F(DynamicTest, ServantsWithoutASkeleton) {
  Bridge bridge(orb);
  const PortableServer::ObjectId_var id = root->activate_object(&bridge);
  const Object_var near = root->id_to_reference(id);
  orb->register_key("Bridge", near);
  for (const Object_var& object : {near, Object_var(orb->string_to_object(far("Bridge").c_str()))}) {
    const Demo::Echo_var echo_of_bridge = Demo::Echo::_narrow(object);
    ASSERT_FALSE(CORBA::is_nil(echo_of_bridge)) << "it says what it is";
    EXPECT_FALSE(object->_is_a("IDL:Demo/Other:1.0"));
    EXPECT_EQ(echo_of_bridge->add(40, 2), 42);
    CORBA::Long dividend = 17, remainder = 0;
    Calls::Target_var(Calls::Target::_unchecked_narrow(object))->divide(dividend, 5, remainder);
    EXPECT_EQ(std::pair(dividend, remainder), std::pair(3, 2));
    try {
      echo_of_bridge->refuse("no", 1);
      ADD_FAILURE();
    } catch (const Demo::Refused& e) {
      EXPECT_STREQ(e.why, "no");
      EXPECT_EQ(e.code, 7);
    }
    EXPECT_THROW(echo_of_bridge->notes(), CORBA::BAD_OPERATION);
  }
  root->deactivate_object(id);
}

TEST_F(DynamicTest, CallsWithoutAStub) {
  const Demo::Echo_var there = far_echo(orb);
  for (CORBA::Object_ptr object : {static_cast<CORBA::Object_ptr>(echo.in()), CORBA::Object_ptr(there)}) {
    CORBA::Request_var request = request_to_add(object, 1, 2);
    request->invoke();
    EXPECT_EQ(result_of(request), 3);

    request = object->_request("refuse");
    request->add_in_arg() <<= "never";
    request->add_in_arg() <<= CORBA::Long(3);
    EXPECT_THROW(request->invoke(), CORBA::UNKNOWN) << "not in the list";
    EXPECT_THROW(request->exceptions()->add(CORBA::TypeCode::_nil()), CORBA::BAD_PARAM);
    request->exceptions()->add(Demo::_tc_Refused);
    request->invoke();
    auto* const unknown = CORBA::UnknownUserException::_downcast(request->env()->exception());
    ASSERT_NE(unknown, nullptr);
    const Demo::Refused* refused = nullptr;
    ASSERT_TRUE(unknown->exception() >>= refused);
    EXPECT_STREQ(refused->why, "never");

    request = object->_request("no_such_operation");
    EXPECT_THROW(request->invoke(), CORBA::BAD_OPERATION);
    EXPECT_NE(request->env()->exception(), nullptr);
  }
  const CORBA::Request_var note = there->_request("note");
  note->add_in_arg() <<= "one way";
  note->send_oneway();
  EXPECT_EQ(servant->noted.get_future().get(), "one way");
  EXPECT_THROW(there->_request(""), CORBA::BAD_PARAM);
}

TEST_F(DynamicTest, DeferredCallsRunTogether) {
  const Demo::Echo_var there = far_echo(orb);
  CORBA::RequestSeq slow;
  slow.length(2);
  for (CORBA::ULong place = 0; place < 2; ++place) {
    Demo::Echo_ptr const object = place == 0 ? there : echo;
    slow[place] = object->_request("sleep_ms");
    slow[place]->add_in_arg() <<= CORBA::ULong(0);
    EXPECT_THROW(slow[place]->get_response(), CORBA::BAD_INV_ORDER);
    slow[place]->send_deferred();
    EXPECT_THROW(slow[place]->send_deferred(), CORBA::BAD_INV_ORDER);
    CORBA::RequestSeq requests;
    requests.length(3);
    for (CORBA::ULong i = 0; i < 3; ++i) {
      requests[i] = request_to_add(object, static_cast<CORBA::Long>(i), 1);
      requests[i]->send_deferred();
    }
    for (CORBA::ULong i = 0; i < 3; ++i) {
      requests[i]->get_response();
      EXPECT_EQ(result_of(requests[i]), static_cast<CORBA::Long>(i) + 1);
    }
    EXPECT_FALSE(slow[place]->poll_response());
  }
  servant->release.set_value();
  for (CORBA::ULong place = 0; place < 2; ++place) {
    slow[place]->get_response();
    slow[place]->get_response();  // once more changes nothing
    EXPECT_TRUE(slow[place]->poll_response());
  }
}

TEST_F(DynamicTest, TheNextResponseIsThatOfWhoeverIsThrough) {
  const Demo::Echo_var there = far_echo(orb);
  EXPECT_THROW(orb->poll_next_response(), CORBA::BAD_INV_ORDER);
  CORBA::RequestSeq requests;
  requests.length(3);
  requests[0] = there->_request("sleep_ms");
  requests[0]->add_in_arg() <<= CORBA::ULong(0);
  requests[1] = request_to_add(there, 1, 2);
  requests[2] = there->_request("no_such_operation");
  orb->send_multiple_requests_deferred(requests);
  std::set<CORBA::Request_ptr> through;
  for (int i = 0; i < 2; ++i) {
    CORBA::Request_var next;
    orb->get_next_response(next.out());
    through.insert(next);
  }
  EXPECT_EQ(through, (std::set<CORBA::Request_ptr>{requests[1], requests[2]}));
  EXPECT_EQ(result_of(requests[1]), 3);
  EXPECT_NE(CORBA::BAD_OPERATION::_downcast(requests[2]->env()->exception()), nullptr);
  EXPECT_THROW(requests[2]->get_response(), CORBA::BAD_OPERATION);
  EXPECT_FALSE(orb->poll_next_response());
  servant->release.set_value();
  CORBA::Request_var next;
  orb->get_next_response(next.out());
  EXPECT_TRUE(next.in() == requests[0].in());
  EXPECT_THROW(orb->get_next_response(next.out()), CORBA::BAD_INV_ORDER);
}

TEST_F(DynamicTest, ListsOfTheProgramsOwnAreUsedInPlace) {
  CORBA::NVList_ptr list = nullptr;
  orb->create_list(0, list);
  for (const CORBA::Long value : {4, 5}) *list->add(CORBA::ARG_IN)->value() <<= value;
  CORBA::NamedValue_ptr result = nullptr;
  orb->create_named_value(result);
  result->value()->replace(CORBA::_tc_long, nullptr);
  {
    CORBA::Request_var request;
    echo->_create_request(nullptr, "add", list, result, request.out(), 0);
    request->invoke();
  }
  CORBA::Long sum = 0;
  EXPECT_TRUE(*result->value() >>= sum);
  EXPECT_EQ(sum, 9);
  CORBA::release(list);
  CORBA::release(result);
}

}  // namespace
