// A thread that sleeps until another one posts, once for each post.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "base/clock.h"

namespace zrsv {

/// std::binary_semaphore with a sleep that spins for nothing. It may be destroyed as soon as a wait for the last post
/// has returned, also while the thread that posted is still on its way out.
class Semaphore {
 public:
  Semaphore() { ::sem_init(&semaphore_, 0, 0); }
  ~Semaphore() { ::sem_destroy(&semaphore_); }
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void post() {
    posted_.store(true, std::memory_order_release);
    ::sem_post(&semaphore_);
  }
  void wait() {
    while (::sem_wait(&semaphore_) != 0 && errno == EINTR) continue;
    taken();
  }
  /// False: the deadline has passed. max(): there is none.
  bool wait_until(Clock::time_point deadline) {
    if (deadline == Clock::time_point::max()) return wait(), true;
    const auto since = std::chrono::ceil<std::chrono::nanoseconds>(deadline.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const timespec until{static_cast<time_t>(seconds.count()), static_cast<long>((since - seconds).count())};
    int failed = 0;
    while ((failed = ::sem_clockwait(&semaphore_, CLOCK_MONOTONIC, &until)) != 0 && errno == EINTR) continue;
    if (failed == 0) taken();
    return failed == 0;
  }

 private:
  // The order that the semaphore makes, said once more for the thread sanitizer, which does not know sem_clockwait.
  void taken() { posted_.load(std::memory_order_acquire); }
  std::atomic<bool> posted_{false};
  sem_t semaphore_;
};

}  // namespace zrsv
