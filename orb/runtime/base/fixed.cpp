#include "corba/fixed.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <limits>
#include <string>
#include <string_view>

namespace CORBA {

namespace {

__extension__ using Number = unsigned __int128;  // 31 digits take 103 bits

constexpr ULongLong half_base = 10'000'000'000'000'000;  // 10^16
constexpr int base_digits = 16;

constexpr Number power(int exponent) {
  Number value = 1;
  while (exponent-- > 0) value *= 10;
  return value;
}

constexpr Number limit = power(Fixed::max_digits);  // the first number with too many digits

int count_digits(Number number) {
  int digits = 0;
  for (; number != 0; number /= 10) ++digits;
  return digits;
}

}  // namespace

/// The whole number and back.
struct FixedDigits {
  static Number number(const Fixed& f) { return Number{f.high_} * half_base + f.low_; }

  /// Cuts off digits behind the point until 31 are left.
  static Fixed make(Number number, int scale, bool negative) {
    for (; scale > 0 && (number >= limit || scale > Fixed::max_digits); --scale) number /= 10;
    if (number >= limit) throw DATA_CONVERSION();
    Fixed made;
    made.high_ = static_cast<ULongLong>(number / half_base);
    made.low_ = static_cast<ULongLong>(number % half_base);
    made.scale_ = static_cast<Octet>(scale);
    made.negative_ = negative && number != 0;
    return made;
  }

  static bool negative(const Fixed& f) { return f.negative_; }
};

namespace {

Number number(const Fixed& f) { return FixedDigits::number(f); }
bool negative(const Fixed& f) { return FixedDigits::negative(f); }

/// Up to 62 digits, the most significant first: what products and quotients need on the way.
using Digits = std::array<Octet, std::size_t{2} * Fixed::max_digits>;

/// As many of the digits as fit, those before the point whole.
Fixed from_digits(const Digits& digits, int scale, bool is_negative) {
  Number value = 0;
  int left = static_cast<int>(digits.size());
  for (const Octet digit : digits) {
    const bool before_point = left > scale;
    if (value >= limit / 10) {
      if (before_point) throw DATA_CONVERSION();
      break;
    }
    value = value * 10 + digit;
    --left;
  }
  return FixedDigits::make(value, scale - left, is_negative);
}

/// Lower half first; each part is below 10^16.
Digits product(Number a, Number b) {
  const ULongLong x[] = {static_cast<ULongLong>(a % half_base), static_cast<ULongLong>(a / half_base)};
  const ULongLong y[] = {static_cast<ULongLong>(b % half_base), static_cast<ULongLong>(b / half_base)};
  std::array<Number, 4> parts{Number{x[0]} * y[0], Number{x[1]} * y[0] + Number{x[0]} * y[1],
                              Number{x[1]} * y[1], 0};
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    parts[i + 1] += parts[i] / half_base;
    parts[i] %= half_base;
  }
  Digits digits{};
  for (std::size_t i = 0; i < digits.size(); ++i) {
    Number& part = parts[i / base_digits];
    digits[digits.size() - 1 - i] = static_cast<Octet>(part % 10);
    part /= 10;
  }
  return digits;
}

/// Both with the same scale. Numbers of so many digits that they cannot be made so lose those behind the point
/// that the result could not hold either.
struct Aligned {
  Number a, b;
  int scale;
  bool cut = false;  // of the smaller number

  Aligned(const Fixed& first, const Fixed& second)
      : a(number(first)), b(number(second)), scale(std::max(first.fixed_scale(), second.fixed_scale())) {
    // 31 digits and a carry, times up to 10^7 more, fit 128 bits: the rest is cut off first.
    constexpr int spare = 6;
    const int whole = std::max(count_digits(a) - first.fixed_scale(), count_digits(b) - second.fixed_scale());
    const int kept = std::max(0, std::min(scale, Fixed::max_digits + spare - std::max(whole, 0)));
    a = scaled(a, first.fixed_scale(), kept);
    b = scaled(b, second.fixed_scale(), kept);
    scale = kept;
  }

  /// The larger less the smaller: what was cut off the smaller one counts as the least there is.
  Number difference() const { return (a > b ? a - b : b - a) - (cut ? 1 : 0); }

