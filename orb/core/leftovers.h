// What the library has, and what it runs, for people to look at.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zrsv {

/// The requests that run now, a text each.
std::vector<std::string> describe_runs(std::chrono::steady_clock::time_point now);

}  // namespace zrsv
