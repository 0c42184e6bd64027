// What the grammar's actions call to make nodes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "diagnostics.h"
#include "tree.h"

namespace idl {

class Scanner;

using Declarations = std::vector<Declaration*>;
using Declarators = std::vector<Declarator>;
using Expressions = std::vector<Expression*>;
using Identifiers = std::vector<Identifier>;
using ScopedNames = std::vector<ScopedName>;
using Raises = std::vector<Raised>;
using Texts = std::vector<std::pair<std::string, Location>>;

struct ValueHead {
  Flavour flavour = Flavour::Plain;
  Identifier name;
};

/// A #pragma as it was written.
struct PragmaText {
  Pragma::Of of = Pragma::Of::Prefix;
  std::string target;
  std::string text;
};

/// The first list with the second behind it.
template <class List>
List joined(List first, List second) {
  for (auto& item : second) first.push_back(std::move(item));
  return first;
}

template <class List, class Item>
List appended(List list, Item item) {
  list.push_back(std::move(item));
  return list;
}

ScopedName extended(ScopedName name, Identifier part);
Raises raised(ScopedNames names);

struct Builder {
  Scanner& scanner;
  Tree& tree;
  Diagnostics& diagnostics;

  template <class T>
  T* scope(Identifier name, Declarations&& body) {
    T* const made = tree.make<T>(std::move(name));
    made->body = std::move(body);
    return made;
  }
  template <class T>
  T* forward(Identifier name) {
    T* const made = tree.make<T>(std::move(name));
    made->forward = true;
    return made;
  }
  /// One declaration a declarator, all of one type.
  template <class T>
  Declarations declare(Type* type, Declarators declarators) {
    Declarations made;
    for (Declarator& declarator : declarators) {
      T* const one = tree.make<T>(std::move(declarator));
      one->type = type;
      one->first_of_several = made.empty();
      made.push_back(one);
    }
    return made;
  }

  Declaration* pragma(const PragmaText& text, const Location& at);
  Declaration* type_id(bool is_prefix, ScopedName target, const Value& text, const Location& at);
  Declaration* interface(Flavour flavour, Identifier name, ScopedNames bases, Declarations body,
                         bool forward);
  Declarations attributes(bool readonly, Type* type, Identifiers names, const Raises& get, const Raises& set);
  Declaration* operation(bool oneway, Type* result, Identifier name, Declarations parameters, Raises raises,
                         Texts contexts);
  Declaration* parameter(Direction direction, Type* type, Identifier name);
  Declaration* constant(Type* type, Identifier name, Expression* expression);
  Declaration* value(ValueHead head, bool truncatable, ScopedNames bases, ScopedNames supports,
                     Declarations body, bool forward);
  Declaration* value_box(const ValueHead& head, Type* type);
  Declarations state(bool is_public, Declarations members);
  Declaration* factory(Identifier name, Declarations parameters, Raises raises);
  Declaration* structure(Identifier name, Type* base, Declarations members);
  Declaration* union_of(Identifier name, Type* discriminator, Declarations cases);
  Declarations union_case(Expressions labels, Type* type, Declarator declarator);
  Declaration* enumeration(Identifier name, Identifiers names);

  Type* basic(TypeKind kind, const Location& at);
  Type* bounded(TypeKind kind, Expression* bound, const Location& at);
  Type* fixed(Expression* digits, Expression* scale, const Location& at);
  Type* sequence(Type* element, Expression* bound, const Location& at);
  Type* named(ScopedName name, const Location& at);
  Type* of_corba(const ScopedName& scope, TypeKind kind, const Location& at);
  Type* defined_here(Declaration* definition, const Location& at);

  Expression* binary(char op, Expression* left, Expression* right, const Location& at);
  Expression* unary(char op, Expression* operand, const Location& at);
  Expression* name(ScopedName name);
  Expression* literal(Value value, const Location& at);
  /// Two string literals side by side are one.
  Value joined_text(Value first, const Value& second, const Location& at);
  /// The text of a literal that has to be a string.
  std::string text(const Value& literal, const Location& at);
};

}  // namespace idl
