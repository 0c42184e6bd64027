#include "upcall.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <thread>

#include "engine.h"
#include "server_request.h"
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

/// Calls `look` with each run and the request in it, which stays meanwhile.
template <class Look>
void look_at_runs(Look look) {
  for (Run* run = all_runs; run; run = run->next) {
    uintptr_t request = run->request;
    if (request == 0 || (request & looked_at) ||
        !run->request.compare_exchange_strong(request, request | looked_at))
      continue;
    look(*run, *reinterpret_cast<const ServerRequest*>(request));  // NOLINT(performance-no-int-to-ptr)
    run->request = request;
  }
}

std::string readable(std::string_view octets) {
  std::string text(octets.substr(0, 80));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return text;
}

std::string describe(const ServerRequest& request, std::chrono::milliseconds age) {
  char text[512];
  std::snprintf(text, sizeof text, "operation %.64s of object '%s' of %.64s for %s, for %lld ms at least",
                request.head.operation, readable(request.target->data()).c_str(),
                request.target->impl_name().c_str(),
                request.connection ? request.connection->peer().text().c_str() : "this process",
                static_cast<long long>(age.count()));
  return text;
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

void note_runs(std::chrono::steady_clock::time_point now) {
  for (Run* run = all_runs; run; run = run->next) {
    const uint64_t number = run->number.load(std::memory_order_relaxed);
    if (std::exchange(run->seen, number) != number) run->since = now;
  }
}

std::vector<std::string> describe_runs(std::chrono::steady_clock::time_point now) {
  note_runs(now);
  std::vector<std::string> all;
  look_at_runs([&](const Run& run, const ServerRequest& request) {
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - run.since);
    try {
      all.push_back(describe(request, age));
    } catch (const std::bad_alloc&) {
      OM_log("no memory to say what runs");
    }
  });
  return all;
}

uint32_t count_runs() {
  uint32_t count = 0;
  look_at_runs([&](const Run&, const ServerRequest&) { ++count; });
  return count;
}

SlotLoan::SlotLoan() : lender_(Upcall::slot_of()) {
  if (!lender_) return;
  lent_ = lender_->lend();
  if (const ServerRequest* const request = Upcall::request()) connection_ = request->connection.get();
  if (connection_) connection_->lend();
}
SlotLoan::~SlotLoan() {
  if (connection_) connection_->take_back();
  if (lender_) lender_->take_back(lent_);
}

}  // namespace zrsv
