// How the elements of a sequence stand in its buffer, are made and copied, and what operator[] gives of them: the
// second parameter of CORBA::Sequence. Generated code picks one for each sequence type (SequenceOf in
// corba/detail/idl_types.h).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

#include "corba/strings.h"

namespace CORBA {

/// As memcpy, at full speed wherever the two are. Of the library.
ZRSVCPP_API void copy_many(void* to, const void* from, std::size_t octets) noexcept;

// What `Elements` of a sequence say, all of it static:
//
//   Stored, Reference, ConstReference   what stands in the buffer, and what operator[] gives
//   make(n)            a buffer of n default elements; null without memory
//   make_for_copy(n)   the same of elements that are all assigned next
//   free(buffer)       with what the elements own; null is allowed
//   copy(from, n, to)  deep, over elements that are there
//   move(from, n, to)  the same out of a buffer that is freed next, by exchange
//   clear(buffer, n)   n elements let go of what they own
//   at(buffer, i, owned)   an element; `owned`: what it replaces is to be freed

/// Elements that copy as C++ values do, and arrays of them.
template <class T>
struct PlainElements {
  using Stored = T;
  using Reference = T&;
  using ConstReference = const T&;
  static T* make(ULong n) {
    if constexpr (std::is_trivially_default_constructible_v<T>) {  // a compiler may make a loop of T[n]()
      T* zeroed = new (std::nothrow) T[n];
      if (zeroed) std::memset(static_cast<void*>(zeroed), 0, n * sizeof(T));
      return zeroed;
    } else {
      return new (std::nothrow) T[n]();
    }
  }
  /// For elements that are assigned next: numbers, and structs of them, are left as the memory is.
  static T* make_for_copy(ULong n) {
    if constexpr (std::is_trivially_copyable_v<T>)
      return n <= SIZE_MAX / sizeof(T) ? static_cast<T*>(::operator new[](n * sizeof(T), std::nothrow))
                                       : nullptr;
    return make(n);
  }
  static void free(T* buffer) { delete[] buffer; }
  static void copy(const T* from, ULong n, T* to) {
    using Single = std::remove_all_extents_t<T>;
    const std::size_t count = n * (sizeof(T) / sizeof(Single));
    if constexpr (std::is_trivially_copyable_v<Single>) {
      const std::size_t octets = count * sizeof(Single);
      if (octets > 2048)
        copy_many(to, from, octets);
      else if (octets != 0)
        std::memcpy(to, from, octets);
    } else {
      for (std::size_t i = 0; i < count; ++i)
        reinterpret_cast<Single*>(to)[i] = reinterpret_cast<const Single*>(from)[i];
    }
  }
  /// From a buffer that is freed next.
  static void move(T* from, ULong n, T* to) {
    if constexpr (std::is_trivially_copyable_v<T> || !std::is_nothrow_swappable_v<T>)
      copy(from, n, to);
    else
      std::swap_ranges(from, from + n, to);
  }
  /// Those that own something let go of it; numbers stay.
  static void clear(T* buffer, ULong n) {
    using Single = std::remove_all_extents_t<T>;
    if constexpr (!std::is_trivially_copyable_v<Single>) {
      const std::size_t count = n * (sizeof(T) / sizeof(Single));
      for (std::size_t i = 0; i < count; ++i) reinterpret_cast<Single*>(buffer)[i] = Single();
    }
  }
  // An element frees what it owns itself, whoever owns the buffer.
  static T& at(T* buffer, ULong i, bool) { return buffer[i]; }
  static const T& at(const T* buffer, ULong i) { return buffer[i]; }
};

/// Elements that are plain pointers in the buffer and owned through Owner, which holds one such pointer.
template <class Pointer, class Owner, class Element>
struct OwnedElements {
  using Stored = Pointer;
  using Reference = Element;
  using ConstReference = typename Element::Const;
  static_assert(sizeof(Owner) == sizeof(Pointer));
  static Pointer* make(ULong n) { return reinterpret_cast<Pointer*>(new (std::nothrow) Owner[n]()); }
  static Pointer* make_for_copy(ULong n) { return make(n); }
  static void free(Pointer* buffer) { delete[] reinterpret_cast<Owner*>(buffer); }
  static void copy(const Pointer* from, ULong n, Pointer* to) {
    for (ULong i = 0; i < n; ++i) Element(to[i], true) = Element::constant(from[i]);
  }
  static void move(Pointer* from, ULong n, Pointer* to) { std::swap_ranges(from, from + n, to); }
  static void clear(Pointer* buffer, ULong n) {
    for (ULong i = 0; i < n; ++i) Element(buffer[i], true) = static_cast<Pointer>(nullptr);
  }
  static Element at(Pointer* buffer, ULong i, bool owned) { return Element(buffer[i], owned); }
  static ConstReference at(const Pointer* buffer, ULong i) { return Element::constant(buffer[i]); }
};

/// Strings of either kind of characters: a null pointer is "".
template <class C>
using TextElements = OwnedElements<C*, TextVar<C, true>, TextElement<C>>;

/// The scratch element of sequences that have none, and refuse an index at or past the length.
struct NoScratch {};

}  // namespace CORBA
