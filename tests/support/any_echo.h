// An Echo servant of which a test overrides what it looks at.
#pragma once

#include "echo.h"

class AnyEcho : public POA_Demo::Echo {
 public:
  char* echo_string(const char* s) override { return CORBA::string_dup(s); }
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return a + b; }
  Demo::Octets* echo_octets(const Demo::Octets& d) override { return new Demo::Octets(d); }
  void refuse(const char* why, CORBA::Long code) override { throw Demo::Refused(why, code); }
  void note(const char*) override {}
  CORBA::Long notes() override { return 0; }
  char* who() override { return CORBA::string_dup("echo"); }
  void sleep_ms(CORBA::ULong) override {}
};
