#include "in_process.h"

#include "engine.h"
#include "gates.h"
#include "orb.h"
#include "upcall.h"

namespace zrsv {

const char* call_in_process(Buffer request, bool /*response_expected*/,
                            std::chrono::steady_clock::time_point deadline, Buffer* reply) {
  const std::shared_ptr<Engine> engine = orb().engine();
  return engine ? engine->call_local(std::move(request), deadline, reply) : "TRANSIENT";
}

const char* Engine::call_local(Buffer message, Clock::time_point deadline, Buffer* reply) {
  giop::Header header;
  ServerRequest request;
  std::swap(request.message, message);
  if (request.message.size() < giop::header_size ||
      giop::read_header(request.message.data(), UINT32_MAX, &header) ||
      request.message.size() != giop::header_size + std::size_t{header.size} || !request.read_head(header))
    return "OBJECT_NOT_EXIST";
  CodeSets own;
  request.use_code_sets(&own);
  const Ref<Reference> target = Reference::from_key(request.head.key);
  if (!target) return "OBJECT_NOT_EXIST";
  request.target.borrow(target.get());

  const bool may_be_held = !request.target->is_internal() && !queue_group().is_open();
  const bool needs_slot = !Upcall::running() && !hosted_.load(std::memory_order_relaxed);
  Slot slot;
  if (needs_slot && !may_be_held) slot = slot_to_run_now(request);
  if (may_be_held || (needs_slot && !slot)) {
    const bool waits = request.head.response_expected;
    const auto call = request.waiter = std::make_shared<LocalCall>(waits && !needs_slot);
    const auto admission =
        may_be_held ? queue_group().hold(&request, queue_limit(request)) : QueueGroup::Admission::Pass;
    if (admission == QueueGroup::Admission::Full) return "TRANSIENT";
    if (admission == QueueGroup::Admission::Pass && needs_slot && !enqueue(&request)) return "TRANSIENT";
    if (admission == QueueGroup::Admission::Held || needs_slot)
      return waits ? await(*call, deadline, reply) : nullptr;
    request.waiter = nullptr;
  }
  execute(request, slot ? this : Upcall::slot_of(), pool_.options().max_message, reply);
  if (!request.waits.wanted) *reply = Buffer::take(&request.cdr);
  slot.give_back();
  if (needs_slot && waiting_.any()) wake();  // a thread of the engine takes over what waits for the slot
  return request.waits.wanted ? park_and_await(request, !needs_slot, deadline, reply) : nullptr;
}

const char* Engine::park_and_await(ServerRequest& request, bool in_upcall, Clock::time_point deadline,
                                   Buffer* reply) {
  const bool waits = request.head.response_expected;
  const auto call = request.waiter = std::make_shared<LocalCall>(waits && in_upcall);
  if (!keep_at_gate(&request, pool_.options().queue)) return "TRANSIENT";
  return waits ? await(*call, deadline, reply) : nullptr;
}

const char* Engine::await(LocalCall& call, Clock::time_point deadline, Buffer* reply) {
  std::unique_ptr<ServerRequest> request;
  {
    const MutexLock lock(call.mutex);
    while (!call.done && !call.released) {
      if (call.over.wait_until(call.mutex, deadline) || call.done || call.released) continue;
      call.given_up = true;
      return "TIMEOUT";
    }
    request = std::move(call.released);
    if (!request) {
      *reply = std::move(call.reply);
      return call.error;
    }
  }
  execute(*request, Upcall::slot_of(), pool_.options().max_message, reply);
  if (request->waits.wanted) return park_and_await(*request, call.caller_in_upcall, deadline, reply);
  *reply = Buffer::take(&request->cdr);
  return nullptr;
}

}  // namespace zrsv
