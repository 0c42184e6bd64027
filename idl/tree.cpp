#include "tree.h"

#include <array>

namespace idl {

std::string ScopedName::text() const {
  std::string text;
  for (const Identifier& part : parts) text += (text.empty() && !absolute ? "" : "::") + part.text;
  return text;
}

const char* kind_name(Kind kind) {
  static constexpr std::array names = {"module",    "interface", "valuetype", "value box", "native type",
                                       "typedef",   "struct",    "union",     "enum",      "enumerator",
                                       "exception", "constant",  "operation", "attribute", "parameter",
                                       "member",    "factory",   "pragma",    "typeid"};
  return names[static_cast<std::size_t>(kind)];
}

std::string a_kind(Kind kind) {
  const std::string name = kind_name(kind);
  const bool vowel = std::string("aeio").find(name[0]) != std::string::npos;
  return (vowel ? "an " : "a ") + name;
}

std::string type_name(const Type& type) {
  static constexpr std::array names = {
      "void",  "short",  "long",        "long long", "unsigned short", "unsigned long", "unsigned long long",
      "float", "double", "long double", "char",      "wchar",          "boolean",       "octet",
      "any",   "Object", "ValueBase",   "string",    "wstring",        "fixed"};
  if (type.kind == TypeKind::Sequence) return "sequence<" + type_name(*type.element) + ">";
  if (type.kind != TypeKind::Named) return names[static_cast<std::size_t>(type.kind)];
  return type.declared ? full_name(*type.declared) : type.name.text();
}

std::string full_name(const Declaration& declaration) {
  std::string text = declaration.name.text;
  for (const Scope* scope = declaration.scope; scope && scope->scope; scope = scope->scope)
    text = scope->name.text + "::" + text;
  return text;
}

const Declaration* defined(const Declaration* declaration) {
  const auto* definable = as<Definable>(declaration);
  return definable && definable->definition ? definable->definition : declaration;
}

const Type& unalias(const Type& type) {
  const Type* at = &type;
  while (const auto* alias = as<Typedef>(at->declared)) {
    if (!alias->declarator.dimensions.empty()) break;
    at = alias->type;
  }
  return *at;
}

const Declaration* meaning(const Type& type) { return defined(unalias(type).declared); }

std::vector<Type*> types_of(const Declaration& declaration) {
  std::vector<Type*> types;
  const auto add = [&](Type* type) {
    if (type) types.push_back(type);
  };
  if (const auto* v = as<Typedef>(&declaration); v && v->first_of_several) add(v->type);
  if (const auto* v = as<Member>(&declaration); v && v->first_of_several) add(v->type);
  if (const auto* v = as<ValueBox>(&declaration)) add(v->type);
  if (const auto* v = as<Constant>(&declaration)) add(v->type);
  if (const auto* v = as<Parameter>(&declaration)) add(v->type);
  if (const auto* v = as<Attribute>(&declaration)) add(v->type);
  if (const auto* v = as<Operation>(&declaration)) add(v->result);
  if (const auto* v = as<Union>(&declaration)) add(v->discriminator);
  if (const auto* v = as<Struct>(&declaration)) add(v->base);
  return types;
}

}  // namespace idl
