#include "corba/typecode.h"

#include <array>
#include <utility>

#include "base/raise.h"
#include "corba/any.h"
#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

// Constant-initialised, so that other static constructors may use them; trivially destroyed, so that
// destructors may, too. One of each kind; those that need parameters are not handed out.
template <class Kinds>
struct SimpleTypes;
template <std::size_t... Kind>
struct SimpleTypes<std::index_sequence<Kind...>> {
  TypeCode all[sizeof...(Kind)] = {TypeCode(static_cast<TCKind>(Kind))...};
};
constinit SimpleTypes<std::make_index_sequence<tk_local_interface + 1>> simple;
static_assert(std::is_trivially_destructible_v<TypeCode>);

constexpr TypeCode* constant(TCKind kind) { return &simple.all[kind]; }

constexpr unsigned record = has_id | has_members | has_typed_members;
constexpr auto traits = [] {
  std::array<unsigned, tk_local_interface + 1> of{};
  for (const TCKind kind : {tk_objref, tk_native, tk_abstract_interface, tk_local_interface})
    of[kind] = has_id;
  for (const TCKind kind : {tk_struct, tk_union, tk_except, tk_value}) of[kind] = record;
  of[tk_enum] = has_id | has_members;
  of[tk_alias] = of[tk_value_box] = has_id | has_content;
  of[tk_sequence] = of[tk_array] = has_content | has_length;
  of[tk_string] = of[tk_wstring] = has_length;
  return of;
}();

void require(bool right_kind, Environment& ev) {
  ev.clear();
  if (!right_kind) raise<TypeCode::BadKind>(ev);
}

const TypeCode::Member& member(const TypeCode& type, TypeCodeTrait needed, ULong index, Environment& ev) {
  require(has(type.kind(), needed), ev);
  if (index >= type.parameters().members.size()) raise<TypeCode::Bounds>(ev);
  return type.parameters().members[index];
}

TypeCode* counted(const TypeCode* type) { return TypeCode::_duplicate(const_cast<TypeCode*>(type)); }

/// How a discriminator travels: as a whole number of that width, or in a way of its own.
template <class T>
bool move_as(CDR* cdr, LongLong& value) {
  T number = static_cast<T>(value);
  if (!idl::Wire<T>::move(cdr, number)) return false;
  value = static_cast<LongLong>(number);
  return true;
}

bool move_wchar(CDR* cdr, LongLong& value) {
  auto character = static_cast<WChar>(value);
  if (!OM_cdr_wchar(cdr, &character)) return false;
  value = character;  // NOLINT(bugprone-signed-char-misuse): wide, and no code point is negative
  return true;
}

bool move_octet(CDR* cdr, LongLong& value) {
  auto octet = static_cast<Octet>(value);
  if (!OM_cdr_octet(cdr, &octet)) return false;
  value = octet;
  return true;
}

using Move = bool (*)(CDR*, LongLong&);

Move discriminator(TCKind kind) {
  switch (kind) {
    case tk_short:
      return move_as<Short>;
    case tk_ushort:
      return move_as<UShort>;
    case tk_long:
      return move_as<Long>;
    case tk_ulong:
    case tk_enum:
      return move_as<ULong>;
    case tk_longlong:
      return move_as<LongLong>;
    case tk_ulonglong:
      return move_as<ULongLong>;
    case tk_boolean:
      return move_as<Boolean>;
    case tk_char:
    case tk_octet:
      return move_octet;
    case tk_wchar:
      return move_wchar;
    default:
      return nullptr;
  }
}

}  // namespace

bool has(TCKind kind, TypeCodeTrait trait) { return kind < traits.size() && (traits[kind] & trait) == trait; }

bool is_simple(TCKind kind) {
  return kind <= tk_wstring && (traits[kind] & ~unsigned{has_length}) == 0 &&
         !(kind == tk_string || kind == tk_wstring);
}

TypeCode* simple_typecode(TCKind kind) { return constant(kind); }

const TypeCode* unalias(const TypeCode* type) {
  while (type && type->kind() == tk_alias) type = type->content();
  return type;
}

bool is_discriminator(const TypeCode* type) {
  const TypeCode* plain = unalias(type);
  return plain && discriminator(plain->kind());
}

bool move_discriminator(CDR* cdr, const TypeCode* type, LongLong& value) {
  const TypeCode* plain = unalias(type);
  const Move move = plain ? discriminator(plain->kind()) : nullptr;
  return move && move(cdr, value);
}

