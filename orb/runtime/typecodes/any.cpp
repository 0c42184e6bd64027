#include "corba/any.h"

#include <array>

#include "base/encoded_stream.h"
#include "base/raise.h"
#include "corba/detail/any_values.h"
#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

/// Octets and booleans share a C++ type; this is how an octet travels.
struct OctetOps {
  static bool move(CDR* cdr, void*& value) {
    if (cdr->direction == CDR_ENCODE) return value && OM_cdr_octet(cdr, static_cast<Octet*>(value));
    Octet octet = 0;
    if (!OM_cdr_octet(cdr, &octet)) return false;
    value = new Octet(octet);
    return true;
  }
  static constexpr ValueOps ops{ValueOpsOf<Octet>::copy, ValueOpsOf<Octet>::destroy, move};
};

/// Values that are pointers themselves.
template <class P, P* (*Copy)(const P*), void (*Destroy)(P*), bool (*Move)(CDR*, P*&)>
struct PointerOps {
  static void* copy(const void* value) { return Copy(static_cast<const P*>(value)); }
  static void destroy(void* value) { Destroy(static_cast<P*>(value)); }
  static bool move(CDR* cdr, void*& value) {
    auto* pointer = static_cast<P*>(value);
    if (!Move(cdr, pointer)) return false;
    value = pointer;
    return true;
  }
  static constexpr ValueOps ops{copy, destroy, move};
};

Object* duplicate(const Object* object) { return Object::_duplicate(const_cast<Object*>(object)); }
TypeCode* duplicate(const TypeCode* type) { return TypeCode::_duplicate(const_cast<TypeCode*>(type)); }
bool move_string(CDR* cdr, char*& text) { return cdr_CORBA_string_cpp(cdr, &text); }
bool move_object(CDR* cdr, Object*& object) { return OM_cdr_object(cdr, object); }
bool move_typecode(CDR* cdr, TypeCode*& type) { return cdr_CORBA_TypeCode(cdr, type); }

bool move_wide_string(CDR* cdr, WChar*& text) { return cdr_CORBA_wstring_cpp(cdr, &text); }

using WideStringOps = PointerOps<WChar, wstring_dup, wstring_free, move_wide_string>;
using StringOps = PointerOps<char, string_dup, string_free, move_string>;
using TypeCodeOps = PointerOps<TypeCode, duplicate, release, move_typecode>;
using ObjectOps = PointerOps<Object, duplicate, release, move_object>;

std::string public_id(const SystemException& e) {
  const std::string_view name = standard_exception_name(e.id());
  return "IDL:omg.org/CORBA/" + std::string(name.empty() ? "UNKNOWN" : name) + ":1.0";
}

/// A standard system exception: its public id, minor code and completion status.
bool move_exception(CDR* cdr, SystemException*& e) {
  using idl::Wire;
  ULong minor = e ? e->minor() : 0;
  ULong status = e ? static_cast<ULong>(e->completed()) : 0;
  if (cdr->direction == CDR_ENCODE) {
    if (!e) return false;
    const std::string id = public_id(*e);
    const char* text = id.c_str();
    return Wire<const char*>::move(cdr, text) && Wire<ULong>::move(cdr, minor) &&
           Wire<ULong>::move(cdr, status);
  }
  const char* id = nullptr;
  if (!Wire<const char*>::move(cdr, id) || !Wire<ULong>::move(cdr, minor) ||
      !Wire<ULong>::move(cdr, status)) {
    return false;
  }
  if (status > COMPLETED_MAYBE) return false;
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a string that was decoded is there
  auto made = make_standard_exception(id, minor, static_cast<CompletionStatus>(status));
  if (!made) return false;
  e = made.release();
  return true;
}

SystemException* copy_exception(const SystemException* e) {
  return e ? static_cast<SystemException*>(e->_clone()) : nullptr;
}
void delete_exception(SystemException* e) { delete e; }

using ExceptionOps = PointerOps<SystemException, copy_exception, delete_exception, move_exception>;

TypeCode* exception_typecode(const SystemException& e) {
  const std::string id = public_id(e);
  const TypeCode_var status(TypeCode::create_enum_tc("IDL:omg.org/CORBA/completion_status:1.0",
                                                     "completion_status",
                                                     {"COMPLETED_YES", "COMPLETED_NO", "COMPLETED_MAYBE"}));
  const std::string name(standard_exception_name(id));
  return TypeCode::create_exception_tc(id.c_str(), name.c_str(),
                                       {{"minor", _tc_ulong}, {"completed", status.in()}});
}

