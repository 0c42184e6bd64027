// Counts of what the library has.
#pragma once

#include <cstdint>

namespace zrsv {

enum class Left { Threads, Descriptors, Connections, Objects };

/// Any thread.
void count_left(Left kind, int by);
uint32_t left(Left kind);

/// One of them, as long as it lives.
template <Left kind>
class Counting {
 public:
  Counting() { count_left(kind, 1); }
  ~Counting() { count_left(kind, -1); }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
};

}  // namespace zrsv
