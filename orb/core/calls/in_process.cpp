#include "calls/in_process.h"

#include "base/options.h"
#include "base/process_life.h"
#include "requests/call_chain.h"
#include "requests/gates.h"
#include "requests/request_message.h"
#include "requests/upcall.h"
#include "serving/engine.h"
#include "serving/orb.h"

namespace zrsv {

namespace {

/// The request as it stands in the caller's memory. Its stream is a new one.
void lay_bare(ServerRequest& request, const ClientRequest& call, const char* operation,
              std::string_view chain) {
  request.bare = true;
  request.minor = call.call.minor;
  request.head.id = call.call.id;
  request.head.response_expected = call.response_expected;
  request.head.key = call.key;
  request.head.operation = operation;
  request.head.chain = chain;
  request.head.code_sets = call.code_sets;
  CDR& cdr = request.cdr;
  cdr.direction = CDR_DECODE;
  cdr.in_base = cdr.in_next = call.cdr.out_base;
  cdr.in_end = call.cdr.out_next;
  cdr.minor_version = call.call.minor;
  cdr.narrow = call.code_sets.narrow;
  cdr.wide = call.code_sets.wide;
}

Fault open_bare_reply(const ServerRequest& request, Reply* reply) {
  if (request.reply_status == no_status) return fault::bad_reply;
  reply->head = {request.head.id, request.reply_status};
  OM_cdr_open_decode(&reply->body, reply->message.data(), static_cast<uint32_t>(reply->message.size()), 0);
  reply->body.minor_version = request.minor;
  return fault::none;
}

}  // namespace

Fault open_reply(Reply* reply) {
  giop::Header header;
  const bool whole = reply->message.size() >= giop::header_size &&
                     !giop::read_header(reply->message.data(), UINT32_MAX, &header) && !reply->open(header);
  return whole ? fault::none : fault::bad_reply;
}

Fault call_in_process(ClientRequest& call, Reference& target, const char* operation) {
  const std::shared_ptr<Engine> engine = orb().engine();
  if (!engine) return fault::not_serving;
  const std::string chain = call.nested ? chain_of_call() : std::string();
  ServerRequest request;
  request.target.borrow(&target);
  if (call.bare) {
    lay_bare(request, call, operation, chain);
  } else if (!request.own(take_message(call))) {
    return fault::no_memory;
  }
  call.call.reply.message.clear();
  if (const Fault why = engine->call_local(request, call)) return why;
  if (!call.response_expected) return fault::none;
  return request.bare ? open_bare_reply(request, &call.call.reply) : open_reply(&call.call.reply);
}

Fault call_in_process_later(ClientRequest& call, Reference& target, Buffer message,
                            std::shared_ptr<LocalCall> waiter) {
  const std::shared_ptr<Engine> engine = orb().engine();
  if (!engine) return fault::not_serving;
  ServerRequest request;
  request.target.borrow(&target);
  if (!request.own(std::move(message))) return fault::no_memory;
  return engine->call_local_later(request, call, std::move(waiter));
}

Fault Engine::call_local_later(ServerRequest& request, ClientRequest& call,
                               std::shared_ptr<LocalCall> waiter) {
  if (call.deferral && hosted_.load(std::memory_order_relaxed)) {
    const Fault why = call_local(request, call);
    waiter->finish(std::move(call.call.reply.message), why.name);
    return fault::none;
  }
  request.waiter = std::move(waiter);
  auto admission = QueueGroup::Admission::Pass;
  if (!request.target->is_internal() && !queue_group().is_open())
    admission = queue_group().hold(&request, queue_limit(request));
  if (admission == QueueGroup::Admission::Held) return fault::none;
  return admission == QueueGroup::Admission::Pass && enqueue(&request) ? fault::none : fault::not_serving;
}

Fault Engine::call_local(ServerRequest& request, ClientRequest& call) {
  Buffer* const reply = &call.call.reply.message;
  const bool may_be_held = !request.target->is_internal() && !queue_group().is_open();
  const bool needs_slot = !Upcall::running() && !hosted_.load(std::memory_order_relaxed);
  Slot slot;
  if (needs_slot && !may_be_held) slot = slot_to_run_now(request);
  if (may_be_held || (needs_slot && !slot)) {
    const bool waits = request.head.response_expected;
    if (!make_lasting(request, call)) return fault::no_memory;
    const auto waiter = request.waiter = std::make_shared<LocalCall>(waits && !needs_slot);
    const auto admission =
        may_be_held ? queue_group().hold(&request, queue_limit(request)) : QueueGroup::Admission::Pass;
    if (admission == QueueGroup::Admission::Full) return fault::not_serving;
    if (admission == QueueGroup::Admission::Pass && needs_slot && !enqueue(&request))
      return fault::not_serving;
    if (admission == QueueGroup::Admission::Held || needs_slot)
      return waits ? await(*waiter, call.deadline, reply) : fault::none;
    request.waiter = nullptr;
  }
  execute(request, slot ? this : Upcall::slot_of(), pool_.options().max_message, reply);
  if (!request.waits.wanted) *reply = Buffer::take(&request.cdr);
  slot.give_back();
  if (needs_slot && waiting_.any()) wake();  // a thread of the engine takes over what waits for the slot
  if (!request.waits.wanted) return fault::none;
  return make_lasting(request, call) ? park_and_await(request, !needs_slot, call.deadline, reply)
                                     : fault::no_memory;
}

// What waits may outlive the caller's memory, and its time limit begins to count.
bool Engine::make_lasting(ServerRequest& request, ClientRequest& call) {
  if (!request.bare) return true;
  call.operation = request.head.operation;
  start_clock(call);
  return request.own(take_message(call));
}

Fault Engine::park_and_await(ServerRequest& request, bool in_upcall, Clock::time_point deadline,
                             Buffer* reply) {
  const bool waits = request.head.response_expected;
  const auto call = request.waiter = std::make_shared<LocalCall>(waits && in_upcall);
  if (!keep_at_gate(&request, pool_.options().queue)) return fault::not_serving;
  return waits ? await(*call, deadline, reply) : fault::none;
}

Fault Engine::await(LocalCall& call, Clock::time_point deadline, Buffer* reply) {
  std::unique_ptr<ServerRequest> request;
  {
    const MutexLock lock(call.mutex);
    while (!call.done && !call.released) {
      if (call.over.wait_until(call.mutex, deadline) || call.done || call.released) continue;
      call.given_up = true;
      return fault::time_limit;
    }
    request = std::move(call.released);
    if (!request) {
      *reply = std::move(call.reply);
      return call.error ? Fault{call.error, fault::not_serving.minor} : fault::none;
    }
  }
  execute(*request, Upcall::slot_of(), pool_.options().max_message, reply);
  if (request->waits.wanted) return park_and_await(*request, call.caller_in_upcall, deadline, reply);
  *reply = Buffer::take(&request->cdr);
  return fault::none;
}

}  // namespace zrsv
