#include <cmath>
#include <limits>
#include <optional>

#include "check.h"
#include "types.h"

namespace idl {
namespace {

struct Range {
  Integer least, most;
};

// The integers that a type holds; empty for a type that is no integer.
std::optional<Range> range_of(TypeKind kind) {
  constexpr Integer one = 1;
  switch (kind) {
    case TypeKind::Octet:
      return Range{0, 255};
    case TypeKind::Short:
      return Range{-(one << 15), (one << 15) - 1};
    case TypeKind::UShort:
      return Range{0, (one << 16) - 1};
    case TypeKind::Long:
      return Range{-(one << 31), (one << 31) - 1};
    case TypeKind::ULong:
      return Range{0, (one << 32) - 1};
    case TypeKind::LongLong:
      return Range{-(one << 63), (one << 63) - 1};
    case TypeKind::ULongLong:
      return Range{0, (one << 64) - 1};
    default:
      return std::nullopt;
  }
}

constexpr Range any_integer{-(Integer{1} << 63), (Integer{1} << 64) - 1};

const char* word_for(const Value& value) {
  static constexpr const char* words[] = {"nothing",      "an integer",    "a floating-point number",
                                          "a boolean",    "a character",   "a wide character",
                                          "a string",     "a wide string", "a fixed-point number",
                                          "an enumerator"};
  return words[value.index()];
}

// Evaluates one expression for one type. Each fault is reported where it is; the value is then empty.
class Evaluation {
 public:
  Evaluation(const Type& wanted, Diagnostics& diagnostics)
      : type_(unalias(wanted)), kind_(type_.kind), diagnostics_(diagnostics) {}

  Value run(const Expression& expression) {
    const Value value = evaluate(expression);
    return value.index() ? converted(value, expression) : value;
  }

 private:
  Value fail(const Location& at, const std::string& message) {
    diagnostics_.error(at, message);
    return {};
  }
  Value evaluate(const Expression& expression);
  Value named(const Expression& expression);
  Value unary(const Expression& expression);
  Value binary(const Expression& expression);
  Value integers(char op, Integer left, Integer right, const Location& at);
  Value shifted(char op, Integer left, Integer right, const Location& at);
  Value reals(char op, long double left, long double right, const Location& at);
  Value decimals(char op, const Decimal& left, const Decimal& right, const Location& at);
  Value complement(Integer value) const;

  Value converted(const Value& value, const Expression& expression);
  Value to_integer(const Value& value, const Expression& expression, const Range& range);
  Value to_real(const Value& value, const Expression& expression);
  Value to_decimal(const Value& value, const Expression& expression);
  Value to_text(const Value& value, const Expression& expression);
  Value to_enumerator(const Value& value, const Expression& expression, const Enum& wanted);
  Value mismatch(const Value& value, const Expression& expression);

