// The connections to servers, one for each end point and lane, shared by the threads of that lane.
#pragma once

#include <map>
#include <memory>
#include <string_view>

#include "connections/client_connection.h"
#include "connections/lane.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// An end point by view, for look-ups that allocate nothing.
struct EndpointView {
  std::string_view host;
  uint16_t port = 0;
};

class ClientPool {
 public:
  using Connection = std::shared_ptr<ClientConnection>;

  /// Idle connections kept; the one idle for longest goes first.
  static constexpr std::size_t max_idle = 64;

  /// The connection of the calling thread's lane that is open to that end point, or null. Does not wait. `now` is
  /// about the time. That of the caller's last call, kept in `last`, is taken without a look at the pool.
  Connection find(EndpointView to, Clock::time_point now, std::weak_ptr<ClientConnection>* last = nullptr);
  /// The same, or a new one: *now is read anew then. Threads of a lane that want the same end point share one
  /// attempt, and its failure. When a server takes no further connection, one of another lane serves this one as
  /// well. Null, with *why: no connection by the deadline.
  Connection get(EndpointView to, Deadline deadline, Clock::time_point* now, Fault* why);
  /// Forgets a connection that is of no use any more.
  void discard(const Connection& connection);
  /// Fails all calls under way and forgets all connections. Calls made afterwards open new ones.
  void close_all();

 private:
  struct Entry {
    Connection connection;    // null while there is none
    uint32_t attempting = 0;  // threads that open a connection or wait for the one that does
    uint64_t attempts = 0;
    Fault last;  // how the latest attempt ended
    bool opening = false;
  };
  struct Key {
    Endpoint to;
    unsigned lane;
  };
  struct KeyView {
    EndpointView to;
    unsigned lane;
  };
  struct Less {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      if (a.to.port != b.to.port) return a.to.port < b.to.port;
      if (const int order = std::string_view(a.to.host).compare(b.to.host)) return order < 0;
      return a.lane < b.lane;
    }
  };
  using Entries = std::map<Key, Entry, Less>;

  Connection open(Entries::iterator at, Deadline deadline, Fault* why) ZR_REQUIRES(mutex_);
  Connection wait_for(Entries::iterator at, Deadline deadline, Fault* why) ZR_REQUIRES(mutex_);
  Connection of_another_lane(const Key& key, const Fault& why) const ZR_REQUIRES(mutex_);
  void drop_idle() ZR_REQUIRES(mutex_);
  void drop_if_empty(Entries::iterator at) ZR_REQUIRES(mutex_);

  Mutex mutex_;  // never held while a connection is made
  Condition settled_;
  Entries entries_ ZR_GUARDED_BY(mutex_);
  uint64_t closed_ ZR_GUARDED_BY(mutex_) = 0;  // how often close_all ran
};

/// The pool of the process.
ClientPool& client_pool();

/// For the end of the ORB: calls that wait fail with COMM_FAILURE, and what the client side holds is freed
/// but for what each thread keeps for its next call. The client side may be used again afterwards.
void close_client_connections();

}  // namespace zrsv
