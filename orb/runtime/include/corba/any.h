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
// For a type that is not known when the program is compiled, type() says what is there (corba/typecode.h):
//
//   CORBA::TypeCode_var type = any.type();
//   CORBA::Long number = 0;
//   if (type->kind() == CORBA::tk_long && (any >>= number)) std::cout << number << std::endl;
//   if (type->kind() == CORBA::tk_struct) std::cout << type->name() << " with members" << std::endl;
//
// On the wire an Any is its TypeCode and then its value. What goes in as one type comes out as that type or one that is
// equivalent to it, also at the other end: there are no conversions, not even between numbers.
#pragma once

#include <concepts>
#include <vector>

#include "corba/detail/value_ops.h"
#include "corba/fixed.h"
#include "corba/typecode.h"

namespace CORBA {

/// A value of any IDL type with its TypeCode. What came from a wire is kept as octets until it is extracted, so an Any
/// that is only passed on costs no decoding, and may hold types that this program knows nothing of. Copies are deep;
/// std::bad_alloc without memory. An Any, constant or not, belongs to one thread at a time: extracting may decode.
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
  // Values whose C++ types are not their own in the mapping, or that have a bound: `any <<= Any::from_octet(1)`,
  // `any >>= Any::to_octet(value)`.

  /// Booleans, octets and characters say what they are: putting one in without that does not compile, as C++ would take
  /// it for a number or for one of the others. They are copied.
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
  /// A string of at most `the_bound` characters, 0 for any number, copied. The form with char* takes it over when it is
  /// told so: then it is of string_dup (wstring_dup). Null is held as null, and travels as "".
  ///
  ///   CORBA::Any code;
  ///   code <<= CORBA::Any::from_string("EUR", 3);
  ///   const char* text = nullptr;
  ///   if (code >>= CORBA::Any::to_string(text, 3)) std::cout << text << std::endl;  // `code >>= text` is false
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
  /// A decimal number of the type fixed<digits, scale>; the number stays the caller's and is read at once.
  struct from_fixed {
    from_fixed(const Fixed& v, UShort the_digits, Short the_scale)
        : value(v), digits(the_digits), scale(the_scale) {}
    const Fixed& value;
    UShort digits;
    Short scale;
  };
  /// They name the variable that the value is copied to, which stays as it is where the Any holds something else.
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
  /// A string of that bound, lent by the Any; 0: of one without a bound.
  template <class C>
  struct to_text {
    to_text(const C*& text, ULong the_bound) : value(text), bound(the_bound) {}
    const C*& value;
    ULong bound;
  };
  using to_string = to_text<char>;
  using to_wstring = to_text<WChar>;
  /// A decimal number of exactly that type.
  struct to_fixed {
    to_fixed(Fixed& v, UShort the_digits, Short the_scale) : value(v), digits(the_digits), scale(the_scale) {}
    Fixed& value;
    UShort digits;
    Short scale;
  };
  /// A reference of any interface, as a new one that the caller releases. A nil reference comes out as nil, with true.
  ///
  ///   CORBA::Object_var found;
  ///   if (any >>= CORBA::Any::to_object(found.out())) account = Bank::Account::_narrow(found.in());
  struct to_object {
    to_object(Object*& v) : value(v) {}
    Object*& value;
  };

  /// Holds nothing; its type is _tc_null. It travels, and nothing can be taken out of it.
  Any() = default;
  /// Holds what replace() would; raises what that does.
  Any(TypeCode* type, void* value, Boolean release = false) { replace(type, value, release); }
  /// Deep: a copy of the value, also of one that was only lent to the other Any.
  Any(const Any& o);
  /// Takes the value over; what pointers the other Any has lent are good still. It is empty then.
  Any(Any&& o) noexcept = default;
  /// The old value goes once the new one is there: without memory std::bad_alloc, and nothing changes.
  Any& operator=(const Any& o);
  /// The same; the value that was here goes at once.
  Any& operator=(Any&& o) noexcept = default;
  ~Any() = default;

