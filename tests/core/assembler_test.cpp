#include <numeric>

#include "engine_fixture.h"

namespace {

using namespace engine_test;
using zrsv::Assembler;
using Result = Assembler::Result;

/// Feeds octets in steps of that size and collects the messages; "bad: why" ends it. Memory for more than
/// arrived is never asked for.
Texts feed(Assembler& in, std::string_view octets, std::size_t step = 4096) {
  Texts out;
  zrsv::Buffer message;
  zrsv::giop::Header header;
  for (std::size_t fed = 0;;) {
    const Result result = in.next(&header, &message);
    if (result == Result::Bad) return out.push_back(std::string("bad: ") + in.error()), out;
    if (result == Result::Message) {
      EXPECT_EQ(header.size + 12, message.size());
      EXPECT_FALSE(header.more);
      out.emplace_back(reinterpret_cast<char*>(message.data()), message.size());
      continue;
    }
    EXPECT_FALSE(in.more());
    if (fed == octets.size()) return out;
    std::size_t room = 0;
    unsigned char* to = in.room(&room);
    EXPECT_LE(room, std::max<std::size_t>(2 * fed, 64 << 10));
    const std::size_t n = std::min({room, step, octets.size() - fed});
    std::memcpy(to, octets.data() + fed, n);
    in.received(n);
    fed += n;
  }
}

std::string join(const Texts& all) { return std::accumulate(all.begin(), all.end(), std::string()); }

TEST(Assembler, MemoryFollowsWhatArrives) {
  Assembler in(1u << 30);
  const std::string big = request(1, "op", 1, std::string(3'000'000, 'k'));
  for (int i = 0; i < 2; ++i) zrsv::drop_unused_blocks();  // that making it left
  EXPECT_EQ(feed(in, big, big.size()), Texts{big});

  // The next one goes where that one stood, once its header tells its length.
  in.reset();
  zrsv::Buffer message;
  zrsv::giop::Header header;
  std::size_t room = 0;
  std::memcpy(in.room(&room), big.data(), 12);
  in.received(12);
  EXPECT_EQ(in.next(&header, &message), Result::NeedMore);
  in.room(&room);
  EXPECT_EQ(room, big.size() - 12);
  for (int i = 0; i < 2; ++i) zrsv::drop_unused_blocks();
  Assembler after(1u << 30);
  EXPECT_EQ(feed(after, big, big.size()), Texts{big});
}

TEST(Assembler, CutsAndJoinsMessagesHoweverTheyCome) {
  for (uint8_t minor = 1; minor <= 2; ++minor) {
    for (uint32_t size = 64; size < 200; size += 8) {
      const Texts whole{request(0x01020304, "one", 1, std::string(211, 'a'), minor),
                        request(0x05060708, "two", 2, std::string(300, 'b'), minor),
                        request(9, "", 3, "key", minor)};
      const Texts a = fragments(whole[0], size), b = fragments(whole[1], size);
      std::string sent;
      for (std::size_t i = 0; i < b.size(); ++i) {
        const bool last = i + 1 == b.size();
        EXPECT_LE(b[i].size(), size);
        EXPECT_EQ((b[i][6] & 2) != 0, !last);
        EXPECT_TRUE(minor == 1 || last || b[i].size() % 8 == 0);
        if (minor == 2) sent += (i < a.size() ? a[i] : "") + b[i];
      }
      sent += (minor == 1 ? join(a) + join(b) : "") + whole[2];
      for (std::size_t step = 1; step <= sent.size(); step += 1 + step / 4) {
        Assembler in(1 << 20);
        EXPECT_EQ(feed(in, sent, step), whole) << "1." << int{minor} << " size " << size;
      }
    }
  }
  for (uint8_t minor = 0; minor <= 1; ++minor) {  // 1.0 has none, and 1.1 none that every reader reads alike
    std::string octets = request(1, "op", 1, std::string(300, 'a'), minor);
    EXPECT_EQ(
        zrsv::Fragments(reinterpret_cast<unsigned char*>(octets.data()), octets.size(), 64).parts().size(),
        1u);
  }
}

// Octets of a 1.1 request after its head, in parts; each part but the first is a fragment. What is read of them:
// an octet, a long, a short, a string and a long again.
TEST(Assembler, AlignmentInA11FragmentCountsFromItsOwnHeader) {
  const auto part = [](Type type, const std::function<void(zrsv::Writer&)>& body, bool more) {
    std::string octets = message(type, body, 1);
    octets[6] = static_cast<char>(octets[6] | (more ? 2 : 0));
    return octets;
  };
  const std::string head = [] {
    Encoding out(1);
    EXPECT_TRUE(zrsv::giop::begin_request(out, 1, 7, true, "key", "op"));
    return out.octets().substr(12);
  }();
  const auto native = [](auto value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
  };
  const std::string text = native(uint32_t{6}) + std::string("hello", 6);
  const auto in_parts = [&](std::initializer_list<std::string> parts) {
    std::string sent;
    for (const std::string& body : parts)
      sent += part(
          sent.empty() ? Type::Request : Type::Fragment,
          [&](zrsv::Writer& out) { out.raw(sent.empty() ? head + body : body); }, &body != parts.end() - 1);
    return sent;
  };
  const std::string number = native(int32_t{-99}), pair = native(uint16_t{515}), pad(2, '\0');
  for (const std::string& sent :
       {in_parts({"x", number + pair + pad + text, number}),           // each number at its fragment's start
        in_parts({"x", "", number, pair + pad + text + pad, number}),  // padding before a cut
        in_parts(
            {"x", number + pair + pad + text.substr(0, 7), text.substr(7) + std::string(1, '\0') + number}),
        in_parts({"x" + std::string(3, '\0') + number.substr(0, 2), number.substr(2), pair, text, number})}) {
    Assembler in(4096);
    zrsv::giop::Header header;
    zrsv::ServerRequest request;
    std::size_t room = 0;
    std::memcpy(in.room(&room), sent.data(), sent.size());
    in.received(sent.size());
    ASSERT_EQ(in.next(&header, &request.message), Result::Message);
    ASSERT_TRUE(request.read_head(header));
    zrsv::ServerRequest kept(std::move(request));  // as one that waits
    zrsv::Reader out(&kept.cdr);
    EXPECT_EQ(out.u8(), 'x');
    EXPECT_EQ(static_cast<int32_t>(out.u32()), -99);
    EXPECT_EQ(out.u16(), 515);
    EXPECT_EQ(out.text(), "hello");
    EXPECT_EQ(static_cast<int32_t>(out.u32()), -99);
    EXPECT_TRUE(out.ok() && out.at_end());
  }
}

TEST(Assembler, TheNextConnectionStartsAnew) {
  const std::string whole = request(1, "op", 1, std::string(200, 'k'));
  const Texts parts = fragments(whole, 64);
  Assembler in(4096);
  EXPECT_TRUE(feed(in, parts[0] + parts[1].substr(0, 20)).empty());
  in.reset();
  EXPECT_EQ(feed(in, join(parts)), Texts{whole});
}

TEST(Assembler, CancelEndsTheFragmentedRequestOfThatIdOnly) {
  for (uint8_t minor = 1; minor <= 2; ++minor) {
    const std::string whole = request(1, "op", 1, std::string(200, 'k'), minor),
                      next = request(3, "op", 1, "k", minor);
    const Texts parts = fragments(whole, 64);
    const std::string rest = join(Texts(parts.begin() + 1, parts.end()));
    for (uint32_t id : {1u, 2u}) {
      Assembler in(4096);
      EXPECT_TRUE(feed(in, parts[0]).empty());
      in.cancel(id);
      const bool gone = id == 1;
      const bool passed_over = minor == 1;  // what is still to come carries no id
      EXPECT_EQ(feed(in, (gone && !passed_over ? "" : rest) + next),
                gone ? Texts{next} : (Texts{whole, next}));
      EXPECT_EQ(in.incomplete(), 0u);
    }
  }
}

TEST(Assembler, RefusesWhatDoesNotFitTogether) {
  const std::string key(200, 'k'), cancel_1_1 = cancel(9, 1);
  const auto f11 = fragments(request(1, "op", 1, key, 1), 64), f12 = fragments(request(1, "op", 1, key), 64);
  std::string many, fat, other_order = f12[1];
  other_order[6] ^= 1;
  for (long word : {8, 12}) std::reverse(other_order.begin() + word, other_order.begin() + word + 4);
  for (uint32_t id = 0; id <= Assembler::max_unfinished; ++id)
    many += fragments(request(id, "op", 1, key), 64)[0];
  for (uint32_t id = 0; id < 20; ++id) fat += fragments(request(id, "op", 1, std::string(900, 'k')), 512)[0];
  const struct {
    std::string octets, wanted;
  } rows[] = {{f11[0] + cancel_1_1, cancel_1_1},
              {f11[0] + request(9, "op", 1, "k", 1), "bad: message between the fragments of another"},
              {f11[0] + f11[0], "bad: fragmented message begun twice"},
              {f12[0] + f12[0], "bad: fragmented message begun twice"},
              {f12[1], "bad: fragment of no message"},
              {f12[0] + f11[1], "bad: fragment of no message"},
              {f12[0] + other_order, "bad: byte order changes between fragments"},
              {f12[0] + hex("47494F50 01020107 03000000 010000"), "bad: length"},
              {hex("47494F50 01020300 03000000 010000"), "bad: length"},
              {hex("47494F50 01010303 04000000 01000000"), "bad: fragments of a message that has none"},
              {many, "bad: too many unfinished messages"},
              {fat, "bad: length"}};
  for (const auto& row : rows) {
    Assembler in(4096);
    EXPECT_EQ(feed(in, row.octets), Texts{row.wanted});
  }
}

}  // namespace
