// CORBA::TypeCode: descriptions of IDL types (CORBA, "TypeCodes"). Each type T of an IDL file has a constant _tc_T;
// an Any carries the one of its value; and ORB::create_struct_tc and the like (corba/typecode_factory.h) make them at
// run time.
//
//   CORBA::Any any;
//   any <<= CORBA::Long(1);
//   CORBA::TypeCode_var type = any.type();
//   if (type->kind() == CORBA::tk_struct)
//     for (CORBA::ULong i = 0; i < type->member_count(); ++i) std::cout << type->member_name(i) << std::endl;
//
// What each kind answers, beside kind() and what compares:
//
//   struct, exception         id, name, member_count, member_name, member_type
//   union                     the same, member_label, discriminator_type, default_index
//   enum                      id, name, member_count, member_name
//   alias, boxed value        id, name, content_type
//   interface, native         id, name
//   value                     id, name, members, member_visibility, type_modifier, concrete_base_type
//   sequence, array           length, content_type
//   string, wide string       length
//   fixed                     fixed_digits, fixed_scale
//   the rest                  nothing
#pragma once

#include <span>
#include <vector>

#include "corba/object.h"
#include "corba/sequence.h"

namespace CORBA {

/// What kind of type it is; each kind answers some of TypeCode's questions. The numbers are those of the standard, and
/// travel.
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
  tk_ulonglong = 24,
  tk_longdouble = 25,
  tk_wchar = 26,
  tk_wstring = 27,
  tk_fixed = 28,
  tk_value = 29,
  tk_value_box = 30,
  tk_native = 31,
  tk_abstract_interface = 32,
  tk_local_interface = 33,
  /// Of a TypeCode of create_recursive_tc, which stands for a type that is not there yet.
  tk_recursive = 0xffffffff
};

// Of members of values (public or private), and of values: of what sort they are. Values do not travel here, but their
// descriptions do.
using Visibility = Short;
inline constexpr Visibility PRIVATE_MEMBER = 0;
inline constexpr Visibility PUBLIC_MEMBER = 1;
using ValueModifier = Short;
inline constexpr ValueModifier VM_NONE = 0;
inline constexpr ValueModifier VM_CUSTOM = 1;
inline constexpr ValueModifier VM_ABSTRACT = 2;
inline constexpr ValueModifier VM_TRUNCATABLE = 3;

class Any;
class TypeCode;
using TypeCode_ptr = TypeCode*;

/// An immutable description of a type. May be used by several threads at once. TypeCodes that an operation
/// returns are the caller's, who releases them (a TypeCode_var does); texts live as long as the TypeCode. Questions end
/// with Bounds or BadKind and ask nobody: everything is here.
///
///   CORBA::TypeCode_var element = Bank::_tc_Entries->content_type();  // sequence<Entry>, behind the typedef's name
///   while (element->kind() == CORBA::tk_alias) element = element->content_type();
///   std::cout << element->length() << std::endl;  // its bound: 0, there is none
///
/// A TypeCode is counted when it was created or decoded, and a constant otherwise: then it is one static object,
/// and counting does nothing. Generated code defines its `_tc_` constants so:
///
///   // node.h: struct Node { string name; sequence<Node> children; };
///   extern const CORBA::TypeCode_ptr _tc_Node;
///
///   // node.cpp
///   namespace {
///   constinit CORBA::TypeCode nodes(CORBA::tk_sequence, {.content = &_tc_Node});
///   constexpr CORBA::TypeCode::Member node_members[] = {{"name", &CORBA::_tc_string}, {"children", nodes.at()}};
///   constinit CORBA::TypeCode node(CORBA::tk_struct, {"IDL:Node:1.0", "Node", node_members});
///   }
///   constinit const CORBA::TypeCode_ptr _tc_Node = &node;
///
/// Parts are named by the address of the constant that points to them (`&_tc_Node`, of this or another translation
/// unit or library) or by at() of an object of the same file, so a type may contain itself, and everything is there
/// before any constructor runs: no order of initialisation can go wrong, and nothing is built at run time.
class ZRSVCPP_API TypeCode : public Allocated {
 public:
  /// What questions raise: Bounds for an index at or past the count, BadKind for a question that the kind has no answer
  /// to.
  using Bounds = PlainUserException<"IDL:omg.org/CORBA/TypeCode/Bounds:1.0">;
  using BadKind = PlainUserException<"IDL:omg.org/CORBA/TypeCode/BadKind:1.0">;

  /// How deep types may be nested in one another; a type that contains itself counts once. What comes in over the wire
  /// and is deeper does not decode.
  static constexpr ULong max_depth = 64;

  // For generated code, which defines constants, and for create_named_tc.

