#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "cdr_chain.h"
#include "environment.h"
#include "octets.h"

namespace {

using namespace zrsv;

constexpr bool native_little = std::endian::native == std::endian::little;

/// One value of each kind behind an octet that puts everything out of line.
struct Values {
  unsigned char octet = 0x7F, boolean = 1;
  char character = 'c';
  int16_t s = -2;
  uint16_t us = 0x1234;
  int32_t l = -3;
  uint32_t ul = 0x12345678;
  int64_t ll = -4;
  uint64_t ull = 0x123456789ABCDEF0;
  float f = 1.5f;
  double d = -2.25;
  bool operator==(const Values&) const = default;
};

/// Moves all of them, as many as there is room for; true when that was all.
bool move_all(CDR* cdr, Values* v) {
  return OM_cdr_octet(cdr, &v->octet) && OM_cdr_short(cdr, &v->s) && OM_cdr_boolean(cdr, &v->boolean) &&
         OM_cdr_unsigned_short(cdr, &v->us) && OM_cdr_char(cdr, &v->character) && OM_cdr_long(cdr, &v->l) &&
         OM_cdr_unsigned_long(cdr, &v->ul) && OM_cdr_long_long(cdr, &v->ll) &&
         OM_cdr_unsigned_long_long(cdr, &v->ull) && OM_cdr_float(cdr, &v->f) && OM_cdr_double(cdr, &v->d);
}

// octet, short, boolean and unsigned short on 2; char; long and unsigned long on 4; long long and unsigned
// long long on 8; float; double on 8
const std::string little_values =
    hex("7f00 feff 0100 3412 63000000 fdffffff 7856341200000000 fcffffffffffffff f0debc9a78563412"
        "0000c03f00000000 00000000000002c0");
const std::string big_values =  // any octet but 0 is true
    hex("7f00 fffe 0500 1234 63000000 fffffffd 1234567800000000 fffffffffffffffc 123456789abcdef0"
        "3fc0000000000000 c002000000000000");

TEST(Cdr, PrimitivesAreAlignedAndPaddedWithZeros) {
  Encoding out;
  Values v;
  ASSERT_TRUE(move_all(out, &v));
  std::string expected = native_little ? little_values : big_values;
  expected[4] = 1;
  EXPECT_EQ(out.octets(), expected);
}

TEST(Cdr, BothByteOrdersDecodeAndEveryPrefixFails) {
  for (bool little : {true, false}) {
    const std::string& golden = little ? little_values : big_values;
    Decoding whole(golden, little);
    Values v{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_TRUE(move_all(whole, &v));
    EXPECT_TRUE(v == Values{} && whole.left() == 0);
    for (std::size_t n = 0; n < golden.size(); ++n) {
      Decoding cut(std::string_view(golden).substr(0, n), little);
      EXPECT_FALSE(move_all(cut, &v)) << n;
    }
  }
}

TEST(Cdr, StreamsGrowAcrossEveryBoundary) {
  Encoding out;
  unsigned char octet = 0xEE;
  for (uint64_t i = 0; i < 3000; ++i)
    ASSERT_TRUE(OM_cdr_octet(out, &octet) && OM_cdr_unsigned_long_long(out, &i));
  Decoding in(out.octets(), native_little);
  for (uint64_t i = 0; i < 3000; ++i) {
    uint64_t value = ~i;
    ASSERT_TRUE(OM_cdr_octet(in, &octet) && OM_cdr_unsigned_long_long(in, &value) && value == i);
  }
  EXPECT_EQ(in.left(), 0u);
}

TEST(Cdr, WrongDirectionsMoveNothing) {
  Encoding out;
  CDR* cdr = out;
  cdr->direction = 2;
  Values v;
  uint16_t wide = 0;
  char* text = nullptr;
  void* handle = nullptr;
  EXPECT_FALSE(OM_cdr_octet(cdr, &v.octet) || OM_cdr_double(cdr, &v.d) || OM_cdr_wchar(cdr, &wide) ||
               OM_cdr_string(cdr, &text) || cdr_bytes(cdr, &v.octet, 1) || OM_cdr_object(cdr, &handle));
  EXPECT_EQ(out.octets(), "");
}

TEST(Cdr, WideCharactersFollowTheMessageVersion) {
  struct Case {
    uint8_t minor;
    std::string octets;
    int value;  // -1: refused
  };
  const Case cases[] = {
      {2, hex("02 20 ac"), 0x20AC},        // count, unit big-endian whatever the stream's order
      {2, hex("04 fe ff 20 ac"), 0x20AC},  // big-endian mark
      {2, hex("04 ff fe ac 20"), 0x20AC},  // little-endian mark
      {2, hex("04 20 ac 20 ac"), -1},      // two units
      {2, hex("01 20"), -1},               // half a unit
      {2, hex("02 20"), -1},               // cut
      {1, hex("ac 20"), 0x20AC},           // a plain aligned unit
      {1, hex("ac"), -1},                  // cut
      {0, hex("ac 20 ac 20"), -1},         // 1.0 has none
  };
  for (const Case& c : cases) {
    Decoding in(c.octets, true, 0, c.minor);
    uint16_t value = 0;
    EXPECT_EQ(OM_cdr_wchar(in, &value), c.value >= 0) << testing::PrintToString(c.octets);
    EXPECT_EQ(value, c.value >= 0 ? c.value : 0);
    EXPECT_EQ(in.left(), c.value >= 0 ? 0u : c.octets.size());
  }
  uint16_t euro = 0x20AC;
  Encoding v2(2), v0(0);
  EXPECT_TRUE(OM_cdr_wchar(v2, &euro));
  EXPECT_EQ(v2.octets(), hex("02 20 ac"));
  EXPECT_FALSE(OM_cdr_wchar(v0, &euro));
}

TEST(Cdr, StringsAreCheckedAndFailuresMoveNothing) {
  struct Case {
    std::string octets;
    const char* text;  // null: refused
  };
  const Case cases[] = {
      {hex("03 00 00 00 61 62 00"), "ab"},     // length with NUL, text, NUL
      {hex("01 00 00 00 00"), ""},             // the empty string
      {hex("00 00 00 00"), nullptr},           // no room for the NUL
      {hex("02 00 00 00 61 62"), nullptr},     // no NUL
      {hex("03 00 00 00 61 00 00"), nullptr},  // NUL inside
      {hex("04 00 00 00 61 62 00"), nullptr},  // length past the end
      {hex("ff ff ff ff 61 62 00"), nullptr},  // length that would wrap
      {hex("03 00 00"), nullptr},              // length word cut
  };
  for (const Case& c : cases) {
    Decoding in(c.octets), view(c.octets);
    char* text = nullptr;
    const char* in_place = nullptr;
    EXPECT_EQ(OM_cdr_string(in, &text), c.text != nullptr) << testing::PrintToString(c.octets);
    EXPECT_EQ(OM_cdr_string_view(view, &in_place), c.text != nullptr);
    EXPECT_STREQ(text, c.text);
    EXPECT_STREQ(in_place, c.text);
    EXPECT_EQ(in.left(), c.text ? 0u : c.octets.size());
    CORBA_free(text);
  }
  Encoding out;
  char* none = nullptr;
  EXPECT_FALSE(OM_cdr_string(out, &none));
  EXPECT_EQ(out.octets(), "");
}

TEST(Cdr, EncapsulationsAreAlignedByThemselves) {
  Encoding out;
  CDR inner;
  unsigned char octet = 9;
  uint32_t word = 0x01020304;
  ASSERT_TRUE(OM_cdr_octet(out, &octet) && OM_cdr_open_encapsulation(&inner));
  ASSERT_TRUE(OM_cdr_unsigned_long(&inner, &word) && OM_cdr_write_encapsulation(out, &inner));
  OM_cdr_close(&inner);
  Decoding in(out.octets(), native_little);
  CDR read;
  uint32_t value = 0;
  ASSERT_TRUE(OM_cdr_octet(in, &octet) && OM_cdr_read_encapsulation(in, &read));
  EXPECT_TRUE(OM_cdr_unsigned_long(&read, &value) && value == word && OM_cdr_remaining(&read) == 0);
  for (const char* bad : {"00 00 00 00",        // no byte-order octet
                          "01 00 00 00 02",     // neither order
                          "02 00 00 00 01"}) {  // cut
    Decoding refused(hex(bad));
    EXPECT_FALSE(OM_cdr_read_encapsulation(refused, &read)) << bad;
    EXPECT_EQ(refused.left(), hex(bad).size());
  }
}

TEST(Cdr, ReaderBoundsCountsBeforeAnythingIsMade) {
  Decoding in(
      hex("03 00 00 00"
          "00 00 00 00 00 00 00 00"
          "00 00 00 00 00 00 00 00"));  // three elements announced, room for two
  Reader reader(in);
  EXPECT_EQ(reader.count(8), 0u);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.u32(), 0u);
}

TEST(Environment, IdsTravelInThePublicForm) {
  const char* internal = "IDL:CORBA/StExcep/OBJ_ADAPTER:1.0";
  for (const char* any : {internal, "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0", "OBJ_ADAPTER"}) {
    EXPECT_STREQ(internal_id(any), internal);
    EXPECT_EQ(public_id(any), "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0");
  }
  for (const char* other :
       {"", "IDL:CORBA/StExcep/:1.0", "IDL:omg.org/CORBA/NOT_ONE:1.0", "IDL:omg.org/CORBA/OBJ_ADAPTER:2.0"}) {
    EXPECT_STREQ(internal_id(other), "IDL:CORBA/StExcep/UNKNOWN:1.0") << other;
  }
}

TEST(Environment, TheLastFailureIsKeptByThread) {
  CORBA_Environment env{};
  set_last_failure("TRANSIENT", 7);
  std::thread([] { set_last_failure("TIMEOUT"); }).join();
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, &env);
  EXPECT_EQ(env._major, uint32_t{CORBA_SYSTEM_EXCEPTION});
  EXPECT_TRUE(env._minor == 7 && env._completed == CORBA_COMPLETED_MAYBE && env._owned == nullptr);
  EXPECT_STREQ(env._id, "IDL:CORBA/StExcep/TRANSIENT:1.0");
  CORBA_exception_free(&env);
  EXPECT_EQ(env._major, 0u);
}

TEST(Trace, LinesGoToTheSinkOnlyWhileTraceIsOn) {
  std::vector<std::string> lines;
  OM_trace_set_sink(
      [](const char* text, void* to) { static_cast<std::vector<std::string>*>(to)->push_back(text); },
      &lines);
  OM_trace_select(1, "dropped");
  OM_trace_switch(1);
  const std::string longer(2000, 'x');
  OM_trace_select(1, "%s %d", longer.c_str(), 7);
  OM_trace("plain");
  OM_trace_switch(0);
  OM_trace_set_sink(nullptr, nullptr);
  EXPECT_EQ(lines, (std::vector<std::string>{longer + " 7", "plain"}));
}

}  // namespace
