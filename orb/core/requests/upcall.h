// What a thread runs for the ORB: a request, or a hook of the program.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "base/clock.h"

namespace zrsv {

struct ServerRequest;

/// Whose slots upcalls have, and may lend while they wait.
class SlotLender {
 public:
  /// False: no more slots are lent. To be called with the result when the wait is over: take_back.
  virtual bool lend() = 0;
  virtual void take_back(bool lent) = 0;

 protected:
  ~SlotLender() = default;
};

/// What one thread runs, for others to look at. Its request stays as long as somebody looks at it: the lowest bit
/// says so.
struct Run {
  std::atomic<uintptr_t> request{0};
  std::atomic<uint64_t> number{0};  // of the run, on this thread
  std::atomic<bool> taken{true};    // by a thread
  Run* next = nullptr;
  // The watch's own.
  uint64_t seen = 0;
  Clock::time_point since;
};

/// Program code runs on this thread on behalf of the ORB, as long as this lives. Upcalls nest: a call inside the process
/// runs within the one that makes it. Takes no lock.
class Upcall {
 public:
  /// `request`: what is served, null for a hook, which belongs to the request within which it is called, if any. `slot_of`: whose slot it has, when that may be lent.
  explicit Upcall(ServerRequest* request = nullptr, SlotLender* slot_of = nullptr)
      : outer_(mine_.innermost), request_(request ? request : Upcall::request()), slot_of_(slot_of) {
    mine_.innermost = this;
    if (request) show();
  }
  ~Upcall() {
    mine_.innermost = outer_;
    if (request_ != request() && mine_.run) change(request_, request());
  }
  Upcall(const Upcall&) = delete;
  Upcall& operator=(const Upcall&) = delete;

  /// Of the innermost one of the calling thread; false and null outside of any.
  static bool running() { return mine_.innermost != nullptr; }
  static ServerRequest* request() { return mine_.innermost ? mine_.innermost->request_ : nullptr; }
  static SlotLender* slot_of() { return mine_.innermost ? mine_.innermost->slot_of_ : nullptr; }

 private:
  struct OfThread {
    const Upcall* innermost;
    Run* run;  // null: there was no memory for one, or the thread is at its end
  };
  static constinit thread_local OfThread mine_;

  void show() {
    if (!mine_.run) take_run();
    // The one within which it runs may be looked at.
    ServerRequest* const before = outer_ ? outer_->request_ : nullptr;
    if (!mine_.run || (before && !change(before, request_))) return;
    mine_.run->request.store(reinterpret_cast<uintptr_t>(request_), std::memory_order_release);
    mine_.run->number.store(mine_.run->number.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  [[gnu::cold]] static void take_run();
  [[gnu::cold]] static bool wait_and_change(ServerRequest* from, ServerRequest* to);
  /// False when `from` was not shown.
  static bool change(ServerRequest* from, ServerRequest* to) {
    auto shown = reinterpret_cast<uintptr_t>(from);
    return mine_.run->request.compare_exchange_strong(shown, reinterpret_cast<uintptr_t>(to)) ||
           wait_and_change(from, to);
  }

  const Upcall* const outer_;
  ServerRequest* const request_;
  SlotLender* const slot_of_;
};

/// Notes which runs are new since the last look: the road of a request reads no clock. One thread, now and then.
void note_runs(Clock::time_point now);
/// Calls `look` with each run and the request in it, which stays meanwhile.
void look_at_runs(const std::function<void(const Run&, const ServerRequest&)>& look);

}  // namespace zrsv
