// Wide characters and strings: UTF-16 on the wire, one Unicode scalar value a wchar_t here.
//   GIOP 1.1  wchar   := one unit, in the stream's byte order
//             wstring := ulong units with the NUL, units, NUL; in the stream's byte order
//   GIOP 1.2  wchar   := octet count, units
//             wstring := ulong count of octets, units
//             big-endian, unless a byte-order mark in front, which is no part of the text, says otherwise
#include <bit>

#include "wire/cdr_chain.h"

namespace zrsv {
namespace {

constexpr std::size_t unit_size = 2;
constexpr uint32_t byte_order_mark = 0xFEFF, swapped_mark = 0xFFFE;
constexpr bool native_is_little = std::endian::native == std::endian::little;

/// The text is none, or cannot be said in this form: not a matter of octets that are missing.
bool unconvertible(CDR* cdr) {
  cdr->unconvertible = ZR_UNCONVERTIBLE;
  return false;
}

/// Whether wide texts can travel at all.
bool is_wide(CDR* cdr) {
  if (cdr->wide != ZR_TEXT_NATIVE) cdr->unconvertible = ZR_UNKNOWN_CODE_SET;
  return cdr->wide == ZR_TEXT_NATIVE && cdr->minor_version != 0;
}

uint16_t unit(const OM_wide& text, uint32_t index) {
  const unsigned char* at = text.octets + unit_size * index;
  return static_cast<uint16_t>(text.little ? at[1] << 8 | at[0] : at[0] << 8 | at[1]);
}

bool is_high(uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low(uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

/// Calls `put(scalar)` for each scalar value; false for half a pair.
template <class Put>
bool each_scalar(const OM_wide& text, Put&& put) {
  for (uint32_t i = 0; i < text.units; ++i) {
    uint32_t scalar = unit(text, i);
    if (is_low(scalar)) return false;
    if (is_high(scalar)) {
      if (++i == text.units || !is_low(unit(text, i))) return false;
      scalar = 0x10000 + ((scalar - 0xD800) << 10) + (unit(text, i) - 0xDC00U);
    }
    put(static_cast<wchar_t>(scalar));
  }
  return true;
}

/// Takes the byte-order mark off a text of version 1.2.
OM_wide without_mark(const unsigned char* octets, uint32_t count) {
  OM_wide text{octets, static_cast<uint32_t>(count / unit_size), 0};
  const uint32_t first = text.units ? unit(text, 0) : 0;
  if (first != byte_order_mark && first != swapped_mark) return text;
  return {octets + unit_size, text.units - 1, first == swapped_mark};
}

bool read_12(CDR* cdr, uint32_t count, OM_wide* text) {
  const unsigned char* octets = nullptr;
  if (count % unit_size != 0 || !OM_cdr_bytes_view(cdr, &octets, count)) return false;
  *text = without_mark(octets, count);
  return true;
}

bool read_11(CDR* cdr, uint32_t units, OM_wide* text) {
  const unsigned char* octets = nullptr;
  if (units == 0 || units > UINT32_MAX / unit_size ||
      !OM_cdr_bytes_view(cdr, &octets, static_cast<uint32_t>(units * unit_size))) {
    return false;
  }
  *text = {octets, units - 1, native_is_little != (cdr->swap != 0)};
  return unit(*text, units - 1) == 0;
}

bool has_nul(const OM_wide& text) {
  for (uint32_t i = 0; i < text.units; ++i) {
    if (unit(text, i) == 0) return true;
  }
  return false;
}

/// Appends units, whose room the caller made.
class Units {
 public:
  explicit Units(CDR* cdr) : cdr_(cdr), little_(cdr->minor_version == 1 && native_is_little) {}
  void put(uint32_t unit) {
    const auto high = static_cast<unsigned char>(unit >> 8), low = static_cast<unsigned char>(unit);
    *cdr_->out_next++ = little_ ? low : high;
    *cdr_->out_next++ = little_ ? high : low;
  }
  void put_scalar(uint32_t scalar) {
    if (scalar < 0x10000) return put(scalar);
    put(0xD800 + ((scalar - 0x10000) >> 10));
    put(0xDC00 + ((scalar - 0x10000) & 0x3FF));
  }

 private:
  CDR* cdr_;
  bool little_;
};

/// How many units a scalar value takes; 0 for what is none.
uint32_t units_of(uint32_t scalar) {
  if (is_high(scalar) || is_low(scalar) || scalar > 0x10FFFF) return 0;
  return scalar < 0x10000 ? 1 : 2;
}

/// A text of version 1.2 that starts like a byte-order mark gets a mark in front.
bool needs_mark(const CDR* cdr, uint32_t first) {
  return cdr->minor_version == 2 && (first == byte_order_mark || first == swapped_mark);
}

/// The length word, a mark when needed, and room for the units and a NUL. `first`: the first unit, 0 if none.
bool start_string(CDR* cdr, std::uint64_t units, uint32_t first) {
  const bool mark = needs_mark(cdr, first);
  units += mark;
  if (!is_wide(cdr) || units >= UINT32_MAX / unit_size) return false;
  const auto length = static_cast<uint32_t>(cdr->minor_version == 1 ? units + 1 : units * unit_size);
  if (!write_value(cdr, length) || !has_room(cdr, unit_size * (units + 1))) return false;
  if (mark) Units(cdr).put(byte_order_mark);
  return true;
}

bool write_wchar(CDR* cdr, uint32_t scalar) {
  const uint32_t units = units_of(scalar);
  if (units == 0 || (units > 1 && cdr->minor_version == 1)) return unconvertible(cdr);
  if (cdr->minor_version == 1) return write_value(cdr, static_cast<uint16_t>(scalar));
  const bool mark = needs_mark(cdr, scalar);
  const std::size_t octets = unit_size * (units + mark);
  if (!has_room(cdr, 1 + octets)) return false;
  *cdr->out_next++ = static_cast<unsigned char>(octets);
  if (mark) Units(cdr).put(byte_order_mark);
  Units(cdr).put_scalar(scalar);
  return true;
}

bool read_wchar(CDR* cdr, wchar_t* value) {
  uint16_t plain = 0;
  unsigned char count = 0;
  OM_wide text{reinterpret_cast<const unsigned char*>(&plain), 1, native_is_little};
  if (cdr->minor_version == 1 ? !read_value(cdr, &plain)
                              : !(read_value(cdr, &count) && read_12(cdr, count, &text)))
    return false;
  uint32_t scalars = 0;
  wchar_t scalar = 0;
  if (!each_scalar(text, [&](wchar_t found) { scalar = found, ++scalars; })) return unconvertible(cdr);
  if (scalars != 1) return false;
  *value = scalar;
  return true;
}

}  // namespace
}  // namespace zrsv

using namespace zrsv;

unsigned char OM_cdr_wchar(CDR* cdr, wchar_t* value) {
  if (!is_wide(cdr)) return 0;
  const unsigned char* start = cdr->in_next;
  if (cdr->direction == CDR_ENCODE) return write_wchar(cdr, static_cast<uint32_t>(*value));
  if (cdr->direction == CDR_DECODE && read_wchar(cdr, value)) return 1;
  cdr->in_next = start;
  return 0;
}

unsigned char OM_cdr_read_wide(CDR* cdr, OM_wide* text) {
  if (cdr->direction != CDR_DECODE || !is_wide(cdr)) return 0;
  const unsigned char* start = cdr->in_next;
  uint32_t count = 0;
  OM_wide found{};
  const bool read = read_value(cdr, &count) &&
                    (cdr->minor_version == 1 ? read_11(cdr, count, &found) : read_12(cdr, count, &found)) &&
                    !has_nul(found);
  if (read) {
    *text = found;
  } else {
    cdr->in_next = start;
  }
  return read;
}

unsigned char OM_cdr_write_wide(CDR* cdr, const OM_wide* text) {
  if (cdr->direction != CDR_ENCODE || !start_string(cdr, text->units, text->units != 0 ? unit(*text, 0) : 0))
    return 0;
  Units to(cdr);
  for (uint32_t i = 0; i < text->units; ++i) to.put(unit(*text, i));
  if (cdr->minor_version == 1) to.put(0);
  return 1;
}

unsigned char OM_cdr_write_wstring(CDR* cdr, const wchar_t* text) {
  if (cdr->direction != CDR_ENCODE || !text) return 0;
  std::uint64_t units = 0;
  for (const wchar_t* at = text; *at; ++at) {
    const uint32_t more = units_of(static_cast<uint32_t>(*at));
    if (more == 0) return unconvertible(cdr);
    units += more;
  }
  if (!start_string(cdr, units, static_cast<uint32_t>(*text))) return 0;
  Units to(cdr);
  for (const wchar_t* at = text; *at; ++at) to.put_scalar(static_cast<uint32_t>(*at));
  if (cdr->minor_version == 1) to.put(0);
  return 1;
}

unsigned char OM_wide_length(const OM_wide* text, uint32_t* length) {
  *length = 0;
  return each_scalar(*text, [&](wchar_t) { ++*length; });
}

void OM_wide_copy(const OM_wide* text, wchar_t* to) {
  each_scalar(*text, [&](wchar_t scalar) { *to++ = scalar; });
  *to = 0;
}
