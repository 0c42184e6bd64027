// Values of type any: passed on, looked into, replaced.
#include "anybox.h"
#include "classic.h"

class Box_impl : public Closing<POA_AnyBox::Box> {
 public:
  using Closing::Closing;
  CORBA::Any* put(const CORBA::Any& value) override {
    CORBA::TypeCode_var type = value.type();
    if (type->kind() == CORBA::tk_null) {
      AnyBox::Strange strange;
      strange.what <<= "nothing in it";
      throw strange;
    }
    return new CORBA::Any(value);
  }
  char* kind_of(const CORBA::Any& value) override {
    CORBA::Long number;
    const char* text;
    const AnyBox::Pair* pair;
    AnyBox::Colour colour;
    if (value >>= number) return CORBA::string_dup("long");
    if (value >>= text) return CORBA::string_dup(text);
    if (value >>= pair) return CORBA::string_dup(pair->key);
    if (value >>= colour) return CORBA::string_dup(colour == AnyBox::blue ? "blue" : "colour");
    CORBA::TypeCode_var type = value.type();
    while (type->kind() == CORBA::tk_alias) type = type->content_type();
    return CORBA::string_dup(type->kind() == CORBA::tk_sequence ? "sequence" : "something else");
  }
  void replace(CORBA::Any& value, CORBA::TypeCode_out before) override {
    before = value.type();
    AnyBox::Vector vector = {1, 2, 3, 4};
    value <<= AnyBox::Vector_forany(vector);
  }
};

int main(int argc, char* argv[]) { return serve<Box_impl>(argc, argv); }
