#include "connections/lane.h"

#include <algorithm>
#include <array>

#include "base/options.h"
#include "zrsv/of_thread.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

Mutex mutex;
std::array<unsigned, most_client_connections> threads_in ZR_GUARDED_BY(mutex);

// Functions, as the checker passes over constructors and destructors.
unsigned enter_emptiest() {
  const MutexLock lock(mutex);
  const auto least = std::min_element(threads_in.begin(), threads_in.begin() + options().client_connections);
  ++*least;
  return static_cast<unsigned>(least - threads_in.begin());
}

void leave(unsigned lane) {
  const MutexLock lock(mutex);
  --threads_in[lane];
}

class Lane {
 public:
  Lane() : number_(enter_emptiest()) {}
  ~Lane() { leave(number_); }
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;
  unsigned number() const { return number_; }

 private:
  const unsigned number_;
};

}  // namespace

unsigned lane_of_thread() {
  const Lane* const lane = of_thread<Lane>();
  return lane ? lane->number() : 0;
}

}  // namespace zrsv
