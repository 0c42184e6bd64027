#include "calls/core_request.h"

#include "base/raise.h"

namespace CORBA {

CDR* CoreRequest::arguments(Environment& ev) const {
  CDR* const cdr = stream();
  if (!cdr) raise<NO_IMPLEMENT>(ev);
  cdr->direction = CDR_ENCODE;
  return cdr;
}

std::uint32_t CoreRequest::reply(Environment& ev) const {
  std::uint32_t status = 0;
  if (!OM_req_lib_UNO_IIOP_recv_reply(request_) ||
      !OM_req_lib_UNO_IIOP_decode_reply_header(request_, &status))
    idl::fail_request(CORBA_COMPLETED_MAYBE, ev);
  stream()->direction = CDR_DECODE;
  return status;
}

}  // namespace CORBA
