#include "lane.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "options.h"
#include "zrsv/of_thread.h"

namespace zrsv {
namespace {

std::mutex mutex;
std::array<unsigned, most_client_connections> threads_in;  // guarded by mutex

class Lane {
 public:
  Lane() {
    const std::lock_guard lock(mutex);
    const auto end = threads_in.begin() + options().client_connections;
    const auto least = std::min_element(threads_in.begin(), end);
    ++*least;
    number_ = static_cast<unsigned>(least - threads_in.begin());
  }
  ~Lane() {
    const std::lock_guard lock(mutex);
    --threads_in[number_];
  }
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;
  unsigned number() const { return number_; }

 private:
  unsigned number_;
};

}  // namespace

unsigned lane_of_thread() {
  const Lane* const lane = of_thread<Lane>();
  return lane ? lane->number() : 0;
}

}  // namespace zrsv