  /// The type of the value, as a new reference, never nil, that the caller releases. A value of a
  /// named sequence or array type has an alias here, from which `content_type` leads on.
  TypeCode* type() const;
  /// Gives the value another name: an equivalent type, counted once more. BAD_TYPECODE for another one, and nil. For
  /// types with an alias, of which C++ knows nothing.
  void type(TypeCode* equivalent);
  /// The value, which stays the Any's, as an untyped pointer: what was given to replace, or the decoded value when it
  /// came from a wire and its type is a basic one, an enum, a string or a reference. Null when there is no value, and
  /// for other types that came from a wire. A string or a reference is the pointer itself; a number is pointed to.
  void* value() const;
  /// Drops what the Any held, takes one more count of `type`, and holds `value`, which it owns when
  /// `release`. Without `ops` the type says how the value is held, as in value(). Null without `ops`: a type
  /// without a value, which decode_value may fill. Throws BAD_TYPECODE, and takes over nothing, for a nil
  /// type and for a value of a type that needs `ops`.
  void replace(TypeCode* type, void* value, unsigned char release = 0, const ValueOps* ops = nullptr);
  /// replace() with a value that is taken over whatever happens: where it raises, the value is destroyed.
  void adopt(TypeCode* type, void* value, const ValueOps& ops);

  /// True when the Any's type is equivalent to `wanted`: names and aliases do not matter. False for nil.
  ///
  ///   if (any.is_of(Bank::_tc_Entry)) std::cout << "an entry" << std::endl;
  bool is_of(const TypeCode* wanted) const;
  /// The value as `ops` sees it, still the Any's: the value put in with these `ops`, else one decoded by them
  /// and kept. False when there is no value or it does not decode.
  bool view(const ValueOps& ops, void*& value) const;

  // For who writes streams by hand, and for dynamic calls (corba/request.h).

  /// The value alone, without its TypeCode, into an encoding stream; false when there is none.
  bool encode_value(CDR* cdr) const;
  /// Replaces the value by one of the Any's type out of a decoding stream, which may have another byte order; false,
  /// and nothing changed, when it is malformed. Octets are checked by the type here, and decoded when they are
  /// extracted.
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

  /// The type, never nil, still the Any's.
  const TypeCode* own_type() const { return type_.in() ? type_.in() : _tc_null; }
  bool recode(const ValueOps& ops, void*& value) const;

  TypeCode_var type_;          // nil: _tc_null
  Held held_;                  // what was put in
  bool has_octets_ = false;    // what came from a wire:
  std::vector<Octet> octets_;  // the value in CDR, in this machine's byte order, aligned by itself
  mutable Held decoded_;       // the same value, as the last extraction wanted to see it
};

/// Owns one Any: a fresh one holds a new empty Any, copies are deep. Null only after `_retn()` or `out()`, or where
/// null was assigned: then nothing is to be put in or taken out. Else it takes and gives values as an Any does. The
/// rest is as in CORBA::ValueVar; an operation that returns an any gives an `Any*`, which this owns.
///
///   CORBA::Any_var result = new CORBA::Any;
///   result <<= CORBA::Double(0.5);
///   CORBA::TypeCode_var type = result->type();
class Any_var : public ValueVar<Any> {
 public:
  /// A new empty Any.
  Any_var() : ValueVar(new Any) {}
  using ValueVar::ValueVar;
  using ValueVar::operator=;
  /// The Any, still owned.
  Any& operator*() const { return *ptr(); }
  operator Any*() const { return ptr(); }
};
using Any_out = ValueOut<Any>;

/// Copies one value of that type from a decoding stream to another, encoding one, which has this machine's
/// byte order. False when the octets are no such value, or nested too deep.
ZRSVCPP_API bool copy_value(const TypeCode* type, CDR* from, CDR* to);

