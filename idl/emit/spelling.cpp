#include "emit/spelling.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace idl {
namespace {

const std::set<std::string>& cpp_keywords() {
  static const std::set<std::string> words = {
      "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "catch",
      "char8_t", "char16_t", "char32_t", "class", "co_await", "co_return", "co_yield", "compl", "concept",
      "const_cast", "consteval", "constexpr", "constinit", "continue", "decltype", "delete", "do",
      "dynamic_cast", "else", "explicit", "export", "extern", "false", "for", "friend", "goto", "if",
      "inline", "int", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr", "operator",
      "or", "or_eq", "protected", "register", "reinterpret_cast", "requires", "return", "signed", "sizeof",
      "static", "static_assert", "static_cast", "template", "this", "thread_local", "throw", "true", "try",
      "typename", "typeid", "using", "virtual", "volatile", "wchar_t", "while", "xor", "xor_eq",
      // and of the language that IDL shares: they arrive here escaped
      "case", "char", "const", "default", "double", "enum", "float", "long", "private", "public", "short",
      "struct", "switch", "typedef", "union", "unsigned", "void"};
  return words;
}

// $ is the value type. A row a form, in the order of Form.
constexpr const char* in_forms[] = {"$",  "const $&", "const $&", "const char*", "const CORBA::WChar*",
                                    "$*", "const $",  "const $",  "$*"};
constexpr const char* inout_forms[] = {"$&", "$&", "$&", "char*&", "CORBA::WChar*&", "$*&", "$", "$", "$*&"};
constexpr const char* out_forms[] = {
    "$&", "$&", "$_out", "CORBA::String_out", "CORBA::WString_out", "$_out", "$", "$_out", "$*&"};
constexpr const char* result_forms[] = {"$",  "$",        "$*",       "char*", "CORBA::WChar*",
                                        "$*", "$_slice*", "$_slice*", "$*"};
constexpr const char* owned_forms[] = {
    "$", "$", "$_var", "CORBA::String_var", "CORBA::WString_var", "$_var", "$_var", "$_var", "$*"};
constexpr const char* member_forms[] = {"$", "$", "$", "CORBA::String_mgr", "CORBA::WString_mgr", "$_var",
                                        "$", "$", "$*"};

// The basic types, in the order of TypeKind.
constexpr const char* basic_names[] = {
    "void",           "CORBA::Short",      "CORBA::Long",      "CORBA::LongLong",
    "CORBA::UShort",  "CORBA::ULong",      "CORBA::ULongLong", "CORBA::Float",
    "CORBA::Double",  "CORBA::LongDouble", "CORBA::Char",      "CORBA::WChar",
    "CORBA::Boolean", "CORBA::Octet",      "CORBA::Any",       "CORBA::Object"};

std::string bounded(const std::string& name, std::uint32_t bound) {
  return "CORBA::idl::" + name + "<" + (bound ? std::to_string(bound) : "") + ">";
}

// One character of a literal. After a hexadecimal escape a digit would be read as part of it.
std::string escaped(char32_t c, char quote, bool& open_escape) {
  const bool digit = c < 128 && std::isxdigit(static_cast<int>(c));
  const bool plain = c >= ' ' && c < 127 && !(open_escape && digit);
  open_escape = !plain;
  if (plain && (c == static_cast<unsigned char>(quote) || c == '\\' || c == '?'))
    return {'\\', static_cast<char>(c)};
  if (plain) return {static_cast<char>(c)};
  char text[16];
  std::snprintf(text, sizeof text, "\\x%x", static_cast<unsigned>(c));
  return text;
}

template <class Text>
std::string quoted_text(const Text& text, char quote) {
  std::string all(1, quote);
  bool open_escape = false;
  for (const auto c : text) {
    const auto code = static_cast<char32_t>(
        static_cast<std::make_unsigned_t<std::conditional_t<sizeof(c) == 1, char, int>>>(c));
    all += escaped(code, quote, open_escape);
  }
  return all + quote;
}

std::string integer_literal(Integer value, TypeKind kind) {
  const bool wide = kind == TypeKind::LongLong || kind == TypeKind::ULongLong;
  const bool is_unsigned = kind == TypeKind::ULong || kind == TypeKind::ULongLong;
  const std::string suffix = std::string(is_unsigned ? "U" : "") + (wide ? "LL" : "");
  const Integer least = kind == TypeKind::LongLong ? -(Integer{1} << 63) : -(Integer{1} << 31);
  if (value == least) return to_string(value + 1) + suffix + " - 1";  // there are no negative literals
  return to_string(value) + suffix;
}

std::string real_literal(long double value, TypeKind kind) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*Lg",
                kind == TypeKind::Float    ? 9
                : kind == TypeKind::Double ? 17
                                           : 21,
                value);
  std::string literal = text;
  if (literal.find_first_of(".e") == std::string::npos) literal += ".0";
  return literal + (kind == TypeKind::Float ? "F" : kind == TypeKind::LongDouble ? "L" : "");
}

}  // namespace

