// A checked file as C++: the header and the source.
#pragma once

#include "compile.h"
#include "emit/spelling.h"
#include "emit/writer.h"

namespace idl {

struct EmitOptions {
  bool environment = false;  // operations have a last parameter CORBA::Environment&
  bool async = false;        // interfaces have asynchronous calls, and handlers of their replies
};

struct Emitted {
  std::string header, source;
};

/// What a file becomes; `name` is its name without ".idl". What cannot be generated is an error, and the result then
/// good for nothing.
Emitted emit(Compilation& compilation, const std::string& name, const EmitOptions& options);

// --- the kinds of things, a file each -----------------------------------------------------------------------------

/// Reports each thing of the file that has no C++ here.
void refuse_what_has_no_mapping(Compilation& compilation);

/// The headers that the file needs beside poa/mapping.h.
std::vector<std::string> extra_headers(Compilation& compilation);

/// Gives each interface the interface of the objects that take its replies: AMI_<Name>Handler. What stands in the way is
/// an error.
void add_reply_handlers(Compilation& compilation);

/// What stands around a declaration, as far as its C++ differs by that.
enum class Inside : std::uint8_t { Namespace, Class };

/// Constants, typedefs, structs, unions, enums and exceptions.
class TypeEmitter {
 public:
  TypeEmitter(Writer& out, const Spelling& spell) : out_(out), spell_(spell) {}
  void declare(const Declaration& declaration, Inside inside);

 private:
  void constant(const Constant& constant, Inside inside);
  void enumeration(const Enum& enumeration, Inside inside);
  void alias(const Typedef& alias, Inside inside);
  void sequence(const Typedef& alias, Inside inside);
  void unnamed_sequences(const Type* type, Inside inside);
  void sequence_class(const std::string& name, const Type& type);
  void array(const Typedef& alias, Inside inside);
  void array_tag(const std::string& tag, const std::string& id, const Type& element,
                 const Declarator& declarator);
  void array_functions(const std::string& name, Inside inside);
  void plain_alias(const Typedef& alias, Inside inside);
  void structure(const Struct& structure, Inside inside);
  void exception(const Exception& exception, Inside inside);
  void constructors(const std::string& name, const std::vector<const Member*>& all);
  void members(const Scope& scope);
  void unnamed_types(const Member& member);
  void choice(const Union& choice, Inside inside);
  std::string inner_types(const Union& choice, const std::vector<const Member*>& all);
  void array_accessors(const std::string& name, const std::string& index, const std::string& label,
                       const std::string& descriptor);
  void accessors(const Union& choice, const Member& member, std::size_t index);
  void owners(const std::string& name, const Type* type, bool fixed);
  void typecode(const std::string& name, const std::string& descriptor, Inside inside);

  Writer& out_;
  const Spelling& spell_;
};

/// The specialisations of CORBA::idl::Type that describe types to the library.
void describe_type(Writer& out, const Spelling& spell, const Declaration& declaration);

/// The classes of interfaces as clients see them.
void declare_interface(Writer& out, const Spelling& spell, const Interface& interface,
                       const EmitOptions& options);
/// The lines by which an interface can be used before it is defined.
void announce_interface(Writer& out, const Interface& interface);
/// Base classes of servants, and ties.
void declare_skeleton(Writer& out, const Spelling& spell, const Interface& interface,
                      const EmitOptions& options);
/// Rows, stubs and the rest of what stands in the source.
void define_interface(Writer& out, const Spelling& spell, const Interface& interface,
                      const EmitOptions& options);

// --- what they share ----------------------------------------------------------------------------------------------

/// An operation as C++ has it; an attribute is one or two of them.
struct Method {
  std::string name;              // in C++
  std::string wire_name;         // "f", "_get_a"
  std::string row;               // of the row in the source: "op_f", "attr_get_a"
  const Type* result = nullptr;  // null for void
  struct Argument {
    std::string name;
    Direction direction;
    const Type* type;  // null for the context
  };
  std::vector<Argument> arguments;
  std::vector<std::string> contexts;  // the names of its context clause
  const std::vector<Raised>* raises = nullptr;
  bool oneway = false;
};

/// The methods that an interface adds to its bases'.
std::vector<Method> methods_of(const Interface& interface);
/// All of its bases, each behind its own.
std::vector<const Interface*> bases_first(const Interface& interface);
/// "CORBA::Long f(const char* a, CORBA::Long& b)", with `scope` in front of the name and the environment at the end.
std::string signature(const Spelling& spell, const Method& method, const std::string& scope,
                      const std::string& environment);
/// "(first, a, b, last)", the arguments between the two where these are not empty.
std::string call(const Method& method, const std::string& first, const std::string& last);
/// "void sendc_f(AMI_IHandler_ptr _handler, CORBA::Long a)", with `scope` in front of the name, and "{ ... }".
std::string sendc_signature(const Spelling& spell, const Method& method, const Interface& interface,
                            const std::string& scope);
/// "std::future<CORBA::Long> async_f(CORBA::Long a)".
std::string future_signature(const Spelling& spell, const Method& method, const std::string& scope);
/// What the future is of: "void", "CORBA::Long", "std::tuple<CORBA::Long, A::B_var>".
std::string future_value(const Spelling& spell, const Method& method);
/// The same names for the asynchronous forms: "f", "get_a".
std::string async_name(const Method& method);

/// The names of a struct's or exception's members with those of its bases in front.
std::vector<const Member*> members_of(const Scope& scope);
/// What a member is to the library: with its dimensions.
std::string member_descriptor(const Spelling& spell, const Member& member);
/// The type of a member in C++.
std::string member_type(const Spelling& spell, const Member& member);

template <class List, class Function>
std::string joined_by(const std::string& separator, const List& list, Function&& text_of) {
  std::string all;
  bool first = true;
  for (const auto& one : list) {
    all += (first ? "" : separator) + text_of(one);
    first = false;
  }
  return all;
}

}  // namespace idl
