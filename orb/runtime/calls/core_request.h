// A call of the ORB core.
#pragma once

#include "base/call_failures.h"

namespace CORBA {

/// Completed on every way out.
class CoreRequest {
 public:
  /// Of the object behind that handle. Throws what the ORB core says.
  CoreRequest(void* target, const char* operation, bool response_expected, Environment& ev) {
    if (!OM_req_lib_initiator_request_create(target, operation, response_expected, &request_, &kind_))
      idl::fail_request(CORBA_COMPLETED_NO, ev);
  }
  ~CoreRequest() {
    (kind_ == ZR_REQUEST_DIRECT ? OM_req_lib_INTRA_PROCESS_initiator_request_complete
                                : OM_req_lib_UNO_IIOP_initiator_request_complete)(request_);
  }
  CoreRequest(const CoreRequest&) = delete;
  CoreRequest& operator=(const CoreRequest&) = delete;

  void* get() const { return request_; }
  /// Null for an object that is called without messages: one of the library's own.
  CDR* stream() const {
    CDR* cdr = nullptr;
    const bool has = kind_ == ZR_REQUEST_IIOP && OM_req_lib_UNO_IIOP_get_cdr(request_, &cdr);
    return has ? cdr : nullptr;
  }
  /// The same for encoding the arguments. NO_IMPLEMENT for such an object.
  CDR* arguments(Environment& ev) const;
  /// Waits for the reply; its ZR_REPLY_ status. The stream then stands at its body.
  std::uint32_t reply(Environment& ev) const;

 private:
  void* request_ = nullptr;
  std::uint32_t kind_ = 0;
};

}  // namespace CORBA
