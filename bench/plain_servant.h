// A servant that does next to nothing, for benchmarks and fuzzers.
#pragma once

#include "echo.h"

namespace bench {

class Servant : public POA_Demo::Echo {
 public:
  char* echo_string(const char* s) override { return CORBA::string_dup(s); }
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override {
    return static_cast<CORBA::Long>(static_cast<CORBA::ULong>(a) + static_cast<CORBA::ULong>(b));
  }
  Demo::Octets* echo_octets(const Demo::Octets& data) override {
    if (!views) return new Demo::Octets(data);
    return new Demo::Octets(data.length(), data.length(), const_cast<CORBA::Octet*>(data.get_buffer()),
                            false);
  }
  void refuse(const char* why, CORBA::Long code) override { throw Demo::Refused(why, code); }
  void note(const char*) override {}
  CORBA::Long notes() override { return 0; }
  char* who() override { return CORBA::string_dup(""); }
  void sleep_ms(CORBA::ULong) override {}

  bool views = false;  // results are views of the arguments, not copies
};

}  // namespace bench
