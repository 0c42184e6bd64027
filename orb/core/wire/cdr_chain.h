// Several CDR values in a row: the first failure is remembered and the rest do nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/copying.h"
#include "zrsv.h"
#include "zrsv/cdr_value.h"

namespace zrsv {

/// A tagged profile or component as it came: the tag and its octets, an encapsulation as a rule.
struct Tagged {
  uint32_t tag = 0;
  std::string octets;
};

/// Opens a decoding stream over an encapsulation, past its byte-order octet. False when it is empty, too long
/// or that octet is not 0 or 1.
bool open_encapsulation(std::string_view octets, CDR* inner);

/// Appends raw octets, not aligned.
inline bool put_octets(CDR* cdr, std::string_view octets) {
  if (octets.empty()) return true;
  if (!has_room(cdr, octets.size())) return false;
  copy_octets(cdr->out_next, octets.data(), octets.size());
  cdr->out_next += octets.size();
  return true;
}

inline std::string_view as_view(const unsigned char* octets, std::size_t length) {
  return {reinterpret_cast<const char*>(octets), length};
}

/// Decodes; the views that it hands out point into the stream's window. After a failure values are zero and
/// views empty.
class Reader {
 public:
  explicit Reader(CDR* cdr) : cdr_(cdr) { cdr->direction = CDR_DECODE; }

  bool ok() const { return ok_; }
  void fail() { ok_ = false; }
  bool at_end() const { return left() == 0; }

  uint8_t u8() { return value<uint8_t>(); }
  uint16_t u16() { return value<uint16_t>(); }
  uint32_t u32() { return value<uint32_t>(); }
  /// A string; NUL-terminated in place.
  std::string_view text() {
    const char* found = "";
    ok_ = ok_ && OM_cdr_string_view(cdr_, &found);
    return ok_ ? std::string_view(found) : std::string_view("");
  }
  std::string_view raw(uint32_t length) {
    if (!ok_ || left() < length) return fail(), std::string_view();
    const unsigned char* found = cdr_->in_next;
    pass(cdr_, length);
    return as_view(found, length);
  }
  /// A sequence of octets.
  std::string_view octets() { return raw(u32()); }
  /// The length of a sequence whose elements take at least `least` octets each, so that a lie is found before
  /// anything is allocated.
  uint32_t count(uint32_t least) {
    const uint32_t n = u32();
    if (n > left() / least) fail();
    return ok_ ? n : 0;
  }

 private:
  template <class T>
  T value() {
    T v{};
    ok_ = ok_ && read_value(cdr_, &v);
    return v;
  }

  std::size_t left() const { return octets_left(cdr_); }

  CDR* cdr_;
  bool ok_ = true;
};

/// Encodes.
class Writer {
 public:
  explicit Writer(CDR* cdr) : cdr_(cdr) { cdr->direction = CDR_ENCODE; }

  bool ok() const { return ok_; }

  Writer& u8(uint8_t v) { return value(v); }
  Writer& u16(uint16_t v) { return value(v); }
  Writer& u32(uint32_t v) { return value(v); }
  Writer& raw(std::string_view octets) {
    ok_ = ok_ && put_octets(cdr_, octets);
    return *this;
  }
  /// A string; the text is without its NUL here.
  Writer& text(std::string_view text) { return length(text.size() + 1).raw(text).u8(0); }
  /// A sequence of octets.
  Writer& octets(std::string_view octets) { return length(octets.size()).raw(octets); }

  /// Starts an encapsulation in place; `close` with the result patches its length. It starts on a multiple of
  /// 4 of the stream, so it must hold nothing that is aligned to 8.
  std::size_t open();
  Writer& close(std::size_t opened);

 private:
  template <class T>
  Writer& value(T v) {
    ok_ = ok_ && write_value(cdr_, v);
    return *this;
  }
  Writer& length(std::size_t n) {
    ok_ = ok_ && n <= UINT32_MAX;
    return u32(static_cast<uint32_t>(n));
  }

  CDR* cdr_;
  bool ok_ = true;
};

}  // namespace zrsv
