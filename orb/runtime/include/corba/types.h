// Basic types, memory and strings of the C++ mapping (OMG IDL to C++, "Mapping for Basic Data Types" and
// "String Types").
#pragma once

#if __cplusplus < 202002L
#error "module CORBA needs C++20: compile with -std=c++20 or later"
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#define ZRSVCPP_API __attribute__((visibility("default")))

namespace CORBA {

// The basic types: IDL's long is CORBA::Long, and so on, with exactly the widths that IDL gives them, on every machine.
// They pass by value, in every direction but out and inout.
//
//   CORBA::Long sum = account->balance() + 1;  // 32 bits on every machine

/// True or false; one octet on the wire, where anything but 0 and 1 is MARSHAL.
using Boolean = bool;
/// An octet of text in UTF-8, which is what texts are in within a program. It is converted on the wire where the other
/// side wants ISO 8859-1; a single one above 0x7F is a part of a character, cannot be converted, and is
/// DATA_CONVERSION.
using Char = char;
/// A character of Unicode, UTF-16 on the wire. GIOP 1.0 has none: MARSHAL.
using WChar = wchar_t;
/// Eight bits that nobody converts.
using Octet = unsigned char;
// Whole numbers of 16, 32 and 64 bits, and the same without a sign. IDL's long is 32 bits also where C++'s is longer.
// Arithmetic is C++'s: nothing is checked for what does not fit.
using Short = std::int16_t;
using UShort = std::uint16_t;
using Long = std::int32_t;
using ULong = std::uint32_t;
using LongLong = std::int64_t;
using ULongLong = std::uint64_t;
// IEEE numbers of 32 and 64 bits. LongDouble has 128 on the wire; where this machine's long double is shorter, what
// comes in becomes the nearest number that it has.
using Float = float;
using Double = double;
using LongDouble = long double;

/// Whole numbers and enums that may stand between brackets. What indexes of classes that convert to pointers are: with
/// one type only, an index of any other would fit the pointer as well.
template <class T>
concept Index =
    std::disjunction_v<std::is_integral<T>, std::conjunction<std::is_enum<T>, std::is_convertible<T, ULong>>>;

// Out parameters of them: what `out long n` is in the signature of an operation. The caller's variable itself, which
// the operation sets; what it holds after an exception is not defined.
//
//   void measure(CORBA::Long_out width, CORBA::Boolean_out known) { width = 80, known = true; }
using Boolean_out = Boolean&;
using Char_out = Char&;
using WChar_out = WChar&;
using Octet_out = Octet&;
using Short_out = Short&;
using UShort_out = UShort&;
using Long_out = Long&;
using ULong_out = ULong&;
using LongLong_out = LongLong&;
using ULongLong_out = ULongLong&;
using Float_out = Float&;
using Double_out = Double&;
using LongDouble_out = LongDouble&;

/// Memory of the mapping's objects; they back the operator new and delete of its classes, so programs that use new and
/// delete have no need of them. om_new never gives null: it throws std::bad_alloc. om_delete gives back what om_new
/// gave; null is allowed. Any thread.
ZRSVCPP_API void* om_new(std::size_t octets);
ZRSVCPP_API void om_delete(void* block) noexcept;

/// Base of every class of the mapping that programs allocate: what one library makes with new, another one may delete.
/// Arrays of such objects are C++'s own, new[] and delete[].
struct Allocated {
  static void* operator new(std::size_t octets) { return om_new(octets); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* block) noexcept { om_delete(block); }
  static void operator delete(void*, void*) noexcept {}
};

// Strings that change hands are made and freed with these and nothing else: neither new nor malloc fits. A String_var
// frees for you.
//
//   char* greeting() { return CORBA::string_dup("hello"); }  // the caller's from here on

/// Room for `length` characters and a NUL, the first set to NUL; null for a negative length or without memory. The
/// caller frees it with string_free.
ZRSVCPP_API char* string_alloc(Long length);
/// A copy of `text` up to its NUL, which the caller frees; null for null. std::bad_alloc without memory, and for a text
/// of 2 GiB.
ZRSVCPP_API char* string_dup(const char* text);
/// Frees what string_alloc, string_dup or an operation returned; null is allowed. Any thread.
ZRSVCPP_API void string_free(char* text);

/// The same for wide strings, whose length is in characters, not octets. They are not to be mixed with those above: a
/// wide string is freed with wstring_free.
ZRSVCPP_API WChar* wstring_alloc(Long length);
ZRSVCPP_API WChar* wstring_dup(const WChar* text);
ZRSVCPP_API void wstring_free(WChar* text);

}  // namespace CORBA

using CORBA::om_delete;
using CORBA::om_new;
