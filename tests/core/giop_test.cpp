#include "wire/giop.h"

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
  const std::string by_profile =                            // a LocateRequest
      hex("47494f50 01020103 28000000 03000000"             // header: size 40; id 3
          "01000000 00000000 18000000 01010200"             // kind 1; a profile of IIOP, 24 octets
          "02000000 68005000 02000000 6b650000 00000000");  // as above
  for (const std::string& octets : {by_reference, by_profile}) {
    const bool locate = octets == by_profile;
    const auto read = locate ? read_locate_request : read_request;
    for (std::size_t n = header_size; n <= octets.size(); ++n) {
      RequestHead head;
      Decoding in(std::string_view(octets).substr(0, n), true, header_size);
      ASSERT_EQ(read(in, 2, &head), n == octets.size()) << "cut to " << n;
      EXPECT_TRUE(n < octets.size() || head.key == "ke");
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

}  // namespace
