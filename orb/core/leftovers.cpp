#include "leftovers.h"

#include <algorithm>
#include <atomic>

#include "queue_group.h"
#include "upcall.h"
#include "zrsv/reference.h"

namespace zrsv {

namespace {

std::atomic<int> counts[4];

}  // namespace

void count_left(Left kind, int by) { counts[static_cast<std::size_t>(kind)] += by; }

}  // namespace zrsv

using namespace zrsv;

ZR_Leftovers ZR_leftovers(void) {
  const auto count = [](Left kind) {
    return static_cast<uint32_t>(std::max(counts[static_cast<std::size_t>(kind)].load(), 0));
  };
  return {count(Left::Threads), count(Left::Descriptors), count(Left::Connections),
          static_cast<uint32_t>(queue_group().held()) + count_runs(),
          count(Left::Objects) + ZR_bound_objects()};
}
