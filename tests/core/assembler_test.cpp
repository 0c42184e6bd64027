#include "assembler.h"

#include "engine_fixture.h"

namespace {

using namespace engine_test;
using zrsv::Assembler;
using zrsv::Buffer;
using zrsv::Pieces;
using Result = Assembler::Result;

/// Feeds octets in steps of that size and collects the messages; "bad: why" ends it.
std::vector<std::string> feed(Assembler& in, std::string_view octets, std::size_t step) {
  std::vector<std::string> out;
  Buffer message;
  zrsv::giop::Header header;
  while (true) {
    const Result result = in.next(&header, &message);
    if (result == Result::Bad) return out.push_back(std::string("bad: ") + in.error()), out;
    if (result == Result::Message) {
      EXPECT_EQ(header.size + 12, message.size());
      EXPECT_FALSE(header.more);
      out.emplace_back(reinterpret_cast<char*>(message.data()), message.size());
      continue;
    }
    EXPECT_FALSE(in.more());
    if (octets.empty()) return out;
    std::size_t room = 0;
    unsigned char* to = in.room(&room);
    const std::size_t n = std::min({room, step, octets.size()});
    std::memcpy(to, octets.data(), n);
    in.received(n);
    octets.remove_prefix(n);
  }
}

std::string join(const std::vector<std::string>& all) {
  std::string octets;
  for (const auto& one : all) octets += one;
  return octets;
}

TEST(AssemblerStream, CutsMessagesAtEverySplit) {
  std::vector<std::string> sent;
  for (uint32_t i = 0; i < 6; ++i) sent.push_back(request(i, std::string(i * 37, 'o').c_str(), 1, "key"));
  const std::string octets = join(sent);
  for (std::size_t step = 1; step <= octets.size(); ++step) {
    Assembler in(1 << 20);
    EXPECT_EQ(feed(in, octets, step), sent) << step;
  }
}

TEST(AssemblerStream, MemoryFollowsWhatArrives) {
  Assembler in(1u << 30);
  std::string big = request(1, "op", 1, std::string(3'000'000, 'k'));
  std::size_t fed = 0, room = 0;
  Buffer message;
  zrsv::giop::Header header;
  while (in.next(&header, &message) == Result::NeedMore) {
    unsigned char* to = in.room(&room);
    ASSERT_LE(room, std::max<std::size_t>(2 * fed, 64 << 10));
    const std::size_t n = std::min(room, big.size() - fed);
    std::memcpy(to, big.data() + fed, n);
    in.received(n);
    fed += n;
  }
  EXPECT_EQ(fed, big.size());  // nothing of a next message was asked for
  EXPECT_EQ(message.size(), big.size());
}

TEST(AssemblerFragments, PutTogetherWhatPiecesCut) {
  for (uint8_t minor = 1; minor <= 2; ++minor) {
    for (uint32_t size = 64; size < 200; size += 8) {
      const std::string one = request(0x01020304, "one", 1, std::string(300, 'a'), minor),
                        two = request(0x05060708, "two", 2, std::string(211, 'b'), minor);
      auto a = fragments(one, size), b = fragments(two, size);
      for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_LE(a[i].size(), size);
        if (i + 1 < a.size()) {
          EXPECT_EQ(a[i].size() % 8, minor == 2 ? 0u : a[i].size() % 8);
        }
        EXPECT_EQ((a[i][6] & 2) != 0, i + 1 < a.size());
      }
      std::vector<std::string> sent;
      for (std::size_t i = 0; minor == 2 && i < std::max(a.size(), b.size()); ++i) {
        if (i < a.size()) sent.push_back(a[i]);
        if (i < b.size()) sent.push_back(b[i]);
      }
      if (minor == 1) sent = {join(a), join(b)};
      for (std::size_t step : {std::size_t{1}, std::size_t{13}, std::size_t{4096}}) {
        Assembler in(1 << 20);
        auto got = feed(in, join(sent), step);
        std::sort(got.begin(), got.end());
        std::vector<std::string> wanted{one, two};
        std::sort(wanted.begin(), wanted.end());
        EXPECT_EQ(got, wanted) << "1." << int{minor} << " size " << size;
      }
    }
  }
  // 1.0 has no fragments, and what fits is left alone.
  EXPECT_EQ(fragments(request(1, "op", 1, std::string(300, 'a'), 0), 64).size(), 1u);
  EXPECT_EQ(fragments(request(1, "op", 1, std::string(300, 'a'), 2), 0).size(), 1u);
}

TEST(AssemblerFragments, RefuseWhatDoesNotFitTogether) {
  const auto f11 = fragments(request(1, "op", 1, std::string(200, 'k'), 1), 64);
  const auto f12 = fragments(request(1, "op", 1, std::string(200, 'k'), 2), 64);
  const std::string whole = request(9, "op", 1, "k", 1),
                    cancel = short_request(zrsv::giop::Type::CancelRequest, 9, "", 1);
  std::string big_endian = f12[1];
  big_endian[6] = 2;
  for (std::size_t word : {8u, 12u})
    std::reverse(big_endian.begin() + static_cast<long>(word),
                 big_endian.begin() + static_cast<long>(word) + 4);
  std::string many, fat;
  for (uint32_t id = 0; id <= Assembler::max_unfinished; ++id)
    many += fragments(request(id, "op", 1, std::string(200, 'k'), 2), 64)[0];
  for (uint32_t id = 0; id < 20; ++id)
    fat += fragments(request(id, "op", 1, std::string(900, 'k'), 2), 512)[0];
  const struct {
    std::string octets;
    std::vector<std::string> wanted;
  } rows[] = {{f11[0] + cancel, {cancel}},
              {f11[0] + whole, {"bad: message between the fragments of another"}},
              {f11[0] + f11[0], {"bad: fragmented message begun twice"}},
              {f12[0] + f12[0], {"bad: fragmented message begun twice"}},
              {f12[1], {"bad: fragment of no message"}},
              {f12[0] + f11[1], {"bad: fragment of no message"}},
              {f12[0] + big_endian, {"bad: byte order changes between fragments"}},
              {f12[0] + hex("47494F50 01020107 03000000 010000"), {"bad: length"}},
              {hex("47494F50 01020300 03000000 010000"), {"bad: length"}},
              {hex("47494F50 01010303 04000000 01000000"), {"bad: fragments of a message that has none"}},
              {many, {"bad: too many unfinished messages"}},
              {fat, {"bad: length"}}};
  for (const auto& row : rows) {
    Assembler in(4096);
    EXPECT_EQ(feed(in, row.octets, 4096), row.wanted);
  }
  Assembler in(4096);
  EXPECT_TRUE(feed(in, f12[0], 4096).empty());
  in.cancel(1);
  EXPECT_EQ(feed(in, join(f12), 4096).size(), 1u);  // the id is free again
}

}  // namespace
