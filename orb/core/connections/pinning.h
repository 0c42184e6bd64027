// Threads pinned to a connection.
//
// A client that calls and waits, again and again, is served best by one thread that sits in recv for it, as a
// plain blocking server does: no other thread is woken, and there is one system call less for each call. The
// connection is taken out of the epoll set meanwhile. Should a servant take long, the watch puts it back, and
// other threads read it.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "connections/connection.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

class Pins {
 public:
  /// One thread's place at one connection. It waits for input, and runs what comes; the reading of the
  /// connection stays its own meanwhile.
  class alignas(64) Pin {  // written at each call: no two share a line of the cache
   public:
    void begin_run();
    bool running() const { return state_.load(std::memory_order_relaxed) % 2 != 0; }
    /// False: it took so long that the connection was put back. Its reading is not this thread's any more.
    bool end_run();

   private:
    friend class Pins;
    static constexpr uint64_t put_back = uint64_t{1} << 63;
    std::atomic<Connection*> connection_{nullptr};
    // Counts up for good, so that the watch sees whether a run is still the same: even while waiting, odd in
    // a run, with put_back when the watch ended it.
    std::atomic<uint64_t> state_{0};
    uint64_t seen_ = 0;  // the watch's own
  };
  /// Puts a connection back, whose reading it is given.
  using PutBack = std::function<void(Connection&)>;

  explicit Pins(std::size_t count) : pins_(count) {}
  std::size_t count() const { return pins_.size(); }
  /// Starts the watch. `put_back` is called on its thread and must not wait.
  void start(PutBack put_back);
  void stop();

  /// Null when all are taken. The caller keeps a count of the connection until leave().
  Pin* take(Connection& connection);
  void leave(Pin* pin);
  uint32_t taken() const { return taken_.load(); }

 private:
  void watch();
  void look_at(Pin& pin);

  std::vector<Pin> pins_;
  PutBack put_back_;
  Mutex mutex_;
  Condition changed_;
  std::vector<Pin*> free_ ZR_GUARDED_BY(mutex_);
  bool stop_ ZR_GUARDED_BY(mutex_) = false;
  std::atomic<uint32_t> taken_{0};  // written with mutex_ held
  std::thread thread_;
};

}  // namespace zrsv
