#include "connections/input_watch.h"

#include <algorithm>
#include <utility>

namespace zrsv {

void InputWatch::open() {
  count_ = 0;
  partial_ = 0;
  begun_ = told_quiet_ = false;
  seen_ = 0;
  opened_ = quiet_since_ = Clock::now();
}

const char* InputWatch::overdue(Clock::time_point now, const Options& limits, bool busy) {
  const uint32_t count = count_.load(std::memory_order_relaxed);
  const std::size_t partial = partial_.load(std::memory_order_relaxed);
  const bool came = count != std::exchange(seen_, count);
  if (came || busy || partial > 0) quiet_since_ = now, told_quiet_ = false;
  const std::chrono::milliseconds limit(limits.read_timeout_ms);
  if (limit.count() == 0) return nullptr;
  if (count == 0 && now - opened_ >= std::min(limit, first_message)) return "sent no whole message in time";
  if (partial == 0 || (came && !fragments_.load(std::memory_order_relaxed))) begun_ = false;
  if (partial == 0) return nullptr;
  if (!std::exchange(begun_, true)) begun_at_ = now;
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(now - begun_at_);
  const bool slow = partial * 1000 < least_rate * static_cast<uint64_t>(taken.count());
  return taken >= limit && slow ? "sends a message too slowly" : nullptr;
}

bool InputWatch::has_gone_quiet(Clock::time_point now) {
  return now - quiet_since_ >= std::chrono::seconds(1) && !std::exchange(told_quiet_, true);
}

}  // namespace zrsv
