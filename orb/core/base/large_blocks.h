// Large blocks of memory, kept for the next large message: the system hands out and takes back a page at a time, which
// costs more than the copies of such a message.
#pragma once

#include <cstddef>
#include <cstdlib>

namespace zrsv {

/// What a connection, a thread or a request may keep for itself; blocks above are large.
inline constexpr std::size_t large_from = 64 << 10;

/// A block that free() takes, for at least so many octets, and how many it has; null without memory. New ones begin a
/// page, as what a message stands in between send and recv does as a rule (copying.h). Octets undefined. What is kept is handed out when it has no more than four times what is wanted.
struct LargeBlock {
  unsigned char* octets = nullptr;
  std::size_t capacity = 0;
};
LargeBlock take_large_block(std::size_t wanted);
/// The same, but never a new one.
LargeBlock take_kept_block(std::size_t wanted);
/// Takes over a large block of malloc: keeps it, or frees it when enough is kept.
void give_large_block(unsigned char* octets, std::size_t capacity);
/// The end of a block of malloc, large or not. Null is ignored.
inline void give_block(unsigned char* octets, std::size_t capacity) {
  if (capacity > large_from)
    give_large_block(octets, capacity);
  else
    std::free(octets);
}
/// Frees what nobody has wanted since the last time, and says whether that was any. To be called again and again, by one
/// thread.
bool drop_unused_blocks();

}  // namespace zrsv
