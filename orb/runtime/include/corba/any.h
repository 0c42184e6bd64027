// CORBA::Any (CORBA and OMG IDL to C++, "Mapping for the Any Type"): a value of any IDL type, which says itself of
// which one. `<<=` puts a value in, `>>=` takes one out and says whether it was there:
//
//   CORBA::Any any;
//   any <<= CORBA::Long(42);
//   CORBA::Long number = 0;
//   if (any >>= number) std::cout << number << std::endl;
//   any <<= "a text";                                 // copied; the number is gone
//   const char* text = nullptr;
//   if (any >>= text) std::cout << text << std::endl;  // the Any's own: good until it changes
//
// Generated code adds the operators of its own types: for a struct T `any <<= value` copies, `any <<= pointer` takes
// over what was made with new, and `any >>= pointer` (a const T*) lends. Types that C++ does not tell apart go by
// from_... and to_..., as below.
//
//   Bank::Entry entry;
//   entry.text = "rent", entry.amount = -500;
//   any <<= entry;
//   const Bank::Entry* found = nullptr;
//   if (any >>= found) std::cout << found->text.in() << std::endl;  // the Any's own
//
// For a type that is not known when the program is compiled, type() says what is there (corba/typecode.h).
#pragma once

#include <concepts>
#include <vector>

#include "corba/detail/value_ops.h"
#include "corba/fixed.h"
#include "corba/typecode.h"

namespace CORBA {

/// A value of any IDL type with its TypeCode. What came from a wire is kept as octets until it is extracted.
/// Copies are deep. An Any, constant or not, belongs to one thread at a time: extracting may decode.
///
///   CORBA::Any octet;
///   octet <<= CORBA::Any::from_octet(7);  // else it would be a number of another type
///   CORBA::Octet taken = 0;
///   if (octet >>= CORBA::Any::to_octet(taken)) std::cout << int{taken} << std::endl;
///
/// What is taken out as a pointer stays the Any's, and is good until it changes, is destroyed, or the value is
/// extracted as another C++ type. Putting something in drops what was there.
class ZRSVCPP_API Any : public Allocated {
 public:
  // Values whose C++ types are not their own in the mapping: `any <<= Any::from_octet(1)`, `any >>=
  // Any::to_octet(value)`.
  // The Any's own texts stay the Any's; a bound of 0 is none; `nocopy` takes the text over.
  /// Of the same size as an octet or a character, so they say what they are.
  struct from_boolean {
    from_boolean(Boolean v) : value(v) {}
    Boolean value;
  };
  struct from_octet {
    from_octet(Octet v) : value(v) {}
    Octet value;
  };
  struct from_char {
    from_char(Char v) : value(v) {}
    Char value;
  };
  struct from_wchar {
    from_wchar(WChar v) : value(v) {}
    WChar value;
  };
  /// A string of at most `the_bound` characters, copied; the form with char* takes it over when it is told so.
  template <class C>
  struct from_text {
    from_text(const C* text, ULong the_bound) : value(text), bound(the_bound) {}
    from_text(C* text, ULong the_bound, Boolean take_over = false)
        : value(text), bound(the_bound), nocopy(take_over) {}
    const C* value;
    ULong bound;
    Boolean nocopy = false;
  };
  using from_string = from_text<char>;
  using from_wstring = from_text<WChar>;
  /// A decimal number of that type; the number stays the caller's and is read at once.
  struct from_fixed {
    from_fixed(const Fixed& v, UShort the_digits, Short the_scale)
        : value(v), digits(the_digits), scale(the_scale) {}
    const Fixed& value;
    UShort digits;
    Short scale;
  };
  /// They name the variable that the value is copied to.
  struct to_boolean {
    to_boolean(Boolean& v) : value(v) {}
    Boolean& value;
  };
  struct to_octet {
    to_octet(Octet& v) : value(v) {}
    Octet& value;
  };
  struct to_char {
    to_char(Char& v) : value(v) {}
    Char& value;
  };
  struct to_wchar {
    to_wchar(WChar& v) : value(v) {}
    WChar& value;
  };
  /// A string of that bound, borrowed.
  template <class C>
  struct to_text {
    to_text(const C*& text, ULong the_bound) : value(text), bound(the_bound) {}
    const C*& value;
    ULong bound;
  };
  using to_string = to_text<char>;
  using to_wstring = to_text<WChar>;
  struct to_fixed {
    to_fixed(Fixed& v, UShort the_digits, Short the_scale) : value(v), digits(the_digits), scale(the_scale) {}
    Fixed& value;
    UShort digits;
    Short scale;
  };
  /// A nil reference comes out as null, with true.
  struct to_object {  // a reference of any interface; a new one, that the caller releases
    to_object(Object*& v) : value(v) {}
    Object*& value;
  };

