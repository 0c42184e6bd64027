#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <span>

#include "base/buffer.h"
#include "base/large_blocks.h"
#include "wire/cdr_chain.h"
#include "wire/code_sets.h"

namespace zrsv {
namespace {

constexpr std::size_t first_capacity = 256;

bool write_text(CDR* cdr, const char* text, std::size_t octets) {
  const std::size_t length = octets + 1;
  if (length > UINT32_MAX || !has_room(cdr, 3 + 4 + length)) return false;
  auto word = static_cast<uint32_t>(length);
  return move_value(cdr, &word) && put_octets(cdr, {text, length});
}

/// Whether a text is in this stream as the program has it.
bool as_it_is(const CDR* cdr, std::string_view text) {
  return cdr->narrow == ZR_TEXT_NATIVE || (cdr->narrow == ZR_TEXT_ISO_8859_1 && is_ascii(text));
}

bool write_string(CDR* cdr, const char* text) {
  if (!text) return false;
  const std::size_t octets = std::strlen(text);
  if (as_it_is(cdr, {text, octets})) return write_text(cdr, text, octets);
  char* converted = convert_to_wire(cdr, {text, octets});
  const bool written = converted && write_text(cdr, converted, std::strlen(converted));
  std::free(converted);
  return written;
}

void drop_output(CDR* cdr) {
  give_block(cdr->out_base, static_cast<std::size_t>(cdr->out_limit - cdr->out_base));
}

bool grow_large(CDR* cdr, std::size_t used, std::size_t wanted) {
  const LargeBlock block = take_large_block(wanted);
  if (!block.octets) return false;
  if (used != 0) std::memcpy(block.octets, cdr->out_base, used);
  drop_output(cdr);
  cdr->out_base = block.octets;
  cdr->out_next = block.octets + used;
  cdr->out_limit = block.octets + std::min<std::size_t>(block.capacity, UINT32_MAX);
  return true;
}

/// After a failure.
void return_to(CDR* cdr, const unsigned char* at) {
  cdr->in_next = at;
  pass(cdr, 0);
}

}  // namespace

bool open_encapsulation(std::string_view octets, CDR* inner) {
  if (octets.empty() || octets.size() > UINT32_MAX || static_cast<unsigned char>(octets[0]) > 1) return false;
  const bool little = octets[0] == 1;
  OM_cdr_open_decode(inner, reinterpret_cast<const unsigned char*>(octets.data()),
                     static_cast<uint32_t>(octets.size()),
                     little != (std::endian::native == std::endian::little));
  ++inner->in_next;
  return true;
}

std::size_t Writer::open() {
  u32(0);
  const auto opened = static_cast<std::size_t>(cdr_->out_next - cdr_->out_base);
  u8(std::endian::native == std::endian::little);
  return opened;
}

Writer& Writer::close(std::size_t opened) {
  if (!ok_) return *this;
  unsigned char* start = cdr_->out_base + opened;
  const auto length = static_cast<uint32_t>(cdr_->out_next - start);
  std::memcpy(start - sizeof length, &length, sizeof length);
  return *this;
}

}  // namespace zrsv

using namespace zrsv;

// A message's size is a 32-bit word, so a stream never grows past that.
unsigned char ZR_cdr_grow(CDR* cdr, size_t more) {
  const auto used = static_cast<std::size_t>(cdr->out_next - cdr->out_base);
  if (more + cdr->apart.size > UINT32_MAX - used) return 0;
  std::size_t wanted = static_cast<std::size_t>(cdr->out_limit - cdr->out_base) * 2;
  if (wanted < used + more) wanted = used + more;
  if (wanted < first_capacity) wanted = first_capacity;
  if (wanted > UINT32_MAX) wanted = UINT32_MAX;  // not below used + more, by the check above
  if (wanted > large_from)
    return grow_large(cdr, used, std::min<std::size_t>(wanted + wanted / 16, UINT32_MAX));
  auto* grown = static_cast<unsigned char*>(std::realloc(cdr->out_base, wanted));
  if (!grown) return 0;
  cdr->out_base = grown;
  cdr->out_next = grown + used;
  cdr->out_limit = grown + wanted;
  return 1;
}

void ZR_cdr_enter_part(CDR* cdr) {
  constexpr std::ptrdiff_t header = 12;
  const std::span parts(cdr->in_cuts->begin, cdr->in_cuts->count);
  const auto next = std::upper_bound(parts.begin(), parts.end(), cdr->in_next);
  cdr->in_end = next == parts.end() ? cdr->in_cuts->end : *next;
  if (next != parts.begin()) cdr->in_base = *std::prev(next) - header;
}

// A value that a part is too short for begins in the next one. But one that has begun goes on there: some
// senders cut anywhere.
const unsigned char* ZR_cdr_next_part(CDR* cdr, size_t size) {
  CDR in = *cdr;
  for (;;) {
    const auto at = static_cast<std::size_t>(in.in_next - in.in_base);
    const std::size_t pad = (size - at % size) % size;
    if (pad < static_cast<std::size_t>(in.in_end - in.in_next)) {
      if (octets_left(&in) < pad + size) return nullptr;
      const unsigned char* const found = in.in_next + pad;
      pass(&in, pad + size);
      *cdr = in;
      return found;
    }
    if (in.in_end == in.in_cuts->end) return nullptr;
    in.in_next = in.in_end;
    ZR_cdr_enter_part(&in);
  }
}

