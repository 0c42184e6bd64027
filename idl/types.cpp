#include "types.h"

#include "check.h"

namespace idl {
namespace {

bool is_type(Kind kind) {
  switch (kind) {
    case Kind::Interface:
    case Kind::ValueType:
    case Kind::ValueBox:
    case Kind::Native:
    case Kind::Typedef:
    case Kind::Struct:
    case Kind::Union:
    case Kind::Enum:
      return true;
    default:
      return false;
  }
}

class Types {
 public:
  explicit Types(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(const Declaration& declaration) {
    for (const Type* one : types_of(declaration)) type(*one, false);
    if (const auto* structure = as<Struct>(&declaration)) this->structure(*structure);
    if (declaration.kind != Kind::Constant)
      for (const Type* one : types_of(declaration)) fixed(*one);
    if (const auto* box = as<ValueBox>(&declaration)) this->box(*box);
  }

 private:
  void type(const Type& type, bool in_sequence);
  void structure(const Struct& structure);
  void fixed(const Type& type);
  void box(const ValueBox& box);

  Diagnostics& diagnostics_;
};

void Types::type(const Type& type, bool in_sequence) {
  if (type.element) return this->type(*type.element, true);
  const Declaration* const declared = type.declared;
  if (!declared || type.defines) return;
  if (!is_type(declared->kind)) {
    if (diagnostics_.error(type.name.at(),
                           quoted(type.name.text()) + " is " + a_kind(declared->kind) + ", no type"))
      diagnostics_.note(declared->name.at, "it is declared here");
    return;
  }
  const bool by_value = declared->kind == Kind::Struct || declared->kind == Kind::Union;
  if (!by_value || !type.open || in_sequence) return;
  if (diagnostics_.error(type.name.at(), quoted(type.name.text()) +
                                             " is not complete here; only a sequence of it is possible"))
    diagnostics_.note(declared->name.at, "it begins here");
}

void Types::structure(const Struct& structure) {
  const bool has_member = structure.forward || structure.base || !structure.body.empty();
  if (!has_member) diagnostics_.error(structure.name.at, "a struct has at least one member");
  if (!structure.base) return;
  const Declaration* const base = meaning(*structure.base);
  if (base && base->kind != Kind::Struct)
    diagnostics_.error(structure.base->at,
                       quoted(base->name.text) + " is " + a_kind(base->kind) + ", no struct");
}

// The digits of a fixed type are given wherever it is not the type of a constant.
void Types::fixed(const Type& type) {
  if (type.element) return fixed(*type.element);
  if (type.kind == TypeKind::Fixed && !type.bound)
    diagnostics_.error(type.at, "fixed needs its digits and scale: fixed<digits, scale>");
}

void Types::box(const ValueBox& box) {
  const Declaration* const inner = meaning(*box.type);
  if (inner && (inner->kind == Kind::ValueType || inner->kind == Kind::ValueBox))
    diagnostics_.error(box.type->at, "a value box cannot hold a valuetype");
}

}  // namespace

bool discriminates(const Type& type) {
  const Type& real = unalias(type);
  if (real.kind == TypeKind::Named) {
    const Declaration* const declared = meaning(real);
    return declared && declared->kind == Kind::Enum;
  }
  const bool floating = real.kind >= TypeKind::Float && real.kind <= TypeKind::LongDouble;
  return real.kind > TypeKind::Void && real.kind <= TypeKind::Octet && !floating;
}

const Declaration* LocalParts::of(const Type& type) {
  if (type.element) return of(*type.element);
  const Declaration* const declared = defined(type.declared);
  return declared ? of(*declared) : nullptr;
}

// A sequence of what is being looked into comes back to it, and finds nothing more.
const Declaration* LocalParts::of(const Declaration& declared) {
  if (const auto [known, is_new] = known_.emplace(&declared, nullptr); !is_new) return known->second;
  const Declaration* found = nullptr;
  if (const auto* interface = as<Interface>(&declared)) {
    if (interface->flavour == Flavour::Local) found = interface;
  } else if (declared.kind == Kind::Native) {
    found = &declared;
  } else if (declared.kind == Kind::Typedef || declared.kind == Kind::Member) {
    found = of(*(declared.kind == Kind::Typedef ? static_cast<const Typedef&>(declared).type
                                                : static_cast<const Member&>(declared).type));
  } else if (declared.kind == Kind::Struct || declared.kind == Kind::Union ||
             declared.kind == Kind::Exception) {
    for (const Declaration* inner : static_cast<const Scope&>(declared).body)
      if (!found) found = of(*inner);
  }
  return known_[&declared] = found;
}

void check_types(Tree& tree, Diagnostics& diagnostics) {
  Types pass(diagnostics);
  walk(*tree.root, [&](Declaration& declaration) { pass.visit(declaration); });
}

}  // namespace idl
