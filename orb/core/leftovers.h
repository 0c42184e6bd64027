// Counts of what the library has, and the requests that threads run, for others to look at.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "zrsv/leftovers.h"

namespace zrsv {

struct ServerRequest;

enum class Left { Threads, Descriptors, Connections, Objects };

/// Any thread.
void count_left(Left kind, int by);

/// One of them, as long as it lives.
template <Left kind>
class Counting {
 public:
  Counting() { count_left(kind, 1); }
  ~Counting() { count_left(kind, -1); }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
};

/// What one thread runs. Its request stays as long as somebody looks at it: the lowest bit says so.
struct Run {
  std::atomic<uintptr_t> request{0};
  std::atomic<uint64_t> number{0};  // of the run, on this thread
  std::atomic<bool> taken{true};    // by a thread
  Run* next = nullptr;
  // The watch's own.
  uint64_t seen = 0;
  std::chrono::steady_clock::time_point since;
};

/// The request that the calling thread runs; a call inside the process may run within another. Takes no lock.
class Running {
 public:
  explicit Running(ServerRequest* request) : outer_(mine_.request) {
    mine_.request = request;
    if (!mine_.run) take_run();
    // The one within which it runs may be looked at.
    if (!mine_.run || (outer_ && !change(outer_, request))) return;
    mine_.run->request.store(reinterpret_cast<uintptr_t>(request), std::memory_order_release);
    mine_.run->number.store(mine_.run->number.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  ~Running() {
    ServerRequest* const request = mine_.request;
    mine_.request = outer_;
    if (mine_.run) change(request, outer_);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  /// The calling thread's, or null.
  static ServerRequest* request() { return mine_.request; }

 private:
  struct OfThread {
    ServerRequest* request;
    Run* run;  // null: there was no memory for one, or the thread is at its end
  };
  static constinit thread_local OfThread mine_;

  [[gnu::cold]] static void take_run();
  [[gnu::cold]] static bool wait_and_change(ServerRequest* from, ServerRequest* to);
  /// False when `from` was not shown.
  static bool change(ServerRequest* from, ServerRequest* to) {
    auto shown = reinterpret_cast<uintptr_t>(from);
    return mine_.run->request.compare_exchange_strong(shown, reinterpret_cast<uintptr_t>(to)) ||
           wait_and_change(from, to);
  }

  ServerRequest* const outer_;
};

/// Notes which runs are new since the last look: the road of a request reads no clock. One thread, now and then.
void note_runs(std::chrono::steady_clock::time_point now);
/// What runs now, for people.
std::vector<std::string> describe_runs(std::chrono::steady_clock::time_point now);

}  // namespace zrsv
