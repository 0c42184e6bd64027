// How much memory is in flight: read and not yet a message, requests that wait or run, replies that clients have not
// taken. One budget for the process, -ORBMaxMemory; what happens beyond it is the engine's.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zrsv {

/// Blocks from this size on are counted, each time that they change hands or size. Smaller ones are bounded by
/// the number of connections and of requests.
inline constexpr std::size_t counted_from = 16 << 10;

namespace detail {
extern std::atomic<std::size_t> memory_used, memory_peak, memory_budget;
void change_memory(std::size_t by);
}  // namespace detail

/// Blocks of the old size are gone, of the new size are there; 0: none. Any thread.
inline void count_memory(std::size_t old_size, std::size_t new_size) {
  const std::size_t before = old_size < counted_from ? 0 : old_size;
  const std::size_t now = new_size < counted_from ? 0 : new_size;
  if (before != now) [[unlikely]]
    detail::change_memory(now - before);
}
inline std::size_t memory_used() { return detail::memory_used.load(std::memory_order_relaxed); }
inline std::size_t memory_budget() { return detail::memory_budget.load(std::memory_order_relaxed); }
inline bool over_memory() { return memory_used() > memory_budget(); }

/// Puts a budget in force: mebibytes, or 0 for a quarter of what this process may have.
void set_memory_budget(uint32_t mebibytes);

/// Octets that a process in those control groups may have: the least of the machine's and the groups' limits. The
/// file is /proc/self/cgroup, the directory /sys/fs/cgroup.
uint64_t memory_limit(uint64_t machine, const std::string& groups_file, const std::string& groups_directory);

/// Gives memory back to the system once a burst is over. To be called again and again, by one thread.
class MemoryReturn {
 public:
  /// `freed`: much has been freed that was not in flight.
  void look(bool freed);

 private:
  bool owed_ = false;
  std::size_t most_ = 0;  // in flight since memory was given back last
};

}  // namespace zrsv
