#include "anybox.h"
#include "classic.h"

static std::string kind_of(AnyBox::Box_ptr box, const CORBA::Any& value) {
  CORBA::String_var kind = box->kind_of(value);
  return kind.in();
}

int main(int argc, char* argv[]) {
  return visit<AnyBox::Box>(argc, argv, [](CORBA::ORB_ptr, AnyBox::Box_ptr box) {
    CORBA::Any value;
    value <<= CORBA::Long(42);
    CHECK(kind_of(box, value) == "long");
    value <<= "a text";
    CHECK(kind_of(box, value) == "a text");
    value <<= AnyBox::blue;
    CHECK(kind_of(box, value) == "blue");
    value <<= CORBA::Any::from_octet(200);
    CHECK(kind_of(box, value) == "something else");
    CORBA::Any_var back = box->put(value);
    CORBA::Octet octet = 0;
    CHECK((back.in() >>= CORBA::Any::to_octet(octet)) && octet == 200);
    value <<= CORBA::Any::from_boolean(true);
    back = box->put(value);
    CORBA::Boolean flag = false;
    CHECK((back.in() >>= CORBA::Any::to_boolean(flag)) && flag);
    CHECK(!(back.in() >>= CORBA::Any::to_octet(octet)));

    AnyBox::Pair pair;
    pair.key = CORBA::string_dup("answer");
    pair.value = 42;
    value <<= pair;
    CHECK(kind_of(box, value) == "answer");
    AnyBox::Pairs* pairs = new AnyBox::Pairs;
    pairs->length(2);
    (*pairs)[1].key = CORBA::string_dup("second");
    (*pairs)[1].value = 2;
    value <<= pairs;
    CHECK(kind_of(box, value) == "sequence");
    back = box->put(value);
    const AnyBox::Pairs* seen;
    CHECK(back.in() >>= seen);
    CHECK(seen->length() == 2 && std::string((*seen)[1].key) == "second");

    value <<= box;
    back = box->put(value);
    AnyBox::Box_ptr same;
    CHECK((back.in() >>= same) && same->_is_equivalent(box));
    CORBA::Object_var plain;
    CHECK(back.in() >>= CORBA::Any::to_object(plain.out()));

    CORBA::TypeCode_var before;
    box->replace(value, before.out());
    CHECK(before->equal(AnyBox::_tc_Box));
    AnyBox::Vector_forany vector;
    CHECK((value >>= vector) && vector[3] == 4);

    CORBA::Any nothing;
    try {
      back = box->put(nothing);
      CHECK(!"an exception was raised");
    } catch (const AnyBox::Strange& e) {
      const char* why;
      CHECK((e.what >>= why) && std::string(why) == "nothing in it");
    }
    CORBA::String_var name = AnyBox::_tc_Pair->member_name(1);
    CHECK(std::string(name.in()) == "value");
    CHECK(AnyBox::_tc_Colour->member_count() == 3);
  });
}
