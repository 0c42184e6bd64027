// CORBA::Fixed: decimal numbers of up to 31 digits (OMG IDL to C++, "Mapping for Fixed Types"), for money and whatever
// else must not be rounded as binary numbers are. They may be compared, computed with and assigned as numbers are,
// beside whole numbers and doubles too.
#pragma once

#include <compare>
#include <concepts>
#include <iosfwd>
#include <utility>

#include "corba/detail/wire_values.h"

namespace CORBA {

/// An exact decimal number: a whole number of at most 31 digits, `scale` of which stand behind the point. What is
/// too large for 31 digits raises DATA_CONVERSION; digits behind the point that do not fit are cut off. A plain
/// value: copies are independent, and nothing of it is on the heap. `typedef fixed<9, 2> Price` in IDL is a class that
/// is one, with the digits checked. One thread at a time, as any variable.
///
///   CORBA::Fixed price("19.99");
///   CORBA::Fixed total = price * 3 + CORBA::Fixed("0.03");  // 60.00, exactly
///   CORBA::String_var text = total.to_string();
///   if (total.compare(60) == 0) std::cout << text.in() << std::endl;
class ZRSVCPP_API Fixed {
 public:
  /// How many digits there are at most, before and behind the point together.
  static constexpr UShort max_digits = 31;

  /// 0.
  Fixed() = default;
  /// A whole number of any type, exactly; its scale is 0.
  template <std::integral T>
  Fixed(T value) {
    negative_ = std::cmp_less(value, 0);
    const auto bits = static_cast<ULongLong>(value);
    set(negative_ ? ULongLong{0} - bits : bits);
  }
  /// The exact value of the binary number, cut off behind 31 digits, which is rarely what a literal says: 0.1 has 31
  /// digits here, and Fixed("0.1") has one. DATA_CONVERSION for infinities, for no number, and for more than 31 digits
  /// before the point.
  Fixed(Double value) : Fixed(static_cast<LongDouble>(value)) {}
  Fixed(LongDouble value);
  /// "-12.50", with or without sign, point and a last 'd'. Zeros at the end count as digits of the scale.
  /// DATA_CONVERSION for other texts, blanks and null.
  Fixed(const char* text);

  /// Without the digits behind the point, towards 0: of -2.7 it is -2. DATA_CONVERSION when it does not fit 64 bits.
  operator LongLong() const;
  /// The nearest binary number: exact for few, as digits behind a point seldom have one.
  operator LongDouble() const;
  /// "-12.50", with all digits behind the point that there are, zeros at the end too, and one before it at least
  /// ("0.5"); no blanks, no groups. The caller frees it with string_free; a String_var does. Reading it back gives the
  /// same number with the same digits.
  char* to_string() const;

  /// With at most that many digits behind the point: half away from zero, or cut off. A number with fewer stays as it
  /// is.
  ///
  ///   CORBA::Fixed third = CORBA::Fixed(1) / 3;
  ///   CORBA::String_var text = third.round(2).to_string();  // "0.33"
  Fixed round(UShort scale) const;
  Fixed truncate(UShort scale) const;

  // What the operators + - * / do; DATA_CONVERSION where the digits before the point do not fit. A sum has as many
  // digits behind the point as the longer of the two, a product as many as both together, and either as many as fit:
  // the last ones are cut off. 1.50 + 1 is 2.50, and 1.50 * 1.5 is 2.250.
  Fixed plus(const Fixed& o) const { return sum(o, o.negative_); }
  Fixed minus(const Fixed& o) const { return sum(o, !o.negative_); }
  Fixed times(const Fixed& o) const;
  /// As many digits as fit; zeros at the end are dropped: 3.00 / 2 is 1.5. DATA_CONVERSION for a division by zero.
  Fixed over(const Fixed& o) const;
  /// By value: 1.50 equals 1.5, though they have other digits.
  std::strong_ordering compare(const Fixed& o) const;

  /// As above, in place; where they raise, this stays as it was.
  Fixed& operator+=(const Fixed& o) { return *this = plus(o); }
  Fixed& operator-=(const Fixed& o) { return *this = minus(o); }
  Fixed& operator*=(const Fixed& o) { return *this = times(o); }
  Fixed& operator/=(const Fixed& o) { return *this = over(o); }
  /// One more, one less.
  Fixed& operator++() { return *this += Fixed(1); }
  Fixed& operator--() { return *this -= Fixed(1); }
  Fixed operator++(int);
  Fixed operator--(int);
  Fixed operator+() const { return *this; }
  Fixed operator-() const;
  /// Whether it is 0.
  bool operator!() const { return high_ == 0 && low_ == 0; }

  /// How many digits there are, and how many of them behind the point: 12.50 has four, two of them behind the point; 0
  /// has one, and 0.05 two.
  UShort fixed_digits() const;
  UShort fixed_scale() const { return scale_; }
  /// How many digits stand before the point: two of 12.50, none of 0.5. Those of the scale are not among them, so a
  /// Fixed fits a type fixed<d, s> when it has at most d - s of these.
  UShort whole_digits() const;