const char* TypeCode::id(Environment& ev) const {
  require(has(kind_, has_id), ev);
  return parameters_.id;
}

const char* TypeCode::name(Environment& ev) const {
  require(has(kind_, has_id), ev);
  return parameters_.name;
}

ULong TypeCode::member_count(Environment& ev) const {
  require(has(kind_, has_members), ev);
  return static_cast<ULong>(parameters_.members.size());
}

const char* TypeCode::member_name(ULong index, Environment& ev) const {
  return member(*this, has_members, index, ev).name;
}

TypeCode* TypeCode::member_type(ULong index, Environment& ev) const {
  return counted(*member(*this, has_typed_members, index, ev).type);
}

Any* TypeCode::member_label(ULong index, Environment& ev) const {
  require(kind_ == tk_union, ev);
  LongLong label = member(*this, has_members, index, ev).label;
  auto any = std::make_unique<Any>();
  if (static_cast<Long>(index) == parameters_.default_index) {
    *any <<= Any::from_octet{0};
    return any.release();
  }
  CDR cdr;
  OM_cdr_open_encode(&cdr);
  any->replace(const_cast<TypeCode*>(content()), nullptr, 0);
  const bool moved = move_discriminator(&cdr, content(), label);
  CDR in;
  OM_cdr_open_decode(&in, cdr.out_base, static_cast<ULong>(cdr.out_next - cdr.out_base), 0);
  const bool taken = moved && any->decode_value(&in);
  OM_cdr_close(&cdr);
  if (!taken) raise<BAD_TYPECODE>(ev);
  return any.release();
}

TypeCode* TypeCode::discriminator_type(Environment& ev) const {
  require(kind_ == tk_union, ev);
  return counted(content());
}

Long TypeCode::default_index(Environment& ev) const {
  require(kind_ == tk_union, ev);
  return parameters_.default_index;
}

ULong TypeCode::length(Environment& ev) const {
  require(has(kind_, has_length), ev);
  return parameters_.length;
}

TypeCode* TypeCode::content_type(Environment& ev) const {
  require(has(kind_, has_content), ev);
  return counted(content());
}

UShort TypeCode::fixed_digits(Environment& ev) const {
  require(kind_ == tk_fixed, ev);
  return static_cast<UShort>(parameters_.length);
}

Short TypeCode::fixed_scale(Environment& ev) const {
  require(kind_ == tk_fixed, ev);
  return parameters_.scale;
}

Visibility TypeCode::member_visibility(ULong index, Environment& ev) const {
  require(kind_ == tk_value, ev);
  return member(*this, has_members, index, ev).visibility;
}

ValueModifier TypeCode::type_modifier(Environment& ev) const {
  require(kind_ == tk_value, ev);
  return parameters_.modifier;
}

TypeCode* TypeCode::concrete_base_type(Environment& ev) const {
  require(kind_ == tk_value, ev);
  return counted(content());
}

namespace {
constinit TypeCode object(tk_objref, {"IDL:omg.org/CORBA/Object:1.0", "Object"});
}

constinit TypeCode* const _tc_null = constant(tk_null);
constinit TypeCode* const _tc_void = constant(tk_void);
constinit TypeCode* const _tc_short = constant(tk_short);
constinit TypeCode* const _tc_long = constant(tk_long);
constinit TypeCode* const _tc_ushort = constant(tk_ushort);
constinit TypeCode* const _tc_ulong = constant(tk_ulong);
constinit TypeCode* const _tc_longlong = constant(tk_longlong);
constinit TypeCode* const _tc_ulonglong = constant(tk_ulonglong);
constinit TypeCode* const _tc_float = constant(tk_float);
constinit TypeCode* const _tc_double = constant(tk_double);
constinit TypeCode* const _tc_boolean = constant(tk_boolean);
constinit TypeCode* const _tc_char = constant(tk_char);
constinit TypeCode* const _tc_octet = constant(tk_octet);
constinit TypeCode* const _tc_any = constant(tk_any);
constinit TypeCode* const _tc_TypeCode = constant(tk_TypeCode);
constinit TypeCode* const _tc_string = constant(tk_string);
constinit TypeCode* const _tc_longdouble = constant(tk_longdouble);
constinit TypeCode* const _tc_wchar = constant(tk_wchar);
constinit TypeCode* const _tc_wstring = constant(tk_wstring);
constinit TypeCode* const _tc_Principal = constant(tk_Principal);
constinit TypeCode* const _tc_Object = &object;

}  // namespace CORBA
