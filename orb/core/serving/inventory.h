// What the library has, and what it runs, for people to look at.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "base/clock.h"

namespace zrsv {

/// The requests that run now, a text each.
std::vector<std::string> describe_runs(Clock::time_point now);

}  // namespace zrsv
