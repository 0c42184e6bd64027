// How many requests run at once: each has a slot while it runs.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

#include "base/clock.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

class Slots;

/// One slot, or none. It is given back at the latest when this goes.
class Slot {
 public:
  Slot() = default;
  Slot(Slot&& o) noexcept : of_(std::exchange(o.of_, nullptr)) {}
  Slot& operator=(Slot&& o) noexcept {
    std::swap(of_, o.of_);
    return *this;
  }
  ~Slot() { give_back(); }
  explicit operator bool() const { return of_ != nullptr; }
  inline void give_back();

 private:
  friend class Slots;
  explicit Slot(Slots& of) : of_(&of) {}
  Slots* of_ = nullptr;
};

/// Any thread; none waits but in wait_until_unused.
class Slots {
 public:
  explicit Slots(uint32_t count) : count_(count) {}
  Slots(const Slots&) = delete;
  Slots& operator=(const Slots&) = delete;

  uint32_t count() const { return count_; }
  /// None when all are taken.
  Slot take() {
    uint32_t taken = taken_.load(std::memory_order_relaxed);
    do
      if (taken >= count_) return {};
    while (!taken_.compare_exchange_weak(taken, taken + 1));
    return Slot(*this);
  }
  /// One more, however many there are.
  Slot take_past_the_limit() {
    taken_.fetch_add(1);
    return Slot(*this);
  }
  bool any_free() const { return taken_.load() < count_; }
  /// More are taken than there are, as lent ones were taken back.
  bool overdrawn() const { return taken_.load() > count_; }

  /// A request that waits lends its slot to others until take_back() with the result. `may_lend` is asked with the
  /// number that is lent then; when it says no, or too many are lent, the request keeps its slot: false.
  template <class MayLend>
  bool lend(MayLend&& may_lend) {
    const uint32_t others = lent_.fetch_add(1);
    if (others < most_lent && may_lend(others + 1)) {
      leave();
      return true;
    }
    kept_.fetch_add(1);
    lent_.fetch_sub(1);
    return false;
  }
  void take_back(bool lent) {
    if (lent) taken_.fetch_add(1);  // first: wait_until_unused adds up both
    (lent ? lent_ : kept_).fetch_sub(1);
  }
  /// Of the requests that wait, those that have their slot, and all.
  uint32_t kept_by_waiting() const { return kept_.load(); }
  uint32_t waiting() const { return lent_.load() + kept_.load(); }
  static constexpr uint32_t most_lent = 64;

  /// Waits until no request has or had a slot; how many do at the deadline.
  uint32_t wait_until_unused(Clock::time_point deadline);

 private:
  friend class Slot;
  void leave() {
    taken_.fetch_sub(1);
    if (awaited_.load()) tell();
  }
  [[gnu::cold]] void tell();

  const uint32_t count_;
  std::atomic<uint32_t> taken_{0};
  std::atomic<uint32_t> lent_{0};
  std::atomic<uint32_t> kept_{0};
  std::atomic<bool> awaited_{false};
  Mutex mutex_;
  Condition left_;  // with mutex_: a slot was given back while that is awaited
};

void Slot::give_back() {
  if (Slots* const of = std::exchange(of_, nullptr)) of->leave();
}

}  // namespace zrsv
