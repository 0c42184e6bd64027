#include "base/counting.h"

#include <algorithm>
#include <atomic>
#include <cstddef>

namespace zrsv {

namespace {

std::atomic<int> counts[4];

std::atomic<int>& count_of(Left kind) { return counts[static_cast<std::size_t>(kind)]; }

}  // namespace

void count_left(Left kind, int by) { count_of(kind) += by; }
uint32_t left(Left kind) { return static_cast<uint32_t>(std::max(count_of(kind).load(), 0)); }

}  // namespace zrsv
