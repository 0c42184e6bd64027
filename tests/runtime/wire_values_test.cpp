// What single values look like on the wire.
#include "wire.h"

namespace {

using CORBA::idl::Wire;

template <class V>
std::string wire_of(V value) {
  return encoded([&](CDR* cdr) { return Wire<V>::move(cdr, value); });
}
template <class V>
bool reads(const std::string& octets, V& value) {
  Decoding in(octets);
  return Wire<V>::move(in, value);
}

TEST(WireValues, OctetsAreNotBooleans) {
  EXPECT_EQ(wire_of(CORBA::Octet{200}), hex("C8"));
  EXPECT_EQ(wire_of(true) + wire_of(false), hex("01 00"));
  CORBA::Octet octet = 0;
  EXPECT_TRUE(reads(hex("C8"), octet) && octet == 200);
  CORBA::Boolean boolean = false;
  EXPECT_TRUE(reads(hex("01"), boolean) && boolean);
  EXPECT_TRUE(reads(hex("00"), boolean) && !boolean);
  for (const char* neither : {"02", "80", "FF"}) EXPECT_FALSE(reads(hex(neither), boolean)) << neither;
}

}  // namespace
