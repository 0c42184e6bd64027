#include "giop.h"

#include <gtest/gtest.h>

#include "octets.h"

namespace {

using namespace zrsv::giop;

// A request by reference, with all that an address can have.
const std::string by_reference =
    hex("47494f50 01020100 54000000 0b000000 01000000"  // header: size 84; id 11, response expected
        "02000000 01000000 02000000 54000000"           // address kind 2, profile 1 selected; type id "T"
        "02000000 63000000 01000000 ee000000"           // two profiles: an unknown one, padding
        "00000000 18000000 01010200 02000000"           // one of IIOP, 24 octets: little-endian, 1.2,
        "68005000 02000000 6b650000 00000000"           // host "h", port 80, key "ke"; no components
        "03000000 6f700000 00000000");                  // operation "op", padding; no contexts

TEST(Giop, RequestHeadsAreReadAndEveryCutRefused) {
  const struct {
    const char* what;
    uint8_t minor;
    bool little, response_expected;
    uint32_t id;
    const char *key, *operation;
    uint32_t body;  // octets of it
    std::string octets;
  } rows[] = {{"1.0, little-endian", 0, true, true, 7, "k", "op", 4,
               hex("47494f50 01000100 30000000"              // header: size 48
                   "01000000 2a000000 03000000 aabbcc00"     // one context, of 3 octets, padding
                   "07000000 01000000 01000000 6b000000"     // id 7, response expected, padding; key "k"
                   "03000000 6f700000 00000000 11223344")},  // operation "op"; no principal; body
              {"1.1, big-endian, oneway", 1, false, false, 8, "k", "op", 0,
               hex("47494f50 01010000 00000021 00000000"  // header: size 33; no contexts
                   "00000008 00000000 00000001 6b000000"  // id 8, no response, reserved; key "k"
                   "00000003 6f700000 00000001 ff")},     // operation "op"; a principal of one octet
              {"1.2 by key", 2, true, true, 9, "k", "op", 0,
               hex("47494f50 01020100 20000000 09000000"  // header: size 32; id 9
                   "03000000 00000000 01000000 6b000000"  // response expected; kind 0, key "k"
                   "03000000 6f700000 00000000")},        // operation "op"; no contexts
              {"1.2 by reference", 2, true, true, 11, "ke", "op", 0, by_reference},
              {"locate by profile", 2, true, true, 3, "ke", "", 0,
               hex("47494f50 01020103 28000000 03000000"               // header: size 40; id 3
                   "01000000 00000000 18000000 01010200"               // kind 1; a profile of IIOP, 24 octets
                   "02000000 68005000 02000000 6b650000 00000000")}};  // as above
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Header header;
    const auto* start = reinterpret_cast<const unsigned char*>(row.octets.data());
    ASSERT_EQ(read_header(start, 1000, &header), nullptr);
    EXPECT_TRUE(header.minor == row.minor && header.little == row.little);
    EXPECT_EQ(header.size, row.octets.size() - header_size);
    const auto read = header.type == Type::Request ? read_request : read_locate_request;
    RequestHead head;
    Decoding in(row.octets, row.little, header_size);
    ASSERT_TRUE(read(in, row.minor, &head));
    EXPECT_EQ(head.id, row.id);
    EXPECT_EQ(head.response_expected, row.response_expected);
    EXPECT_EQ(head.key, row.key);
    EXPECT_STREQ(head.operation, row.operation);
    EXPECT_EQ(in.left(), row.body);
    for (std::size_t n = header_size; n < row.octets.size() - row.body; ++n) {
      Decoding cut(std::string_view(row.octets).substr(0, n), row.little, header_size);
      EXPECT_FALSE(read(cut, row.minor, &head)) << "cut to " << n;
    }
  }
}

TEST(Giop, DamagedTargetsAreRefused) {
  const struct {
    const char* what;
    std::size_t at;
    char value;
  } rows[] = {{"address of an unknown kind", 20, 3},
              {"selected profile past the last", 24, 2},
              {"count of profiles beyond the message", 39, 1},
              {"length of the key beyond the profile", 75, 1},
              {"byte order of a profile neither 0 nor 1", 60, 7}};
  for (const auto& row : rows) {
    std::string octets = by_reference;
    octets[row.at] = row.value;
    Decoding in(octets, true, header_size);
    RequestHead head;
    EXPECT_FALSE(read_request(in, 2, &head)) << row.what;
  }
}

TEST(Giop, HeadersAreChecked) {
  const struct {
    const char *octets, *wrong;                           // null: taken
  } rows[] = {{"47494f50 01020107 e8030000", nullptr},    // a fragment of 1000 octets
              {"47494f50 01020007 000003e8", nullptr},    // the same, big-endian
              {"47494f51 01020100 00000000", "magic"},    // "GIOQ"
              {"47494f50 02000100 00000000", "version"},  // 2.0
              {"47494f50 01030100 00000000", "version"},  // 1.3
              {"47494f50 01020108 00000000", "type"},     // past the last
              {"47494f50 01000107 00000000", "type"},     // 1.0 has no fragments
              {"47494f50 01020100 e9030000", "length"},   // 1001 octets
              {"47494f50 01020100 ffffffff", "length"}};  // all of 32 bits
  for (const auto& row : rows) {
    Header header;
    const std::string octets = hex(row.octets);
    const auto* start = reinterpret_cast<const unsigned char*>(octets.data());
    EXPECT_STREQ(read_header(start, 1000, &header), row.wrong) << row.octets;
  }
}

}  // namespace
