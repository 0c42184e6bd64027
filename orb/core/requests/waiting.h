// What waits for a slot.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>

#include "base/clock.h"
#include "requests/server_request.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// Requests stand in one line a connection, and the lines take turns: one that sends much waits behind itself.
/// Requests of a line start in their order. Beside them wait the ends of connections that are to be reported.
/// Only moving a request to the heap takes memory.
class Waiting {
 public:
  /// `number` tells the engine's two of them apart.
  explicit Waiting(std::size_t number) : number_(number) {}

  /// One thing to do with a slot; neither when nothing was left.
  struct Turn {
    std::unique_ptr<ServerRequest> request;
    Ref<Connection> lost;
  };

  /// Whether it pays to call next().
  bool any() const { return turns_.load() > 0; }
  /// Moves the request in. False when `limit` requests wait, or after close().
  bool add(ServerRequest* request, uint32_t limit);
  /// Requests that a queue group lets go, in their order: past the limit, as they have been counted before.
  void add_released(Requests requests);
  void add_loss(Connection& connection);
  Turn next();
  /// Takes out requests of a connection, of that id or all that want an answer; of no connection: all.
  Requests withdraw(Connection* connection, const uint32_t* id);
  /// Takes out what has waited since before that.
  Requests expired(Clock::time_point since);
  /// Takes out those that a call of this process led to.
  Requests nested();
  /// No more requests are taken.
  void close();

 private:
  template <class Wanted>
  Requests take_out(Wanted wanted);
  void append(std::unique_ptr<ServerRequest> request) ZR_REQUIRES(mutex_);
  void join(Line& line, Connection* of) ZR_REQUIRES(mutex_);
  void push(Line& line) ZR_REQUIRES(mutex_);
  Line* pop() ZR_REQUIRES(mutex_);
  void leave(Line& line) ZR_REQUIRES(mutex_);

  Line& line_of(Connection& connection) { return connection.lines[number_]; }

  const std::size_t number_;
  std::atomic<uint32_t> turns_{0};  // lines that stand here
  Mutex mutex_;
  bool closed_ ZR_GUARDED_BY(mutex_) = false;
  uint32_t count_ ZR_GUARDED_BY(mutex_) = 0;  // requests
  Line* first_ ZR_GUARDED_BY(mutex_) = nullptr;
  Line* last_ ZR_GUARDED_BY(mutex_) = nullptr;
};

/// Whether it is one of that connection (null: any) and id (null: any that the client would have to hear of).
bool matches(const ServerRequest& request, const Connection* connection, const uint32_t* id);

}  // namespace zrsv
