#include "base/large_blocks.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "base/copying.h"
#include "base/memory.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

constexpr std::size_t most_blocks = 16;
constexpr std::size_t most_octets = 64 << 20;  // and no more than an eighth of the budget

LargeBlock new_block(std::size_t wanted) {
  if (wanted > SIZE_MAX - page_size) return {};
  const std::size_t whole = (wanted + page_size - 1) / page_size * page_size;
  auto* const octets = static_cast<unsigned char*>(std::aligned_alloc(page_size, whole));
  return {octets, octets ? whole : 0};
}

class LargeBlocks {
 public:
  LargeBlock take(std::size_t wanted) {
    const MutexLock lock(mutex_);
    LargeBlock* best = nullptr;
    for (std::size_t i = 0; i < count_; ++i)
      if (fits(blocks_[i], wanted) && (!best || blocks_[i].capacity < best->capacity)) best = &blocks_[i];
    if (!best) return {};
    const LargeBlock found = std::exchange(*best, blocks_[--count_]);
    octets_ -= found.capacity;
    least_ = std::min(least_, count_);
    return found;
  }

  /// False: there is no room for it.
  bool keep(const LargeBlock& block) {
    const MutexLock lock(mutex_);
    const std::size_t most = std::min(most_octets, memory_budget() / 8);
    if (count_ == blocks_.size() || block.capacity > most || octets_ > most - block.capacity) return false;
    blocks_[count_++] = block;
    octets_ += block.capacity;
    return true;
  }

  /// As many as lay there all the time are not needed.
  bool drop_unused() {
    const std::size_t count = unused();
    for (std::size_t i = 0; i < count; ++i) std::free(take(0).octets);
    return count > 0;
  }

 private:
  static bool fits(const LargeBlock& block, std::size_t wanted) {
    return wanted == 0 || (block.capacity >= wanted && block.capacity / 4 <= wanted);
  }
  std::size_t unused() {
    const MutexLock lock(mutex_);
    return std::min(std::exchange(least_, count_), count_);
  }

  Mutex mutex_;
  std::array<LargeBlock, most_blocks> blocks_ ZR_GUARDED_BY(mutex_);
  std::size_t count_ ZR_GUARDED_BY(mutex_) = 0;
  std::size_t octets_ ZR_GUARDED_BY(mutex_) = 0;
  std::size_t least_ ZR_GUARDED_BY(mutex_) = 0;  // the fewest blocks that were there since the last look
};

LargeBlocks& large_blocks() {
  static auto* const blocks = new LargeBlocks;  // threads may outlive the statics
  return *blocks;
}

}  // namespace

LargeBlock take_kept_block(std::size_t wanted) { return large_blocks().take(wanted); }

LargeBlock take_large_block(std::size_t wanted) {
  const LargeBlock kept = take_kept_block(wanted);
  return kept.octets ? kept : new_block(wanted);
}

void give_large_block(unsigned char* octets, std::size_t capacity) {
  if (!large_blocks().keep({octets, capacity})) std::free(octets);
}

bool drop_unused_blocks() { return large_blocks().drop_unused(); }

}  // namespace zrsv
