// The values of constant expressions.
#pragma once

#include <string>
#include <variant>

namespace idl {

struct Enumerator;

/// Wide enough for every operation on two 64-bit integers, so that none wraps unseen.
using Integer = __int128;

/// A decimal number of at most 31 digits: digits * 10^-scale.
struct Decimal {
  static constexpr unsigned most_digits = 31;
  Integer digits = 0;
  unsigned scale = 0;
};

struct WideChar {
  char32_t code = 0;
};

/// Empty where the expression is wrong and has been reported.
using Value = std::variant<std::monostate, Integer, long double, bool, char, WideChar, std::string,
                           std::u32string, Decimal, const Enumerator*>;

std::string to_string(Integer value);
std::string to_string(const Decimal& value);

/// The number that text like "12.50" is; false when it has more than 31 digits. Zeros at either end do not count.
bool parse_decimal(const std::string& text, Decimal& value);

/// left op right for '+', '-', '*', '/'; false when the result has more than 31 digits before the point, or
/// for a division by zero. Digits beyond the 31st are cut off.
bool compute(char op, Decimal left, Decimal right, Decimal& result);

/// The value as IDL text for messages.
std::string describe(const Value& value);

}  // namespace idl
