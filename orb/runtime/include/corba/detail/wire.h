// How a C++ type travels: Wire<V>, one function that encodes or decodes by the stream's direction (CORBA, "Common Data
// Representation"). It knows no IDL: bounds, forms of parameters and TypeCodes are Type's (corba/detail/idl_types.h).
// Decoding false leaves the target as it was, but for values that were decoded in part.
#pragma once

#include <concepts>
#include <cstring>
#include <type_traits>

#include "corba/object.h"
#include "corba/sequence.h"
#include "zrsv/cdr_value.h"

namespace CORBA::idl {

/// `static bool move(CDR*, V&)`: encodes or decodes one V by the stream's direction; true on success.
template <class V>
struct Wire;

/// V is one of those types.
template <class V, class... Of>
concept OneOf = (std::same_as<V, Of> || ...);
/// Travels as its octets.
template <class V>
concept Number = OneOf<V, Short, UShort, Long, ULong, LongLong, ULongLong, Float, Double>;

template <Number V>
struct Wire<V> {
  static bool move(CDR* cdr, V& value) { return zrsv::move_value(cdr, &value); }
};
/// An octet of 0 or 1; another one does not decode.
template <>
struct Wire<Boolean> {
  static bool move(CDR* cdr, Boolean& value) {
    Octet octet = cdr->direction == CDR_ENCODE && value;
    if (!zrsv::move_value(cdr, &octet) || octet > 1) return false;
    value = octet != 0;
    return true;
  }
};
/// Converted where the stream is in another code set than the program.
template <>
struct Wire<Char> {
  static bool move(CDR* cdr, Char& value) {
    return cdr->narrow == ZR_TEXT_NATIVE ? zrsv::move_value(cdr, &value) : OM_cdr_char(cdr, &value);
  }
};
template <>
struct Wire<Octet> {
  static bool move(CDR* cdr, Octet& value) { return zrsv::move_value(cdr, &value); }
};
/// A text of string_alloc, which is the caller's; what stood there before is not freed. Null encodes as "".
template <>
struct Wire<char*> {
  static bool move(CDR* cdr, char*& text) { return cdr_CORBA_string_cpp(cdr, &text); }
};

/// A string that is decoded in place and lives as long as the request. One that has to be converted fails.
template <>
struct Wire<const char*> {
  static bool move(CDR* cdr, const char*& text) {
    if (cdr->direction == CDR_DECODE) return OM_cdr_string_view(cdr, &text);
    char* plain = const_cast<char*>(text);
    return cdr_CORBA_string_cpp(cdr, &plain);
  }
};

/// References: decoding gives a new one, nil for the nil reference.
template <>
struct Wire<Object*> {
  static bool move(CDR* cdr, Object*& object) { return OM_cdr_object(cdr, object); }
};

template <>
struct Wire<InterfaceDef*> {
  static bool move(CDR* cdr, InterfaceDef*& object) { return cdr_CORBA_InterfaceDef(cdr, object); }
};

/// A sequence of octets: its length, then the octets in one piece. The target is replaced only when all
/// octets are there.
template <class S>
requires std::derived_from<S, OctetSeq>
struct Wire<S> {
  static bool move(CDR* cdr, S& octets) {
    ULong length = octets.length();
    if (!zrsv::move_value(cdr, &length)) return false;
    if (cdr->direction == CDR_ENCODE) return length == 0 || cdr_bytes(cdr, octets.get_buffer(), length);
    const unsigned char* view = nullptr;
    if (!OM_cdr_bytes_view(cdr, &view, length)) return false;
    octets.length(length);
    if (length != 0) std::memcpy(octets.get_buffer(), view, length);
    return true;
  }
};

}  // namespace CORBA::idl
