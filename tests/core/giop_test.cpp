#include "giop.h"

#include <gtest/gtest.h>

#include "octets.h"

namespace {

using namespace zrsv;
using namespace zrsv::giop;

struct Golden {
  const char* what;
  uint8_t minor;
  bool little;
  std::string octets;
  uint32_t id;
  bool response_expected;
  const char* key;
  const char* operation;
  uint32_t body;  // octets of it
};

// little-endian, IIOP 1.2, padding; host "h", port 80; key "ke", padding; no components
const std::string profile_data = hex("01010200 020000006800 5000 020000006b650000 00000000");
// operation "op", padding; no contexts
const std::string operation = hex("03000000 6f700000 00000000");

const Golden requests[] = {
    {"1.0, little-endian", 0, true,
     hex("47494f50 01000100 30000000"             // header: size 48
         "01000000 2a000000 03000000 aabbcc00"    // one context, an unknown one of 3 octets, padding
         "07000000 01000000 010000006b000000"     // id 7, response expected, padding; key "k", padding
         "03000000 6f700000 00000000 11223344"),  // operation "op", padding; no principal; body
     7, true, "k", "op", 4},
    {"1.1, big-endian, oneway", 1, false,
     hex("47494f50 01010000 00000021 00000000 00000008"  // header: size 33; no contexts, id 8
         "00000000 00000001 6b000000"                    // no response, reserved; key "k", padding
         "00000003 6f700000 00000001 ff"),               // operation "op", padding; a principal of one octet
     8, false, "k", "op", 0},
    {"1.2 by key", 2, true,
     hex("47494f50 01020100 26000000 09000000 03000000"  // header: size 38; id 9, response expected, reserved
         "00000000 01000000 6b000000") +                 // address kind 0, padding; key "k", padding
         operation +
         hex("00000000 1122"),  // padding to 8; body
     9, true, "k", "op", 2},
    {"1.2 by profile, no body", 2, true,
     hex("47494f50 01020100 38000000 0a000000 00000000"  // header: size 56; id 10, no response, reserved
         "01000000 00000000 18000000") +  // address kind 1, padding; profile of IIOP, 24 octets
         profile_data +
         operation,
     10, false, "ke", "op", 0},
    {"1.2 by reference", 2, true,
     hex("47494f50 01020100 54000000 0b000000 01000000"  // header: size 84; id 11, response expected,
                                                         // reserved
         "02000000 01000000 02000000 54000000"           // address kind 2, profile 1 selected; type id "T"
         "02000000 63000000 01000000 ee000000"           // two profiles: an unknown one, padding
         "00000000 18000000") +                          // one of IIOP, 24 octets
         profile_data +
         operation,
     11, true, "ke", "op", 0},
};

TEST(Giop, RequestsOfEveryVersionAndAddressAreReadAndEveryCutRefused) {
  for (const Golden& g : requests) {
    SCOPED_TRACE(g.what);
    Header header;
    ASSERT_EQ(read_header(reinterpret_cast<const unsigned char*>(g.octets.data()), 1000, &header), nullptr);
    EXPECT_TRUE(header.minor == g.minor && header.little == g.little);
    EXPECT_EQ(header.size, g.octets.size() - header_size);
    Decoding in(g.octets, g.little, header_size);
    RequestHead head;
    ASSERT_TRUE(read_request(in, g.minor, &head));
    EXPECT_EQ(head.id, g.id);
    EXPECT_EQ(head.response_expected, g.response_expected);
    EXPECT_EQ(head.key, g.key);
    EXPECT_STREQ(head.operation, g.operation);
    EXPECT_EQ(in.left(), g.body);
    std::size_t head_end = g.octets.size() - g.body;
    if (g.minor == 2 && g.body != 0) head_end -= 4;  // the padding belongs to the body
    for (std::size_t n = header_size; n < head_end; ++n) {
      Decoding cut(std::string_view(g.octets).substr(0, n), g.little, header_size);
      EXPECT_FALSE(read_request(cut, g.minor, &head)) << "cut to " << n;
    }
  }
}

TEST(Giop, DamagedTargetsAreRefused) {
  struct Case {
    const char* what;
    const Golden& from;
    std::size_t at;
    char value;
  };
  const Case cases[] = {
      {"address of an unknown kind", requests[2], 20, 3},
      {"selected profile past the last", requests[4], 24, 2},
      {"count of profiles beyond the message", requests[4], 39, 1},
      {"length of the key beyond the profile", requests[3], 47, 1},
      {"byte order of a profile neither 0 nor 1", requests[3], 32, 7},
  };
  for (const Case& c : cases) {
    std::string octets = c.from.octets;
    octets[c.at] = c.value;
    Decoding in(octets, true, header_size);
    RequestHead head;
    EXPECT_FALSE(read_request(in, 2, &head)) << c.what;
  }
}

TEST(Giop, EveryCutOfALocateRequestIsRefused) {
  const std::string request =
      hex("47 49 4f 50 01 02 01 03 0f 00 00 00"             // header: size 15
          "03 00 00 00 00 00 00 00 03 00 00 00 6b 65 79");  // id 3, address kind 0, padding, key "key"
  RequestHead head;
  Decoding in(request, true, header_size);
  ASSERT_TRUE(read_locate_request(in, 2, &head));
  EXPECT_TRUE(head.id == 3 && head.key == "key");
  for (std::size_t n = header_size; n < request.size(); ++n) {
    Decoding cut(std::string_view(request).substr(0, n), true, header_size);
    EXPECT_FALSE(read_locate_request(cut, 2, &head)) << n;
  }
}

TEST(Giop, HeadersAreChecked) {
  const struct {
    const char *octets, *wrong;  // null: taken
  } cases[] = {
      {"47 49 4f 50 01 02 01 07 e8 03 00 00", nullptr},    // a fragment of 1000 octets
      {"47 49 4f 50 01 02 00 07 00 00 03 e8", nullptr},    // the same, big-endian
      {"47 49 4f 51 01 02 01 00 00 00 00 00", "magic"},    // "GIOQ"
      {"47 49 4f 50 02 00 01 00 00 00 00 00", "version"},  // 2.0
      {"47 49 4f 50 01 03 01 00 00 00 00 00", "version"},  // 1.3
      {"47 49 4f 50 01 02 01 08 00 00 00 00", "type"},     // past the last
      {"47 49 4f 50 01 00 01 07 00 00 00 00", "type"},     // 1.0 has no fragments
      {"47 49 4f 50 01 02 01 00 e9 03 00 00", "length"},   // 1001 octets
      {"47 49 4f 50 01 02 01 00 ff ff ff ff", "length"},   // all of 32 bits
  };
  for (const auto& c : cases) {
    Header header;
    const std::string octets = hex(c.octets);
    EXPECT_STREQ(read_header(reinterpret_cast<const unsigned char*>(octets.data()), 1000, &header), c.wrong)
        << c.octets;
  }
}

}  // namespace
