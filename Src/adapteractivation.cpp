#include "adapteractivation.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "zrsv.h"

namespace {
constexpr std::chrono::seconds PATIENCE{10};
}

thread_local int AdapterActivation::depth_ = 0;

struct AdapterActivation::Running {
  std::mutex mutex;
  std::condition_variable ended;
  std::vector<const AdapterActivation*> activations;  // guarded by mutex
  std::atomic<std::size_t> count{0};                  // activations.size()

  /// Never destroyed: requests may be under way while the process ends.
  static Running& instance() {
    static auto& running = *new Running;
    return running;
  }

  /// Whether there was something to wait for.
  bool wait(std::unique_lock<std::mutex>& lock, Identity parent, std::string_view name) {
    const auto free = [&] {
      return std::none_of(activations.begin(), activations.end(),
                          [&](const auto* one) { return one->is_of_another(parent, name); });
    };
    if (depth_ > 0 || free()) return false;
    if (!ended.wait_for(lock, PATIENCE, free)) {
      OM_log("the adapter activator asked for POA %.*s is not through after %d s: others go on without it",
             static_cast<int>(name.size()), name.data(), static_cast<int>(PATIENCE.count()));
    }
    return true;
  }
};

AdapterActivation::AdapterActivation(Identity parent, std::string_view name) : parent_(parent), name_(name) {
  Running& running = Running::instance();
  std::unique_lock lock(running.mutex);
  running.wait(lock, parent, name);
  running.activations.push_back(this);
  running.count = running.activations.size();
}

AdapterActivation::~AdapterActivation() {
  Running& running = Running::instance();
  const std::lock_guard lock(running.mutex);
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
  std::unique_lock lock(running.mutex);
  return running.wait(lock, parent, name);
}
