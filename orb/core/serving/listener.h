// The end points: where connections are accepted, and what references say about it; and the lifespan tick.
#pragma once

#include <poll.h>

#include <asio.hpp>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/counting.h"
#include "base/options.h"
#include "serving/engine.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// Accepts on one thread, which runs no program code, and looks after the engine's time limits between. Once
/// started it takes no memory.
class Listener {
 public:
  explicit Listener(std::shared_ptr<Engine> engine) : engine_(std::move(engine)) {}
  ~Listener() { stop(); }

  /// Binds the end points, so that their ports are known. "" or what is wrong.
  std::string open(const std::vector<Endpoint>& wanted);
  /// What references should carry: `wanted` where given, else the addresses bound. Never a wildcard address.
  std::vector<Endpoint> published(const std::vector<Endpoint>& wanted) const;
  std::vector<Endpoint> bound() const;
  void start();
  /// Accepts no more; joins the thread.
  void stop();

 private:
  using tcp = asio::ip::tcp;
  struct Acceptor {
    const Counting<Left::Descriptors> counted;
    explicit Acceptor(asio::io_context& context) : socket(context) {}
    tcp::acceptor socket;
    Clock::time_point closed_until;  // after a failure, such as a shortage of descriptors
    Clock::time_point told_at;       // when such a failure was logged last
  };
  std::string open_address(const tcp::endpoint& at);
  std::string open_both_families(const tcp::endpoint& at);
  std::string open_one(const tcp::endpoint& at);
  void work();
  void wait_for_clients(Clock::time_point until);
  void accept_some(Acceptor& acceptor);
  void close_for_a_while(Acceptor& acceptor, int error);

  std::shared_ptr<Engine> engine_;
  asio::io_context context_{1};
  std::list<Acceptor> acceptors_;
  std::vector<pollfd> polled_;  // the acceptors in their order, then wake_
  int wake_ = -1;               // an eventfd: stop
  std::thread thread_;
};

/// Without loopback and link-local addresses where there are others, and each once.
std::vector<Endpoint> worth_publishing(std::vector<Endpoint> all);

/// Calls the lifespan hook again and again, on a thread of its own as that runs program code.
class Ticker {
 public:
  void start(std::chrono::milliseconds period);
  /// Waits for a tick under way, but not past the deadline.
  void stop(Clock::time_point deadline);

 private:
  struct State {
    Mutex mutex;
    Condition changed;
    bool stop ZR_GUARDED_BY(mutex) = false;
    bool in_tick ZR_GUARDED_BY(mutex) = false;
    bool ended ZR_GUARDED_BY(mutex) = false;
  };
  static void tick();
  static void work(State& state, std::chrono::milliseconds period);

  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace zrsv
