// Object ids as text, and their equality.
#include "activeobjectmap.h"
#include "minor_codes.h"
#include "trace.h"

namespace {

using PortableServer::ObjectId;

[[noreturn]] void refuse(const char* trace, CORBA::ULong minor) {
  POA_TRACE("%s", trace);
  throw CORBA::BAD_PARAM(minor);
}

template <class Char>
bool printable(Char c) {
  return c >= 0x20 && c <= 0x7E;
}

/// Copies the octets into `text`, which has room for them; false, and `text` freed by the caller, for one
/// that is no printable ASCII.
template <class Char>
bool copy_printable(const ObjectId& oid, Char* text) {
  for (CORBA::ULong i = 0; i < oid.length(); ++i) {
    if (!printable(oid[i])) return false;
    text[i] = static_cast<Char>(oid[i]);
  }
  text[oid.length()] = 0;
  return true;
}

template <class Char>
Char* to_text(const ObjectId& oid, Char* (*alloc)(CORBA::Long), void (*free)(Char*),
              const char* range_trace) {
  Char* text = alloc(static_cast<CORBA::Long>(oid.length()));
  if (!text) throw CORBA::NO_MEMORY(MINOR_BAD_PARAM);
  if (copy_printable(oid, text)) return text;
  free(text);
  refuse(range_trace, MINOR_ID_RANGE);
}

template <class Char>
ObjectId* to_oid(const Char* text, const char* range_trace) {
  if (!text) refuse("PortableServer::string_to_ObjectId [str is null.]", MINOR_BAD_PARAM);
  const std::basic_string_view<Char> characters(text);
  for (Char c : characters)
    if (!printable(c)) refuse(range_trace, MINOR_ID_RANGE);
  try {
    auto oid = std::make_unique<ObjectId>();
    oid->length(static_cast<CORBA::ULong>(characters.size()));
    CORBA::ULong at = 0;
    for (Char c : characters) (*oid)[at++] = static_cast<CORBA::Octet>(c);
    return oid.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

bool oid_is_equivalent(const ObjectId& a, const ObjectId& b) { return oid_view(a) == oid_view(b); }

namespace PortableServer {

char* ObjectId_to_string(const ObjectId& oid) {
  POA_TRACE("PortableServer::ObjectId_to_string");
  return to_text(oid, CORBA::string_alloc, CORBA::string_free,
                 "PortableServer::ObjectId_to_string [Range over.]");
}

ObjectId* string_to_ObjectId(const char* text) {
  POA_TRACE("PortableServer::string_to_ObjectId");
  return to_oid(text, "PortableServer::string_to_ObjectId [Range over.]");
}

CORBA::WChar* ObjectId_to_wstring(const ObjectId& oid) {
  POA_TRACE("PortableServer::ObjectId_to_wstring");
  return to_text(oid, CORBA::wstring_alloc, CORBA::wstring_free,
                 "PortableServer::ObjectId_to_wstring [Range over.]");
}

ObjectId* wstring_to_ObjectId(const CORBA::WChar* text) {
  POA_TRACE("PortableServer::wstring_to_ObjectId");
  return to_oid(text, "PortableServer::wstring_to_ObjectId [Range over.]");
}

}  // namespace PortableServer
