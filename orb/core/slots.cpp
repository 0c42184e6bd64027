#include "slots.h"

namespace zrsv {

void Slots::tell() {
  const std::lock_guard lock(mutex_);
  left_.notify_all();
}

uint32_t Slots::wait_until_unused(std::chrono::steady_clock::time_point deadline) {
  const auto used = [this] { return lent_.load() + taken_.load(); };
  awaited_ = true;
  std::unique_lock lock(mutex_);
  left_.wait_until(lock, deadline, [&] { return used() == 0; });
  return used();
}

}  // namespace zrsv