  const Type& type_;
  const TypeKind kind_;
  Diagnostics& diagnostics_;
};

Value Evaluation::evaluate(const Expression& expression) {
  if (expression.op == 'l') return expression.literal;
  if (expression.op == 'n') return named(expression);
  return expression.left ? binary(expression) : unary(expression);
}

Value Evaluation::named(const Expression& expression) {
  if (const auto* constant = as<Constant>(expression.declared)) return constant->value;
  if (const auto* enumerator = as<Enumerator>(expression.declared)) return enumerator;
  if (!expression.declared) return {};
  const Declaration& other = *expression.declared;
  if (diagnostics_.error(expression.at,
                         quoted(other.name.text) + " is " + a_kind(other.kind) + ", no constant"))
    diagnostics_.note(other.name.at, "it is declared here");
  return {};
}

Value Evaluation::unary(const Expression& expression) {
  const Value value = evaluate(*expression.right);
  if (!value.index()) return {};
  const char op = expression.op;
  if (const auto* integer = std::get_if<Integer>(&value)) {
    if (op == '~') return complement(*integer);
    return op == '-' ? integers('-', 0, *integer, expression.at) : value;
  }
  if (const auto* real = std::get_if<long double>(&value); real && op != '~')
    return op == '-' ? -*real : *real;
  if (const auto* fixed = std::get_if<Decimal>(&value); fixed && op != '~')
    return op == '-' ? Decimal{-fixed->digits, fixed->scale} : *fixed;
  return fail(expression.at, quoted({&op, 1}) + " does not apply to " + word_for(value));
}

// All bits turned, in the width of the type.
Value Evaluation::complement(Integer value) const {
  const auto range = range_of(kind_);
  return range && range->least == 0 ? range->most - value : -value - 1;
}

Value Evaluation::binary(const Expression& expression) {
  const Value left = evaluate(*expression.left), right = evaluate(*expression.right);
  if (!left.index() || !right.index()) return {};
  const char op = expression.op;
  if (left.index() != right.index())
    return fail(expression.at,
                std::string(word_for(left)) + " and " + word_for(right) + " cannot be combined");
  if (const auto* a = std::get_if<Integer>(&left))
    return integers(op, *a, std::get<Integer>(right), expression.at);
  const bool arithmetic = op == '+' || op == '-' || op == '*' || op == '/';
  if (const auto* a = std::get_if<long double>(&left); a && arithmetic)
    return reals(op, *a, std::get<long double>(right), expression.at);
  if (const auto* a = std::get_if<Decimal>(&left); a && arithmetic)
    return decimals(op, *a, std::get<Decimal>(right), expression.at);
  const std::string shown = op == '<' ? "<<" : op == '>' ? ">>" : std::string(1, op);
  return fail(expression.at, quoted(shown) + " does not apply to " + word_for(left));
}

Value Evaluation::integers(char op, Integer left, Integer right, const Location& at) {
  if ((op == '/' || op == '%') && right == 0) return fail(at, "division by zero");
  if (op == '<' || op == '>') return shifted(op, left, right, at);
  Integer result = 0;
  bool overflow = false;
  switch (op) {
    case '+':
      result = left + right;
      break;
    case '-':
      result = left - right;
      break;
    case '*':
      overflow = __builtin_mul_overflow(left, right, &result);
      break;
    case '/':
      result = left / right;
      break;
    case '%':
      result = left % right;
      break;
    default:
      result = op == '|' ? left | right : op == '&' ? left & right : left ^ right;
  }
  if (!overflow && result >= any_integer.least && result <= any_integer.most) return result;
  return fail(at, "the result does not fit in 64 bits");
}

Value Evaluation::shifted(char op, Integer left, Integer right, const Location& at) {
  if (right < 0 || right > 63)
    return fail(at, "a shift by " + to_string(right) + " bits; 0 to 63 are possible");
  if (op == '>') return left >> right;
  const Integer result = left * (Integer{1} << right);
  if (result < any_integer.least || result > any_integer.most)
    return fail(at, "the result does not fit in 64 bits");
  return result;
}

Value Evaluation::reals(char op, long double left, long double right, const Location& at) {
  if (op == '/' && right == 0) return fail(at, "division by zero");
  const long double result = op == '+'   ? left + right
                             : op == '-' ? left - right
                             : op == '*' ? left * right
                                         : left / right;
  return std::isfinite(result) ? Value(result) : fail(at, "the result does not fit in a long double");
}

Value Evaluation::decimals(char op, const Decimal& left, const Decimal& right, const Location& at) {
  if (op == '/' && right.digits == 0) return fail(at, "division by zero");
  Decimal result;
  if (compute(op, left, right, result)) return result;
  return fail(at, "the result has more than 31 digits before the point");
}

// --- to the type --------------------------------------------------------------------------------------------------

Value Evaluation::mismatch(const Value& value, const Expression& expression) {
  return fail(expression.at,
              std::string(word_for(value)) + " is no value of type " + quoted(type_name(type_)));
}

Value Evaluation::converted(const Value& value, const Expression& expression) {
  if (const auto range = range_of(kind_)) return to_integer(value, expression, *range);
  switch (kind_) {
    case TypeKind::Float:
    case TypeKind::Double:
    case TypeKind::LongDouble:
      return to_real(value, expression);
    case TypeKind::Fixed:
      return to_decimal(value, expression);
    case TypeKind::Char:
      return std::holds_alternative<char>(value) ? value : mismatch(value, expression);
    case TypeKind::WChar:
      return std::holds_alternative<WideChar>(value) ? value : mismatch(value, expression);
    case TypeKind::Boolean:
      return std::holds_alternative<bool>(value) ? value : mismatch(value, expression);
    case TypeKind::String:
    case TypeKind::WString:
      return to_text(value, expression);
    default:
      break;
  }
  const auto* enumeration = as<Enum>(meaning(type_));
  return enumeration ? to_enumerator(value, expression, *enumeration)
                     : Value();  // the type is wrong, not the value
}

Value Evaluation::to_integer(const Value& value, const Expression& expression, const Range& range) {
  const auto* integer = std::get_if<Integer>(&value);
  if (!integer) return mismatch(value, expression);
  if (*integer >= range.least && *integer <= range.most) return value;
  return fail(expression.at, to_string(*integer) + " does not fit in type " + quoted(type_name(type_)));
}

Value Evaluation::to_real(const Value& value, const Expression& expression) {
  long double real = 0;
  if (const auto* integer = std::get_if<Integer>(&value))
    real = static_cast<long double>(*integer);
  else if (const auto* given = std::get_if<long double>(&value))
    real = *given;
  else
    return mismatch(value, expression);
  const long double most =
      kind_ == TypeKind::Float    ? static_cast<long double>(std::numeric_limits<float>::max())
      : kind_ == TypeKind::Double ? static_cast<long double>(std::numeric_limits<double>::max())
                                  : std::numeric_limits<long double>::max();
  if (std::fabs(real) <= most) return real;
  return fail(expression.at, describe(real) + " does not fit in type " + quoted(type_name(type_)));
}

Value Evaluation::to_decimal(const Value& value, const Expression& expression) {
  const auto* decimal = std::get_if<Decimal>(&value);
  if (!decimal) return mismatch(value, expression);
  if (!type_.bound) return value;
  const std::size_t digits = to_string(decimal->digits < 0 ? -decimal->digits : decimal->digits).size();
  if (decimal->scale <= type_.scale_value && digits + type_.scale_value <= type_.bound_value + decimal->scale)
    return value;
  return fail(expression.at, to_string(*decimal) + " does not fit in the digits of its type");
}

Value Evaluation::to_text(const Value& value, const Expression& expression) {
  std::size_t length = 0;
  if (const auto* narrow = std::get_if<std::string>(&value); narrow && kind_ == TypeKind::String)
    length = narrow->size();
  else if (const auto* wide = std::get_if<std::u32string>(&value); wide && kind_ == TypeKind::WString)
    length = wide->size();
  else
    return mismatch(value, expression);
  if (!type_.bound_value || length <= type_.bound_value) return value;
  return fail(expression.at, "a string of " + std::to_string(length) +
                                 " characters where its type has at most " +
                                 std::to_string(type_.bound_value));
}

Value Evaluation::to_enumerator(const Value& value, const Expression& expression, const Enum& wanted) {
  const auto* enumerator = std::get_if<const Enumerator*>(&value);
  if (!enumerator) return mismatch(value, expression);
  if ((*enumerator)->of == &wanted) return value;
  return fail(expression.at,
              quoted((*enumerator)->name.text) + " is no enumerator of " + quoted(full_name(wanted)));
}

// --- the pass -----------------------------------------------------------------------------------------------------

class Constants {
 public:
  explicit Constants(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(Declaration& declaration) {
    for (Type* type : types_of(declaration)) this->type(*type);
    if (auto* alias = as<Typedef>(&declaration)) dimensions(alias->declarator);
    if (auto* member = as<Member>(&declaration)) dimensions(member->declarator);
    if (auto* constant = as<Constant>(&declaration)) this->constant(*constant);
    if (auto* choice = as<Union>(&declaration)) labels(*choice);
  }

 private:
  void type(Type& type);
  void dimensions(Declarator& declarator);
  void constant(Constant& constant);
  void labels(const Union& choice);
  std::uint32_t size(const Expression& expression, const char* what, Integer least, Integer most);

  Diagnostics& diagnostics_;
};

// A size that has to lie between two numbers; the least one after an error.
std::uint32_t Constants::size(const Expression& expression, const char* what, Integer least, Integer most) {
  Type any;
  any.kind = TypeKind::LongLong;
  const Value value = Evaluation(any, diagnostics_).run(expression);
  const auto* number = std::get_if<Integer>(&value);
  if (!number) return static_cast<std::uint32_t>(least);
  if (*number >= least && *number <= most) return static_cast<std::uint32_t>(*number);
  diagnostics_.error(expression.at, std::string(what) + " of " + to_string(*number) + "; it lies between " +
                                        to_string(least) + " and " + to_string(most));
  return static_cast<std::uint32_t>(least);
}

void Constants::type(Type& type) {
  constexpr Integer most = std::numeric_limits<std::uint32_t>::max();
  if (type.element) this->type(*type.element);
  if (!type.bound || type.bound_value) return;
  if (type.kind != TypeKind::Fixed) {
    type.bound_value = size(*type.bound, "a bound", 1, most);
    return;
  }
  type.bound_value = size(*type.bound, "a number of digits", 1, Decimal::most_digits);
  type.scale_value = size(*type.scale, "a scale", 0, type.bound_value);
}

void Constants::dimensions(Declarator& declarator) {
  constexpr Integer most = std::numeric_limits<std::int32_t>::max();
  Integer elements = 1;
  for (const Expression* one : declarator.dimensions) {
    declarator.sizes.push_back(size(*one, "a dimension", 1, most));
    elements *= declarator.sizes.back();
    if (elements <= most) continue;
    diagnostics_.error(one->at, "an array of more than " + to_string(most) + " elements");
    return;
  }
}

void Constants::constant(Constant& constant) {
  const Type& type = unalias(*constant.type);
  const Declaration* declared = meaning(type);
  const bool possible = type.kind != TypeKind::Named
                            ? type.kind <= TypeKind::Octet || type.kind == TypeKind::String ||
                                  type.kind == TypeKind::WString || type.kind == TypeKind::Fixed
                            : !declared || declared->kind == Kind::Enum;
  if (!possible)
    diagnostics_.error(constant.type->at,
                       "a constant cannot be of type " + quoted(type_name(*constant.type)));
  else if (type.kind != TypeKind::Named || declared)
    constant.value = Evaluation(type, diagnostics_).run(*constant.expression);
}

// Labels of a discriminator that is no such type are left to the check of unions.
void Constants::labels(const Union& choice) {
  for (Declaration* declaration : choice.body) {
    auto* member = as<Member>(declaration);
    if (!member) continue;
    for (const Expression* label : member->labels)
      member->label_values.push_back(label && discriminates(*choice.discriminator)
                                         ? Evaluation(*choice.discriminator, diagnostics_).run(*label)
                                         : Value());
  }
}

}  // namespace

void check_constants(Tree& tree, Diagnostics& diagnostics) {
  Constants pass(diagnostics);
  walk(*tree.root, [&](Declaration& declaration) { pass.visit(declaration); });
}

}  // namespace idl
