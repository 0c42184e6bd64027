#include "base/slots.h"

namespace zrsv {

void Slots::tell() {
  const MutexLock lock(mutex_);
  left_.notify_all();
}

uint32_t Slots::wait_until_unused(Clock::time_point deadline) {
  awaited_ = true;
  const MutexLock lock(mutex_);
  const auto used = [this] { return lent_.load() + taken_.load(); };
  while (used() != 0 && left_.wait_until(mutex_, deadline)) continue;
  return used();
}

}  // namespace zrsv
