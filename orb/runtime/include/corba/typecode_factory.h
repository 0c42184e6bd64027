// The creators of TypeCodes that CORBA::ORB has (CORBA, "Creating TypeCodes").
#pragma once

#include "corba/any.h"

namespace CORBA {

struct StructMember {
  String_var name;
  TypeCode_var type;
  Object_var type_def;  // of an interface repository: not used
};
struct UnionMember {
  String_var name;
  Any label;  // a value of the discriminator's type, or a zero octet for the default member
  TypeCode_var type;
  Object_var type_def;
};
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

/// Everything is copied; results are the caller's. BAD_PARAM for a null text and for a union's label that is not of
/// the discriminator's type or is there already; BAD_TYPECODE for types that cannot be parts. Any thread.
class ZRSVCPP_API TypeCodeFactory {
 public:
  TypeCode* create_struct_tc(const char* id, const char* name, const StructMemberSeq& members, CORBA_ENV);
  TypeCode* create_exception_tc(const char* id, const char* name, const StructMemberSeq& members, CORBA_ENV);
  TypeCode* create_union_tc(const char* id, const char* name, TypeCode* discriminator,
                            const UnionMemberSeq& members, CORBA_ENV);
  TypeCode* create_enum_tc(const char* id, const char* name, const EnumMemberSeq& members, CORBA_ENV);
  TypeCode* create_value_tc(const char* id, const char* name, ValueModifier modifier, TypeCode* concrete_base,
                            const ValueMemberSeq& members, CORBA_ENV);
  TypeCode* create_alias_tc(const char* id, const char* name, TypeCode* original, CORBA_ENV);
  TypeCode* create_value_box_tc(const char* id, const char* name, TypeCode* boxed, CORBA_ENV);
  TypeCode* create_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_abstract_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_local_interface_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_native_tc(const char* id, const char* name, CORBA_ENV);
  TypeCode* create_string_tc(ULong bound, CORBA_ENV);
  TypeCode* create_wstring_tc(ULong bound, CORBA_ENV);
  TypeCode* create_fixed_tc(UShort digits, Short scale, CORBA_ENV);
  TypeCode* create_sequence_tc(ULong bound, TypeCode* element, CORBA_ENV);
  TypeCode* create_array_tc(ULong length, TypeCode* element, CORBA_ENV);
  TypeCode* create_recursive_tc(const char* id, CORBA_ENV);
};

}  // namespace CORBA
