// The queue group of the process: whether requests for its implementations are delivered or wait. The
// embedded adapter serves one process, so every implementation name in a key that it minted belongs to this
// one group.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "base/clock.h"
#include "requests/server_request.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

class QueueGroup {
 public:
  /// Takes requests over for delivery, in their order. Called with the group's lock held, so that nothing
  /// overtakes them; must not call the group.
  using Deliver = std::function<void(Requests)>;

  /// One load: requests pass.
  bool is_open() const { return state_.load(std::memory_order_acquire) == State::Open; }

  enum class Admission { Pass, Held, Full };
  /// Keeps the request (moved from) until the group opens; Full: `limit` requests wait, or there is no engine
  /// to deliver them.
  Admission hold(ServerRequest* request, uint32_t limit);

  /// The process serves `name`. Whether its requests are delivered is another question.
  void announce(const std::string& name);
  bool is_announced(const std::string& name);
  /// The program wants to be called: opens a group that waited for that, but not one that is held.
  void begin();
  /// How many requests have waited since before `since` for that moment; told once, then 0.
  std::size_t waiting_in_vain(Clock::time_point since);

  void open();
  void close();
  std::size_t held();

  /// Where released requests go while an engine runs; null when it stops.
  void deliver_to(Deliver deliver);
  /// Hands requests (moved from) to the engine; false when there is none.
  bool deliver(Requests* requests);
  bool delivers();
  /// Takes out the requests of a connection that are held, of that id or all that want an answer; of no
  /// connection: everything held.
  Requests withdraw(const Connection* connection, const uint32_t* id);

 private:
  enum class State : uint8_t { Waiting, Open, Held };
  void open_locked() ZR_REQUIRES(mutex_);

  Mutex mutex_;
  std::atomic<State> state_{State::Waiting};  // written with mutex_ held
  std::set<std::string> announced_ ZR_GUARDED_BY(mutex_);
  Requests held_ ZR_GUARDED_BY(mutex_);
  Clock::time_point held_since_ ZR_GUARDED_BY(mutex_);  // of the first request ever held
  bool told_in_vain_ ZR_GUARDED_BY(mutex_) = false;
  Deliver deliver_ ZR_GUARDED_BY(mutex_);
};

/// The group of the process.
QueueGroup& queue_group();

}  // namespace zrsv