 private:
  friend struct FixedDigits;
  void set(ULongLong magnitude);
  Fixed sum(const Fixed& o, bool o_negative) const;

  ULongLong high_ = 0, low_ = 0;  // high * 10^16 + low, without sign and point
  Octet scale_ = 0;
  bool negative_ = false;  // never of zero
};

/// What an operator takes beside a Fixed: a Fixed, or a number of C++. Both sides are templates: else a number beside a
/// Fixed could also mean that the Fixed is to become a number.
template <class T>
concept FixedOperand = std::derived_from<T, Fixed> || std::is_arithmetic_v<T>;
/// Two of them, one of which is a Fixed.
template <class A, class B>
concept FixedOperands = FixedOperand<A> && FixedOperand<B> &&
    (std::derived_from<A, Fixed> || std::derived_from<B, Fixed>);

// Computing with a number of another type makes a Fixed of that first; comparing, too. A double brings its binary
// digits.
//
//   CORBA::Fixed sum = CORBA::Fixed("0.10") + 1;
//   if (sum > 1 && sum != CORBA::Fixed("1.1") * 2) std::cout << "more than 1" << std::endl;

template <class A, class B>
requires FixedOperands<A, B> Fixed operator+(const A& a, const B& b) { return Fixed(a).plus(b); }
template <class A, class B>
requires FixedOperands<A, B> Fixed operator-(const A& a, const B& b) { return Fixed(a).minus(b); }
template <class A, class B>
requires FixedOperands<A, B> Fixed operator*(const A& a, const B& b) { return Fixed(a).times(b); }
template <class A, class B>
requires FixedOperands<A, B> Fixed operator/(const A& a, const B& b) { return Fixed(a).over(b); }
// By value, as compare: != and < and the like come from these two.
template <class A, class B>
requires FixedOperands<A, B>
bool operator==(const A& a, const B& b) { return Fixed(a).compare(b) == 0; }
template <class A, class B>
requires FixedOperands<A, B> std::strong_ordering operator<=>(const A& a, const B& b) {
  return Fixed(a).compare(b);
}

/// As to_string. Reading takes one word; failbit, and the value stays, where it is no number or does not fit its type.
ZRSVCPP_API std::ostream& operator<<(std::ostream& to, const Fixed& value);
ZRSVCPP_API std::istream& read_fixed(std::istream& from, void* value, void (*assign)(void*, const Fixed&));
template <std::derived_from<Fixed> F>
std::istream& operator>>(std::istream& from, F& value) {
  return read_fixed(from, &value, [](void* to, const Fixed& read) { *static_cast<F*>(to) = read; });
}

/// Packed decimal, by the stream's direction: digits / 2 + 1 octets, two digits each, the last half a sign (C or D).
/// Encoding cuts off digits behind the scale; it fails, as does decoding what is no such number, where the stream
/// becomes `unconvertible`. (CORBA, "Fixed-Point Decimal Type".)
ZRSVCPP_API bool cdr_CORBA_Fixed(CDR* cdr, Fixed& value, UShort digits, Short scale);

/// An IDL type fixed<Digits, Scale>: assigning cuts off digits behind the scale, and raises DATA_CONVERSION for
/// what has too many before it, and then changes nothing. Computing gives a Fixed, with as many digits as there are;
/// assigning it checks again. On the wire it always has its Digits and its Scale.
///
///   CORBA::FixedType<5, 2> price = CORBA::Fixed("19.999");  // 19.99
///   price = price + 1;
template <UShort Digits, Short Scale>
class FixedType : public Fixed {
 public:
  /// 0.
  FixedType() = default;
  /// Of a Fixed, a number or a text, as Fixed's own constructors, checked.
  template <class T>
  requires std::convertible_to<T, Fixed> FixedType(const T& value) : Fixed(checked(Fixed(value))) {}

  // As those of Fixed, whose result is assigned.
  FixedType& operator+=(const Fixed& o) { return *this = plus(o); }
  FixedType& operator-=(const Fixed& o) { return *this = minus(o); }
  FixedType& operator*=(const Fixed& o) { return *this = times(o); }
  FixedType& operator/=(const Fixed& o) { return *this = over(o); }
  FixedType& operator++() { return *this += 1; }
  FixedType& operator--() { return *this -= 1; }
  FixedType operator++(int) { return std::exchange(*this, plus(1)); }
  FixedType operator--(int) { return std::exchange(*this, minus(1)); }

 private:
  static Fixed checked(const Fixed& value) {
    const Fixed cut = value.truncate(static_cast<UShort>(Scale));
    if (cut.whole_digits() > Digits - Scale) throw DATA_CONVERSION();
    return cut;
  }
};

namespace idl {

template <UShort Digits, Short Scale>
struct Wire<FixedType<Digits, Scale>> {
  static bool move(CDR* cdr, FixedType<Digits, Scale>& value) {
    return cdr_CORBA_Fixed(cdr, value, Digits, Scale);
  }
};

}  // namespace idl
}  // namespace CORBA
