// The clock that all waiting goes by.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace zrsv {

using Clock = std::chrono::steady_clock;
/// When something must be over; max() is never.
using Deadline = Clock::time_point;

/// Milliseconds until the deadline for poll(): rounded up, -1 for never, 0 once it has passed.
inline int poll_timeout(Deadline deadline) {
  if (deadline == Deadline::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT32_MAX));
}

/// Half of the time that is left, so that one silent address does not use up what another one could do with.
inline Deadline half_way(Deadline deadline) {
  if (deadline == Deadline::max()) return deadline;
  const auto now = Clock::now();
  return now + std::max(deadline - now, Clock::duration::zero()) / 2;
}

}  // namespace zrsv
