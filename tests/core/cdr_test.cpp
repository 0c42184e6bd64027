#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

#include "buffer.h"
#include "cdr_chain.h"
#include "environment.h"
#include "octets.h"

namespace {

using namespace zrsv;

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
};

/// Moves all of them, as many as there is room for; true when that was all.
bool move_all(CDR* cdr, Values* v) {
  return OM_cdr_octet(cdr, &v->octet) && OM_cdr_short(cdr, &v->s) && OM_cdr_boolean(cdr, &v->boolean) &&
         OM_cdr_unsigned_short(cdr, &v->us) && OM_cdr_char(cdr, &v->character) && OM_cdr_long(cdr, &v->l) &&
         OM_cdr_unsigned_long(cdr, &v->ul) && OM_cdr_long_long(cdr, &v->ll) &&
         OM_cdr_unsigned_long_long(cdr, &v->ull) && OM_cdr_float(cdr, &v->f) && OM_cdr_double(cdr, &v->d);
}

const std::string little_values =
    hex("7f 00"                    // octet, padding to 2
        "fe ff"                    // short -2
        "01 00"                    // boolean, padding to 2
        "34 12"                    // unsigned short
        "63 00 00 00"              // char 'c', padding to 4
        "fd ff ff ff"              // long -3
        "78 56 34 12 00 00 00 00"  // unsigned long, padding to 8
        "fc ff ff ff ff ff ff ff"  // long long -4
        "f0 de bc 9a 78 56 34 12"  // unsigned long long
        "00 00 c0 3f 00 00 00 00"  // float 1.5, padding to 8
        "00 00 00 00 00 00 02 c0"  // double -2.25
    );

const std::string big_values =
    hex("7f 00"                    // octet, padding to 2
        "ff fe"                    // short -2
        "05 00"                    // boolean, any octet but 0 is true; padding to 2
        "12 34"                    // unsigned short
        "63 00 00 00"              // char 'c', padding to 4
        "ff ff ff fd"              // long -3
        "12 34 56 78 00 00 00 00"  // unsigned long, padding to 8
        "ff ff ff ff ff ff ff fc"  // long long -4
        "12 34 56 78 9a bc de f0"  // unsigned long long
        "3f c0 00 00 00 00 00 00"  // float 1.5, padding to 8
        "c0 02 00 00 00 00 00 00"  // double -2.25
    );

void expect_values(const Values& v) {
  EXPECT_EQ(v.octet, 0x7F);
  EXPECT_EQ(v.boolean, 1);
  EXPECT_EQ(v.character, 'c');
  EXPECT_EQ(v.s, -2);
  EXPECT_EQ(v.us, 0x1234);
  EXPECT_EQ(v.l, -3);
  EXPECT_EQ(v.ul, 0x12345678u);
  EXPECT_EQ(v.ll, -4);
  EXPECT_EQ(v.ull, 0x123456789ABCDEF0u);
  EXPECT_EQ(v.f, 1.5f);
  EXPECT_EQ(v.d, -2.25);
}

TEST(Cdr, PrimitivesAreAlignedAndPaddedWithZeros) {
  Encoding out;
  Values v;
  ASSERT_TRUE(move_all(out, &v));
  EXPECT_EQ(
      out.octets(), std::endian::native == std::endian::little ? little_values : [] {
        std::string expected = big_values;
        expected[4] = 1;
        return expected;
      }());
}

TEST(Cdr, BothByteOrdersDecodeAndEveryPrefixFails) {
  for (bool little : {true, false}) {
    const std::string& golden = little ? little_values : big_values;
    Decoding whole(golden, little);
    Values v{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_TRUE(move_all(whole, &v));
    expect_values(v);
    EXPECT_EQ(whole.left(), 0u);
    for (std::size_t n = 0; n < golden.size(); ++n) {
      Decoding cut(std::string_view(golden).substr(0, n), little);
      EXPECT_FALSE(move_all(cut, &v)) << n;
    }
  }
}

TEST(Cdr, StreamsGrowAcrossEveryBoundary) {
  Encoding out;
  for (uint64_t i = 0; i < 3000; ++i) {
    unsigned char octet = 0xEE;
    ASSERT_TRUE(OM_cdr_octet(out, &octet));
    ASSERT_TRUE(OM_cdr_unsigned_long_long(out, &i));
  }
  Decoding in(out.octets(), std::endian::native == std::endian::little);
  for (uint64_t i = 0; i < 3000; ++i) {
    unsigned char octet = 0;
    uint64_t value = ~i;
    ASSERT_TRUE(OM_cdr_octet(in, &octet) && OM_cdr_unsigned_long_long(in, &value));
    ASSERT_EQ(value, i);
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
  Decoding in(out.octets(), std::endian::native == std::endian::little);
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

TEST(Buffer, TakesStreamsAndLendsItsMemory) {
  Encoding out;
  uint32_t word = 0;
  ASSERT_TRUE(OM_cdr_unsigned_long(out, &word));
  Buffer buffer = Buffer::take(out);
  EXPECT_EQ(out.octets(), "");
  const unsigned char more[] = {1, 2, 3};
  ASSERT_TRUE(buffer.append(more, sizeof more));
  buffer.consume(4);
  EXPECT_EQ(std::string(buffer.data(), buffer.end()), hex("01 02 03"));
  EXPECT_FALSE(buffer.reserve(std::numeric_limits<std::size_t>::max()));
  buffer.shrink(16);
  EXPECT_EQ(buffer.capacity(), 16u);
  const unsigned char* memory = buffer.data();
  buffer.lend(out);
  EXPECT_EQ(buffer.capacity(), 0u);
  ASSERT_TRUE(OM_cdr_unsigned_long(out, &word));
  EXPECT_EQ(static_cast<CDR*>(out)->out_base, memory);
  EXPECT_EQ(out.octets(), hex("00 00 00 00"));
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

TEST(Environment, RecordsOwnTheirTextAndKeepTheLastFailureByThread) {
  CORBA_Environment env{};
  std::string id = "IDL:Test/Broken:1.0";
  ZR_set_user_exception(&env, id.c_str());
  id.assign(id.size(), 'x');
  EXPECT_STREQ(CORBA_exception_id(&env), "IDL:Test/Broken:1.0");
  set_last_failure("TRANSIENT", 7);
  std::thread([] { set_last_failure("TIMEOUT"); }).join();
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, &env);
  EXPECT_EQ(env._major, uint32_t{CORBA_SYSTEM_EXCEPTION});
  EXPECT_EQ(env._minor, 7u);
  EXPECT_EQ(env._completed, uint32_t{CORBA_COMPLETED_MAYBE});
  EXPECT_EQ(env._owned, nullptr);
  EXPECT_STREQ(env._id, "IDL:CORBA/StExcep/TRANSIENT:1.0");
  CORBA_exception_free(&env);
  EXPECT_EQ(env._major, 0u);
}

TEST(Sync, LocksExcludeOthersAndLetTheirHolderIn) {
  OM_sem sem{};
  EXPECT_FALSE(OM_thread_synch_sem_reserve(&sem) || OM_thread_synch_sem_release(&sem));
  ASSERT_TRUE(OM_thread_synch_sem_create(&sem));
  void* const state = sem.state;
  ASSERT_TRUE(OM_thread_synch_sem_create(&sem));
  EXPECT_EQ(sem.state, state);
  int count = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        OM_thread_synch_sem_reserve(&sem);
        OM_thread_synch_sem_reserve(&sem);
        ++count;
        OM_thread_synch_sem_release(&sem);
        OM_thread_synch_sem_release(&sem);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 4000);
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
