// How C++ writes what IDL declares: names, types, parameters, literals.
#pragma once

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "compile.h"

namespace idl {

/// The C++ name of an IDL identifier: a keyword of C++ gets _cxx_ in front.
std::string cpp_name(const std::string& identifier);

/// The forms that types have in C++. Each is a row of a table: see spelling.cpp.
enum class Form : std::uint8_t {
  Number,         // also enums: passed by value
  FixedValue,     // structs and unions of fixed length
  VariableValue,  // structs, unions, sequences, any
  String,
  WString,
  Reference,
  FixedArray,  // arrays of fixed length
  Array,       // the others
  Native,      // a class of the program's, by pointer
};

class Spelling {
 public:
  /// Where names are looked up: in the file's own namespaces, or in those of the library first.
  enum class Within : std::uint8_t { File, Library };
  explicit Spelling(Compilation& compilation, Within within = Within::File);

  /// "A::B::C", for its own definition.
  std::string path(const Declaration& declaration) const;
  /// The same where it is used. A name that something else may hide has :: in front.
  std::string qualified(const Declaration& declaration) const;
  /// The class of the servants of an interface: "POA_A::B".
  std::string skeleton(const Interface& interface) const;
  /// "POA_A", the namespace of the skeletons of what stands in a scope; empty for the global one.
  std::string skeleton_scope(const Scope& scope) const;

  Form form(const Type& type) const;
  /// The C++ type of a value: "CORBA::Long", "A::S"; for references the class.
  std::string value(const Type& type) const;
  /// What the class of a sequence derives from.
  std::string sequence_base(const Type& type) const;
  /// The tag or type by which the library knows it: "string<8>", "ref<A::I>", "A::_type_Alias".
  std::string descriptor(const Type& type) const;
  /// The type of a variable that owns what an operation gives.
  std::string owned(const Type& type) const;
  /// The type of a member or an element, which owns what it holds.
  std::string member(const Type& type) const;
  std::string parameter(Direction direction, const Type& type) const;
  std::string result(const Type& type) const;
  bool fixed_length(const Type& type) const;

  std::string literal(const Value& value, const Type& type) const;
  bool is_own(const Declaration& declaration) const { return declaration.file() == 0; }
  bool is_orb(const Declaration& declaration) const;

 private:
  std::string in_form(const char* const (&forms)[9], const Type& type) const;

  Compilation& compilation_;
  const Within within_;
  void name_sequences(const Type* type, const std::string& stem);

  std::set<std::string> inner_names_;
  std::unordered_map<const Type*, std::string>
      sequences_;  // the classes of those without a name of their own
  mutable std::unordered_map<const Declaration*, bool> fixed_;
};

/// What the handler of an asynchronous call gets an exception in. Remote interfaces have no other native types.
inline bool is_exception_holder(const Type& type) {
  return type.declared && type.declared->kind == Kind::Native;
}

/// "A::_type_B" for "A::B": what describes a typedef that has no type of its own.
std::string tag(const std::string& name);

/// Text in the quotes of C++, with escapes.
std::string cpp_string(const std::string& text);

}  // namespace idl
