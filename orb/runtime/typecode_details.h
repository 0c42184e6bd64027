// What a TypeCode with parameters is made of, and the one place that puts it together.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corba/typecode.h"

namespace CORBA {

struct TypeCode::Details {
  struct Member {
    std::string name;
    TypeCode_var type;  // nil for an enumerator
  };

  std::string id;
  std::string name;
  std::vector<Member> members;
  TypeCode_var content;  // of sequences, arrays and aliases
  ULong length = 0;      // of strings, sequences and arrays
  ULong depth = 1;       // 1 for a type without parts

  Details() = default;
  Details(std::string_view the_id, std::string_view the_name) : id(the_id), name(the_name) {}

  /// Add a part. False for what cannot be a part; whoever walks a value relies on each part taking at
  /// least one octet, so that no short message describes endless work.
  bool add_member(std::string_view member_name, TypeCode_var type);
  bool set_content(TypeCode_var type);
};

/// Kinds that are described by their number alone (a string without bound among them).
bool is_simple(TCKind kind);

/// The shared constant of a simple kind.
TypeCode* simple_typecode(TCKind kind);

/// A new TypeCode of a kind with parameters; null when the details are null or too deep.
TypeCode* make_typecode(TCKind kind, std::unique_ptr<TypeCode::Details> details);

/// A string TypeCode; the shared constant when there is no bound.
TypeCode* make_string_typecode(ULong bound);

/// The type behind all aliases. Not duplicated.
const TypeCode* unalias(const TypeCode* type);

}  // namespace CORBA
