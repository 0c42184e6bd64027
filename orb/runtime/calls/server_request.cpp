#include "corba/server_request.h"

#include "base/call_failures.h"
#include "base/raise.h"

namespace CORBA {

struct ServerRequest::Dynamic {
  explicit Dynamic(void* the_record) : record(the_record), below(newest) { newest = this; }
  Dynamic(const Dynamic&) = delete;
  Dynamic& operator=(const Dynamic&) = delete;
  ~Dynamic() {
    Dynamic** link = &newest;
    while (*link && *link != this) link = &(*link)->below;
    if (*link) *link = below;
  }

  static Dynamic* find(void* record) {
    Dynamic* at = newest;
    while (at && at->record != record) at = at->below;
    return at;
  }

  void* record;     // the ORB core's
  NVList_var list;  // null before arguments()
  Any result;       // of type null before set_result()
  std::unique_ptr<Any> exception;

 private:
  // Upcalls of a thread nest, so the requests that it serves dynamically are a stack; the reply is written
  // when the servant has returned, with nothing but the record at hand.
  static thread_local Dynamic* newest;
  Dynamic* below;
};

thread_local ServerRequest::Dynamic* ServerRequest::Dynamic::newest = nullptr;

namespace {

using Dynamic = ServerRequest::Dynamic;

ZR_RequestInfo* info_of(void* record) { return static_cast<ZR_ServerRequest*>(record)->info; }

CDR* stream_of(void* record) {
  CDR* cdr = nullptr;
  return OM_req_lib_UNO_IIOP_get_cdr(info_of(record)->request, &cdr) ? cdr : nullptr;
}

/// In CDR an exception is its id and its members, which is a reply's body as well.
bool reply_exception(void* request, CDR* cdr, const Any& exception) {
  const SystemException* system = nullptr;
  if (exception >>= system) {
    Environment ev;
    ev.exception(system->_clone());
    return ZR_reply_system_exception(request, ev._evp);
  }
  if (!OM_req_lib_UNO_IIOP_encode_reply_header(request, ZR_REPLY_USER_EXCEPTION)) return false;
  cdr->direction = CDR_ENCODE;
  return exception.encode_value(cdr);
}

bool reply_result(void* request, CDR* cdr, const Any& result, NVList* list) {
  if (!OM_req_lib_UNO_IIOP_encode_reply_header(request, ZR_REPLY_NO_EXCEPTION)) return false;
  cdr->direction = CDR_ENCODE;
  return result.encode_value(cdr) && (!list || list->encode_values(cdr, ARG_OUT));
}

bool is_exception(const Any& value) {
  const TypeCode_var type(value.type());
  return type->kind() == tk_except;
}

}  // namespace

ServerRequest* ServerRequest::_narrow(Object* object) { return object ? new ServerRequest : nullptr; }

ServerRequest::~ServerRequest() {
  delete dynamic_;
  set_ref(nullptr);
}

void ServerRequest::arguments(NVList* list, Environment& ev) {
  ev.clear();
  NVList_var owned(list);
  if (!list) raise<BAD_PARAM>(ev);
  if (!_ptr || (dynamic_ && (dynamic_->list.in() || dynamic_->exception))) raise<BAD_INV_ORDER>(ev);
  if (!dynamic_) dynamic_ = new Dynamic(_ptr);
  dynamic_->list = std::move(owned);
  CDR* cdr = stream_of(_ptr);
  if (!cdr) raise<MARSHAL>(ev);
  cdr->direction = CDR_DECODE;
  if (!list->decode_values(cdr, ARG_IN)) idl::fail_marshal(cdr, CORBA_COMPLETED_NO, ev);
}

void ServerRequest::set_result(const Any& value, Environment& ev) {
  ev.clear();
  if (!dynamic_ || !dynamic_->list.in() || dynamic_->exception) raise<BAD_INV_ORDER>(ev);
  dynamic_->result = value;
}

void ServerRequest::set_exception(const Any& value, Environment& ev) {
  ev.clear();
  if (!is_exception(value)) raise<BAD_PARAM>(ev);
  if (!_ptr) raise<BAD_INV_ORDER>(ev);
  if (!dynamic_) dynamic_ = new Dynamic(_ptr);
  dynamic_->exception = std::make_unique<Any>(value);
}

void ServerRequest::set_exception(const SystemException& exception, Environment& ev) {
  Any value;
  value <<= exception;
  set_exception(value, ev);
}

}  // namespace CORBA

void OM_CORBA_ServerRequest_dsi_complete_cpp(void* record) {
  using namespace CORBA;
  const auto* said = ServerRequest::Dynamic::find(record);
  if (!said || !info_of(record)->response_expected) return;
  void* request = info_of(record)->request;
  CDR* cdr = stream_of(record);
  bool done = false;
  try {
    done = cdr && (said->exception ? reply_exception(request, cdr, *said->exception)
                                   : reply_result(request, cdr, said->result, said->list.in()));
  } catch (const std::bad_alloc&) {  // half a reply must not leave
  } catch (const Exception&) {
  }
  if (done) return;
  Environment ev;
  idl::set_marshal(cdr, CORBA_COMPLETED_YES, ev);
  ZR_reply_system_exception(request, ev._evp);
}