  /// A member of a struct, an exception, a union, an enum (without a type) or a value.
  struct Member {
    const char* name = "";
    TypeCode* const* type = nullptr;
    LongLong label = 0;  // of unions: the discriminator's number; of the default member anything
    Visibility visibility = PRIVATE_MEMBER;
  };
  /// What a kind has beside itself.
  struct Parameters {
    const char* id = "";
    const char* name = "";
    std::span<const Member> members = {};
    /// The element of sequences and arrays, what an alias or a box names, the discriminator of a union, the
    /// concrete base of a value (null: none).
    TypeCode* const* content = nullptr;
    /// The bound of strings and sequences (0: none), the length of arrays, the digits of fixed.
    ULong length = 0;
    Long default_index = -1;  // of unions
    Short scale = 0;          // of fixed
    ValueModifier modifier = VM_NONE;
  };

  /// A constant.
  constexpr explicit TypeCode(TCKind kind) : TypeCode(kind, Parameters{}) {}
  constexpr TypeCode(TCKind kind, const Parameters& parameters)
      : self_(this), kind_(kind), parameters_(parameters) {}
  TypeCode(const TypeCode&) = delete;
  TypeCode& operator=(const TypeCode&) = delete;
  /// How other constants of the same file name this one as a part.
  constexpr TypeCode* const* at() const { return &self_; }

  /// The nil reference: null.
  static TypeCode* _nil() { return nullptr; }
  /// The same TypeCode, counted once more, which the caller releases; nil for nil.
  static TypeCode* _duplicate(TypeCode* type);

  /// Never raises. An alias is of kind tk_alias: content_type() leads on.
  TCKind kind() const { return kind_; }
  /// The same in kind, ids, names and parts, aliases too. False for nil.
  Boolean equal(const TypeCode* other, CORBA_ENV) const;
  /// The same when aliases are looked through and, where both sides have an id, only the ids are compared: what an Any
  /// asks before it gives its value.
  Boolean equivalent(const TypeCode* other, CORBA_ENV) const;
  /// The same type without the names of types and members; ids stay. BAD_TYPECODE for a type that is not
  /// complete.
  /// Shorter on the wire, and still equivalent.
  TypeCode* get_compact_typecode(CORBA_ENV) const;

  /// The repository id ("IDL:Bank/Entry:1.0") and the last name in it, "" where a peer sent none; the TypeCode's own.
  /// Of all that IDL gives a name; BadKind for others.
  const char* id(CORBA_ENV) const;
  const char* name(CORBA_ENV) const;
  /// Of structs, exceptions, unions, values and enums; BadKind for others, Bounds for an index at or past the
  /// count.
  ULong member_count(CORBA_ENV) const;
  /// The name of a member, by its place from 0, the TypeCode's own; "" where a peer sent no names.
  const char* member_name(ULong index, CORBA_ENV) const;
  /// The type of a member, which the caller releases. Not of enums.
  TypeCode* member_type(ULong index, CORBA_ENV) const;
  /// Of unions: a value of the discriminator's type, a zero octet for the default member; the caller deletes it. A
  /// member with several labels counts once for each.
  Any* member_label(ULong index, CORBA_ENV) const;
  /// Of unions: a whole number's type, a boolean's, a character's, an octet's or an enum's, which the caller releases.
  TypeCode* discriminator_type(CORBA_ENV) const;
  /// Of unions: the index of the default member, or -1.
  Long default_index(CORBA_ENV) const;
  /// Of strings and sequences (the bound; 0 when there is none) and arrays; BadKind for others.
  ULong length(CORBA_ENV) const;
  /// Of sequences, arrays (their element), boxes and aliases (the type they name), which the caller releases; BadKind
  /// for others. Of an array of several dimensions it is an array.
  TypeCode* content_type(CORBA_ENV) const;
  /// Of fixed: how many digits there are, and how many of them behind the point.
  UShort fixed_digits(CORBA_ENV) const;
  Short fixed_scale(CORBA_ENV) const;
  /// Of values: of one member; of the value itself; its base, which the caller releases, nil when there is none.
  Visibility member_visibility(ULong index, CORBA_ENV) const;
  ValueModifier type_modifier(CORBA_ENV) const;
  TypeCode* concrete_base_type(CORBA_ENV) const;

  // Creators. BAD_PARAM for a null text; BAD_TYPECODE for a nil part, for a part that has no octets (void, an
  // empty struct) or cannot be a part (an exception), and for types nested deeper than max_depth. Names and types
  // are copied. CORBA::ORB has all the standard ones.

  /// Any kind that has an id, with its parameters. A part may contain a create_recursive_tc of this type's id: the
  /// result is a type that contains itself there, while the part that was given stays as it was.
  static TypeCode* create_named_tc(TCKind kind, const Parameters& parameters, CORBA_ENV);

