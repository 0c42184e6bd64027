// Where a value stands first in an active object map.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "objects/largepages.h"

/// A hash table from 32-bit keys to positions: open addressing, linear probing. It holds one position for each
/// value, the lowest; how many entries stand behind the first of their value is counted beside it. Keys that differ in
/// the lowest bits only, a run of four, have half a line of the processor's cache together. Takes no lock.
class SlotIndex {
 public:
  using Key = std::uint32_t;
  using Position = std::uint32_t;
  static constexpr Position NONE = ~Position{0};
  static constexpr std::uint32_t RUN = 4;

  /// The position under that key for which `is` answers true, or NONE.
  template <class Is>
  Position find(Key key, Is&& is) const {
    if (cells_.empty()) return NONE;
    for (std::size_t at = home(key); cells_[at].position != NONE; at = after(at))
      if (cells_[at].key == key && is(cells_[at].position)) return cells_[at].position;
    return NONE;
  }
  /// Makes room for so many more; std::bad_alloc, and nothing changed that can be seen, without memory.
  void reserve(std::size_t more) {
    while ((used_ + more) * 8 > cells_.size() * 5) grow();
  }
  /// What find answers; where that is NONE, the position is entered. After reserve.
  template <class Is>
  Position find_or_insert(Key key, Position position, Is&& is) {
    std::size_t at = home(key);
    for (; cells_[at].position != NONE; at = after(at))
      if (cells_[at].key == key && is(cells_[at].position)) return cells_[at].position;
    cells_[at] = {key, position};
    ++used_;
    return NONE;
  }
  void move(Key key, Position from, Position to) { cells_[cell_of(key, from)].position = to; }
  void erase(Key key, Position position) {
    std::size_t hole = cell_of(key, position);
    for (std::size_t at = after(hole); cells_[at].position != NONE; at = after(at)) {
      // What probing would not find any more moves into the hole.
      if (distance(home(cells_[at].key), at) < distance(hole, at)) continue;
      cells_[hole] = cells_[at];
      hole = at;
    }
    cells_[hole].position = NONE;
    --used_;
  }

  /// Brings what a search for that key reads first into the cache. Any thread, also while another one changes the
  /// index: it reads nothing, and takes no lock.
  void prefetch(Key key) const {
    const Cell* const first = expected_.first.load(std::memory_order_relaxed);
    if (first) __builtin_prefetch(first + place(key, expected_.runs.load(std::memory_order_relaxed)));
  }

  std::size_t further = 0;  // entries that are not the first of their value

 private:
  struct alignas(8) Cell {
    Key key = 0;
    Position position = NONE;
  };

  static std::size_t place(Key key, std::size_t runs) {
    const std::uint64_t scattered = (key / RUN * 0x9E3779B97F4A7C15u) >> 32;
    return (scattered * runs >> 32) * RUN + key % RUN;
  }
  std::size_t home(Key key) const { return place(key, cells_.size() / RUN); }
  std::size_t after(std::size_t at) const { return at + 1 == cells_.size() ? 0 : at + 1; }
  std::size_t distance(std::size_t from, std::size_t to) const {
    return to >= from ? to - from : to + cells_.size() - from;
  }
  std::size_t cell_of(Key key, Position position) const {
    std::size_t at = home(key);
    while (cells_[at].position != position) at = after(at);
    return at;
  }
  void grow() {
    SlotIndex larger;
    larger.cells_.resize(std::max<std::size_t>(cells_.size() * 2, RUN));
    for (const Cell& cell : cells_)
      if (cell.position != NONE)
        larger.find_or_insert(cell.key, cell.position, [](Position) { return false; });
    cells_.swap(larger.cells_);
    expected_.runs.store(cells_.size() / RUN, std::memory_order_relaxed);
    expected_.first.store(cells_.data(), std::memory_order_relaxed);
  }

  /// The cells as `prefetch` sees them: perhaps those that were there just now.
  struct Expected {
    std::atomic<const Cell*> first{nullptr};
    std::atomic<std::size_t> runs{0};
  };

  std::vector<Cell, LargePages<Cell>> cells_;  // whole runs, or none; at most five eighths are used
  std::size_t used_ = 0;
  Expected expected_;
};
