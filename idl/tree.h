// What an IDL file says, as a tree. The parser builds it; the passes (check.h) fill in what is marked as found later.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "source.h"
#include "value.h"

namespace idl {

struct Declaration;
struct Scope;

/// Everything that a tree owns.
struct Node {
  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  virtual ~Node() = default;
};

struct Identifier {
  std::string text;
  Location at;
};

/// A::B::C, or ::A::B::C when it is absolute.
struct ScopedName {
  bool absolute = false;
  std::vector<Identifier> parts;

  std::string text() const;
  const Location& at() const { return parts.back().at; }
};

// --- expressions --------------------------------------------------------------------------------------------------

struct Expression : Node {
  /// Deeper ones are refused, so that every pass may descend them.
  static constexpr unsigned deepest = 200;

  char op =
      0;  // of | ^ & < (<<) > (>>) + - * / % ~; 'n' a name, 'l' a literal; with no `left` the op is unary
  Location at;
  Value literal;
  ScopedName name;
  Declaration* declared = nullptr;  // found by names: what `name` is
  Expression* left = nullptr;
  Expression* right = nullptr;
  unsigned depth = 1;
};

// --- types --------------------------------------------------------------------------------------------------------

enum class TypeKind : std::uint8_t {
  Void,
  Short,
  Long,
  LongLong,
  UShort,
  ULong,
  ULongLong,
  Float,
  Double,
  LongDouble,
  Char,
  WChar,
  Boolean,
  Octet,
  Any,
  Object,
  ValueBase,
  String,
  WString,
  Fixed,
  Sequence,
  Named,
};

/// The use of a type.
struct Type : Node {
  TypeKind kind = TypeKind::Void;
  Location at;
  ScopedName name;                  // of Named
  Declaration* declared = nullptr;  // of Named, found by names; null where that failed
  Declaration* defines = nullptr;   // of Named: the struct, union or enum that is defined right here
  Type* element = nullptr;          // of Sequence
  Expression* bound = nullptr;      // of String, WString, Sequence; digits of Fixed; null for none
  Expression* scale = nullptr;      // of Fixed
  bool open = false;                // found by names: `declared` was not complete where the type is used
  std::uint32_t bound_value = 0;    // found by constants; 0 for none
  std::uint32_t scale_value = 0;
};

/// What stands behind a type: a name and its array dimensions.
struct Declarator {
  Identifier name;
  std::vector<Expression*> dimensions;
  std::vector<std::uint32_t> sizes;  // found by constants
};

// --- declarations -------------------------------------------------------------------------------------------------

enum class Kind : std::uint8_t {
  Module,
  Interface,
  ValueType,
  ValueBox,
  Native,
  Typedef,
  Struct,
  Union,
  Enum,
  Enumerator,
  Exception,
  Constant,
  Operation,
  Attribute,
  Parameter,
  Member,
  Factory,
  Pragma,
  TypeId,
};

struct Declaration : Node {
  Declaration(Kind k, Identifier n) : kind(k), name(std::move(n)) {}

  const Kind kind;
  Identifier name;
  Scope* scope = nullptr;  // found by names: where it is declared
  std::string id;          // found by names: the repository id, of what has one
  bool anonymous = false;  // not entered in a scope

  std::uint32_t file() const { return name.at.file; }
};

/// A declaration that others stand in. Reopened modules share the table of the first.
struct Scope : Declaration {
  struct Entry {
    std::string spelling;
    Location at;
    Declaration* declaration = nullptr;
    bool used_only = false;  // a name of an outer scope that was used here
  };

  using Declaration::Declaration;
  std::vector<Declaration*> body;
  std::unordered_map<std::string, Entry> table;  // by the name in lower case
};

/// A module, or the whole file (which has no name).
struct Module : Scope {
  explicit Module(Identifier n) : Scope(Kind::Module, std::move(n)) {}
  Module* first = nullptr;  // found by names: where the table is; itself unless it reopens another
};

/// What may be announced before it is defined: interface, valuetype, struct or union.
struct Definable : Scope {
  using Scope::Scope;
  bool forward = false;
  Definable* definition = nullptr;  // found by names: of a forward declaration; itself in the definition
  bool complete = false;            // found by names: set when its end is passed
};

enum class Flavour : std::uint8_t { Plain, Abstract, Local, Custom };

struct Interface : Definable {
  explicit Interface(Identifier n) : Definable(Kind::Interface, std::move(n)) {}
  Flavour flavour = Flavour::Plain;
  std::vector<ScopedName> base_names;
  std::vector<Interface*> bases;      // found by names: the good ones, in order
  std::vector<Interface*> ancestors;  // found by names: all bases, direct ones and others, each once
  Interface* handler = nullptr;       // made by add_reply_handlers: takes the replies of asynchronous calls
  unsigned depth = 1;
};

struct ValueType : Definable {
  explicit ValueType(Identifier n) : Definable(Kind::ValueType, std::move(n)) {}
  Flavour flavour = Flavour::Plain;
  bool truncatable = false;
  std::vector<ScopedName> base_names, support_names;
  std::vector<ValueType*> bases;
  std::vector<ValueType*> ancestors;
  std::vector<Interface*> supports;
  unsigned depth = 1;
};

struct ValueBox : Declaration {
  explicit ValueBox(Identifier n) : Declaration(Kind::ValueBox, std::move(n)) {}
  Type* type = nullptr;
};

struct Native : Declaration {
  explicit Native(Identifier n) : Declaration(Kind::Native, std::move(n)) {}
};

struct Typedef : Declaration {
  explicit Typedef(Declarator d) : Declaration(Kind::Typedef, d.name), declarator(std::move(d)) {}
  Type* type = nullptr;
  bool first_of_several = true;  // the one that also carries what its type defines
  Declarator declarator;
};

/// A member of a struct, an exception, a union or the state of a valuetype.
struct Member : Declaration {
  explicit Member(Declarator d) : Declaration(Kind::Member, d.name), declarator(std::move(d)) {}
  Type* type = nullptr;
  bool first_of_several = true;
  bool is_public = true;
  Declarator declarator;

