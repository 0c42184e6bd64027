#include "connections/pinning.h"

#include "base/counting.h"

namespace zrsv {

namespace {

constexpr std::chrono::milliseconds watch_period{2};  // a run is put back after one to two of these

}  // namespace

void Pins::Pin::begin_run() {
  state_.store(state_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

bool Pins::Pin::end_run() {
  uint64_t running = state_.load(std::memory_order_relaxed);
  return (running & put_back) == 0 && state_.compare_exchange_strong(running, running + 1);
}

void Pins::start(PutBack put_back) {
  put_back_ = std::move(put_back);
  {
    const MutexLock lock(mutex_);
    for (Pin& pin : pins_) free_.push_back(&pin);
  }
  thread_ = std::thread([this] { watch(); });
}

void Pins::stop() {
  {
    const MutexLock lock(mutex_);
    stop_ = true;
    free_.clear();
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

Pins::Pin* Pins::take(Connection& connection) {
  if (taken() == count()) return nullptr;  // with more busy clients than pins each call asks
  const MutexLock lock(mutex_);
  if (free_.empty()) return nullptr;
  Pin* pin = free_.back();
  free_.pop_back();
  taken_.fetch_add(1);
  const uint64_t last = pin->state_.load() & ~Pin::put_back;
  pin->state_.store(last + last % 2);
  pin->connection_.store(&connection);
  if (free_.size() + 1 == pins_.size()) changed_.notify_all();
  return pin;
}

void Pins::leave(Pin* pin) {
  pin->connection_.store(nullptr);
  const MutexLock lock(mutex_);
  taken_.fetch_sub(1);
  if (!stop_) free_.push_back(pin);
}

void Pins::watch() {
  const Counting<Left::Threads> counted;
  const MutexLock lock(mutex_);
  while (!stop_) {
    if (free_.size() == pins_.size()) {
      changed_.wait(mutex_);
      continue;
    }
    const auto next = Clock::now() + watch_period;
    while (!stop_ && changed_.wait_until(mutex_, next)) continue;
    if (stop_) return;
    const Unlocked unlocked(mutex_);
    for (Pin& pin : pins_) look_at(pin);
  }
}

// A count is taken before the pin is: whoever gives it up finds the connection no longer his, and drops his
// own.
void Pins::look_at(Pin& pin) {
  uint64_t state = pin.state_.load();
  const uint64_t seen = std::exchange(pin.seen_, state);
  Connection* connection = pin.connection_.load();
  if (state != seen || state % 2 == 0 || (state & Pin::put_back) || !connection || !connection->try_add_ref())
    return;
  const Ref<Connection> counted = Ref<Connection>::adopt(connection);
  if (pin.state_.compare_exchange_strong(state, state | Pin::put_back)) put_back_(*counted);
}

}  // namespace zrsv