 private:
  Number scaled(Number value, int from, int to) {
    if (to >= from) return value * power(to - from);
    cut = cut || value % power(from - to) != 0;
    return value / power(from - to);
  }
};

Number parse_digits(std::string_view text) {
  Number value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') throw DATA_CONVERSION();
    if (value >= limit) throw DATA_CONVERSION();
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return value;
}

Fixed parse(std::string_view text) {
  const bool is_negative = text.starts_with('-');
  if (is_negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.ends_with('d') || text.ends_with('D')) text.remove_suffix(1);
  const std::size_t point = text.find('.');
  const std::string_view before = text.substr(0, point);
  std::string_view behind = point == text.npos ? std::string_view() : text.substr(point + 1);
  if (before.empty() && behind.empty()) throw DATA_CONVERSION();
  if (behind.find_first_not_of("0123456789") != behind.npos) throw DATA_CONVERSION();
  behind = behind.substr(0, Fixed::max_digits);
  const Number whole = parse_digits(before);
  if (whole >= limit) throw DATA_CONVERSION();
  const int whole_digits = count_digits(whole);
  behind = behind.substr(0, static_cast<std::size_t>(Fixed::max_digits - whole_digits));
  const int scale = static_cast<int>(behind.size());
  return FixedDigits::make(whole * power(scale) + parse_digits(behind), scale, is_negative);
}

Fixed without_end_zeros(const Fixed& value) {
  Number digits = number(value);
  int scale = value.fixed_scale();
  for (; scale > 0 && digits % 10 == 0; --scale) digits /= 10;
  return FixedDigits::make(digits, scale, negative(value));
}

}  // namespace

void Fixed::set(ULongLong magnitude) {
  high_ = magnitude / half_base;
  low_ = magnitude % half_base;
}

Fixed::Fixed(LongDouble value) {
  if (!std::isfinite(value)) throw DATA_CONVERSION();
  LongDouble whole = 0;
  LongDouble behind = std::fabs(std::modf(value, &whole));
  whole = std::fabs(whole);
  if (whole >= static_cast<LongDouble>(limit)) throw DATA_CONVERSION();
  // A binary fraction times ten does not fit a binary fraction of the same size, but an integer.
  auto digits = static_cast<Number>(whole);
  if (digits >= limit) throw DATA_CONVERSION();
  const int room = max_digits - count_digits(digits);
  constexpr int bits = 120;
  auto rest = static_cast<Number>(std::ldexp(behind, bits));
  int scale = 0;
  for (; scale < room && rest != 0; ++scale) {
    rest *= 10;
    digits = digits * 10 + static_cast<unsigned>(rest >> bits);
    rest &= (Number{1} << bits) - 1;
  }
  *this = without_end_zeros(FixedDigits::make(digits, scale, value < 0));
}

Fixed::Fixed(const char* text) {
  if (!text) throw DATA_CONVERSION();
  *this = parse(text);
}

Fixed::operator LongLong() const {
  const Number whole = number(*this) / power(scale_);
  const Number most = static_cast<Number>(std::numeric_limits<LongLong>::max()) + (negative_ ? 1 : 0);
  if (whole > most) throw DATA_CONVERSION();
  const auto plain = static_cast<ULongLong>(whole);
  return static_cast<LongLong>(negative_ ? ULongLong{0} - plain : plain);
}

Fixed::operator LongDouble() const {
  const String_var text(to_string());
  return std::strtold(text.in(), nullptr);
}

char* Fixed::to_string() const {
  std::string text;
  Number rest = number(*this);
  for (int i = 0; rest != 0 || i <= scale_; ++i) {
    if (i == scale_ && i != 0) text += '.';
    text += static_cast<char>('0' + static_cast<int>(rest % 10));
    rest /= 10;
  }
  if (negative_) text += '-';
  std::ranges::reverse(text);
  return string_dup(text.c_str());
}

std::ostream& operator<<(std::ostream& to, const Fixed& value) {
  return to << String_var(value.to_string()).in();
}

std::istream& read_fixed(std::istream& from, void* value, void (*assign)(void*, const Fixed&)) {
  std::string word;
  if (from >> word) try {
      assign(value, Fixed(word.c_str()));
    } catch (const DATA_CONVERSION&) {
      from.setstate(std::ios::failbit);
    }
  return from;
}

Fixed Fixed::round(UShort scale) const {
  if (scale >= scale_) return *this;
  const Number unit = power(scale_ - scale);
  return FixedDigits::make((number(*this) + unit / 2) / unit, scale, negative_);
}

Fixed Fixed::truncate(UShort scale) const {
  if (scale >= scale_) return *this;
  return FixedDigits::make(number(*this) / power(scale_ - scale), scale, negative_);
}

Fixed Fixed::operator++(int) {
  const Fixed before = *this;
  ++*this;
  return before;
}

Fixed Fixed::operator--(int) {
  const Fixed before = *this;
  --*this;
  return before;
}

Fixed Fixed::operator-() const { return FixedDigits::make(number(*this), scale_, !negative_); }

