#include "corba/request.h"

#include "call_failures.h"
#include "raise.h"

namespace CORBA {
namespace {

constexpr ULong minor_unlisted_exception = OMGVMCID | 1;

/// A call of the ORB core, completed on every way out.
class CoreRequest {
 public:
  CoreRequest(void* target, const char* operation, bool response_expected, Environment& env) {
    if (!OM_req_lib_initiator_request_create(target, operation, response_expected, &request_, &kind_))
      idl::fail_request(CORBA_COMPLETED_NO, env);
  }
  ~CoreRequest() {
    (kind_ == ZR_REQUEST_IN_PROCESS ? OM_req_lib_INTRA_PROCESS_initiator_request_complete
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

 private:
  void* request_ = nullptr;
  std::uint32_t kind_ = 0;
};

}  // namespace

// ---- Lists ------------------------------------------------------------------------------------------------

ExceptionList::~ExceptionList() = default;

TypeCode* ExceptionList::item(ULong index, Environment& env) const {
  env.clear();
  if (index >= types_.size()) raise<Bounds>(env);
  return TypeCode::_duplicate(types_[index].in());
}

void ExceptionList::remove(ULong index, Environment& env) {
  env.clear();
  if (index >= types_.size()) raise<Bounds>(env);
  types_.erase(types_.begin() + static_cast<std::ptrdiff_t>(index));
}

// ---- The request ------------------------------------------------------------------------------------------

Request::Request(Object* target, const char* operation, NVList* arguments, NamedValue* result,
                 ExceptionList* exceptions)
    : target_(Object::_duplicate(target)),
      operation_(operation),
      arguments_(arguments ? NVList::_duplicate(arguments) : new NVList),
      result_(result ? NamedValue::_duplicate(result) : new NamedValue("", Any(), ARG_OUT)),
      exceptions_(exceptions ? ExceptionList::_duplicate(exceptions) : new ExceptionList) {
  if (!result) set_return_type(_tc_void);
}

Request::~Request() = default;

void Request::read_results(CDR* cdr) {
  const TypeCode_var type(return_value().type());
  const bool returns = type->kind() != tk_void && type->kind() != tk_null;
  if ((returns && !return_value().decode_value(cdr)) || !arguments_->decode_values(cdr, ARG_OUT))
    idl::fail_marshal(cdr, CORBA_COMPLETED_YES, env_);
}

// In CDR an exception is its id and its members: the stream goes back to the id.
void Request::read_user_exception(void* request, CDR* cdr) {
  const CDR start = *cdr;
  CORBA_Environment filled{};
  const bool read = OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request, &filled);
  env_.set_ref(&filled);
  if (!read) idl::fail_marshal(cdr, CORBA_COMPLETED_YES, env_);
  const std::string id(CORBA_exception_id(env_._evp));
  for (ULong i = 0; i < exceptions_->count(); ++i) {
    const TypeCode_var type(exceptions_->item(i));
    if (type->kind() != tk_except || id != type->id()) continue;
    *cdr = start;
    Any value;
    value.replace(type.in(), nullptr);
    if (!value.decode_value(cdr)) idl::fail_marshal(cdr, CORBA_COMPLETED_YES, env_);
    return env_.exception(new UnknownUserException(value));
  }
  raise<UNKNOWN>(env_, minor_unlisted_exception, COMPLETED_MAYBE);
}

// False: it was forwarded.
bool Request::exchange(bool response_expected) {
  env_.clear();
  const CoreRequest call(target_->get_ref(), operation_.c_str(), response_expected, env_);
  CDR* const cdr = call.stream();
  if (!cdr) raise<NO_IMPLEMENT>(env_);
  cdr->direction = CDR_ENCODE;
  if (!arguments_->encode_values(cdr, ARG_IN)) idl::fail_marshal(cdr, CORBA_COMPLETED_NO, env_);
  if (!OM_req_lib_UNO_IIOP_send_request(call.get())) idl::fail_request(CORBA_COMPLETED_NO, env_);
  if (!response_expected) return true;
  std::uint32_t status = 0;
  if (!OM_req_lib_UNO_IIOP_recv_reply(call.get()) ||
      !OM_req_lib_UNO_IIOP_decode_reply_header(call.get(), &status))
    idl::fail_request(CORBA_COMPLETED_MAYBE, env_);
  cdr->direction = CDR_DECODE;
  if (status == ZR_REPLY_LOCATION_FORWARD) return idl::follow_forward(target_.in(), cdr, env_), false;
  if (status == ZR_REPLY_SYSTEM_EXCEPTION) idl::throw_reply_exception(call.get(), env_);
  if (status == ZR_REPLY_USER_EXCEPTION) return read_user_exception(call.get(), cdr), true;
  return read_results(cdr), true;
}

void Request::invoke() {
  while (!exchange(true)) continue;
}

void Request::send_oneway() { exchange(false); }

// ---- Who makes them ---------------------------------------------------------------------------------------

Request* Object::_request(const char* operation, Environment& env) {
  Request* request = nullptr;
  _create_request(nullptr, operation, nullptr, nullptr, request, 0, env);
  return request;
}

void Object::_create_request(Context* context, const char* operation, NVList* arguments, NamedValue* result,
                             Request*& request, ULong flags, Environment& env) {
  _create_request(context, operation, arguments, result, nullptr, nullptr, request, flags, env);
}

void Object::_create_request(Context*, const char* operation, NVList* arguments, NamedValue* result,
                             ExceptionList* exceptions, ContextList*, Request*& request, ULong,
                             Environment& env) {
  env.clear();
  if (!operation || !*operation) raise<BAD_PARAM>(env);
  request = new Request(this, operation, arguments, result, exceptions);
}

void ORB::create_list(Long count, NVList*& list, Environment& env) {
  env.clear();
  NVList_var made(new NVList);
  for (Long i = 0; i < count; ++i) made->add(ARG_IN);
  list = made._retn();
}

void ORB::create_named_value(NamedValue*& value, Environment& env) {
  env.clear();
  value = new NamedValue("", Any(), ARG_IN);
}

void ORB::create_exception_list(ExceptionList*& list, Environment& env) {
  env.clear();
  list = new ExceptionList;
}

void ORB::send_multiple_requests_oneway(const RequestSeq& requests, Environment& env) {
  env.clear();
  for (ULong i = 0; i < requests.length(); ++i) requests[i]->send_oneway();
}

}  // namespace CORBA
