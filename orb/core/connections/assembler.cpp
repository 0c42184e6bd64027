#include "connections/assembler.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/options.h"

namespace zrsv {

namespace {

using giop::header_size;
using giop::Type;

constexpr std::size_t small_read = 8 << 10;
constexpr std::size_t keep = large_from;  // memory that an idle stream may keep

bool may_be_fragmented(const giop::Header& header) {
  const bool locate = header.type == Type::LocateRequest || header.type == Type::LocateReply;
  return header.type == Type::Request || header.type == Type::Reply || (header.minor == 2 && locate);
}

}  // namespace

unsigned char* Assembler::room(std::size_t* octets) {
  if (start_ > 0) {
    stream_.consume(start_);
    start_ = 0;
  }
  if (needed_ > large_from) stream_.reserve_kept(needed_);
  const std::size_t wanted = std::max(small_read, std::min(needed_, stream_.size()));
  if (!stream_.reserve(wanted)) return nullptr;
  *octets = needed_ > small_read ? std::min(needed_, stream_.room()) : stream_.room();
  return stream_.end();
}

Assembler::Result Assembler::next(giop::Header* header, Buffer* message) {
  for (;;) {
    if (have() < header_size) return need(header_size - have());
    if (const char* error = giop::read_header(at(), max_message_, header)) return bad(error);
    const std::size_t length = header_size + std::size_t{header->size};
    if (have() < length) return need(length - have());
    Result result = Result::NeedMore;
    if (header->type == Type::Fragment) {
      result = add_fragment(header, message);
    } else if (header->more) {
      result = begin_fragmented(*header);
    } else if (may_be_fragmented(*header) && header->minor < 2 && find(1, 0)) {
      return bad("message between the fragments of another");  // 1.1 fragments carry no id
    } else {
      return cut(length, message);
    }
    if (result == Result::Bad) return result;
    skip(length);
    if (result == Result::Message) return result;
  }
}

bool Assembler::more() const {
  if (have() < header_size) return false;
  giop::Header header;
  return giop::read_header(at(), max_message_, &header) || have() >= header_size + std::size_t{header.size};
}

Assembler::Result Assembler::need(std::size_t octets) {
  needed_ = octets;
  if (have() == 0) {
    stream_.clear();
    start_ = 0;
    stream_.shrink(keep);
  }
  return Result::NeedMore;
}

Assembler::Result Assembler::bad(const char* error) {
  error_ = error;
  return Result::Bad;
}

// The larger part of the stream stays where it is; the smaller one is copied.
Assembler::Result Assembler::cut(std::size_t length, Buffer* message) {
  message->clear();
  needed_ = 0;
  const std::size_t rest = have() - length;
  if (start_ == 0 && rest <= length) {
    if (!message->append(at() + length, rest)) throw std::bad_alloc();
    std::swap(stream_, *message);
    message->clear();
    message->grow(length);
  } else {
    if (!message->append(at(), length)) throw std::bad_alloc();
    skip(length);
  }
  return Result::Message;
}

Assembler::Result Assembler::begin_fragmented(const giop::Header& header) {
  if (!may_be_fragmented(header)) return bad("fragments of a message that has none");
  if (header.minor == 2 && header.size < 4) return bad("length");
  const uint32_t id = header.minor == 2 ? giop::read_id_1_2(at(), header) : 0;
  if (find(header.minor, id)) return bad("fragmented message begun twice");
  if (unfinished_.size() == max_unfinished) return bad("too many unfinished messages");
  unfinished_.push_back({header, id, {}, {}, false});
  return append(&unfinished_.back(), at(), header_size + std::size_t{header.size});
}

Assembler::Result Assembler::add_fragment(giop::Header* header, Buffer* message) {
  const std::size_t head = header->minor == 2 ? 4 : 0;
  if (header->size < head) return bad("length");
  Unfinished* to = find(header->minor, head ? giop::read_id_1_2(at(), *header) : 0);
  if (!to) return bad("fragment of no message");
  if (to->first.little != header->little) return bad("byte order changes between fragments");
  if (header->minor == 1 && header->size > 0) {
    if (to->cuts.size() == max_cuts) return bad("too many fragments");
    to->cuts.push_back(static_cast<uint32_t>(to->octets.size()));
  }
  const Result result = append(to, at() + header_size + head, header->size - head);
  return result == Result::Bad || header->more ? result : finish(to, header, message);
}

Assembler::Result Assembler::finish(Unfinished* whole, giop::Header* header, Buffer* message) {
  if (whole->cancelled) return forget(whole), Result::NeedMore;
  *header = whole->first;
  header->more = false;
  header->size = static_cast<uint32_t>(whole->octets.size() - header_size);
  giop::write_header(whole->octets.data(), *header);
  header->cuts = !whole->cuts.empty();
  if (header->cuts && !giop::put_cuts(&whole->octets, whole->cuts)) throw std::bad_alloc();
  unfinished_octets_ -= whole->octets.size();
  *message = std::move(whole->octets);
  unfinished_.erase(unfinished_.begin() + (whole - unfinished_.data()));
  return Result::Message;
}

void Assembler::forget(Unfinished* u) {
  unfinished_octets_ -= u->octets.size();
  unfinished_.erase(unfinished_.begin() + (u - unfinished_.data()));
}

Assembler::Result Assembler::append(Unfinished* to, const unsigned char* octets, std::size_t count) {
  if (to->cancelled) return Result::NeedMore;
  if (unfinished_octets_ + count > header_size + std::size_t{max_message_}) return bad("length");
  if (!to->octets.append(octets, count)) throw std::bad_alloc();
  unfinished_octets_ += count;
  return Result::NeedMore;
}

Assembler::Unfinished* Assembler::find(uint8_t minor, uint32_t id) {
  for (Unfinished& u : unfinished_)
    if (u.first.minor == minor && u.id == id) return &u;
  return nullptr;
}

void Assembler::skip(std::size_t octets) {
  start_ += octets;
  needed_ = 0;
}

void Assembler::cancel(uint32_t id) {
  if (Unfinished* u = find(2, id)) return forget(u);
  // 1.1 has one unfinished message at a time. Its id stands behind its service contexts, and its other
  // fragments, which carry none, are still to come.
  Unfinished* u = find(1, 0);
  if (!u || u->cancelled || u->first.type != Type::Request) return;
  CDR cdr{};
  giop::Header so_far = u->first;
  so_far.size = static_cast<uint32_t>(u->octets.size() - header_size);
  giop::open_message(&cdr, so_far, u->octets.data());
  uint32_t found = 0;
  if (!giop::read_id_1_1(&cdr, &found) || found != id) return;
  unfinished_octets_ -= u->octets.size();
  u->octets = Buffer();
  u->cuts.clear();
  u->cancelled = true;
}

void Assembler::trim() {
  stream_.shrink(0);
  unfinished_.shrink_to_fit();
}

void Assembler::reset() {
  stream_.clear();
  stream_.shrink(0);
  unfinished_.clear();
  start_ = needed_ = unfinished_octets_ = 0;
  error_ = "";
}

// first fragment  = header (more) body[0 .. n)
// later fragments = header request id, body[n .. m)        each a multiple of 8 octets long but the
// last
Fragments::Fragments(unsigned char* message, std::size_t length, uint32_t limit, const ZR_cdr_apart& apart) {
  if (apart.octets) {
    const IoVectors vectors = io_vectors_of(message, length, apart);
    parts_.assign(vectors.begin(), vectors.end());
    return;
  }
  if (!must_fragment(message, length, limit)) {
    parts_.push_back({message, length});
    return;
  }
  giop::Header header;
  giop::read_header(message, UINT32_MAX, &header);
  const std::size_t head = header_size + 4;
  const std::size_t fragment = std::max<std::size_t>(limit & ~7u, 64);
  const std::size_t step = (fragment - head) & ~std::size_t{7};
  std::size_t at = std::min(fragment, length);
  heads_.resize((length - at + step - 1) / step);
  header.more = true;
  header.size = static_cast<uint32_t>(at - header_size);
  giop::write_header(message, header);
  header.type = Type::Fragment;
  parts_.push_back({message, at});
  for (auto& octets : heads_) {
    const std::size_t count = std::min(step, length - at);
    header.more = at + count < length;
    header.size = static_cast<uint32_t>(head - header_size + count);
    giop::write_header(octets.data(), header);
    std::memcpy(octets.data() + header_size, message + header_size, head - header_size);  // the request id
    parts_.push_back({octets.data(), head});
    parts_.push_back({message + at, count});
    at += count;
  }
}

bool put_together_to_cut(CDR* cdr) {
  if (!cdr->apart.octets) [[likely]]
    return true;
  const std::size_t length = static_cast<std::size_t>(cdr->out_next - cdr->out_base) + cdr->apart.size;
  const uint32_t limit = options().fragment_size;
  return limit == 0 || length <= limit || ZR_cdr_put_together(cdr);
}

std::span<iovec> rest_of(std::span<iovec> parts, std::size_t octets) {
  for (; !parts.empty(); parts = parts.subspan(1)) {
    iovec& part = parts.front();
    const std::size_t taken = std::min(octets, part.iov_len);
    part.iov_base = static_cast<unsigned char*>(part.iov_base) + taken;
    part.iov_len -= taken;
    octets -= taken;
    if (part.iov_len > 0) break;
  }
  return parts;
}

}  // namespace zrsv
