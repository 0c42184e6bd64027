// One CDR value of 1, 2, 4 or 8 octets, inline: for C++ code that moves many. The primitives of the C interface
// are made of the same.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "zrsv/cdr.h"

namespace zrsv {

/// Octets up to the next multiple of N, a power of two.
template <std::size_t N>
constexpr std::size_t padding(std::ptrdiff_t at) {
  return (std::size_t{0} - static_cast<std::size_t>(at)) & (N - 1);
}

/// Room for that many octets at the encoding end, made if need be; false when memory is short.
inline bool has_room(CDR* cdr, std::size_t more) {
  return more <= static_cast<std::size_t>(cdr->out_limit - cdr->out_next) || ZR_cdr_grow(cdr, more);
}

/// Where N aligned octets are to be written; null when memory is short.
template <std::size_t N>
unsigned char* claim(CDR* cdr) {
  const std::size_t pad = padding<N>(cdr->out_next - cdr->out_base);
  if (!has_room(cdr, pad + N)) return nullptr;
  unsigned char* at = cdr->out_next;
  for (std::size_t i = 0; i < pad; ++i) *at++ = 0;
  cdr->out_next = at + N;
  return at;
}

/// Where N aligned octets are to be read; null when the window ends before.
template <std::size_t N>
const unsigned char* take(CDR* cdr) {
  const std::size_t pad = padding<N>(cdr->in_next - cdr->in_base);
  if (static_cast<std::size_t>(cdr->in_end - cdr->in_next) < pad + N)
    return cdr->in_cuts ? ZR_cdr_next_part(cdr, N) : nullptr;
  const unsigned char* at = cdr->in_next + pad;
  cdr->in_next = at + N;
  return at;
}

/// Octets left to decode.
inline std::size_t octets_left(const CDR* cdr) {
  return static_cast<std::size_t>((cdr->in_cuts ? cdr->in_cuts->end : cdr->in_end) - cdr->in_next);
}

/// Passes over octets that are left.
inline void pass(CDR* cdr, std::size_t octets) {
  cdr->in_next += octets;
  if (cdr->in_cuts) ZR_cdr_enter_part(cdr);
}

/// The same octets in the other order.
inline uint8_t reversed(uint8_t v) { return v; }
inline uint16_t reversed(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t reversed(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t reversed(uint64_t v) { return __builtin_bswap64(v); }

/// The unsigned number of N octets.
template <std::size_t N>
using Bits =
    std::conditional_t<N == 1, uint8_t,
                       std::conditional_t<N == 2, uint16_t, std::conditional_t<N == 4, uint32_t, uint64_t>>>;

/// Decodes one; false, and nothing moved, when the window ends before.
template <class T>
bool read_value(CDR* cdr, T* value) {
  const unsigned char* at = take<sizeof(T)>(cdr);
  if (!at) return false;
  Bits<sizeof(T)> bits;
  std::memcpy(&bits, at, sizeof bits);
  *value = std::bit_cast<T>(cdr->swap ? reversed(bits) : bits);
  return true;
}

/// Encodes one; false, and nothing moved, when memory is short.
template <class T>
bool write_value(CDR* cdr, T value) {
  unsigned char* at = claim<sizeof(T)>(cdr);
  if (!at) return false;
  std::memcpy(at, &value, sizeof value);
  return true;
}

/// Either, by the stream's direction.
template <class T>
bool move_value(CDR* cdr, T* value) {
  if (cdr->direction == CDR_DECODE) return read_value(cdr, value);
  return cdr->direction == CDR_ENCODE && write_value(cdr, *value);
}

/// A long double on its way, its two halves in this machine's order: 16 octets, aligned to 8.
struct LongDoubleOctets {
  uint64_t high = 0;  // sign, 15 bits of exponent, the upper 48 of 112 bits of fraction
  uint64_t low = 0;
};

/// As read_value and write_value; what it is in this machine's form is OM_cdr_long_double's affair.
inline bool read_long_double(CDR* cdr, LongDoubleOctets* value) {
  const unsigned char* at = take<sizeof(uint64_t)>(cdr);
  if (!at || static_cast<std::size_t>(cdr->in_end - cdr->in_next) < sizeof(uint64_t)) return false;
  uint64_t halves[2];
  std::memcpy(halves, at, sizeof halves);
  cdr->in_next += sizeof(uint64_t);
  const bool little = (std::endian::native == std::endian::little) != (cdr->swap != 0);
  for (uint64_t& half : halves) half = cdr->swap ? reversed(half) : half;
  *value = little ? LongDoubleOctets{halves[1], halves[0]} : LongDoubleOctets{halves[0], halves[1]};
  return true;
}

inline bool write_long_double(CDR* cdr, const LongDoubleOctets& value) {
  constexpr bool little = std::endian::native == std::endian::little;
  return has_room(cdr, 3 * sizeof(uint64_t)) && write_value(cdr, little ? value.low : value.high) &&
         write_value(cdr, little ? value.high : value.low);
}

}  // namespace zrsv