  /// A member, as the creators below take it: both stay the caller's.
  struct NamedType {
    const char* name;
    TypeCode* type;
  };
  // As in TypeCodeFactory, with members as a list of the program's, and without an ORB:
  //
  //   CORBA::TypeCode_var point = CORBA::TypeCode::create_struct_tc(
  //       "IDL:Point:1.0", "Point", {{"x", CORBA::_tc_double}, {"y", CORBA::_tc_double}});
  static TypeCode* create_struct_tc(const char* id, const char* name, const std::vector<NamedType>& members,
                                    CORBA_ENV);
  static TypeCode* create_exception_tc(const char* id, const char* name,
                                       const std::vector<NamedType>& members, CORBA_ENV);
  static TypeCode* create_enum_tc(const char* id, const char* name, const std::vector<const char*>& members,
                                  CORBA_ENV);
  static TypeCode* create_alias_tc(const char* id, const char* name, TypeCode* original, CORBA_ENV);
  static TypeCode* create_interface_tc(const char* id, const char* name, CORBA_ENV);
  static TypeCode* create_string_tc(ULong bound, CORBA_ENV);
  static TypeCode* create_wstring_tc(ULong bound, CORBA_ENV);
  /// BAD_PARAM for more than 31 digits or a scale that is not within them.
  static TypeCode* create_fixed_tc(UShort digits, Short scale, CORBA_ENV);
  static TypeCode* create_sequence_tc(ULong bound, TypeCode* element, CORBA_ENV);
  static TypeCode* create_array_tc(ULong length, TypeCode* element, CORBA_ENV);
  /// Stands for the struct, union or value of that id inside its own parts, until that is created around them.
  /// Until then it cannot be encoded, and its kind is tk_recursive.
  static TypeCode* create_recursive_tc(const char* id, CORBA_ENV);

  /// What it is made of, without counting; lives as long as the TypeCode.
  const Parameters& parameters() const { return parameters_; }
  const TypeCode* content() const { return parameters_.content ? *parameters_.content : nullptr; }

  friend void release(TypeCode* type);

 private:
  struct Graph;  // of this library: the nodes that are counted together
  friend class TypeCodeBuilder;

  TypeCode* self_;
  TCKind kind_;
  Parameters parameters_;
  Graph* graph_ = nullptr;  // null for a constant
  ULong depth_ = 0;         // of a counted one: 1 without parts; 0 while it is made
  bool open_ = false;       // contains a create_recursive_tc
};

/// Gives one count back; null is allowed, and so is a constant, of which nothing is counted. The last count of a type
/// that was created frees it, with its parts.
ZRSVCPP_API void release(TypeCode* type);
/// Whether there is none.
inline Boolean is_nil(const TypeCode* type) { return type == nullptr; }

/// Owns one count of a TypeCode, nil at first. A plain TypeCode* that is assigned is taken over, which a constant
/// stands as well: nothing is counted of it.
///
///   CORBA::TypeCode_var type = CORBA::_tc_long;
///   type = orb->create_sequence_tc(0, type.in());  // what was held is released
using TypeCode_var = ObjectVar<TypeCode>;

// Constants, of the types that have no parameters: `CORBA::_tc_long` is a TypeCode_ptr. Usable from static constructors
// of whatever uses this library; releasing them is allowed and does nothing. Those of an IDL file stand beside its
// types (`Bank::_tc_Entry`).
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
extern ZRSVCPP_API TypeCode* const _tc_longdouble;
extern ZRSVCPP_API TypeCode* const _tc_wchar;
extern ZRSVCPP_API TypeCode* const _tc_wstring;
extern ZRSVCPP_API TypeCode* const _tc_Principal;
extern ZRSVCPP_API TypeCode* const _tc_Object;

}  // namespace CORBA

/// A TypeCode in its GIOP form, by the stream's direction. Decoding hands out a TypeCode that the caller
/// releases; false, and nothing handed out, for what is malformed or nested too deep, and for an indirection to
/// anything but the start of an earlier TypeCode of the same description.
ZRSVCPP_API unsigned char cdr_CORBA_TypeCode(CDR* cdr, CORBA::TypeCode*& type);

/// The TypeCode of an encoded description, as compiled IDL carries it: four zero octets, then one TypeCode in
/// a form of its own. Nil, with BAD_TYPECODE in `ev` but not thrown, when the description is cut short, goes
/// on after its end, or is malformed. `orb` is not used.
ZRSVCPP_API CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* orb,
                                                                 const CORBA_sequence_octet* encoded,
                                                                 CORBA::Environment& ev);
ZRSVCPP_API CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* orb, const CORBA::OctetSeq& encoded,
                                                                 CORBA::Environment& ev);
