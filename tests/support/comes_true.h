// Waiting for what nobody tells of.
#pragma once

#include <chrono>
#include <thread>

/// Asks again and again until the answer is yes; false when that takes too long.
template <class Question>
bool comes_true(Question&& question, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!question()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}
