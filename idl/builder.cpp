#include "builder.h"

#include <algorithm>

namespace idl {

ScopedName extended(ScopedName name, Identifier part) {
  name.parts.push_back(std::move(part));
  return name;
}

Raises raised(ScopedNames names) {
  Raises raises;
  for (ScopedName& name : names) raises.push_back({std::move(name)});
  return raises;
}

// --- declarations -------------------------------------------------------------------------------------------------

Declaration* Builder::pragma(const PragmaText& text, const Location& at) {
  Pragma* const made = tree.make<Pragma>(text.of, at);
  made->text = text.text;
  std::string rest = text.target;
  if (rest.starts_with("::")) made->target.absolute = true, rest.erase(0, 2);
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find("::"), rest.size());
    made->target.parts.push_back({rest.substr(0, end), at});
    rest.erase(0, end + 2);
  }
  return made;
}

Declaration* Builder::type_id(bool is_prefix, ScopedName target, const Value& text, const Location& at) {
  return tree.make<TypeId>(is_prefix, std::move(target), this->text(text, at));
}

Declaration* Builder::interface(Flavour flavour, Identifier name, ScopedNames bases, Declarations body,
                                bool forward) {
  Interface* const made = scope<Interface>(std::move(name), std::move(body));
  made->flavour = flavour;
  made->base_names = std::move(bases);
  made->forward = forward;
  return made;
}

Declarations Builder::attributes(bool readonly, Type* type, Identifiers names, const Raises& get,
                                 const Raises& set) {
  Declarations made;
  for (Identifier& name : names) {
    Attribute* const one = tree.make<Attribute>(std::move(name));
    one->readonly = readonly;
    one->type = type;
    one->get_raises = get;
    one->set_raises = set;
    made.push_back(one);
  }
  return made;
}

Declaration* Builder::operation(bool oneway, Type* result, Identifier name, Declarations parameters,
                                Raises raises, Texts contexts) {
  Operation* const made = scope<Operation>(std::move(name), std::move(parameters));
  made->oneway = oneway;
  made->result = result;
  made->raises = std::move(raises);
  made->contexts = std::move(contexts);
  return made;
}

Declaration* Builder::parameter(Direction direction, Type* type, Identifier name) {
  Parameter* const made = tree.make<Parameter>(std::move(name));
  made->direction = direction;
  made->type = type;
  return made;
}

Declaration* Builder::constant(Type* type, Identifier name, Expression* expression) {
  Constant* const made = tree.make<Constant>(std::move(name));
  made->type = type;
  made->expression = expression;
  return made;
}

Declaration* Builder::value(ValueHead head, bool truncatable, ScopedNames bases, ScopedNames supports,
                            Declarations body, bool forward) {
  ValueType* const made = scope<ValueType>(std::move(head.name), std::move(body));
  made->flavour = head.flavour;
  made->truncatable = truncatable;
  made->base_names = std::move(bases);
  made->support_names = std::move(supports);
  made->forward = forward;
  return made;
}

Declaration* Builder::value_box(const ValueHead& head, Type* type) {
  if (head.flavour != Flavour::Plain)
    diagnostics.error(head.name.at, "a value box is neither abstract nor custom");
  ValueBox* const made = tree.make<ValueBox>(head.name);
  made->type = type;
  return made;
}

Declarations Builder::state(bool is_public, Declarations members) {
  for (Declaration* member : members)
    if (Member* const one = as<Member>(member)) one->is_public = is_public;
  return members;
}

Declaration* Builder::factory(Identifier name, Declarations parameters, Raises raises) {
  Factory* const made = scope<Factory>(std::move(name), std::move(parameters));
  made->raises = std::move(raises);
  return made;
}

Declaration* Builder::structure(Identifier name, Type* base, Declarations members) {
  Struct* const made = scope<Struct>(std::move(name), std::move(members));
  made->base = base;
  return made;
}

Declaration* Builder::union_of(Identifier name, Type* discriminator, Declarations cases) {
  Union* const made = scope<Union>(std::move(name), std::move(cases));
  made->discriminator = discriminator;
  return made;
}

