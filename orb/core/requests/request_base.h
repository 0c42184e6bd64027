// What the two kinds of request handles have in common, so that one get_cdr serves both.
#pragma once

#include "zrsv.h"

namespace zrsv {

/// First base (or first member) of ClientRequest and of the server's request record, which must keep it at
/// offset 0: the C interface hands out `void*` to the whole record, and OM_req_lib_UNO_IIOP_get_cdr reads this
/// part of it.
struct RequestBase {
  CDR cdr{};
};

}  // namespace zrsv