unsigned char OM_cdr_octet(CDR* cdr, unsigned char* value) { return move_value(cdr, value); }
unsigned char OM_cdr_char(CDR* cdr, char* value) {
  if (cdr->narrow == ZR_TEXT_NATIVE) return move_value(cdr, value);
  const unsigned char* const start = cdr->in_next;
  char moved = *value;
  if (cdr->direction == CDR_DECODE && !move_value(cdr, &moved)) return 0;
  if (!as_it_is(cdr, {&moved, 1})) {  // a part of a text in one of the two sets, at most
    cdr->unconvertible = cdr->narrow == ZR_TEXT_UNKNOWN ? ZR_UNKNOWN_CODE_SET : ZR_UNCONVERTIBLE;
    return_to(cdr, start);
    return 0;
  }
  if (cdr->direction == CDR_ENCODE) return move_value(cdr, &moved);
  *value = moved;
  return 1;
}
unsigned char OM_cdr_short(CDR* cdr, int16_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_unsigned_short(CDR* cdr, uint16_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_long(CDR* cdr, int32_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_unsigned_long(CDR* cdr, uint32_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_long_long(CDR* cdr, int64_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_unsigned_long_long(CDR* cdr, uint64_t* value) { return move_value(cdr, value); }
unsigned char OM_cdr_float(CDR* cdr, float* value) { return move_value(cdr, value); }
unsigned char OM_cdr_double(CDR* cdr, double* value) { return move_value(cdr, value); }

unsigned char OM_cdr_boolean(CDR* cdr, unsigned char* value) {
  unsigned char octet = *value != 0;
  if (!move_value(cdr, &octet)) return 0;
  if (cdr->direction == CDR_DECODE) *value = octet != 0;
  return 1;
}

unsigned char cdr_bytes(CDR* cdr, unsigned char* octets, uint32_t count) {
  if (cdr->direction == CDR_ENCODE) return put_octets(cdr, as_view(octets, count));
  const unsigned char* found = nullptr;
  if (!OM_cdr_bytes_view(cdr, &found, count)) return 0;
  if (count != 0) copy_octets(octets, found, count);
  return 1;
}

// Less than many_octets at a time is moved by other instructions.
void ZR_copy_octets(void* to, const void* from, size_t count) {
  constexpr std::size_t step = many_octets / 2;
  auto* at = static_cast<unsigned char*>(to);
  const auto* source = static_cast<const unsigned char*>(from);
  if (is_copied_slowly(reinterpret_cast<std::uintptr_t>(to), from))
    for (; count > step; at += step, source += step, count -= step) std::memcpy(at, source, step);
  if (count != 0) std::memcpy(at, source, count);
}

unsigned char ZR_cdr_refer(CDR* cdr, const unsigned char* octets, uint32_t count) {
  const auto used = static_cast<std::size_t>(cdr->out_next - cdr->out_base);
  const bool copies = !cdr->may_leave_apart || !cdr->leaves_apart || cdr->apart.octets ||
                      count < large_from ||
                      is_copied_slowly(used, octets);  // by the system, to where a page begins
  if (copies) return put_octets(cdr, as_view(octets, count));
  const uint32_t apart = count & ~7u;
  if (count > UINT32_MAX - used || !put_octets(cdr, as_view(octets + apart, count - apart))) return 0;
  cdr->apart = {octets, apart, static_cast<uint32_t>(used), nullptr, nullptr};
  return 1;
}

unsigned char ZR_cdr_put_together(CDR* cdr) {
  const Apart taken = Apart::take(cdr);
  if (!taken) return 1;
  const ZR_cdr_apart& apart = taken.get();
  if (!has_room(cdr, apart.size)) return 0;
  unsigned char* const to = cdr->out_base + apart.at;
  std::memmove(to + apart.size, to, static_cast<std::size_t>(cdr->out_next - to));
  copy_octets(to, apart.octets, apart.size);
  cdr->out_next += apart.size;
  return 1;
}

namespace {

/// What stands in front of octets that were handed out with their block, in the place of octets that were read.
struct Taken {
  unsigned char* block;
  std::size_t capacity;
};

/// The octets at `offset` of a block, which they take along.
unsigned char* hand_out(Buffer& block, std::size_t offset) {
  const Taken taken{block.data(), block.capacity()};
  unsigned char* const octets = block.release() + offset;
  std::memcpy(octets - sizeof taken, &taken, sizeof taken);
  return octets;
}

}  // namespace

unsigned char ZR_cdr_apart_is_of_message(const CDR* cdr) {
  const unsigned char* const at = cdr->apart.octets;
  const std::less_equal<> in_order;  // of any two addresses
  return at && !cdr->in_cuts && cdr->in_base && in_order(cdr->in_base + sizeof(Taken), at) &&
         in_order(at, cdr->in_end) && cdr->apart.size <= static_cast<std::size_t>(cdr->in_end - at);
}

void zrsv::Apart::keep(Buffer* message) {
  if (!it_.octets || it_.release) return;
  it_.owner = hand_out(*message, static_cast<std::size_t>(it_.octets - message->data()));
  it_.release = ZR_give_bytes;
}

void* ZR_cdr_take_bytes(CDR* cdr, uint32_t count, uint32_t align) {
  auto* const block = static_cast<Buffer*>(cdr->in_block);
  if (!block || cdr->in_cuts || count < large_from || count < block->capacity() / 2) return nullptr;
  const unsigned char* const at =
      cdr->in_next + ((cdr->in_base - cdr->in_next) & static_cast<std::ptrdiff_t>(align - 1));
  const auto offset = static_cast<std::size_t>(at - block->data());
  if (at > cdr->in_end || static_cast<std::size_t>(cdr->in_end - at) < count || offset < sizeof(Taken))
    return nullptr;
  cdr->in_block = nullptr;
  cdr->in_next = at + count;
  return hand_out(*block, offset);
}

void ZR_give_bytes(void* taken) {
  Taken from;
  std::memcpy(&from, static_cast<unsigned char*>(taken) - sizeof from, sizeof from);
  give_block(from.block, from.capacity);
}

unsigned char OM_cdr_bytes_view(CDR* cdr, const unsigned char** octets, uint32_t count) {
  if (cdr->direction != CDR_DECODE || OM_cdr_remaining(cdr) < count) return 0;
  *octets = cdr->in_next;
  pass(cdr, count);
  return 1;
}

namespace {

/// The next string as it travels.
bool read_string(CDR* cdr, std::string_view* text) {
  if (cdr->direction != CDR_DECODE) return false;
  const unsigned char* start = cdr->in_next;
  uint32_t length = 0;
  if (!move_value(cdr, &length)) return 0;
  const unsigned char* at = cdr->in_next;
  if (length == 0 || length > OM_cdr_remaining(cdr) || std::memchr(at, 0, length) != at + length - 1) {
    return_to(cdr, start);
    return false;
  }
  *text = as_view(at, length - 1);
  pass(cdr, length);
  return true;
}

}  // namespace

unsigned char OM_cdr_string_view(CDR* cdr, const char** text) {
  const unsigned char* start = cdr->in_next;
  std::string_view found;
  if (!read_string(cdr, &found)) return 0;
  if (!as_it_is(cdr, found)) {
    return_to(cdr, start);
    return 0;
  }
  *text = found.data();
  return 1;
}

unsigned char OM_cdr_string(CDR* cdr, char** text) {
  if (cdr->direction == CDR_ENCODE) return write_string(cdr, *text);
  const unsigned char* start = cdr->in_next;
  std::string_view found;
  if (!read_string(cdr, &found)) return 0;
  char* copy = as_it_is(cdr, found) ? ::strdup(found.data()) : convert_from_wire(cdr, found);
  if (!copy) {
    return_to(cdr, start);
    return 0;
  }
  *text = copy;
  return 1;
}

uint32_t OM_cdr_remaining(const CDR* cdr) { return static_cast<uint32_t>(octets_left(cdr)); }

void OM_cdr_open_decode(CDR* cdr, const unsigned char* octets, uint32_t length, unsigned char swap) {
  *cdr = CDR{};
  cdr->direction = CDR_DECODE;
  cdr->swap = swap;
  cdr->minor_version = 2;
  cdr->in_base = cdr->in_next = octets;
  cdr->in_end = octets + length;
}

void OM_cdr_open_encode(CDR* cdr) {
  *cdr = CDR{};
  cdr->direction = CDR_ENCODE;
  cdr->minor_version = 2;
}

void OM_cdr_close(CDR* cdr) {
  Apart::take(cdr);
  drop_output(cdr);
  cdr->out_base = cdr->out_next = cdr->out_limit = nullptr;
}

unsigned char OM_cdr_read_encapsulation(CDR* cdr, CDR* inner) {
  if (cdr->direction != CDR_DECODE) return 0;
  const unsigned char* start = cdr->in_next;
  Reader in(cdr);
  const std::string_view octets = in.octets();
  if (!in.ok() || !open_encapsulation(octets, inner)) {
    return_to(cdr, start);
    return 0;
  }
  inner->narrow = cdr->narrow;
  inner->wide = cdr->wide;
  return 1;
}

unsigned char OM_cdr_open_encapsulation(CDR* inner) {
  OM_cdr_open_encode(inner);
  unsigned char little = std::endian::native == std::endian::little;
  return OM_cdr_octet(inner, &little);
}

unsigned char OM_cdr_write_encapsulation(CDR* cdr, const CDR* inner) {
  const auto length = static_cast<std::size_t>(inner->out_next - inner->out_base);
  if (cdr->direction != CDR_ENCODE || !has_room(cdr, 3 + 4 + length)) return 0;
  return Writer(cdr).octets(as_view(inner->out_base, length)).ok();
}
