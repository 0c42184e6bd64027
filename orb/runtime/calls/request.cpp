#include "corba/request.h"

#include "base/raise.h"
#include "calls/core_request.h"
#include "orb/orb_state.h"
#include "zrsv/deferred.h"

namespace CORBA {
namespace {

constexpr ULong minor_unlisted_exception = OMGVMCID | 1;
constexpr ULong minor_sent_already = OMGVMCID | 10, minor_not_sent = OMGVMCID | 11;

}  // namespace

// ---- Lists ------------------------------------------------------------------------------------------------

ExceptionList::~ExceptionList() = default;

void ExceptionList::add(TypeCode* type, Environment& ev) { add_consume(TypeCode::_duplicate(type), ev); }

void ExceptionList::add_consume(TypeCode* type, Environment& ev) {
  const TypeCode_var owned(type);
  ev.clear();
  if (!type) raise<BAD_PARAM>(ev);
  types_.push_back(owned);
}

TypeCode* ExceptionList::item(ULong index, Environment& ev) const {
  ev.clear();
  if (index >= types_.size()) raise<Bounds>(ev);
  return TypeCode::_duplicate(types_[index].in());
}

void ExceptionList::remove(ULong index, Environment& ev) {
  ev.clear();
  if (index >= types_.size()) raise<Bounds>(ev);
  types_.erase(types_.begin() + static_cast<std::ptrdiff_t>(index));
}

// ---- The request ------------------------------------------------------------------------------------------

Request::Request(Object* target, const char* operation, NVList* arguments, NamedValue* result,
                 ExceptionList* exceptions)
    : target_(Object::_duplicate(target)),
      operation_(string_dup(operation)),
      arguments_(arguments ? NVList::_duplicate(arguments) : new NVList),
      result_(result ? NamedValue::_duplicate(result) : new NamedValue("", Any(), ARG_OUT)),
      exceptions_(exceptions ? ExceptionList::_duplicate(exceptions) : new ExceptionList) {
  if (!result) set_return_type(_tc_void);
}

Request::~Request() { delete sent_; }

void* Request::_sent() const { return sent_ ? sent_->get() : nullptr; }

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

CoreRequest* Request::encode(bool response_expected) {
  env_.clear();
  auto call = std::make_unique<CoreRequest>(target_->get_ref(), operation_.in(), response_expected, env_);
  CDR* const cdr = call->arguments(env_);
  if (!arguments_->encode_values(cdr, ARG_IN)) idl::fail_marshal(cdr, CORBA_COMPLETED_NO, env_);
  return call.release();
}

// False: it was forwarded.
bool Request::take_reply(const CoreRequest& call) {
  CDR* const cdr = call.stream();
  switch (call.reply(env_)) {
    case ZR_REPLY_LOCATION_FORWARD:
      return idl::follow_forward(target_.in(), cdr, env_), false;
    case ZR_REPLY_SYSTEM_EXCEPTION:
      idl::throw_reply_exception(call.get(), env_);
    case ZR_REPLY_USER_EXCEPTION:
      return read_user_exception(call.get(), cdr), true;
    default:
      return read_results(cdr), true;
  }
}

void Request::refuse_while_sent() const {
  if (sent_) throw BAD_INV_ORDER(minor_sent_already, COMPLETED_NO);
}

void Request::invoke() {
  refuse_while_sent();
  taken_ = false;
  for (bool answered = false; !answered;) {
    const std::unique_ptr<CoreRequest> call(encode(true));
    if (!OM_req_lib_UNO_IIOP_send_request(call->get())) idl::fail_request(CORBA_COMPLETED_NO, env_);
    answered = take_reply(*call);
  }
}

void Request::send_oneway() {
  refuse_while_sent();
  taken_ = false;
  const std::unique_ptr<CoreRequest> call(encode(false));
  if (!OM_req_lib_UNO_IIOP_send_request(call->get())) idl::fail_request(CORBA_COMPLETED_NO, env_);
}

void Request::send_deferred() {
  refuse_while_sent();
  taken_ = false;
  std::unique_ptr<CoreRequest> call(encode(true));
  if (!zrsv::send_deferred(call->get(), nullptr)) idl::fail_request(CORBA_COMPLETED_NO, env_);
  sent_ = call.release();
}

Boolean Request::poll_response() {
  if (!sent_ && !taken_) throw BAD_INV_ORDER(minor_not_sent, COMPLETED_NO);
  return taken_ || zrsv::has_reply(sent_->get());
}

void Request::get_response() {
  if (!sent_ && !taken_) throw BAD_INV_ORDER(minor_not_sent, COMPLETED_NO);
  if (!taken_) zrsv::await_reply(sent_->get());
  _finish();
  if (SystemException::_downcast(env_.exception())) raise_environment(env_);
}

// Leaves what it ends with in the environment. A forward that the request could not follow as it was encoded has the
// call made anew.
void Request::_finish() noexcept {
  const std::unique_ptr<CoreRequest> call(std::exchange(sent_, nullptr));
  if (!call) return;
  try {
    if (!take_reply(*call)) invoke();
  } catch (const SystemException&) {  // stands in the environment
  } catch (const std::bad_alloc&) {
    env_.exception(new NO_MEMORY(0, COMPLETED_MAYBE));
  }
  taken_ = true;
}

// ---- Who makes them ---------------------------------------------------------------------------------------

Request* Object::_request(const char* operation, Environment& ev) {
  Request* request = nullptr;
  _create_request(nullptr, operation, nullptr, nullptr, request, 0, ev);
  return request;
}

void Object::_create_request(Context* context, const char* operation, NVList* arguments, NamedValue* result,
                             Request*& request, ULong flags, Environment& ev) {
  _create_request(context, operation, arguments, result, nullptr, nullptr, request, flags, ev);
}

void Object::_create_request(Context*, const char* operation, NVList* arguments, NamedValue* result,
                             ExceptionList* exceptions, ContextList*, Request*& request, ULong,
                             Environment& ev) {
  ev.clear();
  if (!operation || !*operation) raise<BAD_PARAM>(ev);
  request = new Request(this, operation, arguments, result, exceptions);
}

void ORB::create_list(Long count, NVList*& list, Environment& ev) {
  ev.clear();
  NVList_var made(new NVList);
  for (Long i = 0; i < count; ++i) made->add(ARG_IN);
  list = made._retn();
}

void ORB::create_named_value(NamedValue*& value, Environment& ev) {
  ev.clear();
  value = new NamedValue("", Any(), ARG_IN);
}

void ORB::create_exception_list(ExceptionList*& list, Environment& ev) {
  ev.clear();
  list = new ExceptionList;
}

// ---- Several at a time ------------------------------------------------------------------------------------

void ORB::send_multiple_requests_oneway(const RequestSeq& requests, Environment& ev) {
  live(*this, ev);
  for (ULong i = 0; i < requests.length(); ++i) requests[i]->send_oneway();
}

void ORB::send_multiple_requests_deferred(const RequestSeq& requests, Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  for (ULong i = 0; i < requests.length(); ++i) {
    requests[i]->send_deferred();
    const zrsv::MutexLock lock(orb->mutex);
    orb->deferred.push_back(requests[i]);
  }
}

namespace {

/// Takes out the first that has a reply, of those whose reply nobody has taken. Nil: none has. BAD_INV_ORDER when there
/// are none.
Request_var take_answered(OrbState& orb, std::vector<void*>* pending, Environment& ev) {
  const zrsv::MutexLock lock(orb.mutex);
  std::erase_if(orb.deferred, [](const Request_var& request) { return !request->_sent(); });
  if (orb.deferred.empty()) raise<BAD_INV_ORDER>(ev, minor_not_sent, COMPLETED_NO);
  for (auto at = orb.deferred.begin(); at != orb.deferred.end(); ++at) {
    if (pending) pending->push_back((*at)->_sent());
    if (!zrsv::has_reply((*at)->_sent())) continue;
    Request_var found = *at;
    if (pending) orb.deferred.erase(at);
    return found;
  }
  return {};
}

}  // namespace

Boolean ORB::poll_next_response(Environment& ev) {
  return !is_nil(take_answered(*live(*this, ev), nullptr, ev));
}

void ORB::get_next_response(Request*& request, Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  for (;;) {
    std::vector<void*> pending;
    Request_var found = take_answered(*orb, &pending, ev);
    if (is_nil(found)) {
      zrsv::await_any_reply(pending.data(), pending.size());
      continue;
    }
    found->_finish();
    request = found._retn();
    return;
  }
}

}  // namespace CORBA
