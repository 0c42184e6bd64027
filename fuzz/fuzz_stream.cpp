// What a connection receives: octets in pieces, cut into messages, whose heads and targets are read. The
// first octet of the input says how large the pieces are.
#include <algorithm>
#include <cstdlib>

#include "connections/assembler.h"
#include "references/reference.h"
#include "wire/giop.h"

using namespace zrsv;

namespace {

constexpr uint32_t max_message = 4096;

void read_head(const giop::Header& header, Buffer& message) {
  CDR cdr{};
  giop::open_message(&cdr, header, message.data());
  giop::RequestHead request;
  giop::ReplyHead reply;
  bool read = false;
  switch (header.type) {
    case giop::Type::Request:
      read = giop::read_request(&cdr, header.minor, &request);
      break;
    case giop::Type::LocateRequest:
      read = giop::read_locate_request(&cdr, header.minor, &request);
      break;
    case giop::Type::Reply:
      read = giop::read_reply(&cdr, header.minor, &reply);
      break;
    default:
      break;
  }
  if (read && !request.key.empty()) Reference::from_key(request.key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t count) {
  if (count == 0) return 0;
  const std::size_t step = std::size_t{octets[0]} + 1;
  Assembler assembler(max_message);
  Buffer message;
  giop::Header header;
  for (std::size_t at = 1; at < count;) {
    std::size_t room = 0;
    unsigned char* to = assembler.room(&room);
    if (!to) std::abort();
    const std::size_t n = std::min({room, step, count - at});
    std::copy_n(octets + at, n, to);
    assembler.received(n);
    at += n;
    for (;;) {
      const Assembler::Result result = assembler.next(&header, &message);
      if (result == Assembler::Result::Bad) return 0;
      if (result == Assembler::Result::NeedMore) break;
      if (message.size() != giop::header_size + std::size_t{header.size}) std::abort();
      read_head(header, message);
    }
  }
  return 0;
}