std::string cpp_name(const std::string& identifier) {
  return (cpp_keywords().contains(identifier) ? "_cxx_" : "") + identifier;
}

std::string cpp_string(const std::string& text) { return quoted_text(text, '"'); }

// What the library's own classes and the rows put in front of names from outside: base classes, aliases.
static const std::set<std::string> names_in_use = {
    "idl",           "Class",           "table", "Skeleton", "ServantBase",    "Tie", "Object", "Exception",
    "UserException", "UserExceptionOf", "Union", "Sequence", "BoundedSequence"};

Spelling::Spelling(Compilation& compilation, Within within)
    : compilation_(compilation), within_(within), inner_names_(names_in_use) {
  walk(*compilation.tree.root, [&](const Declaration& one) {
    if (one.scope && one.scope->scope) inner_names_.insert(cpp_name(one.name.text));
  });
  walk(*compilation.tree.root, [&](const Declaration& one) {
    const bool member = one.kind == Kind::Member;
    if (!member && one.kind != Kind::Typedef) return;
    std::string stem = qualified(one);
    const std::size_t last = stem.rfind("::");
    stem.insert(last == std::string::npos ? 0 : last + 2, "_");
    for (const Type* type : types_of(one)) {
      const bool whole = member || !static_cast<const Typedef&>(one).declarator.dimensions.empty();
      name_sequences(whole ? type : type->element, stem);
    }
  });
}

// M::S::_m_seq for member m of M::S, and so on inwards.
void Spelling::name_sequences(const Type* type, const std::string& stem) {
  if (!type || type->kind != TypeKind::Sequence) return;
  sequences_[type] = stem + "_seq";
  name_sequences(type->element, stem + "_seq");
}

bool Spelling::is_orb(const Declaration& declaration) const {
  return compilation_.sources.name(declaration.file()) == orb_idl_name;
}

// --- names --------------------------------------------------------------------------------------------------------

std::string Spelling::path(const Declaration& declaration) const {
  std::string text = cpp_name(declaration.name.text);
  for (const Scope* scope = declaration.scope; scope && scope->scope; scope = scope->scope)
    text = cpp_name(scope->name.text) + "::" + text;
  return text;
}

std::string Spelling::qualified(const Declaration& declaration) const {
  const std::string text = path(declaration);
  const bool hidden = within_ == Within::Library || inner_names_.contains(text.substr(0, text.find("::")));
  return (hidden ? "::" : "") + text;
}

std::string Spelling::skeleton(const Interface& interface) const { return "POA_" + path(interface); }

std::string Spelling::skeleton_scope(const Scope& scope) const {
  return scope.scope ? "POA_" + path(scope) : "";
}

// --- types --------------------------------------------------------------------------------------------------------

bool Spelling::fixed_length(const Type& type) const {
  if (type.kind <= TypeKind::Octet || type.kind == TypeKind::Fixed) return true;
  if (type.kind != TypeKind::Named) return false;
  const Declaration* const declared = defined(type.declared);
  if (const auto* alias = as<Typedef>(declared)) return fixed_length(*alias->type);
  if (declared->kind == Kind::Enum) return true;
  if (declared->kind != Kind::Struct && declared->kind != Kind::Union) return false;
  const auto [known, is_new] = fixed_.emplace(declared, false);
  if (!is_new) return known->second;
  bool fixed = true;
  for (const Declaration* one : static_cast<const Scope*>(declared)->body)
    if (const auto* member = as<Member>(one)) fixed = fixed && fixed_length(*member->type);
  if (const auto* structure = as<Struct>(declared); structure && structure->base)
    fixed = fixed && fixed_length(*structure->base);
  return fixed_[declared] = fixed;
}

Form Spelling::form(const Type& type) const {
  const Type& real = unalias(type);
  switch (real.kind) {
    case TypeKind::String:
      return Form::String;
    case TypeKind::WString:
      return Form::WString;
    case TypeKind::Object:
    case TypeKind::ValueBase:
      return Form::Reference;
    case TypeKind::Any:
    case TypeKind::Sequence:
      return Form::VariableValue;
    case TypeKind::Fixed:
      return Form::FixedValue;
    case TypeKind::Named:
      break;
    default:
      return Form::Number;
  }
  const Declaration& declared = *meaning(real);
  switch (declared.kind) {
    case Kind::Typedef:  // an array
      return fixed_length(real) ? Form::FixedArray : Form::Array;
    case Kind::Enum:
      return Form::Number;
    case Kind::Interface:
      return Form::Reference;
    case Kind::Native:
      return Form::Native;
    default:
      return fixed_length(real) ? Form::FixedValue : Form::VariableValue;
  }
}