Declarations Builder::union_case(Expressions labels, Type* type, Declarator declarator) {
  Declarations made = declare<Member>(type, {std::move(declarator)});
  static_cast<Member*>(made[0])->labels = std::move(labels);
  return made;
}

Declaration* Builder::enumeration(Identifier name, Identifiers names) {
  Enum* const made = tree.make<Enum>(std::move(name));
  for (Identifier& one : names) {
    Enumerator* const enumerator = tree.make<Enumerator>(std::move(one));
    enumerator->of = made;
    enumerator->ordinal = static_cast<std::uint32_t>(made->enumerators.size());
    made->enumerators.push_back(enumerator);
  }
  return made;
}

// --- types --------------------------------------------------------------------------------------------------------

Type* Builder::basic(TypeKind kind, const Location& at) {
  Type* const made = tree.make<Type>();
  made->kind = kind;
  made->at = at;
  return made;
}

Type* Builder::bounded(TypeKind kind, Expression* bound, const Location& at) {
  Type* const made = basic(kind, at);
  made->bound = bound;
  return made;
}

Type* Builder::fixed(Expression* digits, Expression* scale, const Location& at) {
  Type* const made = bounded(TypeKind::Fixed, digits, at);
  made->scale = scale;
  return made;
}

Type* Builder::sequence(Type* element, Expression* bound, const Location& at) {
  Type* const made = bounded(TypeKind::Sequence, bound, at);
  made->element = element;
  return made;
}

Type* Builder::named(ScopedName name, const Location& at) {
  Type* const made = basic(TypeKind::Named, at);
  made->name = std::move(name);
  return made;
}

// CORBA::Object is the Object of the language.
Type* Builder::of_corba(const ScopedName& scope, TypeKind kind, const Location& at) {
  if (scope.parts.size() != 1 || scope.parts[0].text != "CORBA")
    diagnostics.error(at, "only module CORBA has a member of this name");
  return basic(kind, at);
}

Type* Builder::defined_here(Declaration* definition, const Location& at) {
  Type* const made = basic(TypeKind::Named, at);
  made->name.parts.push_back(definition->name);
  made->declared = made->defines = definition;
  return made;
}

// --- expressions --------------------------------------------------------------------------------------------------

Expression* Builder::binary(char op, Expression* left, Expression* right, const Location& at) {
  Expression* const made = tree.make<Expression>();
  made->op = op;
  made->at = at;
  made->left = left;
  made->right = right;
  made->depth = std::max(left ? left->depth : 0, right->depth) + 1;
  if (made->depth <= Expression::deepest) return made;
  diagnostics.error(
      at, "an expression of more than " + std::to_string(Expression::deepest) + " operators in a row");
  throw GiveUp();
}

Expression* Builder::unary(char op, Expression* operand, const Location& at) {
  return binary(op, nullptr, operand, at);
}

Expression* Builder::name(ScopedName name) {
  Expression* const made = literal(Value(), name.at());
  made->op = 'n';
  made->name = std::move(name);
  return made;
}

Expression* Builder::literal(Value value, const Location& at) {
  Expression* const made = tree.make<Expression>();
  made->op = 'l';
  made->at = at;
  made->literal = std::move(value);
  return made;
}

Value Builder::joined_text(Value first, const Value& second, const Location& at) {
  if (auto* narrow = std::get_if<std::string>(&first))
    if (const auto* more = std::get_if<std::string>(&second)) return *narrow + *more;
  if (auto* wide = std::get_if<std::u32string>(&first))
    if (const auto* more = std::get_if<std::u32string>(&second)) return *wide + *more;
  if (first.index() && second.index())
    diagnostics.error(at, "only string literals of one kind may stand side by side");
  return {};
}

std::string Builder::text(const Value& literal, const Location& at) {
  if (const auto* text = std::get_if<std::string>(&literal)) return *text;
  if (literal.index()) diagnostics.error(at, "a string literal is expected here");
  return "wrong";
}

}  // namespace idl
