// Wide characters, wide strings and long doubles as they travel: what stands apart from corba/detail/wire.h, as it is
// not the same in all versions of GIOP, or has to be converted.
#pragma once

#include "corba/detail/wire.h"

/// A wide string of CORBA::wstring_alloc, one Unicode scalar value a character; null encodes as the empty string.
/// By the stream's direction; decoding hands out a new one. Fails in GIOP 1.0, and makes the stream `unconvertible`
/// for what is no Unicode text.
ZRSVCPP_API unsigned char cdr_CORBA_wstring_cpp(CDR* cdr, CORBA::WChar** text);

namespace CORBA::idl {

template <>
struct Wire<LongDouble> {
  static bool move(CDR* cdr, LongDouble& value) { return OM_cdr_long_double(cdr, &value); }
};
template <>
struct Wire<WChar> {
  static bool move(CDR* cdr, WChar& value) { return OM_cdr_wchar(cdr, &value); }
};
template <>
struct Wire<WChar*> {
  static bool move(CDR* cdr, WChar*& text) { return cdr_CORBA_wstring_cpp(cdr, &text); }
};

}  // namespace CORBA::idl
