#include <algorithm>
#include <map>

#include "check.h"
#include "ids.h"
#include "scopes.h"

namespace idl {
namespace {

// Names of newer types that older files use as names of their own; so they are known, but no keywords.
const std::map<std::string, TypeKind>& sized_integers() {
  static const std::map<std::string, TypeKind> table = {
      {"int16", TypeKind::Short},     {"int32", TypeKind::Long},    {"int64", TypeKind::LongLong},
      {"uint8", TypeKind::Octet},     {"uint16", TypeKind::UShort}, {"uint32", TypeKind::ULong},
      {"uint64", TypeKind::ULongLong}};
  return table;
}

// Goes through the file in its order, declares each name and resolves each use.
class Names {
 public:
  explicit Names(Diagnostics& diagnostics)
      : diagnostics_(diagnostics), scopes_(diagnostics), ids_(scopes_, diagnostics) {}

  void run(Module& root) {
    root.first = &root;
    scopes_.enter(root);
    for (Declaration* declaration : root.body) visit(*declaration);
    settle_forwards();
    ids_.finish();
  }

 private:
  void visit(Declaration& declaration);
  void module(Module& module);
  void interface(Interface& interface);
  void value_type(ValueType& value);
  void members(Definable& definable);
  void enumeration(Enum& enumeration);
  void operation(Operation& operation);
  void member(Member& member);
  void body(Scope& scope);
  void declare(Declaration& declaration);
  void settle_forwards();

  void type(Type* type);
  void expression(Expression* expression);
  void expressions(const std::vector<Expression*>& all) {
    for (Expression* one : all) expression(one);
  }
  void raises(std::vector<Raised>& raises) {
    for (Raised& one : raises) one.declared = scopes_.resolve(one.name);
  }
  template <class T>
  T* base(const ScopedName& name, const char* wanted);
  template <class T>
  void add_bases(T& derived);