/// How values of a kind are held when nobody says; others have a C++ form that only their own code knows.
struct UsualOps {
  TCKind kind;
  const ValueOps& ops;
};
constexpr UsualOps usual_rows[] = {
    {tk_short, ValueOpsOf<Short>::ops},
    {tk_ushort, ValueOpsOf<UShort>::ops},
    {tk_long, ValueOpsOf<Long>::ops},
    {tk_enum, ValueOpsOf<ULong>::ops},
    {tk_ulong, ValueOpsOf<ULong>::ops},
    {tk_longlong, ValueOpsOf<LongLong>::ops},
    {tk_ulonglong, ValueOpsOf<ULongLong>::ops},
    {tk_float, ValueOpsOf<Float>::ops},
    {tk_double, ValueOpsOf<Double>::ops},
    {tk_longdouble, ValueOpsOf<LongDouble>::ops},
    {tk_boolean, ValueOpsOf<Boolean>::ops},
    {tk_wchar, ValueOpsOf<WChar>::ops},
    {tk_char, ValueOpsOf<Char>::ops},
    {tk_octet, OctetOps::ops},
    {tk_any, ValueOpsOf<Any>::ops},
    {tk_TypeCode, TypeCodeOps::ops},
    {tk_objref, ReferenceOps::ops},
    {tk_string, StringOps::ops},
    {tk_wstring, WideStringOps::ops},
};

/// By kind.
constexpr auto usual_of_kind = [] {
  std::array<const ValueOps*, tk_local_interface + 1> of_kind{};
  for (const UsualOps& row : usual_rows) of_kind[row.kind] = &row.ops;
  return of_kind;
}();

/// Null for types of another form.
const ValueOps* usual_ops(const TypeCode* type) {
  const TCKind kind = unalias(type)->kind();
  return kind < usual_of_kind.size() ? usual_of_kind[kind] : nullptr;
}

/// The value of an Any of that type, held in the usual way.
template <class P>
bool usual_view(const Any& any, const TypeCode* type, P*& value) {
  void* found = nullptr;
  if (!any.is_of(type) || !any.view(*usual_ops(type), found)) return false;
  value = static_cast<P*>(found);
  return true;
}

template <class T>
Boolean usual_copy(const Any& any, const TypeCode* type, T& value) {
  T* found = nullptr;
  if (!usual_view(any, type, found) || !found) return 0;
  value = *found;
  return 1;
}

template <class T>
void insert_usual(Any& any, TypeCode* type, std::unique_ptr<T> value) {
  any.replace(type, value.get(), 1, usual_ops(type));
  value.release();
}

template <class C>
void insert_text(Any& any, TCKind kind, const Any::from_text<C>& from) {
  constexpr bool wide = std::same_as<C, WChar>;
  if (from.value && from.bound != 0 && std::char_traits<C>::length(from.value) > from.bound)
    throw BAD_PARAM();
  const TypeCode_var type(make_text_typecode(kind, from.bound));
  const ValueOps& ops = wide ? WideStringOps::ops : StringOps::ops;
  void* text = from.nocopy ? const_cast<C*>(from.value) : static_cast<C*>(ops.copy(from.value));
  try {
    any.replace(type.in(), text, 1, &ops);
  } catch (...) {
    if (!from.nocopy) ops.destroy(text);
    throw;
  }
}

template <class C>
Boolean extract_text(const Any& any, TCKind kind, const Any::to_text<C>& to) {
  const TypeCode_var type(make_text_typecode(kind, to.bound));
  C* found = nullptr;
  if (!usual_view(any, type.in(), found)) return 0;
  to.value = found;
  return 1;
}

}  // namespace

const ValueOps ReferenceOps::ops = ObjectOps::ops;

// ---- What an Any holds ---------------------------------------------------------------------------

Any::Held::Held(Held&& o) noexcept
    : value(std::exchange(o.value, nullptr)),
      ops(std::exchange(o.ops, nullptr)),
      release(std::exchange(o.release, 0)) {}

Any::Held& Any::Held::operator=(Held&& o) noexcept {
  Held taken(std::move(o));  // what was here goes with it
  std::swap(value, taken.value);
  std::swap(ops, taken.ops);
  std::swap(release, taken.release);
  return *this;
}