// ---- Insertion and extraction --------------------------------------------------------------------
// Insertions copy unless they say otherwise, and the value that was there before goes. Without memory they throw
// std::bad_alloc, and the old value stays.
//
// Extractions give false, and leave the target alone, when the Any holds another type, or came from a wire and its
// octets do not decode. Pointers that they give stay the Any's and live until it changes or the value is extracted as
// another C++ type: nothing that is taken out is to be freed, but for the reference of to_object.

/// The numbers that C++ tells apart: they go in and out as they are.
template <class T>
concept AnyNumber = std::same_as<T, Short> || std::same_as<T, UShort> || std::same_as<T, Long> ||
    std::same_as<T, ULong> || std::same_as<T, LongLong> || std::same_as<T, ULongLong> ||
    std::same_as<T, Float> || std::same_as<T, Double> || std::same_as<T, LongDouble>;

/// The constant of that number's type, `_tc_long` of a Long and so on; nothing to release.
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

/// A number of exactly that type: what goes in as a Long comes out as a Long, and as nothing else. The C++ type
/// decides, so a literal wants a word: `any <<= CORBA::Short(1)`. A `long long` is none of them where LongLong is
/// `long`.
template <AnyNumber T>
void operator<<=(Any& any, T value) {
  any.adopt(number_typecode<T>(), new T(value), ValueOpsOf<T>::ops);
}
template <AnyNumber T>
Boolean operator>>=(const Any& any, T& value) {
  void* found = nullptr;
  if (!any.is_of(number_typecode<T>()) || !any.view(ValueOpsOf<T>::ops, found) || !found) return false;
  value = *static_cast<const T*>(found);
  return true;
}

// Booleans, octets and characters, which would else be taken for one another or for numbers.
//
//   any <<= CORBA::Any::from_boolean(true);
//   CORBA::Boolean set = false;
//   if (any >>= CORBA::Any::to_boolean(set)) std::cout << set << std::endl;

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
/// An Any in an Any: its type is _tc_any, and what it holds is a value with a type of its own.
ZRSVCPP_API void operator<<=(Any& any, const Any& value);
/// Takes over `value`, which was made with new.
ZRSVCPP_API void operator<<=(Any& any, Any* value);
/// Counts the type, or duplicates the reference, once more: what is given stays the caller's. Nil is allowed; a nil
/// TypeCode travels as _tc_null. A reference of an interface of generated code keeps its type, by the operator there.
ZRSVCPP_API void operator<<=(Any& any, TypeCode* type);
ZRSVCPP_API void operator<<=(Any& any, Object* reference);
/// Copies; the type is the exception's, as it travels.
ZRSVCPP_API void operator<<=(Any& any, const SystemException& exception);

// Copied into the variable that was named.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_boolean to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_octet to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_char to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_wchar to);
// Lent by the Any. A bound has to be the same: a text that was put in with a bound of 8 comes out with one of 8.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_string to);
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_wstring to);
/// Of exactly those digits and that scale.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_fixed to);
/// Of any interface; a new reference, which the caller releases.
ZRSVCPP_API Boolean operator>>=(const Any& any, Any::to_object to);
/// Lent, all four: nothing is to be freed or released. Texts without a bound; null where null went in.
ZRSVCPP_API Boolean operator>>=(const Any& any, const char*& text);
ZRSVCPP_API Boolean operator>>=(const Any& any, const WChar*& text);
ZRSVCPP_API Boolean operator>>=(const Any& any, const Any*& value);
ZRSVCPP_API Boolean operator>>=(const Any& any, TypeCode*& type);
/// Any standard system exception, with its minor code and completion status; lent.
///
///   const CORBA::SystemException* failure = nullptr;
///   if (any >>= failure) std::cerr << *failure << std::endl;
ZRSVCPP_API Boolean operator>>=(const Any& any, const SystemException*& exception);
/// A certain one: false for another system exception.
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