  Diagnostics& diagnostics_;
  Scopes scopes_;
  RepositoryIds ids_;
  std::vector<Definable*> forwards_;
};

void Names::declare(Declaration& declaration) {
  scopes_.declare(declaration);
  ids_.declared(declaration);
}

void Names::visit(Declaration& declaration) {
  switch (declaration.kind) {
    case Kind::Module:
      return module(static_cast<Module&>(declaration));
    case Kind::Interface:
      return interface(static_cast<Interface&>(declaration));
    case Kind::ValueType:
      return value_type(static_cast<ValueType&>(declaration));
    case Kind::Struct:
    case Kind::Union:
      return members(static_cast<Definable&>(declaration));
    case Kind::Enum:
      return enumeration(static_cast<Enum&>(declaration));
    case Kind::Operation:
      return operation(static_cast<Operation&>(declaration));
    case Kind::Member:
      return member(static_cast<Member&>(declaration));
    case Kind::Pragma:
      return ids_.pragma(static_cast<Pragma&>(declaration));
    case Kind::TypeId: {
      const auto& line = static_cast<TypeId&>(declaration);
      return ids_.type_id(line, scopes_.resolve(line.target));
    }
    case Kind::Exception:
      declare(declaration);
      return body(static_cast<Exception&>(declaration));
    default:
      break;
  }
  for (Type* one : types_of(declaration)) type(one);
  if (auto* alias = as<Typedef>(&declaration)) expressions(alias->declarator.dimensions);
  if (auto* constant = as<Constant>(&declaration)) expression(constant->expression);
  declare(declaration);
  if (auto* attribute = as<Attribute>(&declaration))
    raises(attribute->get_raises), raises(attribute->set_raises);
  if (auto* factory = as<Factory>(&declaration)) body(*factory), raises(factory->raises);
}

void Names::body(Scope& scope) {
  scopes_.enter(scope);
  ids_.enter(scope);
  for (Declaration* inner : scope.body) visit(*inner);
  ids_.leave();
  scopes_.leave();
}

void Names::module(Module& module) {
  module.first = &module;
  declare(module);
  body(module);
}

void Names::operation(Operation& operation) {
  type(operation.result);
  declare(operation);
  scopes_.enter(operation);
  for (Declaration* parameter : operation.body) visit(*parameter);
  raises(operation.raises);
  scopes_.leave();
}

void Names::member(Member& member) {
  for (Expression* label : member.labels)
    if (label) expression(label);
  if (member.first_of_several) type(member.type);
  expressions(member.declarator.dimensions);
  declare(member);
}

void Names::enumeration(Enum& enumeration) {
  declare(enumeration);
  for (Enumerator* one : enumeration.enumerators) declare(*one);
}

// A struct or a union.
void Names::members(Definable& definable) {
  declare(definable);
  if (definable.forward) return forwards_.push_back(&definable);
  definable.definition = &definable;
  if (auto* structure = as<Struct>(&definable); structure && structure->base) type(structure->base);
  scopes_.enter(definable);
  if (auto* choice = as<Union>(&definable)) type(choice->discriminator);
  scopes_.leave();
  body(definable);
  definable.complete = true;
}

// --- bases --------------------------------------------------------------------------------------------------------

// The complete T that the name of a base means; null, and a report, when it means something else.
template <class T>
T* Names::base(const ScopedName& name, const char* wanted) {
  Declaration* const declared = scopes_.resolve(name);
  if (!declared) return nullptr;
  auto* const found = as<T>(const_cast<Declaration*>(defined(declared)));
  std::string message;
  if (!found)
    message = quoted(name.text()) + " is " + a_kind(declared->kind) + ", no " + wanted;
  else if (!found->complete)
    message = quoted(name.text()) + " is not defined before it is inherited";
  if (message.empty()) return found;
  if (diagnostics_.error(name.at(), message)) diagnostics_.note(declared->name.at, "it is declared here");
  return nullptr;
}

template <class T>
void Names::add_bases(T& derived) {
  constexpr unsigned deepest = 100;
  for (const ScopedName& name : derived.base_names) {
    T* const found = base<T>(name, kind_name(derived.kind));
    if (!found) continue;
    if (found->depth >= deepest) {
      diagnostics_.error(name.at(), "inheritance more than " + std::to_string(deepest) + " deep");
      continue;
    }
    derived.depth = std::max(derived.depth, found->depth + 1);
    derived.bases.push_back(found);
  }
  std::vector<T*>& all = derived.ancestors;
  const auto add = [&](T* one) {
    if (std::find(all.begin(), all.end(), one) == all.end()) all.push_back(one);
  };
  for (T* direct : derived.bases) {
    add(direct);
    for (T* indirect : direct->ancestors) add(indirect);
  }
}

void Names::interface(Interface& interface) {
  declare(interface);
  if (interface.forward) return forwards_.push_back(&interface);
  interface.definition = &interface;
  add_bases(interface);
  body(interface);
  interface.complete = true;
}

void Names::value_type(ValueType& value) {
  declare(value);
  if (value.forward) return forwards_.push_back(&value);
  value.definition = &value;
  add_bases(value);
  for (const ScopedName& name : value.support_names)
    if (Interface* supported = base<Interface>(name, "interface")) value.supports.push_back(supported);
  body(value);
  value.complete = true;
}

// Every announced thing has to be defined in the end.
void Names::settle_forwards() {
  for (Definable* forward : forwards_) {
    auto* definition = as<Definable>(Scopes::declared_in(*forward->scope, forward->name.text));
    if (definition && definition->kind == forward->kind && !definition->forward)
      forward->definition = definition;
    else if (definition == forward && forward->name.text != "TypeCode")
      diagnostics_.error(forward->name.at, quoted(forward->name.text) + " is announced, but never defined");
  }
}

// --- uses ---------------------------------------------------------------------------------------------------------

void Names::type(Type* type) {
  if (type->defines) return visit(*type->defines);
  if (type->element) this->type(type->element);
  if (type->bound) expression(type->bound);
  if (type->scale) expression(type->scale);
  if (type->kind != TypeKind::Named) return;
  const auto& sized = sized_integers();
  const auto builtin = type->name.parts.size() == 1 ? sized.find(type->name.text()) : sized.end();
  if (builtin != sized.end() && !scopes_.look_up(type->name)) {
    type->kind = builtin->second;
    return;
  }
  type->declared = scopes_.resolve(type->name);
  const auto* definable = as<Definable>(type->declared);
  type->open = definable && !definable->complete;
}

void Names::expression(Expression* expression) {
  if (expression->op == 'n') expression->declared = scopes_.resolve(expression->name);
  if (expression->left) this->expression(expression->left);
  if (expression->right) this->expression(expression->right);
}

}  // namespace

void check_names(Tree& tree, Diagnostics& diagnostics) { Names(diagnostics).run(*tree.root); }

}  // namespace idl
