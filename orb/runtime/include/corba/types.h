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

// The basic types: IDL's long is CORBA::Long, and so on, with exactly the widths that IDL gives them. Char holds an
// octet of text in the program's code set, which is UTF-8; WChar a character of Unicode. They pass by value.
//
//   CORBA::Long sum = account->balance() + 1;  // 32 bits on every machine

using Boolean = bool;
using Char = char;
using WChar = wchar_t;
using Octet = unsigned char;
using Short = std::int16_t;
using UShort = std::uint16_t;
using Long = std::int32_t;
using ULong = std::uint32_t;
using LongLong = std::int64_t;
using ULongLong = std::uint64_t;
using Float = float;
using Double = double;
using LongDouble = long double;

/// What indexes of classes that convert to pointers are: with one type only, an index of any other would fit the pointer
/// as well.
template <class T>
concept Index =
    std::disjunction_v<std::is_integral<T>, std::conjunction<std::is_enum<T>, std::is_convertible<T, ULong>>>;

// Out parameters of them: what `out long n` is in the signature of an operation.
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

/// Memory of the mapping's objects; they back the operator new and delete of its classes. om_new never gives null: it
/// throws std::bad_alloc. om_delete gives back what
/// om_new gave; null is allowed. Any thread.
ZRSVCPP_API void* om_new(std::size_t octets);
ZRSVCPP_API void om_delete(void* block) noexcept;

/// Base of every class of the mapping that programs allocate: what one library makes with new, another one may delete.
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
/// A copy of `text`, which the caller frees; null for null. std::bad_alloc without memory, and for a text of 2 GiB.
ZRSVCPP_API char* string_dup(const char* text);
/// Frees what string_alloc, string_dup or an operation returned; null is allowed. Any thread.
ZRSVCPP_API void string_free(char* text);

/// The same for wide strings, whose length is in characters. They are not to be mixed with those above.
ZRSVCPP_API WChar* wstring_alloc(Long length);
ZRSVCPP_API WChar* wstring_dup(const WChar* text);
ZRSVCPP_API void wstring_free(WChar* text);

}  // namespace CORBA

using CORBA::om_delete;
using CORBA::om_new;
