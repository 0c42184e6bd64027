#include "references/environment.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zrsv {
namespace {

constexpr std::string_view internal_prefix = "IDL:CORBA/StExcep/";
constexpr std::string_view public_prefix = "IDL:omg.org/CORBA/";
constexpr std::string_view version = ":1.0";

#define INTERNAL_ID(name) "IDL:CORBA/StExcep/" name ":1.0"
constexpr const char* unknown = INTERNAL_ID("UNKNOWN");
constexpr const char* standard_exceptions[] = {
    unknown,
    INTERNAL_ID("BAD_PARAM"),
    INTERNAL_ID("NO_MEMORY"),
    INTERNAL_ID("IMP_LIMIT"),
    INTERNAL_ID("COMM_FAILURE"),
    INTERNAL_ID("INV_OBJREF"),
    INTERNAL_ID("NO_PERMISSION"),
    INTERNAL_ID("INTERNAL"),
    INTERNAL_ID("MARSHAL"),
    INTERNAL_ID("INITIALIZE"),
    INTERNAL_ID("NO_IMPLEMENT"),
    INTERNAL_ID("BAD_TYPECODE"),
    INTERNAL_ID("BAD_OPERATION"),
    INTERNAL_ID("NO_RESOURCES"),
    INTERNAL_ID("NO_RESPONSE"),
    INTERNAL_ID("PERSIST_STORE"),
    INTERNAL_ID("BAD_INV_ORDER"),
    INTERNAL_ID("TRANSIENT"),
    INTERNAL_ID("FREE_MEM"),
    INTERNAL_ID("INV_IDENT"),
    INTERNAL_ID("INV_FLAG"),
    INTERNAL_ID("INTF_REPOS"),
    INTERNAL_ID("BAD_CONTEXT"),
    INTERNAL_ID("OBJ_ADAPTER"),
    INTERNAL_ID("DATA_CONVERSION"),
    INTERNAL_ID("OBJECT_NOT_EXIST"),
    INTERNAL_ID("TRANSACTION_REQUIRED"),
    INTERNAL_ID("TRANSACTION_ROLLEDBACK"),
    INTERNAL_ID("INVALID_TRANSACTION"),
    INTERNAL_ID("INV_POLICY"),
    INTERNAL_ID("CODESET_INCOMPATIBLE"),
    INTERNAL_ID("REBIND"),
    INTERNAL_ID("TIMEOUT"),
    INTERNAL_ID("TRANSACTION_UNAVAILABLE"),
    INTERNAL_ID("TRANSACTION_MODE"),
    INTERNAL_ID("BAD_QOS"),
    INTERNAL_ID("INVALID_ACTIVITY"),
    INTERNAL_ID("ACTIVITY_COMPLETED"),
    INTERNAL_ID("ACTIVITY_REQUIRED"),
    INTERNAL_ID("THREAD_CANCELLED"),
};
#undef INTERNAL_ID

/// The bare name in an id of either form; `any` itself when it is neither.
std::string_view bare_name(std::string_view any) {
  for (std::string_view prefix : {internal_prefix, public_prefix}) {
    if (any.size() > prefix.size() + version.size() && any.starts_with(prefix) && any.ends_with(version)) {
      return any.substr(prefix.size(), any.size() - prefix.size() - version.size());
    }
  }
  return any;
}

struct Failure {
  const char* id = unknown;
  uint32_t minor = 0;
  int completed = -1;
};
thread_local Failure last_failure;

}  // namespace

const char* internal_id(std::string_view any) {
  const std::string_view name = bare_name(any);
  for (const char* id : standard_exceptions) {
    if (bare_name(id) == name) return id;
  }
  return unknown;
}

PublicId::PublicId(const char* internal) {
  const std::string_view name = bare_name(internal ? internal_id(internal) : unknown);
  std::snprintf(text, sizeof text, "%s%.*s%s", public_prefix.data(), static_cast<int>(name.size()),
                name.data(), version.data());
}

void raise_standard(CORBA_Environment* ev, const char* name, uint32_t minor, uint32_t completed) {
  CORBA_BOA_set_standard_exception(ev, name, minor, completed);
}

void set_last_failure(const char* id, uint32_t minor, int completed) {
  last_failure = {internal_id(id), minor, completed};
}

}  // namespace zrsv

using namespace zrsv;

const char* CORBA_exception_id(const CORBA_Environment* ev) { return ev ? ev->_id : nullptr; }

void CORBA_exception_free(CORBA_Environment* ev) {
  if (!ev) return;
  std::free(ev->_owned);
  *ev = CORBA_Environment{};
}

void CORBA_BOA_set_standard_exception(CORBA_Environment* ev, const char* id, uint32_t minor,
                                      uint32_t completed) {
  if (!ev) return;
  const char* stored = id ? internal_id(id) : unknown;  // first: `id` may be the record's own text
  CORBA_exception_free(ev);
  ev->_major = CORBA_SYSTEM_EXCEPTION;
  ev->_minor = minor;
  ev->_completed = completed;
  ev->_id = stored;
}

void ZR_set_user_exception(CORBA_Environment* ev, const char* id) {
  if (!ev) return;
  char* copy = ::strdup(id ? id : "");
  if (!copy) return raise_standard(ev, "NO_MEMORY", 0, CORBA_COMPLETED_MAYBE);
  CORBA_exception_free(ev);
  ev->_major = CORBA_USER_EXCEPTION;
  ev->_id = ev->_owned = copy;
}

void SetStdExReqLib(uint32_t completed, CORBA_Environment* ev) {
  if (bare_name(last_failure.id) == "TRANSIENT") completed = CORBA_COMPLETED_NO;  // nobody took the request
  if (last_failure.completed >= 0) completed = static_cast<uint32_t>(last_failure.completed);
  CORBA_BOA_set_standard_exception(ev, last_failure.id, last_failure.minor, completed);
}

void SetStdExCDR(CDR* cdr, uint32_t completed, CORBA_Environment* ev) {
  if (cdr && cdr->no_outcome && completed == CORBA_COMPLETED_YES) completed = CORBA_COMPLETED_MAYBE;
  constexpr uint32_t minor_unsupported_set =
      0x4F4D0002;  // the standard's: not supported as transmission code set
  if (cdr && cdr->unconvertible == ZR_UNKNOWN_CODE_SET)
    return raise_standard(ev, "CODESET_INCOMPATIBLE", minor_unsupported_set, completed);
  raise_standard(ev, cdr && cdr->unconvertible ? "DATA_CONVERSION" : "MARSHAL", 0, completed);
}
