// CORBA::TypeCode: descriptions of IDL types (CORBA, "TypeCodes").
#pragma once

#include <atomic>
#include <vector>

#include "corba/object.h"
#include "corba/sequence.h"

namespace CORBA {

enum TCKind : ULong {
  tk_null = 0,
  tk_void = 1,
  tk_short = 2,
  tk_long = 3,
  tk_ushort = 4,
  tk_ulong = 5,
  tk_float = 6,
  tk_double = 7,
  tk_boolean = 8,
  tk_char = 9,
  tk_octet = 10,
  tk_any = 11,
  tk_TypeCode = 12,
  tk_Principal = 13,
  tk_objref = 14,
  tk_struct = 15,
  tk_union = 16,
  tk_enum = 17,
  tk_string = 18,
  tk_sequence = 19,
  tk_array = 20,
  tk_alias = 21,
  tk_except = 22,
  tk_longlong = 23,
  tk_ulonglong = 24
};

class TypeCode;
using TypeCode_ptr = TypeCode*;

/// A member of a struct or an exception, as the creators take it; lent, not owned.
struct StructMember {
  const char* name;
  TypeCode* type;
};

/// An immutable, counted description of a type. Unions, wide strings and recursive types have none. May be
/// used by several threads at once. TypeCodes that an operation returns are the caller's, who releases them;
/// texts live as long as the TypeCode.
class ZRSVCPP_API TypeCode : public Allocated {
 public:
  using Bounds = PlainUserException<"IDL:omg.org/CORBA/TypeCode/Bounds:1.0">;
  using BadKind = PlainUserException<"IDL:omg.org/CORBA/TypeCode/BadKind:1.0">;

  /// How deep types may be nested in one another.
  static constexpr ULong max_depth = 64;

  TypeCode(const TypeCode&) = delete;
  TypeCode& operator=(const TypeCode&) = delete;

  static TypeCode* _nil() { return nullptr; }
  /// The same TypeCode, counted once more.
  static TypeCode* _duplicate(TypeCode* type);

  TCKind kind() const { return kind_; }
  /// The same in kind, ids, names and parts. False for nil.
  Boolean equal(const TypeCode* other, CORBA_ENV) const;
  /// The same when aliases are looked through and, where both sides have an id, only the ids are compared.
  Boolean equivalent(const TypeCode* other, CORBA_ENV) const;

  /// Of references, structs, enums, aliases and exceptions; BadKind for others.
  const char* id(CORBA_ENV) const;
  const char* name(CORBA_ENV) const;
  /// Of structs, exceptions and enums; BadKind for others, Bounds for an index at or past the count.
  ULong member_count(CORBA_ENV) const;
  const char* member_name(ULong index, CORBA_ENV) const;
  /// Of structs and exceptions.
  TypeCode* member_type(ULong index, CORBA_ENV) const;
  /// Of strings and sequences (the bound; 0 when there is none) and arrays; BadKind for others.
  ULong length(CORBA_ENV) const;
  /// Of sequences, arrays (their element) and aliases (the type they name); BadKind for others.
  TypeCode* content_type(CORBA_ENV) const;

  // Creators. BAD_PARAM for a null text; BAD_TYPECODE for a nil part, for a part that has no octets (void, an
  // empty struct) or cannot be a part (an exception), and for types nested deeper than max_depth.
  static TypeCode* create_struct_tc(const char* id, const char* name,
                                    const std::vector<StructMember>& members, CORBA_ENV);
  static TypeCode* create_exception_tc(const char* id, const char* name,
                                       const std::vector<StructMember>& members, CORBA_ENV);
  static TypeCode* create_enum_tc(const char* id, const char* name, const std::vector<const char*>& members,
                                  CORBA_ENV);
  static TypeCode* create_alias_tc(const char* id, const char* name, TypeCode* original, CORBA_ENV);
  static TypeCode* create_interface_tc(const char* id, const char* name, CORBA_ENV);
  static TypeCode* create_string_tc(ULong bound, CORBA_ENV);
  static TypeCode* create_sequence_tc(ULong bound, TypeCode* element, CORBA_ENV);
  static TypeCode* create_array_tc(ULong length, TypeCode* element, CORBA_ENV);

  struct Details;  // of this library
  const Details* details() const { return details_; }
  /// A TypeCode without parameters, for static objects: those are never counted nor freed.
  constexpr explicit TypeCode(TCKind kind) : kind_(kind) {}
  TypeCode(TCKind kind, const Details* details) : kind_(kind), details_(details) {}
  friend void release(TypeCode* type);

 private:
  TCKind kind_;
  const Details* details_ = nullptr;  // owned; null for a TypeCode without parameters
  std::atomic<ULong> count_{1};
};

/// Gives one count back; null is allowed.
ZRSVCPP_API void release(TypeCode* type);
inline Boolean is_nil(const TypeCode* type) { return type == nullptr; }

using TypeCode_var = ObjectVar<TypeCode>;

// Constants. Usable from static constructors of whatever uses this library; releasing them is allowed and
// does nothing.
extern ZRSVCPP_API TypeCode* const _tc_null;
extern ZRSVCPP_API TypeCode* const _tc_void;
extern ZRSVCPP_API TypeCode* const _tc_short;
extern ZRSVCPP_API TypeCode* const _tc_long;
extern ZRSVCPP_API TypeCode* const _tc_ushort;
extern ZRSVCPP_API TypeCode* const _tc_ulong;
extern ZRSVCPP_API TypeCode* const _tc_longlong;
extern ZRSVCPP_API TypeCode* const _tc_ulonglong;
extern ZRSVCPP_API TypeCode* const _tc_float;
extern ZRSVCPP_API TypeCode* const _tc_double;
extern ZRSVCPP_API TypeCode* const _tc_boolean;
extern ZRSVCPP_API TypeCode* const _tc_char;
extern ZRSVCPP_API TypeCode* const _tc_octet;
extern ZRSVCPP_API TypeCode* const _tc_any;
extern ZRSVCPP_API TypeCode* const _tc_TypeCode;
extern ZRSVCPP_API TypeCode* const _tc_string;
extern ZRSVCPP_API TypeCode* const _tc_Object;

}  // namespace CORBA

/// A TypeCode in its GIOP form, by the stream's direction. Decoding hands out a TypeCode that the caller
/// releases; false, and nothing handed out, for what is malformed, nested too deep, recursive, or of a kind
/// that has no TypeCode here.
ZRSVCPP_API unsigned char cdr_CORBA_TypeCode(CDR* cdr, CORBA::TypeCode*& type);

/// The TypeCode of an encoded description, as compiled IDL carries it: four zero octets, then one TypeCode in
/// a form of its own. Nil, with BAD_TYPECODE in `env` but not thrown, when the description is cut short, goes
/// on after its end, or is malformed. `orb` is not used.
ZRSVCPP_API CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* orb,
                                                                 const CORBA_sequence_octet* encoded,
                                                                 CORBA::Environment& env);
ZRSVCPP_API CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* orb, const CORBA::OctetSeq& encoded,
                                                                 CORBA::Environment& env);