  /// Holds nothing; its type is _tc_null.
  Any() = default;
  /// Holds what replace() would.
  Any(TypeCode* type, void* value, Boolean release = false) { replace(type, value, release); }
  /// Deep: a copy of the value, also of one that was only lent to the other Any.
  Any(const Any& o);
  Any(Any&& o) noexcept = default;
  Any& operator=(const Any& o);
  Any& operator=(Any&& o) noexcept = default;
  ~Any() = default;

  /// A new TypeCode reference, never nil, that the caller releases.
  TypeCode* type() const;
  /// Gives the value another name: an equivalent type, counted once more. BAD_TYPECODE for another one, and nil. For
  /// types with an alias, of which C++ knows nothing.
  void type(TypeCode* equivalent);
  /// The value, which stays the Any's: what was given to replace, or the decoded value when it came from a
  /// wire and its type is a basic one, an enum, a string or a reference. Null when there is no value.
  void* value() const;
  /// Drops what the Any held, takes one more count of `type`, and holds `value`, which it owns when
  /// `release`. Without `ops` the type says how the value is held, as in value(). Null without `ops`: a type
  /// without a value, which decode_value may fill. Throws BAD_TYPECODE, and takes over nothing, for a nil
  /// type and for a value of a type that needs `ops`.
  void replace(TypeCode* type, void* value, unsigned char release = 0, const ValueOps* ops = nullptr);
  /// replace() with a value that is taken over whatever happens.
  void adopt(TypeCode* type, void* value, const ValueOps& ops);

  /// True when the Any's type is equivalent to `wanted`: names and aliases do not matter.
  /// False for nil.
  bool is_of(const TypeCode* wanted) const;
  /// The value as `ops` sees it, still the Any's: the value put in with these `ops`, else one decoded by them
  /// and kept. False when there is no value or it does not decode.
  bool view(const ValueOps& ops, void*& value) const;

  /// The value alone, without its TypeCode, into an encoding stream; false when there is none.
  bool encode_value(CDR* cdr) const;
  /// Replaces the value by one of the Any's type out of a decoding stream; false, and nothing changed, when
  /// it is malformed.
  bool decode_value(CDR* cdr);

 private:
  struct Held {  // a value as `ops` sees it
    Held() = default;
    Held(void* v, const ValueOps* o, Boolean r) : value(v), ops(o), release(r) {}
    Held(Held&& o) noexcept;
    Held& operator=(Held&& o) noexcept;
    ~Held();

    void* value = nullptr;
    const ValueOps* ops = nullptr;  // null: there is none
    Boolean release = 0;
  };

  const TypeCode* own_type() const { return type_.in() ? type_.in() : _tc_null; }
  bool recode(const ValueOps& ops, void*& value) const;