Any::Held::~Held() {
  if (ops && release) ops->destroy(value);
}

Any::Any(const Any& o) : type_(o.type_), has_octets_(o.has_octets_), octets_(o.octets_) {
  if (o.held_.ops) held_ = Held(o.held_.ops->copy(o.held_.value), o.held_.ops, 1);
}

Any& Any::operator=(const Any& o) {
  if (this != &o) *this = Any(o);
  return *this;
}

TypeCode* Any::type() const { return duplicate(own_type()); }

void* Any::value() const {
  if (held_.ops) return held_.value;
  const ValueOps* ops = has_octets_ ? usual_ops(own_type()) : nullptr;
  void* found = nullptr;
  return ops && view(*ops, found) ? found : nullptr;
}

void Any::type(TypeCode* equivalent) {
  if (!equivalent || !is_of(equivalent)) throw BAD_TYPECODE();
  type_ = TypeCode::_duplicate(equivalent);
}

void Any::replace(TypeCode* type, void* value, unsigned char release, const ValueOps* ops) {
  if (!type) throw BAD_TYPECODE();
  const ValueOps* used = ops || !value ? ops : usual_ops(type);
  if (value && !used) throw BAD_TYPECODE();
  for (Held* held : {&held_, &decoded_}) {
    if (held->value == value) held->release = 0;  // it is about to be held again
  }
  Any fresh;
  fresh.type_ = TypeCode::_duplicate(type);
  fresh.held_ = Held(value, used, release);
  *this = std::move(fresh);
}

void Any::adopt(TypeCode* type, void* value, const ValueOps& ops) {
  Held owned(value, &ops, 1);
  replace(type, value, 1, &ops);
  owned.release = 0;
}

bool Any::is_of(const TypeCode* wanted) const { return own_type()->equivalent(wanted); }

bool Any::view(const ValueOps& ops, void*& value) const {
  if (held_.ops == &ops) {
    value = held_.value;
    return true;
  }
  if (decoded_.ops != &ops) {
    void* fresh = nullptr;
    if (!recode(ops, fresh)) return false;
    decoded_ = Held(fresh, &ops, 1);
  }
  value = decoded_.value;
  return true;
}

/// A new value as `ops` sees it, out of the octets or, for a value held otherwise, by way of octets.
bool Any::recode(const ValueOps& ops, void*& value) const {
  if (has_octets_) {
    CDR cdr;
    OM_cdr_open_decode(&cdr, octets_.data(), static_cast<ULong>(octets_.size()), 0);
    return ops.move(&cdr, value);
  }
  EncodedStream stream;
  if (!encode_value(stream)) return false;
  CDR cdr = stream.reader();
  return ops.move(&cdr, value);
}

bool Any::encode_value(CDR* cdr) const {
  if (held_.ops) {
    void* value = held_.value;
    return held_.ops->move(cdr, value);
  }
  if (!has_octets_) return own_type()->kind() == tk_null || own_type()->kind() == tk_void;
  CDR own;
  OM_cdr_open_decode(&own, octets_.data(), static_cast<ULong>(octets_.size()), 0);
  return copy_value(own_type(), &own, cdr);
}

bool Any::decode_value(CDR* cdr) {
  EncodedStream stream;
  if (!copy_value(own_type(), cdr, stream)) return false;
  octets_ = stream.octets();
  has_octets_ = true;
  held_ = Held();
  decoded_ = Held();
  return true;
}

// ---- Insertion -----------------------------------------------------------------------------------

void operator<<=(Any& any, Any::from_boolean from) {
  insert_usual(any, _tc_boolean, std::make_unique<Boolean>(from.value));
}
void operator<<=(Any& any, Any::from_octet from) {
  insert_usual(any, _tc_octet, std::make_unique<Octet>(from.value));
}
void operator<<=(Any& any, Any::from_char from) {
  insert_usual(any, _tc_char, std::make_unique<Char>(from.value));
}

void operator<<=(Any& any, Any::from_wchar from) {
  insert_usual(any, _tc_wchar, std::make_unique<WChar>(from.value));
}

void operator<<=(Any& any, Any::from_fixed from) {
  const TypeCode_var type(TypeCode::create_fixed_tc(from.digits, from.scale));
  EncodedStream stream;
  Fixed value = from.value;
  if (!cdr_CORBA_Fixed(stream, value, from.digits, from.scale)) throw DATA_CONVERSION();
  CDR octets = stream.reader();
  any.replace(type.in(), nullptr, 0);
  any.decode_value(&octets);
}

