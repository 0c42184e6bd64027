#include <algorithm>
#include <map>
#include <string>

#include "check.h"
#include "scopes.h"

namespace idl {
namespace {

class Inheritance {
 public:
  explicit Inheritance(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(Declaration& declaration) {
    if (auto* interface = as<Interface>(&declaration)) {
      this->interface(*interface);
    } else if (auto* value = as<ValueType>(&declaration)) {
      this->value(*value);
    }
    if (auto* definable = as<Definable>(&declaration)) same_flavour(*definable);
  }

 private:
  using Inherited =
      std::map<std::string, const Declaration*>;  // operations and attributes, by name in lower case

  void interface(const Interface& interface);
  void value(const ValueType& value);
  void supports(const ValueType& value);
  void same_flavour(const Definable& definable);
  template <class T>
  void no_base_twice(const T& derived);
  void add(Inherited& inherited, const Scope& base, const Identifier& derived);
  void not_again(const Inherited& inherited, const Scope& scope);

  Diagnostics& diagnostics_;
};

bool is_callable(const Declaration& declaration) {
  return declaration.kind == Kind::Operation || declaration.kind == Kind::Attribute;
}

template <class T>
void Inheritance::no_base_twice(const T& derived) {
  for (std::size_t i = 0; i < derived.bases.size(); ++i)
    if (std::find(derived.bases.begin(), derived.bases.begin() + static_cast<std::ptrdiff_t>(i),
                  derived.bases[i]) != derived.bases.begin() + static_cast<std::ptrdiff_t>(i))
      diagnostics_.error(derived.name.at, quoted(derived.name.text) + " inherits " +
                                              quoted(full_name(*derived.bases[i])) + " twice directly");
}

void Inheritance::interface(const Interface& interface) {
  no_base_twice(interface);
  const std::string name = quoted(interface.name.text);
  for (const Interface* base : interface.bases) {
    const std::string base_name = quoted(full_name(*base));
    if (interface.flavour == Flavour::Abstract && base->flavour != Flavour::Abstract)
      diagnostics_.error(interface.name.at,
                         "abstract interface " + name + " inherits " + base_name + ", which is not abstract");
    if (interface.flavour != Flavour::Local && base->flavour == Flavour::Local)
      diagnostics_.error(interface.name.at,
                         "interface " + name + " inherits " + base_name + ", which is local");
  }
  Inherited inherited;
  for (const Interface* base : interface.ancestors) add(inherited, *base, interface.name);
  not_again(inherited, interface);
}

// Two bases may not bring different operations or attributes under one name.
void Inheritance::add(Inherited& inherited, const Scope& base, const Identifier& derived) {
  for (const Declaration* one : base.body) {
    if (!is_callable(*one)) continue;
    const auto [other, is_new] = inherited.emplace(lower_case(one->name.text), one);
    if (is_new || other->second == one) continue;
    if (!diagnostics_.error(derived.at,
                            quoted(derived.text) + " inherits " + quoted(one->name.text) + " from two bases"))
      continue;
    diagnostics_.note(other->second->name.at, "one is here");
    diagnostics_.note(one->name.at, "the other one is here");
  }
}

// What is inherited as an operation or attribute may not be declared again, nor become one.
void Inheritance::not_again(const Inherited& inherited, const Scope& scope) {
  for (const Declaration* one : scope.body) {
    const auto other = inherited.find(lower_case(one->name.text));
    if (one->anonymous || other == inherited.end()) continue;
    const Declaration& base = *other->second;
    if (diagnostics_.error(one->name.at, quoted(one->name.text) + " is inherited from " +
                                             quoted(full_name(*base.scope)) +
                                             " and cannot be declared again"))
      diagnostics_.note(base.name.at, "it is declared here");
  }
}

void Inheritance::value(const ValueType& value) {
  no_base_twice(value);
  const std::string name = quoted(value.name.text);
  for (std::size_t i = 0; i < value.bases.size(); ++i) {
    const ValueType& base = *value.bases[i];
    if (base.flavour == Flavour::Abstract) continue;
    if (value.flavour == Flavour::Abstract)
      diagnostics_.error(value.name.at, "abstract valuetype " + name + " inherits " +
                                            quoted(full_name(base)) + ", which is not abstract");
    else if (i > 0)
      diagnostics_.error(value.name.at,
                         quoted(full_name(base)) + " has state, so it has to be the first base of " + name);
  }
  const bool has_state_base = !value.bases.empty() && value.bases[0]->flavour != Flavour::Abstract;
  if (value.truncatable && (value.flavour == Flavour::Custom || !has_state_base))
    diagnostics_.error(value.name.at, name + " cannot be truncated: it is custom, or its base has no state");
  if (value.flavour == Flavour::Abstract)
    for (const Declaration* one : value.body)
      if (one->kind == Kind::Member || one->kind == Kind::Factory)
        diagnostics_.error(one->name.at, "an abstract valuetype has neither state nor factories");
  supports(value);
}

void Inheritance::supports(const ValueType& value) {
  const auto concrete = [](const Interface* one) { return one->flavour != Flavour::Abstract; };
  if (std::count_if(value.supports.begin(), value.supports.end(), concrete) > 1)
    diagnostics_.error(value.name.at,
                       quoted(value.name.text) + " supports more than one interface that is not abstract");
  Inherited inherited;
  for (const ValueType* base : value.ancestors) add(inherited, *base, value.name);
  for (const Interface* one : value.supports) {
    add(inherited, *one, value.name);
    for (const Interface* base : one->ancestors) add(inherited, *base, value.name);
  }
  not_again(inherited, value);
}

// An announcement says the same about it as the definition.
void Inheritance::same_flavour(const Definable& definable) {
  if (!definable.forward || !definable.definition) return;
  const auto *announced = as<Interface>(&definable), *interface = as<Interface>(definable.definition);
  const auto *value = as<ValueType>(&definable), *other = as<ValueType>(definable.definition);
  const bool differs =
      announced ? announced->flavour != interface->flavour
                : value && (value->flavour == Flavour::Abstract) != (other->flavour == Flavour::Abstract);
  if (differs && diagnostics_.error(definable.definition->name.at,
                                    quoted(definable.name.text) + " is not announced as it is defined"))
    diagnostics_.note(definable.name.at, "it is announced here");
}

}  // namespace

void check_inheritance(Tree& tree, Diagnostics& diagnostics) {
  Inheritance pass(diagnostics);
  walk(*tree.root, [&](Declaration& declaration) { pass.visit(declaration); });
}

}  // namespace idl
