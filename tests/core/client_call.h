// Calls of the ORB core, step by step, to a scripted server.
#pragma once

#include "scripted_server.h"

/// What became of a call, as text: "42", "no value", "forward", or "NAME minor" of a failure.
using Result = std::string;

inline Result failure() {
  Outcome ev;
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, ev);
  const CORBA_Environment& record = *static_cast<CORBA_Environment*>(ev);
  const bool knows = record._completed == CORBA_COMPLETED_NO;
  const std::string minor = std::to_string(record._minor), name = ev.name();
  EXPECT_EQ(knows, name == "TRANSIENT") << name << ": nobody took such a request, and no other is known of";
  return name + " " + minor;
}

/// One call, step by step as a stub makes it.
class Call {
 public:
  explicit Call(const zrsv::Ref<zrsv::Reference>& object, uint64_t argument = 42,
                bool response_expected = true, std::size_t filler = 0) {
    uint32_t kind = 0;
    int32_t word = 0;
    created_ = OM_req_lib_initiator_request_create(object.get(), "op", response_expected, &request_, &kind);
    if (!created_) return;
    EXPECT_EQ(kind, unsigned{ZR_REQUEST_IIOP});
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_get_cdr(request_, &cdr));
    EXPECT_TRUE(OM_cdr_long(cdr, &word) && OM_cdr_unsigned_long_long(cdr, &argument));
    std::vector<unsigned char> rest(filler, 'Z');
    EXPECT_TRUE(cdr_bytes(cdr, rest.data(), static_cast<uint32_t>(filler)));
  }
  ~Call() { OM_req_lib_UNO_IIOP_initiator_request_complete(request_); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void* get() const { return request_; }
  bool send() { return created_ && OM_req_lib_UNO_IIOP_send_request(request_); }
  Result result() {
    uint32_t status = 9, value = 0;
    if (!OM_req_lib_UNO_IIOP_recv_reply(request_) ||
        !OM_req_lib_UNO_IIOP_decode_reply_header(request_, &status))
      return failure();
    if (status == ZR_REPLY_LOCATION_FORWARD) return "forward";
    EXPECT_EQ(status, unsigned{ZR_REPLY_NO_EXCEPTION});
    return OM_cdr_unsigned_long(cdr, &value) ? std::to_string(value) : "no value";
  }
  Result run() { return send() ? result() : failure(); }

  CDR* cdr = nullptr;

 private:
  bool created_ = false;
  void* request_ = nullptr;
};
