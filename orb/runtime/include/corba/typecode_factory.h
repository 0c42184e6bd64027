// The creators of TypeCodes that CORBA::ORB has (CORBA, "Creating TypeCodes"): for types that are not known when the
// program is compiled. Those of an IDL file are constants (`_tc_Entry`), which cost nothing.
#pragma once

#include "corba/any.h"

namespace CORBA {

// What the creators take. Names and types that are assigned as plain pointers are taken over, as by any _var, so a
// constant goes in as it is: counting does nothing to it.

/// A member of a struct or an exception, in the order of the IDL. Its name is null and its type nil until they are set.
struct StructMember {
  String_var name;
  TypeCode_var type;
  Object_var type_def;  ///< of an interface repository: not used
};
/// A member of a union, one a label: a member with several labels stands there several times, with one name and type.
///
///   CORBA::UnionMember none;
///   none.name = "none", none.type = CORBA::_tc_boolean;
///   none.label <<= CORBA::Any::from_octet(0);  // the default member
struct UnionMember {
  String_var name;
  Any label;  ///< a value of the discriminator's type, or a zero octet for the default member
  TypeCode_var type;
  Object_var type_def;
};
/// A member of a value: its name, its type and whether it is public; the texts beside them are not used.
struct ValueMember {
  String_var name;
  String_var id;
  String_var defined_in;
  String_var version;
  TypeCode_var type;
  Object_var type_def;
  Visibility access = PRIVATE_MEMBER;
};

using StructMemberSeq = Sequence<StructMember>;
using UnionMemberSeq = Sequence<UnionMember>;
using EnumMemberSeq = Sequence<String_var>;
using ValueMemberSeq = Sequence<ValueMember>;

/// What an ORB makes TypeCodes with. Everything is copied; results are the caller's to release. BAD_PARAM for a null
/// text and for a union's label that is not of the discriminator's type or is there already; BAD_TYPECODE for a nil
/// type, for types that cannot be parts, and for more than TypeCode::max_depth in one another. Ids are not looked at.
/// Any thread.
///
///   CORBA::StructMemberSeq members;
///   members.length(2);
///   members[0].name = "x", members[0].type = CORBA::_tc_double;
///   members[1].name = "y", members[1].type = CORBA::_tc_double;
///   CORBA::TypeCode_var point = orb->create_struct_tc("IDL:Point:1.0", "Point", members);
///   CORBA::TypeCode_var points = orb->create_sequence_tc(0, point.in());  // without a bound
class ZRSVCPP_API TypeCodeFactory {
 public:
  TypeCode* create_struct_tc(const char* id, const char* name, const StructMemberSeq& members, CORBA_ENV);
  TypeCode* create_exception_tc(const char* id, const char* name, const StructMemberSeq& members, CORBA_ENV);
  /// The discriminator is a whole number, a boolean, a character, an octet or an enum; BAD_TYPECODE for others. At
  /// most one label is the zero octet of the default member.
  TypeCode* create_union_tc(const char* id, const char* name, TypeCode* discriminator,
                            const UnionMemberSeq& members, CORBA_ENV);
  TypeCode* create_enum_tc(const char* id, const char* name, const EnumMemberSeq& members, CORBA_ENV);
  /// A value's; its modifier is one of VM_NONE, VM_CUSTOM, VM_ABSTRACT and VM_TRUNCATABLE. The base may be nil.
  TypeCode* create_value_tc(const char* id, const char* name, ValueModifier modifier, TypeCode* concrete_base,
                            const ValueMemberSeq& members, CORBA_ENV);
  /// Another name of a type, and a value that holds one of it.
  TypeCode* create_alias_tc(const char* id, const char* name, TypeCode* original, CORBA_ENV);
  TypeCode* create_value_box_tc(const char* id, const char* name, TypeCode* boxed, CORBA_ENV);
  /// Of references, of abstract and local interfaces, and of natives: an id and a name alone. Values of the last two
  /// kinds do not travel.
  TypeCode* create_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_abstract_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_local_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_native_tc(const char* id, const char* name, CORBA_ENV);
  /// A bound of 0: none.
  TypeCode* create_string_tc(ULong bound, CORBA_ENV);
  TypeCode* create_wstring_tc(ULong bound, CORBA_ENV);
  /// BAD_PARAM for no digits or more than 31, and for a scale below 0 or over the digits.
  TypeCode* create_fixed_tc(UShort digits, Short scale, CORBA_ENV);
  /// A bound of 0: none.
  TypeCode* create_sequence_tc(ULong bound, TypeCode* element, CORBA_ENV);
  /// One dimension; an array of arrays has two. BAD_TYPECODE for a length of 0.
  TypeCode* create_array_tc(ULong length, TypeCode* element, CORBA_ENV);
  /// Stands for the struct, union or value of that id among its own parts: a tree's children. Once the type of that
  /// id is created around it, the result contains itself there. BAD_PARAM for an empty id.
  ///
  ///   CORBA::TypeCode_var self = orb->create_recursive_tc("IDL:Tree:1.0");
  ///   CORBA::StructMemberSeq members;
  ///   members.length(1);
  ///   members[0].name = "children", members[0].type = orb->create_sequence_tc(0, self.in());
  ///   CORBA::TypeCode_var tree = orb->create_struct_tc("IDL:Tree:1.0", "Tree", members);
  TypeCode* create_recursive_tc(const char* id, CORBA_ENV);
};

}  // namespace CORBA