  // Of a union: where it applies.
  std::vector<Expression*> labels;  // null for default
  std::vector<Value> label_values;  // found by constants, by label
};

struct Struct : Definable {
  explicit Struct(Identifier n) : Definable(Kind::Struct, std::move(n)) {}
  Type* base = nullptr;
};

struct Exception : Scope {
  explicit Exception(Identifier n) : Scope(Kind::Exception, std::move(n)) {}
};

struct Union : Definable {
  explicit Union(Identifier n) : Definable(Kind::Union, std::move(n)) {}
  Type* discriminator = nullptr;
  bool has_default = false;     // found by unions
  bool has_free_value = false;  // found by unions: some value of the discriminator selects no case
  Value free_value;             // found by unions: the first of them, or a value for the default case
};

struct Enumerator : Declaration {
  explicit Enumerator(Identifier n) : Declaration(Kind::Enumerator, std::move(n)) {}
  struct Enum* of = nullptr;
  std::uint32_t ordinal = 0;
};

struct Enum : Declaration {
  explicit Enum(Identifier n) : Declaration(Kind::Enum, std::move(n)) {}
  std::vector<Enumerator*> enumerators;
};

struct Constant : Declaration {
  explicit Constant(Identifier n) : Declaration(Kind::Constant, std::move(n)) {}
  Type* type = nullptr;
  Expression* expression = nullptr;
  Value value;  // found by constants
};

enum class Direction : std::uint8_t { In, Out, InOut };

struct Parameter : Declaration {
  explicit Parameter(Identifier n) : Declaration(Kind::Parameter, std::move(n)) {}
  Direction direction = Direction::In;
  Type* type = nullptr;
};

struct Raised {
  ScopedName name;
  Declaration* declared = nullptr;  // found by names
};

/// Its body are the parameters.
struct Operation : Scope {
  explicit Operation(Identifier n) : Scope(Kind::Operation, std::move(n)) {}
  bool oneway = false;
  Type* result = nullptr;  // Void for none
  std::vector<Raised> raises;
  std::vector<std::pair<std::string, Location>> contexts;
};

/// How a valuetype is made. Its body are the parameters.
struct Factory : Scope {
  explicit Factory(Identifier n) : Scope(Kind::Factory, std::move(n)) {}
  std::vector<Raised> raises;
};

struct Attribute : Declaration {
  explicit Attribute(Identifier n) : Declaration(Kind::Attribute, std::move(n)) {}
  bool readonly = false;
  Type* type = nullptr;
  std::vector<Raised> get_raises, set_raises;
};

/// #pragma prefix "text", #pragma ID name "text", #pragma version name text.
struct Pragma : Declaration {
  enum class Of : std::uint8_t { Prefix, Id, Version };
  Pragma(Of o, Location at) : Declaration(Kind::Pragma, {"", at}), of(o) { anonymous = true; }
  const Of of;
  ScopedName target;
  std::string text;
};

/// typeid name "text"; typeprefix name "text";
struct TypeId : Declaration {
  TypeId(bool p, ScopedName t, std::string s)
      : Declaration(Kind::TypeId, {"", t.at()}), is_prefix(p), target(std::move(t)), text(std::move(s)) {
    anonymous = true;
  }
  const bool is_prefix;
  ScopedName target;
  std::string text;
};

// --- the whole ----------------------------------------------------------------------------------------------------

class Tree {
 public:
  Tree() { root = make<Module>(Identifier{}); }

  template <class T, class... Arguments>
  T* make(Arguments&&... arguments) {
    auto node = std::make_unique<T>(std::forward<Arguments>(arguments)...);
    T* const made = node.get();
    nodes_.push_back(std::move(node));
    return made;
  }

  Module* root;  // all that was read, included files too

 private:
  std::vector<std::unique_ptr<Node>> nodes_;
};

/// The declaration as a T, or null when it is something else.
template <class T>
T* as(Declaration* declaration) {
  return dynamic_cast<T*>(declaration);
}
template <class T>
const T* as(const Declaration* declaration) {
  return dynamic_cast<const T*>(declaration);
}

/// "interface", "struct" ... as messages say it.
const char* kind_name(Kind kind);
/// The same with its article.
std::string a_kind(Kind kind);
/// "unsigned long", "A::B", "sequence<...>" as messages say it.
std::string type_name(const Type& type);
/// "A::B::C".
std::string full_name(const Declaration& declaration);

/// The type behind all typedefs that have no dimensions; the last of them where one has. Never null.
const Type& unalias(const Type& type);
/// What a type is behind all typedefs: its declaration, or null for one that has no name. An array gives its typedef.
const Declaration* meaning(const Type& type);
/// The definition where the declaration is a forward one that has one.
const Declaration* defined(const Declaration* declaration);

/// The types that a declaration writes itself, outside of what stands in it; not those of a declarator list that an
/// earlier declarator has given already.
std::vector<Type*> types_of(const Declaration& declaration);

/// Calls function for a declaration and all that stand in it, in the order of the file.
template <class Function>
void walk(Declaration& declaration, Function&& function) {
  function(declaration);
  for (Type* type : types_of(declaration))
    if (type->defines) walk(*type->defines, function);
  if (Scope* scope = as<Scope>(&declaration))
    for (Declaration* inner : scope->body) walk(*inner, function);
}

}  // namespace idl