  TypeCode_var type_;          // nil: _tc_null
  Held held_;                  // what was put in
  bool has_octets_ = false;    // what came from a wire:
  std::vector<Octet> octets_;  // the value in CDR, in this machine's byte order, aligned by itself
  mutable Held decoded_;       // the same value, as the last extraction wanted to see it
};

/// Owns one Any: a fresh one holds a new empty Any, copies are deep. Null only after `_retn()` or `out()`. It takes and
/// gives values as an Any does.
///
///   CORBA::Any_var result = new CORBA::Any;
///   result <<= CORBA::Double(0.5);
///   CORBA::TypeCode_var type = result->type();
class Any_var : public ValueVar<Any> {
 public:
  Any_var() : ValueVar(new Any) {}
  using ValueVar::ValueVar;
  using ValueVar::operator=;
  Any& operator*() const { return *ptr(); }
  operator Any*() const { return ptr(); }
};
using Any_out = ValueOut<Any>;

/// Copies one value of that type from a decoding stream to another, encoding one, which has this machine's
/// byte order. False when the octets are no such value, or nested too deep.
ZRSVCPP_API bool copy_value(const TypeCode* type, CDR* from, CDR* to);

// ---- Insertion and extraction --------------------------------------------------------------------
// Insertions copy unless they say otherwise. Extractions give false, and leave the target alone, when the Any
// holds another type; pointers that they give stay the Any's and live until it changes or the value is
// extracted as another C++ type.

/// The numbers that C++ tells apart: they go in and out as they are.
template <class T>
concept AnyNumber = std::same_as<T, Short> || std::same_as<T, UShort> || std::same_as<T, Long> ||
    std::same_as<T, ULong> || std::same_as<T, LongLong> || std::same_as<T, ULongLong> ||
    std::same_as<T, Float> || std::same_as<T, Double> || std::same_as<T, LongDouble>;

/// The constant of that number's type; nothing to release.
template <AnyNumber T>
TypeCode* number_typecode() {
  if constexpr (std::same_as<T, Short>) return _tc_short;
  if constexpr (std::same_as<T, UShort>) return _tc_ushort;
  if constexpr (std::same_as<T, Long>) return _tc_long;
  if constexpr (std::same_as<T, ULong>) return _tc_ulong;
  if constexpr (std::same_as<T, LongLong>) return _tc_longlong;
  if constexpr (std::same_as<T, ULongLong>) return _tc_ulonglong;
  if constexpr (std::same_as<T, Float>) return _tc_float;
  if constexpr (std::same_as<T, Double>) return _tc_double;
  if constexpr (std::same_as<T, LongDouble>) return _tc_longdouble;
}

// For one-line operators of other types. `type` is the type's TypeCode: a plain TypeCode* is taken over, as
// by any _var, so a TypeCode that was built for the call goes in as it is. It may be nil (it could not be
// built): insertions then throw BAD_TYPECODE, extractions give false.

/// Takes over `value`, whatever happens.
template <class T>
void any_insert_value(Any& any, const TypeCode_var& type, T* value) {
  any.adopt(type.in(), value, ValueOpsOf<T>::ops);
}
/// Copies.
template <class T>
void any_insert_copy(Any& any, const TypeCode_var& type, const T& value) {
  any_insert_value(any, type, new T(value));
}
/// The Any's own value.
template <class T>
Boolean any_extract(const Any& any, const TypeCode_var& type, T*& value) {
  void* found = nullptr;
  if (!any.is_of(type.in()) || !any.view(ValueOpsOf<T>::ops, found) || !found) return 0;
  value = static_cast<T*>(found);
  return 1;
}
/// A copy of it.
template <class T>
Boolean any_extract_copy(const Any& any, const TypeCode_var& type, T& value) {
  T* found = nullptr;
  if (!any_extract(any, type, found)) return 0;
  value = *found;
  return 1;
}
/// Takes over `reference`, which may be nil, whatever happens.
template <class X>
void any_insert_owned_reference(Any& any, const TypeCode_var& type, X* reference) {
  any.adopt(type.in(), static_cast<Object*>(reference), ReferenceOps::ops);
}
/// Duplicates `reference`.
template <class X>
void any_insert_reference(Any& any, const TypeCode_var& type, X* reference) {
  any_insert_owned_reference(any, type, X::_duplicate(reference));
}
/// Takes over the reference in a cell made with new, and deletes the cell.
template <class X>
void any_insert_reference(Any& any, const TypeCode_var& type, X** cell) {
  X* const reference = *cell;
  delete cell;
  any_insert_owned_reference(any, type, reference);
}
/// Copies a user exception, for ServerRequest::set_exception. Exceptions of generated code have an operator of their
/// own:
///
///   CORBA::Any any;
///   any <<= Bank::Overdrawn(20);
template <class E>
void any_insert_exception(Any& any, const TypeCode_var& type, const E& exception) {
  any.adopt(type.in(), new E(exception), ExceptionOpsOf<E>::ops);
}

/// A number of exactly that type: what goes in as a Long comes out as a Long, and as nothing else.
template <AnyNumber T>
void operator<<=(Any& any, T value) {
  any_insert_copy(any, number_typecode<T>(), value);
}
template <AnyNumber T>
Boolean operator>>=(const Any& any, T& value) {
  return any_extract_copy(any, number_typecode<T>(), value);
}

// Booleans, octets and characters, which would else be taken for one another or for numbers.
ZRSVCPP_API void operator<<=(Any& any, Any::from_boolean from);
ZRSVCPP_API void operator<<=(Any& any, Any::from_octet from);
ZRSVCPP_API void operator<<=(Any& any, Any::from_char from);
ZRSVCPP_API void operator<<=(Any& any, Any::from_wchar from);
/// BAD_PARAM for a text over the bound, which is not taken over.
ZRSVCPP_API void operator<<=(Any& any, Any::from_string from);
ZRSVCPP_API void operator<<=(Any& any, Any::from_wstring from);
/// DATA_CONVERSION for a number with too many digits before its point; those behind are cut off.
ZRSVCPP_API void operator<<=(Any& any, Any::from_fixed from);
/// Texts without a bound are copied; null is held as null, and travels as "".
ZRSVCPP_API void operator<<=(Any& any, const char* text);
ZRSVCPP_API void operator<<=(Any& any, const WChar* text);
/// An Any in an Any.
ZRSVCPP_API void operator<<=(Any& any, const Any& value);
/// Takes over `value`.
ZRSVCPP_API void operator<<=(Any& any, Any* value);
/// Counts the type, or duplicates the reference, once more: what is given stays the caller's. Nil is allowed.
ZRSVCPP_API void operator<<=(Any& any, TypeCode* type);
ZRSVCPP_API void operator<<=(Any& any, Object* reference);
/// Copies; the type is the exception's, as it travels.
ZRSVCPP_API void operator<<=(Any& any, const SystemException& exception);

// Copied into the variable that was named.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_boolean to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_octet to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_char to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_wchar to);
// Borrowed. A bound has to be the same: a text that was put in with a bound of 8 comes out with one of 8.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_string to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_wstring to);
/// Of exactly those digits and that scale.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_fixed to);
/// Of any interface; a new reference, which the caller releases.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_object to);
/// Borrowed, all four: nothing is to be freed or released.
ZRSVCPP_API Boolean operator>>=(const Any& any, const char*& text);
ZRSVCPP_API Boolean operator>>=(const Any& any, const WChar*& text);
ZRSVCPP_API Boolean operator>>=(const Any& any, const Any*& value);
ZRSVCPP_API Boolean operator>>=(const Any& any, TypeCode*& type);
/// Any standard system exception.
ZRSVCPP_API Boolean operator>>=(const Any& any, const SystemException*& exception);
/// A certain one.
template <class E>
requires std::derived_from<E, SystemException> Boolean operator>>=(const Any& any, const E*& exception) {
  const SystemException* held = nullptr;
  if (!(any >>= held)) return false;
  const E* const exact = dynamic_cast<const E*>(held);
  if (exact) exception = exact;
  return exact != nullptr;
}

/// An Any_var takes and gives what its Any does.
template <class A, class V>
requires std::same_as<std::remove_const_t<A>, Any_var>
void operator<<=(A& any, V&& value) { *any <<= std::forward<V>(value); }
template <class A, class V>
requires std::same_as<std::remove_const_t<A>, Any_var> Boolean operator>>=(A& any, V&& value) {
  return any.in() >>= std::forward<V>(value);
}

}  // namespace CORBA

/// An Any: its TypeCode, then its value.
ZRSVCPP_API unsigned char cdr_CORBA_Any(CDR* cdr, CORBA::Any* any);

namespace CORBA::idl {

template <>
struct Wire<Any> {
  static bool move(CDR* cdr, Any& any) { return cdr_CORBA_Any(cdr, &any); }
};

// A TypeCode is counted: it is given back, not deleted.
template <>
struct Wire<TypeCode*> {
  static bool move(CDR* cdr, TypeCode*& type) { return cdr_CORBA_TypeCode(cdr, type); }
};

}  // namespace CORBA::idl
