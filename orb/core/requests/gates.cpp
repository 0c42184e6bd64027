#include "requests/gates.h"

#include <algorithm>

#include "requests/queue_group.h"

namespace zrsv {
namespace {

/// The gates of the process.
std::vector<GatedRequests*>& all_gates() ZR_REQUIRES(gates_mutex) {
  static auto& all = *new std::vector<GatedRequests*>;  // requests may come until the process ends
  return all;
}

/// Those that may go now: all of a barrier, the next one of a mutex, which stays shut for it.
Requests take_next(GatedRequests& at) ZR_REQUIRES(gates_mutex) {
  at.shut = false;
  if (at.kind == Gate::Kind::barrier) return std::move(at.requests);
  Requests next;
  if (auto request = at.requests.pop_front()) {
    at.shut = request->waits.granted = true;
    next.push_back(std::move(request));
  }
  return next;
}

// Without the mutex: who is not delivered any more lets the next one go.
void let_go(Requests requests) {
  if (requests.empty() || queue_group().deliver(&requests)) return;
  while (auto request = requests.pop_front())
    if (request->waiter) request->waiter->finish({}, "TRANSIENT");
}

template <class Change>
void change(GatedRequests& at, Change&& change) {
  Requests next;
  {
    const MutexLock lock(gates_mutex);
    next = change(at);
  }
  let_go(std::move(next));
}

AtGate& waits_of(void* handle) {
  return static_cast<ServerRequest&>(*static_cast<RequestBase*>(handle)).waits;
}

}  // namespace

Gate::Gate(Kind kind) : waiting_(std::make_unique<GatedRequests>(kind)) {
  const MutexLock lock(gates_mutex);
  all_gates().push_back(waiting_.get());
}

Gate::~Gate() {
  change(*waiting_, [](GatedRequests& at) ZR_REQUIRES(gates_mutex) {
    std::erase(all_gates(), &at);
    return std::move(at.requests);
  });
}

void Gate::close() {
  const MutexLock lock(gates_mutex);
  waiting_->shut = true;
}

void Gate::open() { change(*waiting_, take_next); }

bool Gate::enter(void* request) {
  AtGate& waits = waits_of(request);
  if (waits.granted && waits.gate.get() == this) {
    waits.granted = false;  // from here on leave() is the caller's
    return true;
  }
  const MutexLock lock(gates_mutex);
  return !std::exchange(waiting_->shut, true);
}

void Gate::leave() { change(*waiting_, take_next); }

void AtGate::give_up() {
  granted = false;
  gate->leave();
}

void wait_at(const std::shared_ptr<Gate>& gate, void* request) {
  AtGate& waits = waits_of(request);
  if (waits.granted) waits.give_up();
  waits.gate = gate;
  waits.wanted = true;
}

bool keep_at_gate(ServerRequest* request, uint32_t limit) {
  GatedRequests& at = GatedRequests::of(*request->waits.gate);
  request->waits.wanted = false;
  Requests next;
  {
    const MutexLock lock(gates_mutex);
    if (!queue_group().delivers() || at.requests.size() >= limit) return false;
    std::unique_ptr<ServerRequest> kept(new (std::nothrow) ServerRequest(std::move(*request)));
    if (!kept) return false;  // and the request is as it was
    at.requests.push_back(std::move(kept));
    if (!at.shut) next = take_next(at);
  }
  let_go(std::move(next));
  return true;
}

Requests withdraw_from_gates() {
  Requests taken;
  const MutexLock lock(gates_mutex);
  for (GatedRequests* at : all_gates()) taken.append(std::move(at->requests));
  return taken;
}

}  // namespace zrsv
