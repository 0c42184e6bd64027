// The time limits of what one connection sends. The reader notes what happens, and reads no clock; a watch looks
// at the notes now and then, and measures.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "base/clock.h"
#include "base/options.h"

namespace zrsv {

class InputWatch {
 public:
  /// Octets a second below which a message may take no longer than the limit.
  static constexpr uint64_t least_rate = 64 << 10;
  /// How long a client may take for its first message, when the limit for messages is not lower.
  static constexpr std::chrono::milliseconds first_message{10'000};

  void open();

  /// A message is complete. By the reader, as the next.
  void message() { count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }
  /// The reader waits for more, with so many octets of a message, or of fragments, that is not complete.
  void waits(std::size_t octets, bool fragments) {
    if (octets == partial_.load(std::memory_order_relaxed)) return;
    partial_.store(octets, std::memory_order_relaxed);
    fragments_.store(fragments, std::memory_order_relaxed);
  }

  /// Null, or which limit is passed. By one thread, again and again; `busy`: something of the connection is
  /// under way.
  const char* overdue(Clock::time_point now, const Options& limits, bool busy);
  /// What waits() said last.
  std::size_t partial() const { return partial_.load(std::memory_order_relaxed); }
  /// Whether a second has passed without anything; told once until something happens.
  bool has_gone_quiet(Clock::time_point now);
  /// Since when nothing has happened, as far as the watch saw.
  Clock::time_point quiet_since() const { return quiet_since_; }

 private:
  std::atomic<uint32_t> count_{0};  // of messages
  std::atomic<std::size_t> partial_{0};
  std::atomic<bool> fragments_{false};

  // The watch's own.
  bool begun_ = false, told_quiet_ = false;
  uint32_t seen_ = 0;
  Clock::time_point opened_, quiet_since_, begun_at_;
};

}  // namespace zrsv
