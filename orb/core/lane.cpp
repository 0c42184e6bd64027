#include "lane.h"

#include <algorithm>
#include <array>

#include "options.h"
#include "zrsv/of_thread.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

Mutex mutex;
std::array<unsigned, most_client_connections> threads_in;  // guarded by mutex

class Lane {
 public:
  Lane() {
    const MutexLock lock(mutex);
    const auto end = threads_in.begin() + options().client_connections;
    const auto least = std::min_element(threads_in.begin(), end);
    ++*least;
    number_ = static_cast<unsigned>(least - threads_in.begin());
  }
  ~Lane() {
    const MutexLock lock(mutex);
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
