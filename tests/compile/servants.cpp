// A servant, and mistakes in it that must not compile. How it works: test_refused.py.
#include "echo.h"

class Servant : public POA_Demo::Echo {
 public:
  char* echo_string(const char* s) override { return CORBA::string_dup(s); }
#ifdef ARGUMENT_OF_ANOTHER_TYPE  // refused: override
  CORBA::Long add(CORBA::LongLong a, CORBA::Long b) override;
#endif
#ifndef OPERATION_LEFT_OUT  // refused: abstract
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return a + b; }
#endif
  Demo::Octets* echo_octets(const Demo::Octets& data) override { return new Demo::Octets(data); }
#ifdef RESULT_OF_ANOTHER_TYPE  // refused: conflicting return type|different return type
  int refuse(const char* why, CORBA::Long code) override;
#else
  void refuse(const char* why, CORBA::Long code) override { throw Demo::Refused(why, code); }
#endif
  void note(const char*) override {}
  CORBA::Long notes() override { return 0; }
  char* who() override { return CORBA::string_dup(""); }
  void sleep_ms(CORBA::ULong) override {}
};

class Activator : public virtual PortableServer::AdapterActivator {
 public:
#ifdef NAME_TO_BE_CHANGED  // refused: override
  CORBA::Boolean unknown_adapter(PortableServer::POA_ptr, char*) override { return false; }
#else
  CORBA::Boolean unknown_adapter(PortableServer::POA_ptr, const char*, CORBA::Environment&) override {
    return false;
  }
#endif
};

int main() {
  Servant servant;
  Activator activator;
}
