// A call on an object of this process, from its arguments to its results, in one step.
#include "base/options.h"
#include "base/process_life.h"
#include "calls/client_calls.h"
#include "calls/in_process.h"
#include "references/call_scope.h"
#include "requests/request_message.h"
#include "zrsv/request_watch.h"

namespace zrsv {

namespace {

/// One that the thread keeps, for the length of a scope.
class KeptRequest {
 public:
  KeptRequest() : request_(take_kept().release()) {}
  ~KeptRequest() {
    if (request_) keep_for_later(request_);
  }
  KeptRequest(const KeptRequest&) = delete;
  KeptRequest& operator=(const KeptRequest&) = delete;
  ClientRequest& operator*() const { return *request_; }
  ClientRequest* operator->() const { return request_; }
  ClientRequest* release() { return std::exchange(request_, nullptr); }

 private:
  ClientRequest* request_;
};

/// A call of it goes nowhere else, and nobody looks at it.
bool is_at_hand(const Reference& object) {
  return is_usable() && object.is_local() && !object.is_internal() && !object.is_forwarded() &&
         !(call_scopes_used.load(std::memory_order_relaxed) && is_closed(object)) && options().in_process &&
         !requests_watched.load(std::memory_order_relaxed);
}

/// Runs a call whose arguments are encoded. Done, or with something for the steps of every call to tell.
int run_at_hand(KeptRequest& call, Reference& object, const char* operation) {
  using Phase = ClientRequest::Phase;
  const Fault why = call_in_process(*call, object, operation);
  const bool late = why && why.name == fault::time_limit.name && call->response_expected;
  if (why && !late) return fail(or_time_limit(*call, why)), ZR_CALL_FAILED;
  if (!why && !call->response_expected) return ZR_CALL_DONE;
  if (!why && call->call.reply.head.status == ZR_REPLY_NO_EXCEPTION) {
    object.answered();
    show_reply(&*call);
    return ZR_CALL_DONE;
  }
  call->call.fault = why;
  call->phase = Phase::Sent;
  return ZR_CALL_SENT;
}

}  // namespace

}  // namespace zrsv

using namespace zrsv;

int ZR_call_at_hand(void* object, const char* operation, unsigned char response_expected,
                    const ZR_call_moves* moves, void* of, void** request) {
  if (!object || !is_at_hand(*as_reference(object))) return ZR_CALL_NOT_AT_HAND;
  Reference& target = *as_reference(object);
  try {
    KeptRequest call;
    begin_call(&*call, &target, response_expected != 0);
    if (!begin_message(&*call) || !moves->arguments(&call->cdr, of) ||
        encoded(call->cdr) > options().max_message)
      return ZR_CALL_NOT_AT_HAND;  // the steps of every call tell what is wrong
    const int outcome = run_at_hand(call, target, operation);
    if (outcome == ZR_CALL_DONE && response_expected) moves->results(&call->cdr, of);
    if (outcome == ZR_CALL_SENT) *request = static_cast<RequestBase*>(call.release());
    return outcome;
  } catch (const std::bad_alloc&) {
    return fail(fault::no_memory), ZR_CALL_FAILED;
  }
}
