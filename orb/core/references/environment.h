// System exceptions by name, and the guard that keeps C++ exceptions inside the C interface.
#pragma once

#include <new>
#include <string_view>

#include "references/reference.h"

namespace zrsv {

/// The internal id ("IDL:CORBA/StExcep/BAD_PARAM:1.0"), a static text, of a system exception given by its
/// internal id, its public id or its bare name ("BAD_PARAM"); that of UNKNOWN for anything else.
const char* internal_id(std::string_view any);

/// The id that travels in messages ("IDL:omg.org/CORBA/BAD_PARAM:1.0"), from any of the three forms; null
/// counts as UNKNOWN. Takes no memory.
struct PublicId {
  explicit PublicId(const char* internal);
  char text[64];
};

/// Runs `body`, the inside of a C function; when memory runs out the result is empty (null, false) and `ev`
/// has NO_MEMORY.
template <class Body>
auto guarded(CORBA_Environment* ev, Body&& body) -> decltype(body()) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    raise_standard(ev, "NO_MEMORY");
    return decltype(body())();
  }
}

}  // namespace zrsv
