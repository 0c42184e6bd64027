#include "base/memory.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>

namespace zrsv {

namespace detail {
std::atomic<std::size_t> memory_used{0}, memory_peak{0}, memory_budget{SIZE_MAX};

void change_memory(std::size_t by) {
  const std::size_t used = memory_used.fetch_add(by, std::memory_order_relaxed) + by;
  if (used > memory_peak.load(std::memory_order_relaxed)) memory_peak.store(used, std::memory_order_relaxed);
}
}  // namespace detail

namespace {

constexpr std::size_t worth_returning = 8 << 20;

/// The number in that file; none, and UINT64_MAX, where there is no limit ("max").
uint64_t limit_in(const std::string& file) {
  uint64_t limit = UINT64_MAX;
  std::ifstream in(file);
  return in >> limit ? limit : UINT64_MAX;
}

/// The least limit of a group and those that it is in. Inside a container the path may be one of the outside: what
/// is not there limits nothing.
uint64_t limit_of(const std::string& directory, std::string path, const char* file) {
  uint64_t least = limit_in(directory + "/" + file);
  for (; path.size() > 1; path.erase(path.rfind('/')))
    least = std::min(least, limit_in(directory + path + "/" + file));
  return least;
}

}  // namespace

// Lines are "number:controllers:/path"; version 2 has number 0 and no controllers.
uint64_t memory_limit(uint64_t machine, const std::string& groups_file, const std::string& groups_directory) {
  uint64_t least = machine;
  std::ifstream groups(groups_file);
  for (std::string line; std::getline(groups, line);) {
    std::istringstream fields(line);
    std::string number, controllers, path;
    std::getline(fields, number, ':'), std::getline(fields, controllers, ':'), std::getline(fields, path);
    if (path.empty() || path[0] != '/') continue;
    if (controllers.empty()) least = std::min(least, limit_of(groups_directory, path, "memory.max"));
    if (("," + controllers + ",").find(",memory,") != std::string::npos)
      least = std::min(least, limit_of(groups_directory + "/memory", path, "memory.limit_in_bytes"));
  }
  return least;
}

void set_memory_budget(uint32_t mebibytes) {
  uint64_t budget = uint64_t{mebibytes} << 20;
  if (budget == 0) {
    const uint64_t machine =
        static_cast<uint64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
    budget = memory_limit(machine, "/proc/self/cgroup", "/sys/fs/cgroup") / 4;
  }
  detail::memory_budget = static_cast<std::size_t>(std::min<uint64_t>(budget, SIZE_MAX));
}

void MemoryReturn::look(bool freed) {
  const std::size_t used = memory_used();
  const std::size_t peak = detail::memory_peak.exchange(used);
  most_ = std::max(most_, peak);
  if (freed || (peak > used && peak - used >= worth_returning)) {
    owed_ = true;  // unless the next burst comes at once, when it would only be fetched again
  } else if (std::exchange(owed_, false) || (most_ > used && most_ - used >= worth_returning)) {
    ::malloc_trim(0);
    most_ = used;
  }
}

}  // namespace zrsv
