// Wide characters and strings, and long doubles: their octets in both byte orders and versions.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "corba/detail/wire_values.h"
#include "wire.h"

namespace {

struct WideString {
  CORBA::WChar* text = nullptr;
  ~WideString() { CORBA::wstring_free(text); }
};

bool read_text(const std::string& octets, unsigned char minor, bool little, std::wstring& text) {
  Decoding in(octets, little);
  static_cast<CDR*>(in)->minor_version = minor;
  WideString found;
  if (!cdr_CORBA_wstring_cpp(in, &found.text)) return false;
  text = found.text;
  return static_cast<CDR*>(in)->in_next == static_cast<CDR*>(in)->in_end;
}

template <class Write>
std::string written(unsigned char minor, Write&& write) {
  return encoded([&](CDR* cdr) { return cdr->minor_version = minor, write(cdr); });
}

TEST(WideTest, StringsHaveTheFormOfTheirVersion) {
  const struct {
    const char* name;
    unsigned char minor;
    bool little;
    std::string octets;
    const wchar_t* text;  // null: refused
  } rows[] = {
      {"plain", 2, false, hex("00000004 00410416"), L"A\x416"},
      {"without a mark, big-endian in any stream", 2, true, hex("04000000 00410416"), L"A\x416"},
      {"a mark", 2, false, hex("00000004 FEFF0041"), L"A"},
      {"a mark of the other order", 2, false, hex("00000004 FFFE4100"), L"A"},
      {"a second mark is text", 2, false, hex("00000004 FEFFFEFF"), L"\xFEFF"},
      {"a pair", 2, false, hex("00000004 D83DDE00"), L"\x1F600"},
      {"empty", 2, false, hex("00000000"), L""},
      {"half a pair", 2, false, hex("00000002 D83D"), nullptr},
      {"a pair the wrong way round", 2, false, hex("00000004 DE00D83D"), nullptr},
      {"half a unit", 2, false, hex("00000003 004100"), nullptr},
      {"a NUL inside", 2, false, hex("00000004 00000041"), nullptr},
      {"more than is there", 2, false, hex("FFFFFFFE 0041"), nullptr},
      {"1.1", 1, false, hex("00000003 004104160000"), L"A\x416"},
      {"1.1 in the other order", 1, true, hex("03000000 410016040000"), L"A\x416"},
      {"1.1 with a pair", 1, true, hex("03000000 3DD800DE0000"), L"\x1F600"},
      {"1.1 without its NUL", 1, false, hex("00000001 0041"), nullptr},
      {"1.1 without anything", 1, false, hex("00000000"), nullptr},
      {"1.1, more than is there", 1, false, hex("80000001 0041"), nullptr},
      {"1.0", 0, false, hex("00000002 0041"), nullptr},
  };
  for (const auto& row : rows) {
    std::wstring found;
    EXPECT_EQ(read_text(row.octets, row.minor, row.little, found), row.text != nullptr) << row.name;
    EXPECT_EQ(found, row.text ? row.text : L"") << row.name;
  }
}

// Each scalar value, one by one and in strings, 4096 to a stream; half pairs and numbers past the end are none.
TEST(WideTest, EveryScalarValueGoesRound) {
  for (const auto minor : {static_cast<unsigned char>(1), static_cast<unsigned char>(2)}) {
    for (std::uint32_t first = 0; first < 0x110000; first += 0x1000) {
      std::wstring text, single, found;
      Encoding out;
      static_cast<CDR*>(out)->minor_version = minor;
      for (std::uint32_t scalar = first; scalar < first + 0x1000; ++scalar) {
        const bool is_text = scalar != 0 && (scalar < 0xD800 || scalar > 0xDFFF);
        wchar_t one = static_cast<wchar_t>(scalar);
        if (is_text) text += one;
        const bool taken = OM_cdr_wchar(out, &one);
        const bool expected = (is_text || scalar == 0) && (minor == 2 || scalar < 0x10000);
        ASSERT_EQ(taken, expected) << scalar;
        if (taken) single += one;
      }
      Decoding in(out.octets(), native_is_little);
      static_cast<CDR*>(in)->minor_version = minor;
      for (const wchar_t one : single) {
        wchar_t back = 0;
        ASSERT_TRUE(OM_cdr_wchar(in, &back) && back == one) << static_cast<std::uint32_t>(one);
      }
      if (text.empty()) continue;
      wchar_t* plain = text.data();
      const std::string octets = written(minor, [&](CDR* cdr) { return cdr_CORBA_wstring_cpp(cdr, &plain); });
      ASSERT_TRUE(read_text(octets, minor, native_is_little, found)) << first;
      ASSERT_EQ(found, text) << first;
    }
  }
  for (std::wstring text : {L"\xFEFF",
                            L"\xFFFE"
                            L"A"}) {  // no byte-order marks, though they look like some
    std::wstring found;
    wchar_t* plain = text.data();
    EXPECT_TRUE(read_text(written(2, [&](CDR* cdr) { return cdr_CORBA_wstring_cpp(cdr, &plain); }), 2,
                          native_is_little, found));
    EXPECT_EQ(found, text);
  }
  for (const wchar_t wrong : {wchar_t{0xD800}, wchar_t{0xDFFF}, wchar_t{0x110000}}) {
    wchar_t text[] = {L'a', wrong, 0}, *plain = text;
    Encoding out;
    EXPECT_FALSE(cdr_CORBA_wstring_cpp(out, &plain));
    EXPECT_TRUE(static_cast<CDR*>(out)->unconvertible);
  }
}

TEST(LongDoubleTest, HasTheOctetsOfAQuad) {
  using Limits = std::numeric_limits<long double>;
  const struct {
    long double value;
    std::string octets;
    bool exact = true;  // false: the nearest to what the octets say
  } rows[] = {
      {1.0L, hex("3FFF0000 00000000 00000000 00000000")},
      {-2.5L, hex("C0004000 00000000 00000000 00000000")},
      {0.1L, hex("3FFB9999 99999999 999A0000 00000000")},
      {-0.0L, hex("80000000 00000000 00000000 00000000")},
      {Limits::infinity(), hex("7FFF0000 00000000 00000000 00000000")},
      {Limits::max(), hex("7FFEFFFF FFFFFFFF FFFE0000 00000000")},
      {Limits::min(), hex("00010000 00000000 00000000 00000000")},
      {Limits::denorm_min(), hex("00000000 00000000 00020000 00000000")},
      {1.0L, hex("3FFF0000 00000000 00010000 00000000"), false},
      {1.0L + Limits::epsilon(), hex("3FFF0000 00000000 00010000 00000001"), false},
      {1.0L + 2 * Limits::epsilon(), hex("3FFF0000 00000000 00030000 00000000"), false},
      {2.0L, hex("3FFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"), false},
      {Limits::infinity(), hex("7FFEFFFF FFFFFFFF FFFFFFFF FFFFFFFF"), false},
      {Limits::min(), hex("0000FFFF FFFFFFFF FFFFFFFF FFFFFFFF"), false},
  };
  if (Limits::digits != 64) GTEST_SKIP() << "the rows are those of the x87";
  for (const auto& row : rows) {
    const std::string reversed(row.octets.rbegin(), row.octets.rend());
    for (const bool little : {false, true}) {
      Decoding in(little ? reversed : row.octets, little);
      long double found = 0;
      ASSERT_TRUE(OM_cdr_long_double(in, &found));
      EXPECT_EQ(found, row.value);
      EXPECT_EQ(std::signbit(found), std::signbit(row.value));
    }
    long double value = row.value;
    if (!row.exact) continue;
    EXPECT_EQ(encoded([&](CDR* cdr) { return OM_cdr_long_double(cdr, &value); }),
              native_is_little ? reversed : row.octets);
  }
  Decoding in(hex("7FFF0000 00000000 00000000 00000001"), false);
  long double nan = 0;
  EXPECT_TRUE(OM_cdr_long_double(in, &nan) && std::isnan(nan));
}

}  // namespace
