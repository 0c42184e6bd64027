#include <gtest/gtest.h>

#include <thread>

#include "base/copying.h"
#include "base/large_blocks.h"
#include "octets.h"
#include "references/environment.h"
#include "wire/cdr_chain.h"

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

TEST(Cdr, PrimitivesInBothByteOrders) {
  const int times = 100;  // the stream grows at different places
  Encoding out;
  Values v;
  std::string expected;
  for (int i = 0; i < times; ++i) {
    ASSERT_TRUE(move_all(out, &v));
    expected += native_little ? little_values : big_values;
    expected[expected.size() - little_values.size() + 4] = 1;
  }
  EXPECT_EQ(out.octets(), expected);
  for (const std::string& golden : {little_values, big_values}) {
    for (std::size_t n = 0; n <= golden.size(); ++n) {
      Decoding in(std::string_view(golden).substr(0, n), golden == little_values);
      Values read{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
      EXPECT_EQ(move_all(in, &read), n == golden.size()) << n;
      EXPECT_TRUE(n < golden.size() || (read == v && in.left() == 0));
    }
  }
}

TEST(Cdr, StringsAreCheckedAndFailuresMoveNothing) {
  const std::pair<const char*, const char*> rows[] = {
      {"03000000 616200", "ab"},     // length with NUL, text, NUL
      {"00000000", nullptr},         // no room for the NUL
      {"02000000 6162", nullptr},    // no NUL
      {"03000000 610000", nullptr},  // NUL inside
      {"ffffffff 616200", nullptr},  // length that would wrap
      {"030000", nullptr},           // length word cut
  };
  for (const auto& [octets, text] : rows) {
    Decoding in(hex(octets), true), view(hex(octets), true);
    char* read = nullptr;
    const char* in_place = nullptr;
    EXPECT_EQ(OM_cdr_string(in, &read), text != nullptr) << octets;
    EXPECT_EQ(OM_cdr_string_view(view, &in_place), text != nullptr);
    EXPECT_STREQ(read, text);
    EXPECT_STREQ(in_place, text);
    EXPECT_EQ(in.left(), text ? 0u : hex(octets).size());
    CORBA_free(read);
  }
}

// A large piece is sent from where it is, but for places from which the system would be slow to take it.
TEST(Cdr, WhatIsSentSlowlyIsCopied) {
  constexpr uint32_t count = 2 * large_from;
  const LargeBlock block = take_large_block(count + page_size);
  ASSERT_NE(block.octets, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.octets) % page_size, 0u);
  EXPECT_GE(block.capacity, count + page_size);
  std::memset(block.octets, 'x', block.capacity);
  const struct {
    unsigned head, place;  // octets before it in the message, and in its page
    bool apart;
  } rows[] = {{28, 0, true},  {28, 12, true}, {28, 13, false}, {28, 16, false},  {28, 27, false},
              {28, 28, true}, {28, 64, true}, {172, 16, true}, {4, 4092, false}, {4097, 0, false}};
  for (const auto& [head, place, apart] : rows) {
    CDR cdr;
    OM_cdr_open_encode(&cdr);
    cdr.direction = CDR_ENCODE;
    cdr.may_leave_apart = cdr.leaves_apart = 1;
    EXPECT_TRUE(put_octets(&cdr, std::string(head, 'h')) && ZR_cdr_refer(&cdr, block.octets + place, count));
    EXPECT_EQ(cdr.apart.octets != nullptr, apart) << head << ' ' << place;
    EXPECT_TRUE(ZR_cdr_put_together(&cdr));
    EXPECT_EQ(as_view(cdr.out_base, static_cast<std::size_t>(cdr.out_next - cdr.out_base)),
              std::string(head, 'h') + std::string(count, 'x'));
    OM_cdr_close(&cdr);
  }
  give_large_block(block.octets, block.capacity);
  EXPECT_EQ(take_large_block(SIZE_MAX).octets, nullptr);
}

TEST(Cdr, ManyOctetsAreCopiedWhereverTheyStand) {
  std::string from(80'000, '\0');
  for (std::size_t i = 0; i < from.size(); ++i) from[i] = static_cast<char>(i * 7 + i / 251);
  std::string to(from.size() + 2 * page_size, '.');
  for (const std::size_t count : {0u, 1u, 2048u, 2049u, 4096u, 70'001u})
    for (const std::size_t ahead : {0u, 1u, 12u, 15u, 16u, 4095u}) {
      const auto distance =
          reinterpret_cast<std::uintptr_t>(from.data()) - reinterpret_cast<std::uintptr_t>(to.data());
      const std::size_t at = (distance + ahead) % page_size;
      to.assign(to.size(), '.');
      copy_octets(to.data() + at, from.data(), count);
      EXPECT_EQ(to, std::string(at, '.') + from.substr(0, count) + std::string(to.size() - at - count, '.'))
          << count << ' ' << ahead;
    }
}

TEST(Environment, TheLastFailureIsKeptByThread) {
  Outcome ev;
  set_last_failure("COMM_FAILURE", 7);
  std::thread([] { set_last_failure("TIMEOUT"); }).join();
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, ev);
  const CORBA_Environment& filled = *static_cast<CORBA_Environment*>(ev);
  EXPECT_TRUE(filled._minor == 7 && filled._completed == CORBA_COMPLETED_MAYBE && !filled._owned);
  EXPECT_EQ(ev.name(), "COMM_FAILURE");
  set_last_failure("TRANSIENT");  // nobody took the request
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, ev);
  EXPECT_EQ(filled._completed, unsigned{CORBA_COMPLETED_NO});
}

TEST(Trace, LinesGoToTheSinkOnlyWhileTraceIsOn) {
  std::string lines;
  OM_trace_set_sink([](const char* text, void* to) { *static_cast<std::string*>(to) += text; }, &lines);
  OM_trace_select(1, "dropped");
  OM_trace_switch(1);
  const std::string longer(2000, 'x');
  OM_trace_select(1, "%s %d", longer.c_str(), 7);
  OM_trace_switch(0);
  OM_trace_set_sink(nullptr, nullptr);
  EXPECT_EQ(lines, longer + " 7");
}

}  // namespace