// What module CORBA has only as typedefs of basic types is spelled as these.
std::string Spelling::value(const Type& type) const {
  switch (type.kind) {
    case TypeKind::String:
      return "char*";
    case TypeKind::WString:
      return "CORBA::WChar*";
    case TypeKind::Fixed:
      return "CORBA::FixedType<" + std::to_string(type.bound_value) + ", " +
             std::to_string(type.scale_value) + ">";
    case TypeKind::Sequence:
      return sequences_.at(&type);
    case TypeKind::Named: {
      const auto* alias = as<Typedef>(type.declared);
      const bool basic = alias && is_orb(*alias) && alias->type->kind != TypeKind::Sequence;
      return basic ? value(*alias->type) : qualified(*type.declared);
    }
    default:
      return basic_names[static_cast<std::size_t>(type.kind)];
  }
}

std::string Spelling::sequence_base(const Type& type) const {
  const std::string element = member(*type.element);
  return type.bound_value
             ? "CORBA::idl::bounded_sequence<" + element + ", " + std::to_string(type.bound_value) + ">"
             : "CORBA::idl::sequence<" + element + ">";
}

std::string Spelling::descriptor(const Type& type) const {
  switch (type.kind) {
    case TypeKind::String:
      return bounded("string", type.bound_value);
    case TypeKind::WString:
      return bounded("wstring", type.bound_value);
    case TypeKind::Object:
      return "CORBA::idl::ref<CORBA::Object>";
    case TypeKind::Named:
      break;
    default:
      return value(type);
  }
  const Declaration& declared = *type.declared;
  if (const auto* alias = as<Typedef>(&declared)) {
    const bool plain_sequence =
        alias->type->kind == TypeKind::Sequence && alias->declarator.dimensions.empty();
    if (plain_sequence) return qualified(declared);
    if (is_orb(declared)) return descriptor(*alias->type);
    return tag(qualified(declared));
  }
  if (full_name(declared) == "CORBA::TypeCode" || declared.kind != Kind::Interface)
    return qualified(declared);
  return "CORBA::idl::ref<" + qualified(declared) + ">";
}

std::string tag(const std::string& name) {
  const std::size_t last = name.rfind("::");
  return std::string(name).insert(last == std::string::npos ? 0 : last + 2, "_type_");
}

std::string Spelling::in_form(const char* const (&forms)[9], const Type& type) const {
  std::string text = forms[static_cast<std::size_t>(form(type))];
  const std::size_t at = text.find('$');
  return at == std::string::npos ? text : text.replace(at, 1, value(type));
}

std::string Spelling::owned(const Type& type) const { return in_form(owned_forms, type); }

std::string Spelling::member(const Type& type) const { return in_form(member_forms, type); }

std::string Spelling::result(const Type& type) const {
  return type.kind == TypeKind::Void ? "void" : in_form(result_forms, type);
}

std::string Spelling::parameter(Direction direction, const Type& type) const {
  return direction == Direction::In    ? in_form(in_forms, type)
         : direction == Direction::Out ? in_form(out_forms, type)
                                       : in_form(inout_forms, type);
}

// --- literals -----------------------------------------------------------------------------------------------------

std::string Spelling::literal(const Value& value, const Type& type) const {
  const TypeKind kind = unalias(type).kind;
  if (const auto* v = std::get_if<Integer>(&value)) return integer_literal(*v, kind);
  if (const auto* v = std::get_if<long double>(&value)) return real_literal(*v, kind);
  if (const auto* v = std::get_if<bool>(&value)) return *v ? "true" : "false";
  if (const auto* v = std::get_if<char>(&value)) return quoted_text(std::string(1, *v), '\'');
  if (const auto* v = std::get_if<WideChar>(&value))
    return "L" + quoted_text(std::u32string(1, v->code), '\'');
  if (const auto* v = std::get_if<std::string>(&value)) return cpp_string(*v);
  if (const auto* v = std::get_if<std::u32string>(&value)) return "L" + quoted_text(*v, '"');
  if (const auto* v = std::get_if<Decimal>(&value)) return '"' + to_string(*v) + '"';
  return qualified(*std::get<const Enumerator*>(value));
}

}  // namespace idl
