#include "stay.h"

#include "leftovers.h"

namespace zrsv {

namespace {

constexpr std::chrono::milliseconds watch_period{2};  // a run is put back after one to two of these

}  // namespace

void Seats::Seat::begin_run() {
  state_.store(state_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

bool Seats::Seat::end_run() {
  uint64_t running = state_.load(std::memory_order_relaxed);
  return (running & put_back) == 0 && state_.compare_exchange_strong(running, running + 1);
}

void Seats::start(PutBack put_back) {
  put_back_ = std::move(put_back);
  for (Seat& seat : seats_) free_.push_back(&seat);
  thread_ = std::thread([this] { watch(); });
}

void Seats::stop() {
  {
    std::lock_guard lock(mutex_);
    stop_ = true;
    free_.clear();
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

Seats::Seat* Seats::take(Connection& connection) {
  std::lock_guard lock(mutex_);
  if (free_.empty()) return nullptr;
  Seat* seat = free_.back();
  free_.pop_back();
  const uint64_t last = seat->state_.load() & ~Seat::put_back;
  seat->state_.store(last + last % 2);
  seat->connection_.store(&connection);
  if (free_.size() + 1 == seats_.size()) changed_.notify_all();
  return seat;
}

void Seats::leave(Seat* seat) {
  seat->connection_.store(nullptr);
  std::lock_guard lock(mutex_);
  if (!stop_) free_.push_back(seat);
}

void Seats::watch() {
  const Counting<Left::Threads> counted;
  std::unique_lock lock(mutex_);
  while (!stop_) {
    if (free_.size() == seats_.size()) {
      changed_.wait(lock, [this] { return stop_ || free_.size() != seats_.size(); });
      continue;
    }
    if (changed_.wait_for(lock, watch_period, [this] { return stop_; })) return;
    lock.unlock();
    for (Seat& seat : seats_) look_at(seat);
    lock.lock();
  }
}

// A count is taken before the seat is: whoever leaves it finds the connection no longer his, and drops his
// own.
void Seats::look_at(Seat& seat) {
  uint64_t state = seat.state_.load();
  const uint64_t seen = std::exchange(seat.seen_, state);
  Connection* connection = seat.connection_.load();
  if (state != seen || state % 2 == 0 || (state & Seat::put_back) || !connection ||
      !connection->try_add_ref())
    return;
  const Ref<Connection> counted = Ref<Connection>::adopt(connection);
  if (seat.state_.compare_exchange_strong(state, state | Seat::put_back)) put_back_(*counted);
}

}  // namespace zrsv
