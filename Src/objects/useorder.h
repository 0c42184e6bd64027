// Which entries of an active object map were used longest ago.
#pragma once

#include <cstddef>
#include <vector>

#include "objects/slotindex.h"

/// Positions of a map in the order of their last use, for those whose number is limited. Takes no lock.
class UseOrder {
 public:
  using Position = SlotIndex::Position;
  static constexpr Position NONE = SlotIndex::NONE;

  explicit UseOrder(std::size_t most) : limit(most) {}

  /// Makes room for positions below `end`; std::bad_alloc, and nothing changed, without memory.
  void reserve(Position end) {
    if (end > links_.size()) links_.resize(end);
  }
  /// As the one used last. After reserve.
  void enter(Position p) {
    links_[p] = {last_, NONE, true};
    (last_ == NONE ? first_ : links_[last_].later) = p;
    last_ = p;
    ++size_;
  }
  /// Nothing for one that is not in.
  void leave(Position p) {
    if (!has(p)) return;
    const Link link = links_[p];
    (link.earlier == NONE ? first_ : links_[link.earlier].later) = link.later;
    (link.later == NONE ? last_ : links_[link.later].earlier) = link.earlier;
    links_[p].in = false;
    --size_;
  }
  void touch(Position p) {
    if (p == last_ || !has(p)) return;
    leave(p);
    enter(p);
  }
  /// The one that was used longest ago; NONE when there is none.
  Position first() const { return first_; }
  /// The next one, used later.
  Position after(Position p) const { return links_[p].later; }
  bool over_limit() const { return size_ > limit; }

  const std::size_t limit;
  bool told = false;  // that the limit was reached

 private:
  struct Link {
    Position earlier = NONE, later = NONE;
    bool in = false;
  };
  bool has(Position p) const { return p < links_.size() && links_[p].in; }

  std::vector<Link> links_;  // by position
  Position first_ = NONE, last_ = NONE;
  std::size_t size_ = 0;
};
