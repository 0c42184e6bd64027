// Calls that no thread waits for.
#include <optional>
#include <span>

#include "base/options.h"
#include "calls/client_calls.h"
#include "calls/in_process.h"
#include "requests/server_request.h"
#include "requests/upcall.h"
#include "requests/watched_requests.h"

namespace zrsv {
namespace {

constexpr Fault no_thread{"NO_RESOURCES", 1};
constexpr uint32_t forward_for_good = 4;

bool is_forward(const Reply& reply) {
  return reply.head.status == ZR_REPLY_LOCATION_FORWARD || reply.head.status == forward_for_good;
}

bool begin(ClientRequest& request, ReplyListener* listener) {
  if (!finish_message(&request)) return false;
  request.elsewhere = true;
  request.deferral = std::make_unique<Deferral>(request, listener);
  if (!reply_threads().begin(*request.deferral, request.deadline)) return fail(no_thread);
  const Fault why = request.deferral->send();
  return !why || fail(why);
}

}  // namespace

Fault Deferral::send() {
  request_.call.deferred = this;
  request_.phase = ClientRequest::Phase::Sent;
  Fault why = or_time_limit(request_, dispatch(&request_));
  if (!why) {
    if (const ClientPool::Connection connection = request_.connection) connection->attend();
    if (reply_threads().arm(*this)) return fault::none;  // it is no longer this thread's
    why = fault::shut_down;
  }
  let_go();
  request_.phase = ClientRequest::Phase::Over;
  return why;
}

void Deferral::attempt(std::shared_ptr<LocalCall> local) {
  reply_threads().attempt(*this);
  local_ = std::move(local);
  if (!local_) return;
  const MutexLock lock(local_->mutex);
  local_->deferred = this;
}

/// Who settles it does not find it any more.
void Deferral::let_go() {
  if (local_) {
    const MutexLock lock(local_->mutex);
    local_->deferred = nullptr;
    local_->given_up = true;
  }
  if (request_.connection) request_.connection->forget(&request_.call);
  request_.call.deferred = nullptr;
}

void Deferral::end() {
  reply_threads().withdraw(*this);
  let_go();
}

void Deferral::give_up(Fault why) noexcept {
  if (local_) {
    const MutexLock lock(local_->mutex);
    local_->deferred = nullptr;
    if (local_->done) return;
    local_->given_up = true;
  } else {
    request_.connection->forget(&request_.call);
    if (request_.call.state != ClientCall::State::Idle) return;
  }
  given_up_ = why;
}

// Within the process a forward is seen only when the reply is read.
bool Deferral::may_block() const {
  const ClientCall& call = request_.call;
  return local_ || (listener_ && listener_->may_block()) || call.state == ClientCall::State::Unheard ||
         (call.state == ClientCall::State::Answered && is_forward(call.reply));
}

void Deferral::finish() noexcept {
  Fault why = fault::no_memory;
  try {
    why = take_outcome();
    const bool unheard = why && !given_up_ && request_.call.state == ClientCall::State::Unheard;
    if (unheard ? !std::exchange(request_.sent_again, true) : !why && follow())
      if (send_again(&why)) return;
  } catch (const std::bad_alloc&) {
    why = fault::no_memory;
  }
  request_.phase = ClientRequest::Phase::Sent;
  request_.call.fault = why;
  request_.connection.reset();
  request_.call.deferred = nullptr;
  ReplyListener* const listener = listener_;
  reply_threads().over(*this);
  if (listener) listener->reply_is_there();
}

/// fault::none: the reply is there.
Fault Deferral::take_outcome() {
  if (given_up_) return drop_forward(&request_), given_up_;
  if (local_) return take_local_outcome();
  ClientCall& call = request_.call;
  if (call.state == ClientCall::State::Answered) return fault::none;
  client_pool().discard(request_.connection);
  request_.connection.reset();
  if (call.state == ClientCall::State::Failed) drop_forward(&request_);
  return call.fault;
}

Fault Deferral::take_local_outcome() {
  const MutexLock lock(local_->mutex);
  if (local_->error == fault::time_limit.name) return fault::time_limit;
  if (local_->error) return {local_->error, fault::not_serving.minor};
  request_.call.reply.message = std::move(local_->reply);
  return open_reply(&request_.call.reply);
}

/// True when the reply is a forward that was followed.
bool Deferral::follow() {
  const Reply& reply = request_.call.reply;
  if (!is_forward(reply)) return false;
  CDR body = reply.body;
  Ref<Reference> to;
  return read_reference(&body, &to) && to && request_.object->set_forward(std::move(to)) &&
         redirect(&request_);
}

bool Deferral::send_again(Fault* why) {
  local_.reset();
  request_.connection.reset();
  request_.call.now = Clock::now();
  *why = send();
  return !*why;
}

}  // namespace zrsv

using namespace zrsv;

bool zrsv::send_deferred(void* request, ReplyListener* listener) {
  ClientRequest& r = *client_request(request);
  try {
    if (begin(r, listener)) return true;
    if (!r.watched || !end_sending(&r, false)) return false;
  } catch (const std::bad_alloc&) {
    return fail(fault::no_memory);
  }
  r.deferral.reset();  // who watches it has made a forward of the failure
  if (listener) listener->reply_is_there();
  return true;
}

bool zrsv::has_reply(void* request) {
  const ClientRequest& r = *client_request(request);
  return !r.deferral || reply_threads().is_over(*r.deferral);
}

void zrsv::await_reply(void* request) { await_any_reply(&request, 1); }

void zrsv::await_any_reply(void* const* requests, std::size_t count) {
  std::vector<const Deferred*> calls;
  std::optional<SlotLoan> loan;
  for (void* request : std::span(requests, count)) {
    const ClientRequest& r = *client_request(request);
    if (r.nested && !loan) loan.emplace();
    if (r.deferral) calls.push_back(r.deferral.get());
  }
  if (!calls.empty()) reply_threads().wait_for_any(calls);
}

bool zrsv::is_here(void* object) {
  return object && as_reference(object)->is_local() && options().in_process;
}

bool zrsv::send_elsewhere(void* request) {
  client_request(request)->elsewhere = true;
  return OM_req_lib_UNO_IIOP_send_request(request);
}
