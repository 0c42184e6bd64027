#include "corba/fixed.h"

#include <gtest/gtest.h>

#include <sstream>

#include "wire.h"

namespace {

using CORBA::Fixed;

std::string text(const Fixed& value) { return CORBA::String_var(value.to_string()).in(); }

const std::string nines(31, '9');

TEST(FixedTest, CalculatesExactly) {
  const struct {
    const char* a;
    char operation;
    const char* b;
    std::string result;  // "" for DATA_CONVERSION
  } rows[] = {
      {"0.1", '+', "0.2", "0.3"},
      {"1.50", '+', "1", "2.50"},
      {"1", '-', "2.25", "-1.25"},
      {"-1.5", '-', "-1.5", "0.0"},
      {"12345678901234567890.12345678901", '+', "0.00000000001", "12345678901234567890.12345678902"},
      {"1000000.000000000000000000000000", '-', "0.0000000000000000000000000000001",
       "999999.9999999999999999999999999"},
      {nines.c_str(), '+', "1", ""},
      {nines.c_str(), '+', "0.9", nines},
      {"99999999999999999999", '*', "99999999999", "9999999999899999999900000000001"},
      {"-0.0000000000000001", '*', "0.1234567890123456", "-0.0000000000000000123456789012345"},
      {nines.c_str(), '*', "0.1", std::string(30, '9') + ".9"},
      {nines.c_str(), '*', "10", ""},
      {"1", '/', "3", "0." + std::string(31, '3')},
      {"10", '/', "-4", "-2.5"},
      {"2", '/', "0.0000000000000000000000000000001", ""},
      {nines.c_str(), '/', nines.c_str(), "1"},
      {"1", '/', "0.00", ""},
  };
  for (const auto& row : rows) {
    const Fixed a(row.a), b(row.b);
    std::string found;
    try {
      found = text(row.operation == '+'   ? a + b
                   : row.operation == '-' ? a - b
                   : row.operation == '*' ? a * b
                                          : a / b);
    } catch (const CORBA::DATA_CONVERSION&) {
    }
    EXPECT_EQ(found, row.result) << row.a << ' ' << row.operation << ' ' << row.b;
  }
}

TEST(FixedTest, RoundsAndCutsOff) {
  const struct {
    const char* value;
    CORBA::UShort scale;
    const char *rounded, *cut;
  } rows[] = {{"0.95", 1, "1.0", "0.9"}, {"-0.95", 1, "-1.0", "-0.9"}, {"2.449", 1, "2.4", "2.4"},
              {"-0.4", 0, "0", "0"},     {"1.5", 3, "1.5", "1.5"},     {"999.5", 0, "1000", "999"},
              {"0.05", 1, "0.1", "0.0"}};
  for (const auto& row : rows) {
    EXPECT_EQ(text(Fixed(row.value).round(row.scale)), row.rounded) << row.value;
    EXPECT_EQ(text(Fixed(row.value).truncate(row.scale)), row.cut) << row.value;
  }
}

TEST(FixedTest, ConvertsAndCompares) {
  for (const char* wrong : {"", "-", ".", "1.2.3", "1e5", " 1", "12345678901234567890123456789012"})
    EXPECT_THROW(Fixed{wrong}, CORBA::DATA_CONVERSION) << wrong;
  EXPECT_EQ(text(Fixed("+007.10D")), "7.10");
  EXPECT_EQ(text(Fixed(INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(static_cast<CORBA::LongLong>(Fixed("-9223372036854775808.9")), INT64_MIN);
  EXPECT_THROW(static_cast<CORBA::LongLong>(Fixed("9223372036854775808")), CORBA::DATA_CONVERSION);
  EXPECT_EQ(text(Fixed(-0.375)), "-0.375");
  EXPECT_THROW(Fixed(2e31), CORBA::DATA_CONVERSION);
  EXPECT_EQ(static_cast<CORBA::LongDouble>(Fixed("-0.5")), -0.5L);
  EXPECT_TRUE(Fixed("1.50") == Fixed("1.5") && Fixed("-2") < 1 && 2 > Fixed("1.9") && Fixed("-0.0") == 0);
  EXPECT_TRUE(Fixed("0.0000000000000000000000000000001") > 0 && Fixed("-3") < Fixed("-2.9"));
  Fixed counted = 1;
  EXPECT_EQ(text(counted++), "1");
  EXPECT_EQ(text(++counted), "3");
  EXPECT_EQ(Fixed("-12.50").fixed_digits(), 4);
  EXPECT_EQ(Fixed("-12.50").fixed_scale(), 2);
  EXPECT_EQ(text(CORBA::FixedType<5, 2>(Fixed("123.456"))), "123.45");
  EXPECT_EQ(text(CORBA::FixedType<2, 2>(0)), "0");
  EXPECT_THROW((CORBA::FixedType<5, 2>(1000)), CORBA::DATA_CONVERSION);
}

TEST(FixedTest, IsReadAndWrittenByStreams) {
  CORBA::FixedType<5, 2> price = Fixed("7");
  Fixed any;
  std::stringstream words("-12.50 1000 x 3");
  words >> price >> any;
  EXPECT_TRUE(words && price == Fixed("-12.50") && any == 1000);
  words >> any;
  EXPECT_TRUE(words.fail() && any == 1000);
  std::stringstream large("1000");
  EXPECT_FALSE(large >> price);
  words.str("");
  words.clear();
  words << price << ' ' << Fixed("0.05");
  EXPECT_EQ(words.str(), "-12.50 0.05");
}

TEST(FixedTest, KeepsToTheDigitsOfItsType) {
  CORBA::FixedType<5, 2> price = Fixed("999.99");
  EXPECT_THROW(price += 1, CORBA::DATA_CONVERSION);
  EXPECT_THROW(++price, CORBA::DATA_CONVERSION);
  EXPECT_THROW(price *= 2, CORBA::DATA_CONVERSION);
  EXPECT_EQ(text(price--), "999.99");
  EXPECT_EQ(text(price /= 7), "142.71");
  EXPECT_EQ(text(price -= Fixed("0.001")), "142.70");
}

TEST(FixedTest, TravelsPacked) {
  const struct {
    const char* value;
    CORBA::UShort digits;
    CORBA::Short scale;
    std::string octets;
  } rows[] = {{"-123.45", 5, 2, hex("12345D")},
              {"12.3", 6, 2, hex("0001230C")},
              {"0", 1, 0, hex("0C")},
              {"0.07", 2, 2, hex("007C")},
              {nines.c_str(), 31, 0, std::string(15, '\x99') + '\x9C'}};
  for (const auto& row : rows) {
    Fixed value(row.value), found;
    EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_Fixed(cdr, value, row.digits, row.scale); }),
              row.octets);
    Decoding in(row.octets);
    EXPECT_TRUE(cdr_CORBA_Fixed(in, found, row.digits, row.scale) && found == value) << row.value;
    EXPECT_EQ(found.fixed_scale(), row.scale);
  }
  for (const char* wrong : {"1234", "1A345C", "12345E"}) {
    Decoding in(hex(wrong));
    Fixed found(7);
    EXPECT_FALSE(cdr_CORBA_Fixed(in, found, 5, 2)) << wrong;
    EXPECT_EQ(found, 7);
  }
  Encoding out;
  Fixed large("1000");
  EXPECT_FALSE(cdr_CORBA_Fixed(out, large, 5, 2));
  EXPECT_TRUE(static_cast<CDR*>(out)->unconvertible);
}

}  // namespace
