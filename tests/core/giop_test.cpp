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

const std::string profile_data =
    "01 01 02 00"              // byte order, IIOP 1.2, padding
    "02 00 00 00 68 00"        // host "h"
    "50 00"                    // port 80
    "02 00 00 00 6b 65 00 00"  // key "ke", padding
    "00 00 00 00";             // no components

const Golden requests[] = {
    {"1.0, little-endian", 0, true,
     hex("47 49 4f 50 01 00 01 00 30 00 00 00"  // header: size 48
         "01 00 00 00"                          // one context:
         "2a 00 00 00 03 00 00 00 aa bb cc 00"  // an unknown one of 3 octets, padding
         "07 00 00 00 01 00 00 00"              // id 7, response expected, padding
         "01 00 00 00 6b 00 00 00"              // key "k", padding
         "03 00 00 00 6f 70 00 00"              // operation "op", padding
         "00 00 00 00 11 22 33 44"),            // no principal; body
     7, true, "k", "op", 4},
    {"1.1, big-endian, oneway", 1, false,
     hex("47 49 4f 50 01 01 00 00 00 00 00 21"  // header: size 33
         "00 00 00 00 00 00 00 08"              // no contexts, id 8
         "00 00 00 00"                          // no response, reserved
         "00 00 00 01 6b 00 00 00"              // key "k", padding
         "00 00 00 03 6f 70 00 00"              // operation "op", padding
         "00 00 00 01 ff"),                     // a principal of one octet; no body
     8, false, "k", "op", 0},
    {"1.2 by key", 2, true,
     hex("47 49 4f 50 01 02 01 00 26 00 00 00"  // header: size 38
         "09 00 00 00 03 00 00 00"              // id 9, response expected, reserved
         "00 00 00 00 01 00 00 00 6b 00 00 00"  // address kind 0, padding, key "k", padding
         "03 00 00 00 6f 70 00 00"              // operation "op", padding
         "00 00 00 00"                          // no contexts
         "00 00 00 00"                          // padding to 8
         "11 22"),                              // body
     9, true, "k", "op", 2},
    {"1.2 by profile, no body", 2, true,
     hex("47 49 4f 50 01 02 01 00 38 00 00 00"    // header: size 56
         "0a 00 00 00 00 00 00 00"                // id 10, no response, reserved
         "01 00 00 00 00 00 00 00 18 00 00 00" +  // address kind 1, padding, profile of IIOP, 24 octets
         profile_data +
         "03 00 00 00 6f 70 00 00"  // operation "op", padding
         "00 00 00 00"),            // no contexts
     10, false, "ke", "op", 0},
    {"1.2 by reference", 2, true,
     hex("47 49 4f 50 01 02 01 00 54 00 00 00"  // header: size 84
         "0b 00 00 00 01 00 00 00"              // id 11, response expected, reserved
         "02 00 00 00 01 00 00 00"              // address kind 2, padding, profile 1 selected
         "02 00 00 00 54 00 00 00"              // type id "T", padding
         "02 00 00 00"                          // two profiles:
         "63 00 00 00 01 00 00 00 ee 00 00 00"  // an unknown one, padding
         "00 00 00 00 18 00 00 00" +            // one of IIOP, 24 octets
         profile_data +
         "03 00 00 00 6f 70 00 00"  // operation "op", padding
         "00 00 00 00"),            // no contexts
     11, true, "ke", "op", 0},
};

TEST(Giop, RequestsOfEveryVersionAndAddressAreRead) {
  for (const Golden& g : requests) {
    SCOPED_TRACE(g.what);
    Header header;
    ASSERT_EQ(read_header(reinterpret_cast<const unsigned char*>(g.octets.data()), 1000, &header), nullptr);
    EXPECT_EQ(header.minor, g.minor);
    EXPECT_EQ(header.little, g.little);
    EXPECT_EQ(header.size, g.octets.size() - header_size);
    Decoding in(g.octets, g.little, header_size);
    RequestHead head;
    ASSERT_TRUE(read_request(in, g.minor, &head));
    EXPECT_EQ(head.id, g.id);
    EXPECT_EQ(head.response_expected, g.response_expected);
    EXPECT_EQ(head.key, g.key);
    EXPECT_STREQ(head.operation, g.operation);
    EXPECT_EQ(in.left(), g.body);
  }
}

