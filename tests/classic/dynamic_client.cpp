// The same object called twice: by a stub, and by requests made at run time.
#include "classic.h"
#include "dynamic.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Dynamic::Calculator_var calculator = Dynamic::Calculator::_narrow(object);
    CHECK(calculator->add(40, 2) == 42);
    CORBA::String_var text = calculator->repeat("ab", 3);
    CHECK(std::string(text) == "ababab");
    CHECK_THROWS(Dynamic::Refused, calculator->repeat("ab", 11));
    CORBA::Long dividend = 17, remainder = 0;
    calculator->divide(dividend, 5, remainder);
    CHECK(dividend == 3 && remainder == 2);

    CORBA::Request_var request = object->_request("add");
    request->add_in_arg("a") <<= CORBA::Long(1);
    request->add_in_arg("b") <<= CORBA::Long(2);
    request->set_return_type(CORBA::_tc_long);
    request->invoke();
    CORBA::Long sum = 0;
    CHECK((request->return_value() >>= sum) && sum == 3);

    request = object->_request("divide");
    request->add_inout_arg("dividend") <<= CORBA::Long(17);
    request->add_in_arg("divisor") <<= CORBA::Long(5);
    request->add_out_arg("remainder").replace(CORBA::_tc_long, nullptr);
    request->set_return_type(CORBA::_tc_void);
    request->send_deferred();
    request->get_response();
    CHECK((*request->arguments()->item(0)->value() >>= sum) && sum == 3);
    CHECK((*request->arguments()->item(2)->value() >>= sum) && sum == 2);

    request = object->_request("repeat");
    request->add_in_arg() <<= "x";
    request->add_in_arg() <<= CORBA::UShort(11);
    request->set_return_type(CORBA::_tc_string);
    request->exceptions()->add(Dynamic::_tc_Refused);
    request->invoke();
    CORBA::UnknownUserException* unknown =
        CORBA::UnknownUserException::_downcast(request->env()->exception());
    CHECK(unknown != nullptr);
    const Dynamic::Refused* refused = nullptr;
    CHECK(unknown && (unknown->exception() >>= refused) && std::string(refused->why) == "too often");

    request = object->_request("shutdown");
    request->send_oneway();
    orb->destroy();
  });
}