UShort Fixed::fixed_digits() const {
  return static_cast<UShort>(std::max({count_digits(number(*this)), int{scale_}, 1}));
}

UShort Fixed::whole_digits() const {
  return static_cast<UShort>(count_digits(number(*this) / power(scale_)));
}

Fixed Fixed::sum(const Fixed& o, bool o_negative) const {
  const Aligned both(*this, o);
  if (negative_ == o_negative) return FixedDigits::make(both.a + both.b, both.scale, negative_);
  return FixedDigits::make(both.difference(), both.scale, both.a >= both.b ? negative_ : o_negative);
}

Fixed Fixed::times(const Fixed& o) const {
  return from_digits(product(number(*this), number(o)), scale_ + o.scale_, negative_ != o.negative_);
}

Fixed Fixed::over(const Fixed& o) const {
  const Number divisor = number(o);
  if (divisor == 0) throw DATA_CONVERSION();
  // This one's digits, then 31 zeros, divided one by one: the rest stays below ten times the divisor.
  Digits quotient{};
  Number dividend = number(*this), rest = 0;
  for (std::size_t i = 0; i < quotient.size(); ++i) {
    const Number place = i < max_digits ? power(static_cast<int>(max_digits - 1 - i)) : 0;
    rest = rest * 10 + (place != 0 ? dividend / place : 0);
    if (place != 0) dividend %= place;
    quotient[i] = static_cast<Octet>(rest / divisor);
    rest %= divisor;
  }
  return without_end_zeros(from_digits(quotient, max_digits + scale_ - o.scale_, negative_ != o.negative_));
}

std::strong_ordering Fixed::compare(const Fixed& o) const {
  if (negative_ != o.negative_) return negative_ ? std::strong_ordering::less : std::strong_ordering::greater;
  const auto larger = [](const Fixed& a, const Fixed& b) {
    const Number units_a = power(a.scale_), units_b = power(b.scale_);
    const auto whole = number(a) / units_a <=> number(b) / units_b;
    if (std::is_neq(whole)) return whole;
    const int scale = std::max(a.scale_, b.scale_);
    return number(a) % units_a * power(scale - a.scale_) <=> number(b) % units_b * power(scale - b.scale_);
  };
  return negative_ ? larger(o, *this) : larger(*this, o);
}

// ---- Packed decimal ------------------------------------------------------------------------------

namespace {

constexpr unsigned plus = 0xC, minus = 0xD;

bool write_packed(CDR* cdr, const Fixed& value, UShort digits, Short scale) {
  const Fixed cut = value.truncate(static_cast<UShort>(scale));
  if (cut.whole_digits() > digits - scale) return cdr->unconvertible = 1, false;
  Number rest = number(cut) * power(scale - cut.fixed_scale());
  std::array<Octet, Fixed::max_digits / 2 + 1> octets{};
  const std::size_t size = std::min<std::size_t>(digits / 2U + 1U, octets.size());
  octets[size - 1] =
      static_cast<Octet>(static_cast<unsigned>(rest % 10) << 4 | (negative(cut) ? minus : plus));
  rest /= 10;
  for (std::size_t i = size - 1; i-- > 0; rest /= 100) {
    const auto two = static_cast<unsigned>(rest % 100);
    octets[i] = static_cast<Octet>(two / 10 << 4 | two % 10);
  }
  return cdr_bytes(cdr, octets.data(), static_cast<ULong>(size));
}

bool read_packed(CDR* cdr, Fixed& value, UShort digits, Short scale) {
  const Octet* octets = nullptr;
  const ULong size = digits / 2U + 1U;
  if (!OM_cdr_bytes_view(cdr, &octets, size)) return false;
  Number found = 0;
  for (ULong half = 0; half + 1 < 2 * size; ++half) {
    const unsigned digit = half % 2 == 0 ? octets[half / 2] >> 4 : octets[half / 2] & 0xFU;
    if (digit > 9 || (digits % 2 == 0 && half == 0 && digit != 0)) return cdr->unconvertible = 1, false;
    found = found * 10 + digit;
  }
  const unsigned sign = octets[size - 1] & 0xFU;
  if (sign != plus && sign != minus) return cdr->unconvertible = 1, false;
  value = FixedDigits::make(found, scale, sign == minus);
  return true;
}

}  // namespace

bool cdr_CORBA_Fixed(CDR* cdr, Fixed& value, UShort digits, Short scale) {
  if (digits == 0 || digits > Fixed::max_digits || scale < 0 || scale > digits) return false;
  if (cdr->direction == CDR_ENCODE) return write_packed(cdr, value, digits, scale);
  return cdr->direction == CDR_DECODE && read_packed(cdr, value, digits, scale);
}

}  // namespace CORBA
