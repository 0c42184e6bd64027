// How long a test may take.
#pragma once

#include <chrono>

/// Well below the time-outs of the library, of which the shortest is 5 s, and well above what tests need.
inline constexpr std::chrono::milliseconds default_time_limit{3500};

/// The limit of the test that runs: a test that needs another one sets it.
inline std::chrono::milliseconds& time_limit() {
  static std::chrono::milliseconds limit = default_time_limit;
  return limit;
}
