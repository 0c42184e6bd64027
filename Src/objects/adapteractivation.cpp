#include "objects/adapteractivation.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <vector>

#include "zrsv.h"
#include "zrsv/thread_safety.h"

namespace {
constexpr std::chrono::seconds PATIENCE{10};
}

thread_local int AdapterActivation::depth_ = 0;

struct AdapterActivation::Running {
  zrsv::Mutex mutex;
  std::condition_variable_any ended;
  std::vector<const AdapterActivation*> activations ZR_GUARDED_BY(mutex);
  std::atomic<std::size_t> count{0};  // activations.size()

  /// Never destroyed: requests may be under way while the process ends.
  static Running& instance() {
    static auto& running = *new Running;
    return running;
  }

  /// Whether there was something to wait for.
  bool wait(Identity parent, std::string_view name) ZR_REQUIRES(mutex) {
    const auto free = [&]() ZR_REQUIRES(mutex) {
      return std::none_of(activations.begin(), activations.end(),
                          [&](const auto* one) { return one->is_of_another(parent, name); });
    };
    if (depth_ > 0 || free()) return false;
    if (!ended.wait_for(mutex, PATIENCE, free)) {
      OM_log("the adapter activator asked for POA %.*s is not through after %d s: others go on without it",
             static_cast<int>(name.size()), name.data(), static_cast<int>(PATIENCE.count()));
    }
    return true;
  }
};

AdapterActivation::AdapterActivation(Identity parent, std::string_view name) : parent_(parent), name_(name) {
  Running& running = Running::instance();
  const zrsv::MutexLock lock(running.mutex);
  running.wait(parent, name);
  running.activations.push_back(this);
  running.count = running.activations.size();
}

AdapterActivation::~AdapterActivation() {
  Running& running = Running::instance();
  const zrsv::MutexLock lock(running.mutex);
  std::erase(running.activations, this);
  running.count = running.activations.size();
  running.ended.notify_all();
}

bool AdapterActivation::is_of_another(Identity parent, std::string_view name) const {
  return parent_ == parent && name_ == name && thread_ != std::this_thread::get_id();
}

bool AdapterActivation::any() { return Running::instance().count != 0; }

bool AdapterActivation::wait_for_others(Identity parent, std::string_view name) {
  Running& running = Running::instance();
  const zrsv::MutexLock lock(running.mutex);
  return running.wait(parent, name);
}