void operator<<=(Any& any, Any::from_string from) { insert_text(any, tk_string, from); }
void operator<<=(Any& any, Any::from_wstring from) { insert_text(any, tk_wstring, from); }
void operator<<=(Any& any, const char* text) { any <<= Any::from_string(text, 0); }
void operator<<=(Any& any, const WChar* text) { any <<= Any::from_wstring(text, 0); }
void operator<<=(Any& any, Any* value) { insert_usual(any, _tc_any, std::unique_ptr<Any>(value)); }
void operator<<=(Any& any, const Any& value) { insert_usual(any, _tc_any, std::make_unique<Any>(value)); }
void operator<<=(Any& any, TypeCode* type) {
  any.replace(_tc_TypeCode, TypeCode::_duplicate(type), 1, &TypeCodeOps::ops);
}
void operator<<=(Any& any, Object* reference) { any_insert_reference(any, duplicate(_tc_Object), reference); }

void operator<<=(Any& any, const SystemException& exception) {
  const TypeCode_var type(exception_typecode(exception));
  std::unique_ptr<SystemException> copy(copy_exception(&exception));
  any.replace(type.in(), copy.get(), 1, &ExceptionOps::ops);
  copy.release();
}

// ---- Extraction ----------------------------------------------------------------------------------

Boolean operator>>=(const Any& any, Any::to_boolean to) { return usual_copy(any, _tc_boolean, to.value); }
Boolean operator>>=(const Any& any, Any::to_octet to) { return usual_copy(any, _tc_octet, to.value); }
Boolean operator>>=(const Any& any, Any::to_char to) { return usual_copy(any, _tc_char, to.value); }

Boolean operator>>=(const Any& any, Any::to_wchar to) { return usual_copy(any, _tc_wchar, to.value); }
Boolean operator>>=(const Any& any, Any::to_string to) { return extract_text(any, tk_string, to); }
Boolean operator>>=(const Any& any, Any::to_wstring to) { return extract_text(any, tk_wstring, to); }

Boolean operator>>=(const Any& any, Any::to_fixed to) {
  const TypeCode_var type(TypeCode::create_fixed_tc(to.digits, to.scale));
  EncodedStream stream;
  if (!any.is_of(type.in()) || !any.encode_value(stream)) return 0;
  CDR octets = stream.reader();
  return cdr_CORBA_Fixed(&octets, to.value, to.digits, to.scale);
}

Boolean operator>>=(const Any& any, Any::to_object to) {
  const TypeCode_var type(any.type());
  void* found = nullptr;
  if (unalias(type.in())->kind() != tk_objref || !any.view(ReferenceOps::ops, found)) return 0;
  to.value = Object::_duplicate(static_cast<Object*>(found));
  return 1;
}

Boolean operator>>=(const Any& any, const WChar*& text) { return any >>= Any::to_wstring(text, 0); }
Boolean operator>>=(const Any& any, const char*& text) { return any >>= Any::to_string{text, 0}; }

Boolean operator>>=(const Any& any, const Any*& value) {
  Any* found = nullptr;
  if (!usual_view(any, _tc_any, found)) return 0;
  value = found;
  return 1;
}

Boolean operator>>=(const Any& any, TypeCode*& type) { return usual_view(any, _tc_TypeCode, type); }

Boolean operator>>=(const Any& any, const SystemException*& exception) {
  const TypeCode_var type(any.type());
  if (type->kind() != tk_except || standard_exception_name(type->id()).empty()) return 0;
  void* found = nullptr;
  if (!any.view(ExceptionOps::ops, found)) return 0;
  exception = static_cast<SystemException*>(found);
  return 1;
}

}  // namespace CORBA

unsigned char cdr_CORBA_Any(CDR* cdr, CORBA::Any* any) {
  if (cdr->direction == CDR_ENCODE) {
    const CORBA::TypeCode_var type(any->type());
    CORBA::TypeCode* plain = type.in();
    return cdr_CORBA_TypeCode(cdr, plain) && any->encode_value(cdr);
  }
  CORBA::TypeCode_var type;
  if (!cdr_CORBA_TypeCode(cdr, type.inout())) return 0;
  CORBA::Any fresh;
  fresh.replace(type.in(), nullptr, 0);
  if (!fresh.decode_value(cdr)) return 0;
  *any = std::move(fresh);
  return 1;
}
