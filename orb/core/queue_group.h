// The queue group of the process: whether requests for its implementations are delivered or wait. The
// embedded adapter serves one process, so every implementation name in a key that it minted belongs to this
// one group.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "server_request.h"

namespace zrsv {

class QueueGroup {
 public:
  using Requests = std::vector<std::unique_ptr<ServerRequest>>;
  /// Takes requests over for delivery, in their order. Called with the group's lock held, so that nothing
  /// overtakes them; must not call the group.
  using Deliver = std::function<void(Requests)>;

  /// One load: requests pass.
  bool is_open() const { return state_.load(std::memory_order_acquire) == State::Open; }

  enum class Admission { Pass, Held, Full };
  /// Keeps the request (moved from) until the group opens; Full: `limit` requests wait, or there is no engine
  /// to deliver them.
  Admission hold(ServerRequest* request, uint32_t limit);

  /// The process serves `name` from now on: opens a group that waited for that, but not one that is held.
  void announce(const std::string& name);
  bool is_announced(const std::string& name);
  /// The ORB runs: opens the group where nothing was announced at all.
  void open_if_unannounced();

  void open();
  void close();

  /// Where released requests go while an engine runs; null when it stops.
  void deliver_to(Deliver deliver);
  /// Takes out the requests of a connection that are held, of that id or all; of no connection: everything
  /// held.
  Requests withdraw(const Connection* connection, const uint32_t* id);

 private:
  enum class State : uint8_t { Waiting, Open, Held };
  void open_locked();

  std::mutex mutex_;
  std::atomic<State> state_{State::Waiting};         // written with mutex_ held
  std::set<std::string> announced_;                  // guarded by mutex_
  std::deque<std::unique_ptr<ServerRequest>> held_;  // guarded by mutex_
  Deliver deliver_;                                  // guarded by mutex_
};

/// The group of the process.
QueueGroup& queue_group();

}  // namespace zrsv
