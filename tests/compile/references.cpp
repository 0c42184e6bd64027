// Programs that use references and values, and mistakes that must not compile. How it works: test_refused.py.
#include "echo.h"

// AN_OLDER_LANGUAGE refused with -std=c++17: needs C\+\+20

void references(CORBA::Object_ptr object, PortableServer::POA_ptr poa) {
  CORBA::Object_var owner = CORBA::Object::_duplicate(object);
#ifdef NARROWED_WITHOUT_ASKING  // refused: no viable|conversion from|cannot convert|invalid conversion|no match
  PortableServer::POA_var narrowed = owner.in();
#else
  PortableServer::POA_var narrowed = PortableServer::POA::_narrow(owner.in());
#endif
#ifdef ID_FROM_TEXT  // refused: cannot convert|could not bind
  CORBA::Object_var made = poa->create_reference_with_id("id", "IDL:X:1.0");
#else
  const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId("id");
  CORBA::Object_var made = poa->create_reference_with_id(id.in(), "IDL:X:1.0");
#endif
}

/// Operations of an interface, for rows.
class Operations {
 public:
  virtual void plain(CORBA::Long a, CORBA_ENV) = 0;
  virtual void pointer(CORBA::Long* a, CORBA_ENV) = 0;

 protected:
  ~Operations() = default;
};

namespace idl = CORBA::idl;
#ifdef PARAMETER_WITHOUT_A_WIRE_FORM  // refused: incomplete type|undefined template
constexpr idl::operation<Operations, void(idl::in<CORBA::Long*>)> row{"pointer", &Operations::pointer};
#else
constexpr idl::operation<Operations, void(idl::in<CORBA::Long>)> row{"plain", &Operations::plain};
#endif
#ifdef MEMBER_OF_ANOTHER_FORM  // refused: no matching (function|constructor)
constexpr idl::operation<Operations, void(idl::inout<CORBA::Long>)> another{"plain", &Operations::plain};
#endif

int main() {}
