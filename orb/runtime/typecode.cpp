#include "corba/typecode.h"

#include <algorithm>

#include "raise.h"
#include "typecode_details.h"

namespace CORBA {
namespace {

// Constant-initialised, so that other static constructors may use them; trivially destroyed, so that
// destructors may, too.
constinit TypeCode simple[] = {
    TypeCode(tk_null),     TypeCode(tk_void),     TypeCode(tk_short),     TypeCode(tk_long),
    TypeCode(tk_ushort),   TypeCode(tk_ulong),    TypeCode(tk_float),     TypeCode(tk_double),
    TypeCode(tk_boolean),  TypeCode(tk_char),     TypeCode(tk_octet),     TypeCode(tk_any),
    TypeCode(tk_TypeCode), TypeCode(tk_longlong), TypeCode(tk_ulonglong), TypeCode(tk_string),
};
static_assert(std::is_trivially_destructible_v<TypeCode>);

constexpr TypeCode* constant(TCKind kind) {
  if (kind <= tk_TypeCode) return &simple[kind];
  if (kind == tk_longlong) return &simple[tk_TypeCode + 1];
  if (kind == tk_ulonglong) return &simple[tk_TypeCode + 2];
  return kind == tk_string ? &simple[tk_TypeCode + 3] : nullptr;
}

bool one_of(TCKind kind, std::initializer_list<TCKind> kinds) {
  return std::ranges::find(kinds, kind) != kinds.end();
}

bool has_id(TCKind kind) { return one_of(kind, {tk_objref, tk_struct, tk_enum, tk_alias, tk_except}); }
bool has_typed_members(TCKind kind) { return one_of(kind, {tk_struct, tk_except}); }
bool has_members(TCKind kind) { return has_typed_members(kind) || kind == tk_enum; }
bool has_content(TCKind kind) { return one_of(kind, {tk_sequence, tk_array, tk_alias}); }

void require(bool right_kind, Environment& env) {
  env.clear();
  if (!right_kind) raise<TypeCode::BadKind>(env);
}

bool can_be_part(const TypeCode* type) {
  return type && !one_of(type->kind(), {tk_null, tk_void, tk_except});
}

/// How deep a type with this part is.
ULong depth_with(const TypeCode& part) { return part.details() ? part.details()->depth + 1 : 1; }

/// Whether two members, or contents, are the same; both may be nil.
using Same = bool (*)(const TypeCode*, const TypeCode*);

bool same_parts(const TypeCode::Details& a, const TypeCode::Details& b, bool names, Same same) {
  const auto same_member = [&](const auto& x, const auto& y) {
    return (!names || x.name == y.name) && same(x.type.in(), y.type.in());
  };
  return a.length == b.length && same(a.content.in(), b.content.in()) &&
         std::ranges::equal(a.members, b.members, same_member);
}

bool are_equal(const TypeCode* a, const TypeCode* b) {
  if (a == b) return true;
  if (!a || !b || a->kind() != b->kind()) return false;
  const auto* x = a->details();
  const auto* y = b->details();
  if (!x || !y) return x == y;
  return x->id == y->id && x->name == y->name && same_parts(*x, *y, true, are_equal);
}

bool are_equivalent(const TypeCode* a, const TypeCode* b) {
  a = unalias(a);
  b = unalias(b);
  if (a == b) return true;
  if (!a || !b || a->kind() != b->kind()) return false;
  const auto* x = a->details();
  const auto* y = b->details();
  if (!x || !y) return x == y;
  if (!x->id.empty() && !y->id.empty()) return x->id == y->id;
  return same_parts(*x, *y, false, are_equivalent);
}

const TypeCode::Details::Member& member(const TypeCode& type, ULong index, Environment& env) {
  if (index >= type.details()->members.size()) raise<TypeCode::Bounds>(env);
  return type.details()->members[index];
}

std::unique_ptr<TypeCode::Details> named(const char* id, const char* name, Environment& env) {
  env.clear();
  if (!id || !name) raise<BAD_PARAM>(env);
  return std::make_unique<TypeCode::Details>(id, name);
}

TypeCode* made_or_raise(TypeCode* made, Environment& env) {
  if (!made) raise<BAD_TYPECODE>(env);
  return made;
}

TypeCode* create_record(TCKind kind, const char* id, const char* name,
                        const std::vector<StructMember>& members, Environment& env) {
  auto details = named(id, name, env);
  for (const StructMember& each : members) {
    if (!each.name) raise<BAD_PARAM>(env);
    if (!details->add_member(each.name, TypeCode::_duplicate(each.type))) raise<BAD_TYPECODE>(env);
  }
  return made_or_raise(make_typecode(kind, std::move(details)), env);
}

TypeCode* create_list(TCKind kind, ULong length, TypeCode* element, Environment& env) {
  env.clear();
  auto details = std::make_unique<TypeCode::Details>();
  details->length = length;
  if (!details->set_content(TypeCode::_duplicate(element))) raise<BAD_TYPECODE>(env);
  return made_or_raise(make_typecode(kind, std::move(details)), env);
}

}  // namespace

bool TypeCode::Details::add_member(std::string_view member_name, TypeCode_var type) {
  if (!can_be_part(type.in())) return false;
  depth = std::max(depth, depth_with(*type.in()));
  members.push_back({std::string(member_name), std::move(type)});
  return true;
}

bool TypeCode::Details::set_content(TypeCode_var type) {
  if (!can_be_part(type.in())) return false;
  depth = std::max(depth, depth_with(*type.in()));
  content = std::move(type);
  return true;
}

bool is_simple(TCKind kind) { return constant(kind) != nullptr; }

TypeCode* simple_typecode(TCKind kind) { return constant(kind); }

TypeCode* make_typecode(TCKind kind, std::unique_ptr<TypeCode::Details> details) {
  if (!details || details->depth > TypeCode::max_depth) return nullptr;
  if (kind == tk_struct && details->members.empty()) return nullptr;
  if (kind == tk_array && details->length == 0) return nullptr;
  auto* made = new TypeCode(kind, details.get());
  details.release();
  return made;
}

TypeCode* make_string_typecode(ULong bound) {
  if (bound == 0) return constant(tk_string);
  auto details = std::make_unique<TypeCode::Details>();
  details->length = bound;
  return make_typecode(tk_string, std::move(details));
}

const TypeCode* unalias(const TypeCode* type) {
  while (type && type->kind() == tk_alias) type = type->details()->content.in();
  return type;
}

TypeCode* TypeCode::_duplicate(TypeCode* type) {
  if (type && type->details_) type->count_.fetch_add(1, std::memory_order_relaxed);
  return type;
}

void release(TypeCode* type) {
  if (!type || !type->details_ || type->count_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  delete type->details_;
  delete type;
}

Boolean TypeCode::equal(const TypeCode* other, Environment& env) const {
  env.clear();
  return are_equal(this, other);
}

Boolean TypeCode::equivalent(const TypeCode* other, Environment& env) const {
  env.clear();
  return are_equivalent(this, other);
}

const char* TypeCode::id(Environment& env) const {
  require(has_id(kind_), env);
  return details_->id.c_str();
}

const char* TypeCode::name(Environment& env) const {
  require(has_id(kind_), env);
  return details_->name.c_str();
}

ULong TypeCode::member_count(Environment& env) const {
  require(has_members(kind_), env);
  return static_cast<ULong>(details_->members.size());
}

const char* TypeCode::member_name(ULong index, Environment& env) const {
  require(has_members(kind_), env);
  return member(*this, index, env).name.c_str();
}

TypeCode* TypeCode::member_type(ULong index, Environment& env) const {
  require(has_typed_members(kind_), env);
  return _duplicate(member(*this, index, env).type.in());
}

ULong TypeCode::length(Environment& env) const {
  require(one_of(kind_, {tk_string, tk_sequence, tk_array}), env);
  return details_ ? details_->length : 0;
}

TypeCode* TypeCode::content_type(Environment& env) const {
  require(has_content(kind_), env);
  return _duplicate(details_->content.in());
}

TypeCode* TypeCode::create_struct_tc(const char* id, const char* name,
                                     const std::vector<StructMember>& members, Environment& env) {
  return create_record(tk_struct, id, name, members, env);
}

TypeCode* TypeCode::create_exception_tc(const char* id, const char* name,
                                        const std::vector<StructMember>& members, Environment& env) {
  return create_record(tk_except, id, name, members, env);
}

TypeCode* TypeCode::create_enum_tc(const char* id, const char* name, const std::vector<const char*>& members,
                                   Environment& env) {
  auto details = named(id, name, env);
  for (const char* each : members) {
    if (!each) raise<BAD_PARAM>(env);
    details->members.push_back({each, nullptr});
  }
  return made_or_raise(make_typecode(tk_enum, std::move(details)), env);
}

TypeCode* TypeCode::create_alias_tc(const char* id, const char* name, TypeCode* original, Environment& env) {
  auto details = named(id, name, env);
  if (!details->set_content(TypeCode::_duplicate(original))) raise<BAD_TYPECODE>(env);
  return made_or_raise(make_typecode(tk_alias, std::move(details)), env);
}

TypeCode* TypeCode::create_interface_tc(const char* id, const char* name, Environment& env) {
  return made_or_raise(make_typecode(tk_objref, named(id, name, env)), env);
}

TypeCode* TypeCode::create_string_tc(ULong bound, Environment& env) {
  env.clear();
  return make_string_typecode(bound);
}

TypeCode* TypeCode::create_sequence_tc(ULong bound, TypeCode* element, Environment& env) {
  return create_list(tk_sequence, bound, element, env);
}

TypeCode* TypeCode::create_array_tc(ULong length, TypeCode* element, Environment& env) {
  return create_list(tk_array, length, element, env);
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
TypeCode* const _tc_Object = TypeCode::create_interface_tc("IDL:omg.org/CORBA/Object:1.0", "Object");

}  // namespace CORBA
