#include "wire/code_sets.h"

#include <gtest/gtest.h>

#include "octets.h"
#include "wire/giop.h"
#include "wire/iiop_profile.h"

namespace {

using namespace zrsv;

std::string string_octets(std::string_view text) {
  Encoding out;
  EXPECT_TRUE(Writer(out).text(text).ok());
  return out.octets();
}

TEST(CodeSets, TextsAreConvertedOrRefusedAsSuch) {
  constexpr unsigned char native = ZR_TEXT_NATIVE, latin = ZR_TEXT_ISO_8859_1, unknown = ZR_TEXT_UNKNOWN;
  const struct {
    unsigned char set;
    const char *text, *wire;  // null: there is none
    unsigned char why;
  } rows[] = {
      {native, "\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e", "\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e", 0},
      {latin, "plain", "plain", 0},
      {latin, "caf\xc3\xa9 \xc3\xbf\xc2\x80", "caf\xe9 \xff\x80", 0},
      {latin, "\xe2\x82\xac", nullptr, ZR_UNCONVERTIBLE},  // no euro sign in it
      {latin, "\xe9", nullptr, ZR_UNCONVERTIBLE},          // no UTF-8
      {latin, "cut \xc3", nullptr, ZR_UNCONVERTIBLE},
      {unknown, "plain", nullptr, ZR_UNKNOWN_CODE_SET},
  };
  for (const auto& row : rows) {
    Encoding out;
    CDR* to = out;
    to->narrow = row.set;
    char* text = const_cast<char*>(row.text);
    EXPECT_EQ(OM_cdr_string(out, &text), row.wire != nullptr) << row.text;
    EXPECT_EQ(to->unconvertible, row.why) << row.text;
    if (!row.wire) continue;
    EXPECT_EQ(out.octets(), string_octets(row.wire));
    Decoding in(out.octets());
    CDR* from = in;
    from->narrow = row.set;
    char* read = nullptr;
    ASSERT_TRUE(OM_cdr_string(in, &read));
    EXPECT_STREQ(read, row.text);
    EXPECT_EQ(in.left(), 0u);
    CORBA_free(read);
    from->in_next = from->in_base;
    const char* in_place = nullptr;
    EXPECT_EQ(OM_cdr_string_view(in, &in_place), std::string_view(row.text) == row.wire);
  }
}

TEST(CodeSets, CharactersAreAsciiWhereTextsAreConverted) {
  for (const auto& [set, c, why] : {std::tuple{ZR_TEXT_NATIVE, '\xe9', 0},
                                    {ZR_TEXT_ISO_8859_1, 'e', 0},
                                    {ZR_TEXT_ISO_8859_1, '\xe9', int{ZR_UNCONVERTIBLE}},
                                    {ZR_TEXT_UNKNOWN, 'e', int{ZR_UNKNOWN_CODE_SET}}}) {
    for (const uint16_t direction : {uint16_t{CDR_ENCODE}, uint16_t{CDR_DECODE}}) {
      Decoding stream(std::string(1, c));
      Encoding out;
      CDR* cdr = direction == CDR_DECODE ? static_cast<CDR*>(stream) : out;
      cdr->narrow = static_cast<unsigned char>(set);
      char moved = direction == CDR_ENCODE ? c : 'x';
      EXPECT_EQ(OM_cdr_char(cdr, &moved), why == 0);
      EXPECT_EQ(cdr->unconvertible, why);
      EXPECT_EQ(moved, why == 0 || direction == CDR_ENCODE ? c : 'x');
    }
  }
}

TEST(CodeSets, WideTextsOfAnUnknownSetAreRefused) {
  Encoding out;
  static_cast<CDR*>(out)->wide = ZR_TEXT_UNKNOWN;
  wchar_t character = L'a';
  EXPECT_FALSE(OM_cdr_write_wstring(out, L"a") || OM_cdr_wchar(out, &character));
  EXPECT_EQ(static_cast<CDR*>(out)->unconvertible, ZR_UNKNOWN_CODE_SET);
  Outcome ev;
  SetStdExCDR(out, CORBA_COMPLETED_NO, ev);
  EXPECT_EQ(ev.name(), "CODESET_INCOMPATIBLE");
}

TEST(CodeSets, ACallUsesWhatTheServerTakes) {
  constexpr CodeSets utf_8{ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true},
      latin{ZR_TEXT_ISO_8859_1, ZR_TEXT_NATIVE, true};
  const std::string wide = " 00010109 00000000";
  const std::pair<std::string, CodeSets> rows[] = {
      {"00 000000 05010001 00000000" + wide, utf_8},
      {"00 000000 00010001 00000001 05010001" + wide, utf_8},  // many servers: no text is lost by it
      {"01 000000 01000100 00000000 09010100 00000000", latin},
      {"00 000000 10020025 00000001 00010001" + wide, latin},
      {"00 000000 10020025 00000000" + wide, utf_8},             // which every server has to take
      {"00 000000 10020025 00000009" + wide, unsaid_code_sets},  // malformed
  };
  for (const auto& [octets, expected] : rows)
    EXPECT_TRUE(code_sets_for({{7, "other"}, {component_code_sets, hex(octets)}}) == expected) << octets;
  EXPECT_TRUE(code_sets_for({}) == unsaid_code_sets);
}

TEST(CodeSets, RequestsSayThem) {
  for (const uint8_t minor : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
    for (const auto& [said, read] :
         {std::pair{CodeSets{ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true},
                    CodeSets{ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true}},
          {CodeSets{ZR_TEXT_ISO_8859_1, ZR_TEXT_NATIVE, true}, {ZR_TEXT_ISO_8859_1, ZR_TEXT_NATIVE, true}},
          {CodeSets{}, unsaid_code_sets}}) {
      Encoding out(minor);
      ASSERT_TRUE(giop::begin_request(out, minor, 7, true, "key", "op", said));
      giop::set_request_id(static_cast<CDR*>(out)->out_base, minor, said.said, 9);
      giop::set_request_key(static_cast<CDR*>(out)->out_base, minor, said.said, "yek");
      giop::RequestHead head;
      Decoding in(out.octets(), std::endian::native == std::endian::little, giop::header_size, minor);
      ASSERT_TRUE(giop::read_request(in, minor, &head));
      EXPECT_TRUE(head.id == 9 && head.key == "yek" && head.operation == std::string("op"));
      EXPECT_TRUE(head.code_sets == read);
    }
  }
  for (const char* malformed : {"", "00 000000 05010001", "02 000000 05010001 00010109"}) {
    CodeSets sets;
    EXPECT_FALSE(read_code_sets_context(hex(malformed), &sets)) << malformed;
  }
}

}  // namespace
