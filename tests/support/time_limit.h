// How long a test may take.
#pragma once

#include <chrono>
#include <cstdlib>

/// Well below the time-outs of the library, of which the shortest is 5 s, and well above what tests need.
inline constexpr std::chrono::milliseconds default_time_limit{3500};

/// The limit of the test that runs: a test that needs another one sets it.
inline std::chrono::milliseconds& time_limit() {
  static std::chrono::milliseconds limit = default_time_limit;
  return limit;
}

/// How many times slower than usual this build, or the machine as TEST_SLOWNESS says, may be.
inline int slowness() {
  const char* told = std::getenv("TEST_SLOWNESS");
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  return told ? std::atoi(told) : 6;
#else
  return told ? std::atoi(told) : 1;
#endif
}