TEST(Giop, EveryCutOfARequestIsRefused) {
  for (const Golden& g : requests) {
    std::size_t head_end = g.octets.size() - g.body;
    if (g.minor == 2 && g.body != 0) head_end -= 4;  // the padding belongs to the body
    for (std::size_t n = header_size; n < head_end; ++n) {
      Decoding in(std::string_view(g.octets).substr(0, n), g.little, header_size);
      RequestHead head;
      EXPECT_FALSE(read_request(in, g.minor, &head)) << g.what << " cut to " << n;
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

TEST(Giop, RequestsAreWrittenAsTheyAreRead) {
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    for (bool response : {true, false}) {
      Encoding out;
      uint64_t body = 0x55;
      ASSERT_TRUE(begin_request(out, minor, 77, response, "key!!", "operation"));
      ASSERT_TRUE(align_body(out, minor));
      ASSERT_TRUE(OM_cdr_unsigned_long_long(out, &body));
      end_message(out);
      const std::string octets = out.octets();
      Header header;
      ASSERT_EQ(read_header(reinterpret_cast<const unsigned char*>(octets.data()), 1000, &header), nullptr);
      EXPECT_EQ(header.size, octets.size() - header_size);
      EXPECT_FALSE(needs_swap(header));
      Decoding in(octets, header.little, header_size);
      RequestHead head;
      ASSERT_TRUE(read_request(in, minor, &head));
      EXPECT_TRUE(head.id == 77 && head.response_expected == response && head.key == "key!!");
      EXPECT_STREQ(head.operation, "operation");
      uint64_t value = 0;
      EXPECT_TRUE(OM_cdr_unsigned_long_long(in, &value) && value == body && in.left() == 0);
    }
  }
}

TEST(Giop, RepliesAreWrittenAndStatusesBounded) {
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    const uint32_t most = minor == 2 ? 5 : 3;
    for (uint32_t status = 0; status <= 6; ++status) {
      Encoding out;
      uint32_t word = 0xABCD;
      ASSERT_TRUE(begin_reply(out, minor, 5, status) && align_body(out, minor) &&
                  OM_cdr_unsigned_long(out, &word));
      Decoding in(out.octets(), std::endian::native == std::endian::little, header_size);
      ReplyHead head;
      ASSERT_EQ(read_reply(in, minor, &head), status <= most);
      uint32_t value = 0;
      EXPECT_TRUE(OM_cdr_unsigned_long(in, &value) && value == word);
      EXPECT_TRUE(head.id == 5 && head.status == status);
    }
  }
}

TEST(Giop, LocateMessages) {
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
  Encoding out;
  ASSERT_TRUE(begin_locate_reply(out, 2, 3, LocateStatus::ObjectHere));
  Decoding reply(out.octets(), std::endian::native == std::endian::little, header_size);
  ReplyHead read;
  ASSERT_TRUE(read_locate_reply(reply, 2, &read));
  EXPECT_TRUE(read.id == 3 && read.status == 1);
}

TEST(Giop, HeadersAreChecked) {
  struct Case {
    const char* octets;
    const char* wrong;  // null: taken
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    Header header;
    const std::string octets = hex(c.octets);
    EXPECT_STREQ(read_header(reinterpret_cast<const unsigned char*>(octets.data()), 1000, &header), c.wrong)
        << c.octets;
  }
  unsigned char empty[header_size];
  write_empty(empty, 1, Type::CloseConnection);
  Header header;
  ASSERT_EQ(read_header(empty, 0, &header), nullptr);
  EXPECT_TRUE(header.type == Type::CloseConnection && header.minor == 1 && header.size == 0 && !header.more);
}

}  // namespace
