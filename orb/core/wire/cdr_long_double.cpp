// A long double on the wire is an IEEE number of 128 bits: sign, 15 bits of exponent, 112 of fraction. The x87's 80
// bits have the same sign and exponent, and 63 bits of fraction below a leading one that is written out.
#include <cfloat>

#include "wire/cdr_chain.h"

namespace zrsv {
namespace {

constexpr bool is_x87 = LDBL_MANT_DIG == 64, is_quad = LDBL_MANT_DIG == 113;
static_assert(is_x87 || is_quad, "the machine's long double has another form");

constexpr uint64_t leading_one = uint64_t{1} << 63;
constexpr unsigned dropped_bits = 112 - 63;
constexpr uint64_t low_48_bits = (uint64_t{1} << 48) - 1;
constexpr uint64_t special_exponent = 0x7FFF;

/// Exact.
LongDoubleOctets from_x87(uint64_t mantissa, uint64_t sign_and_exponent) {
  const uint64_t fraction = mantissa & ~leading_one;
  if ((sign_and_exponent & special_exponent) == 0 && mantissa != fraction)
    ++sign_and_exponent;  // a normal number
  return {sign_and_exponent << 48 | fraction >> 15, fraction << dropped_bits};
}

struct X87 {
  uint64_t mantissa;
  uint64_t sign_and_exponent;
};

/// The nearest one, to even where there are two; a NaN stays one.
X87 to_x87(const LongDoubleOctets& quad) {
  uint64_t top = quad.high >> 48;
  uint64_t fraction = (quad.high & low_48_bits) << 15 | quad.low >> dropped_bits;
  const uint64_t rest = quad.low & ((uint64_t{1} << dropped_bits) - 1),
                 half = uint64_t{1} << (dropped_bits - 1);
  const uint64_t exponent = top & special_exponent;
  if (exponent == special_exponent) return {leading_one | fraction | (rest != 0 ? leading_one >> 1 : 0), top};
  if (rest > half || (rest == half && fraction % 2 != 0)) ++fraction;
  if (exponent == 0) return {fraction, top + (fraction >> 63)};
  if (fraction == leading_one) return {leading_one, top + 1};
  return {leading_one | fraction, top};
}

LongDoubleOctets octets_of(long double value) {
  unsigned char storage[sizeof value]{};
  std::memcpy(storage, &value, sizeof value);
  uint64_t words[2]{};
  std::memcpy(words, storage, sizeof words);
  if constexpr (is_x87) return from_x87(words[0], words[1] & 0xFFFF);
  return std::endian::native == std::endian::little ? LongDoubleOctets{words[1], words[0]}
                                                    : LongDoubleOctets{words[0], words[1]};
}

long double long_double_of(const LongDoubleOctets& octets) {
  uint64_t words[2]{octets.high, octets.low};
  if constexpr (is_x87) {
    const X87 number = to_x87(octets);
    words[0] = number.mantissa, words[1] = number.sign_and_exponent;
  } else if constexpr (std::endian::native == std::endian::little) {
    std::swap(words[0], words[1]);
  }
  long double value = 0;
  std::memcpy(&value, words, sizeof value);
  return value;
}

}  // namespace
}  // namespace zrsv

using namespace zrsv;

unsigned char OM_cdr_long_double(CDR* cdr, long double* value) {
  if (cdr->direction == CDR_ENCODE) return write_long_double(cdr, octets_of(*value));
  LongDoubleOctets octets;
  if (cdr->direction != CDR_DECODE || !read_long_double(cdr, &octets)) return 0;
  *value = long_double_of(octets);
  return 1;
}
