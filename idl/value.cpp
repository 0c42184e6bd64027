#include "value.h"

#include <algorithm>
#include <cstdio>

#include "tree.h"

namespace idl {
namespace {

constexpr Integer power_of_ten(unsigned exponent) {
  Integer power = 1;
  while (exponent--) power *= 10;
  return power;
}

constexpr Integer limit = power_of_ten(Decimal::most_digits);

Integer magnitude(Integer value) { return value < 0 ? -value : value; }

// Gives up digits behind the point until it fits; false when that is not enough.
bool fit(Decimal& value) {
  while (value.scale > 0 && (value.digits % 10 == 0 || magnitude(value.digits) >= limit)) {
    value.digits /= 10;
    --value.scale;
  }
  return magnitude(value.digits) < limit;
}

// The same number with more digits behind the point, as far as there is room.
void stretch(Decimal& value, unsigned scale) {
  while (value.scale < scale && magnitude(value.digits) < limit * 10) value.digits *= 10, ++value.scale;
}

void align(Decimal& left, Decimal& right) {
  stretch(left, right.scale);
  stretch(right, left.scale);
  while (left.scale > right.scale) left.digits /= 10, --left.scale;
  while (right.scale > left.scale) right.digits /= 10, --right.scale;
}

bool multiply(Decimal left, Decimal right, Decimal& result) {
  while (__builtin_mul_overflow(left.digits, right.digits, &result.digits)) {
    Decimal& longer = magnitude(left.digits) > magnitude(right.digits) ? left : right;
    if (longer.scale == 0) return false;
    longer.digits /= 10, --longer.scale;
  }
  result.scale = left.scale + right.scale;
  return fit(result);
}

bool divide(Decimal left, Decimal right, Decimal& result) {
  if (right.digits == 0) return false;
  align(left, right);
  if (right.digits == 0) return false;  // so small beside the other that nothing is left of it
  result = {left.digits / right.digits, 0};
  Integer rest = left.digits % right.digits;
  while (rest != 0 && magnitude(result.digits) < limit / 10 && result.scale < Decimal::most_digits) {
    rest *= 10;
    result.digits = result.digits * 10 + rest / right.digits;
    ++result.scale;
    rest %= right.digits;
  }
  return fit(result);
}

std::string shown(char32_t c) {
  if (c >= ' ' && c < 127) return {static_cast<char>(c)};
  char text[16];
  std::snprintf(text, sizeof text, c < 256 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
  return text;
}

struct Describe {
  std::string operator()(std::monostate) const { return "?"; }
  std::string operator()(Integer v) const { return to_string(v); }
  std::string operator()(long double v) const {
    char text[64];
    std::snprintf(text, sizeof text, "%Lg", v);
    return text;
  }
  std::string operator()(bool v) const { return v ? "TRUE" : "FALSE"; }
  std::string operator()(char v) const { return "'" + shown(static_cast<unsigned char>(v)) + "'"; }
  std::string operator()(WideChar v) const { return "L'" + shown(v.code) + "'"; }
  std::string operator()(const std::string& v) const {
    std::string text;
    for (const char c : v) text += shown(static_cast<unsigned char>(c));
    return '"' + text + '"';
  }
  std::string operator()(const std::u32string& v) const {
    std::string text;
    for (const char32_t c : v) text += shown(c);
    return "L\"" + text + '"';
  }
  std::string operator()(const Decimal& v) const { return to_string(v) + "d"; }
  std::string operator()(const Enumerator* v) const { return v->name.text; }
};

}  // namespace

std::string to_string(Integer value) {
  if (value < 0) return "-" + to_string(-value);
  std::string text;
  do text.insert(text.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
  while ((value /= 10) != 0);
  return text;
}

std::string to_string(const Decimal& value) {
  std::string text = to_string(magnitude(value.digits));
  if (text.size() <= value.scale) text.insert(0, value.scale + 1 - text.size(), '0');
  if (value.scale) text.insert(text.size() - value.scale, ".");
  return value.digits < 0 ? "-" + text : text;
}

bool parse_decimal(const std::string& text, Decimal& value) {
  value = {};
  bool behind_point = false;
  std::string digits = text;
  if (digits.find('.') != std::string::npos) digits.erase(digits.find_last_not_of('0') + 1);
  for (const char c : digits) {
    if (c == '.') {
      behind_point = true;
      continue;
    }
    value.digits = value.digits * 10 + (c - '0');
    value.scale += behind_point;
    if (value.digits >= limit || value.scale > Decimal::most_digits) return false;
  }
  return true;
}

bool compute(char op, Decimal left, Decimal right, Decimal& result) {
  if (op == '*') return multiply(left, right, result);
  if (op == '/') return divide(left, right, result);
  align(left, right);
  result = {op == '+' ? left.digits + right.digits : left.digits - right.digits, left.scale};
  return fit(result);
}

std::string describe(const Value& value) { return std::visit(Describe{}, value); }

}  // namespace idl
