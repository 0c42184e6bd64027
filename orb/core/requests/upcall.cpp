#include "requests/upcall.h"

#include <new>
#include <thread>
#include <utility>

#include "zrsv/of_thread.h"

namespace zrsv {

namespace {

constexpr uintptr_t looked_at = 1;

std::atomic<Run*> all_runs{nullptr};  // grows only

/// Null when there is no memory.
Run* free_run() {
  for (Run* run = all_runs; run; run = run->next)
    if (bool taken = false; run->taken.compare_exchange_strong(taken, true)) return run;
  Run* const made = new (std::nothrow) Run;
  if (!made) return nullptr;
  made->next = all_runs;
  while (!all_runs.compare_exchange_weak(made->next, made)) continue;
  return made;
}

}  // namespace

constinit thread_local Upcall::OfThread Upcall::mine_{};

void Upcall::take_run() {
  struct Holder {
    Run* const run = free_run();
    ~Holder() {
      mine_.run = nullptr;
      if (run) run->taken = false;
    }
  };
  if (const Holder* const holder = of_thread<Holder>()) mine_.run = holder->run;
}

bool Upcall::wait_and_change(ServerRequest* from, ServerRequest* to) {
  const auto wanted = reinterpret_cast<uintptr_t>(from);
  for (uintptr_t shown = wanted;
       !mine_.run->request.compare_exchange_weak(shown, reinterpret_cast<uintptr_t>(to)); shown = wanted) {
    if ((shown & ~looked_at) != wanted) return false;
    std::this_thread::yield();
  }
  return true;
}

void note_runs(Clock::time_point now) {
  for (Run* run = all_runs; run; run = run->next) {
    const uint64_t number = run->number.load(std::memory_order_relaxed);
    if (std::exchange(run->seen, number) != number) run->since = now;
  }
}

void look_at_runs(const std::function<void(const Run&, const ServerRequest&)>& look) {
  for (Run* run = all_runs; run; run = run->next) {
    uintptr_t request = run->request;
    if (request == 0 || (request & looked_at) ||
        !run->request.compare_exchange_strong(request, request | looked_at))
      continue;
    look(*run, *reinterpret_cast<const ServerRequest*>(request));  // NOLINT(performance-no-int-to-ptr)
    run->request = request;
  }
}

}  // namespace zrsv
