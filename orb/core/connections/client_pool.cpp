#include "connections/client_pool.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/options.h"
#include "base/process_life.h"
#include "connections/reply_threads.h"
#include "connections/socket_setup.h"

namespace zrsv {
namespace {

/// Two ends of one socket: the system may connect a port of this machine that nobody listens on to itself.
bool is_own_peer(int fd) {
  sockaddr_storage own{}, peer{};
  socklen_t own_size = sizeof own, peer_size = sizeof peer;
  return ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &own_size) == 0 &&
         ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peer_size) == 0 && own_size == peer_size &&
         std::memcmp(&own, &peer, own_size) == 0;
}

bool finish_connect(int fd, Deadline deadline) {
  pollfd poll_fd{fd, POLLOUT, 0};
  int ready = 0;
  do {
    ready = ::poll(&poll_fd, 1, poll_timeout(deadline));
  } while (ready < 0 && errno == EINTR);
  int error = 0;
  socklen_t size = sizeof error;
  return ready == 1 && ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

/// A connected, blocking socket, or -1.
int connect_address(const addrinfo& address, Deadline deadline) {
  const int fd = ::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP);
  if (fd < 0) return -1;
  bool connected = ::connect(fd, address.ai_addr, address.ai_addrlen) == 0;
  if (!connected && (errno == EINPROGRESS || errno == EINTR)) connected = finish_connect(fd, deadline);
  if (connected && !is_own_peer(fd) && ::fcntl(fd, F_SETFL, 0) == 0 && set_up_socket(fd)) return fd;
  ::close(fd);
  return -1;
}

/// Tries each address of the host. The look-up of a name itself takes the time that the system's resolver
/// takes.
int connect_to(const Endpoint& peer, Deadline deadline, Fault* why) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  *why = fault::unknown_host;
  if (::getaddrinfo(peer.host.c_str(), std::to_string(peer.port).c_str(), &hints, &found) != 0) return -1;
  *why = fault::no_connection;
  int fd = -1;
  for (const addrinfo* a = found; a && fd < 0; a = a->ai_next) {
    fd = connect_address(*a, a->ai_next ? half_way(deadline) : deadline);
  }
  ::freeaddrinfo(found);
  return fd;
}

ClientPool::Connection connect(const Endpoint& peer, unsigned lane, Deadline deadline, Fault* why) {
  int fd = -1;
  try {
    fd = connect_to(peer, deadline, why);
    if (fd < 0) return nullptr;
    if (OM_TRACE_IS_ON) OM_trace("client: connected to %s:%u", peer.host.c_str(), unsigned{peer.port});
    return std::make_shared<ClientConnection>(peer, lane, fd);
  } catch (const std::bad_alloc&) {
    if (fd >= 0) ::close(fd);
    *why = fault::no_memory;
    return nullptr;
  }
}

bool is(const Fault& why, const Fault& known) { return why.name == known.name && why.minor == known.minor; }
bool is(const Endpoint& peer, EndpointView to) { return peer.port == to.port && peer.host == to.host; }

/// Assigns only what is another: a weak pointer's count costs as much as a lock.
void remember(const ClientPool::Connection& connection, std::weak_ptr<ClientConnection>* last) {
  if (last->owner_before(connection) || connection.owner_before(*last)) *last = connection;
}

}  // namespace

ClientPool::Connection ClientPool::find(EndpointView to, Clock::time_point now,
                                        std::weak_ptr<ClientConnection>* last) {
  Connection connection = last ? last->lock() : nullptr;
  const unsigned lane = lane_of_thread();
  if (!connection || connection->lane() != lane || !is(connection->peer(), to)) {
    connection = nullptr;
    const MutexLock lock(mutex_);
    if (const auto at = entries_.find(KeyView{to, lane}); at != entries_.end())
      connection = at->second.connection;
  }
  if (!connection) return nullptr;
  if (!connection->alive(now)) {
    discard(connection);
    return nullptr;
  }
  if (last) remember(connection, last);
  return connection;
}

ClientPool::Connection ClientPool::get(EndpointView to, Deadline deadline, Clock::time_point* now,
                                       Fault* why) {
  if (Connection open_already = find(to, *now)) return open_already;
  const MutexLock lock(mutex_);
  if (!is_usable()) return *why = fault::shut_down, nullptr;
  const KeyView key{to, lane_of_thread()};
  auto at = entries_.find(key);
  if (at == entries_.end()) at = entries_.try_emplace(Key{{std::string(to.host), to.port}, key.lane}).first;
  if (at->second.connection) return at->second.connection;  // opened meanwhile
  ++at->second.attempting;
  Connection connection = at->second.opening ? wait_for(at, deadline, why) : open(at, deadline, why);
  --at->second.attempting;
  drop_if_empty(at);
  *now = Clock::now();
  return connection;
}

ClientPool::Connection ClientPool::open(Entries::iterator at, Deadline deadline, Fault* why) {
  Entry& entry = at->second;
  const uint64_t closed_before = closed_;
  entry.opening = true;
  mark_in_use();
  Connection connection;
  {
    const Unlocked unlocked(mutex_);
    connection = connect(at->first.to, at->first.lane, deadline, why);
  }
  if (!connection) connection = of_another_lane(at->first, *why);
  if (connection && closed_ != closed_before) {
    *why = fault::shut_down;
    connection = nullptr;
  }
  entry.opening = false;
  entry.connection = connection;
  entry.last = *why;
  ++entry.attempts;
  settled_.notify_all();
  drop_idle();
  return connection;
}

ClientPool::Connection ClientPool::wait_for(Entries::iterator at, Deadline deadline, Fault* why) {
  Entry& entry = at->second;
  for (const uint64_t before = entry.attempts; entry.attempts == before;) {
    if (settled_.wait_until(mutex_, deadline) || entry.attempts != before) continue;
    *why = fault::no_connection;
    return nullptr;
  }
  *why = entry.last;
  return entry.connection;
}

// A server may be full. The thread's earlier calls have ended, or it would have had a connection.
ClientPool::Connection ClientPool::of_another_lane(const Key& key, const Fault& why) const {
  if (!is(why, fault::no_connection)) return nullptr;
  for (unsigned lane = 0; lane < options().client_connections; ++lane) {
    const auto at = entries_.find(Key{key.to, lane});
    if (at != entries_.end() && at->second.connection && at->second.connection->usable())
      return at->second.connection;
  }
  return nullptr;
}

void ClientPool::discard(const Connection& connection) {
  const MutexLock lock(mutex_);
  const Endpoint& to = connection->peer();
  for (auto at = entries_.lower_bound(KeyView{{to.host, to.port}, 0});
       at != entries_.end() && is(at->first.to, {to.host, to.port});) {
    const auto here = at++;
    if (here->second.connection != connection) continue;
    here->second.connection = nullptr;
    drop_if_empty(here);
  }
}

void ClientPool::drop_if_empty(Entries::iterator at) {
  if (!at->second.connection && at->second.attempting == 0) entries_.erase(at);
}

/// Requests hold the connection that they use, so that one with a single owner, the pool, is idle.
void ClientPool::drop_idle() {
  std::size_t idle = 0;
  auto oldest = entries_.end();
  auto oldest_use = Clock::time_point::max();
  for (auto at = entries_.begin(); at != entries_.end(); ++at) {
    const Connection& connection = at->second.connection;
    if (!connection || connection.use_count() > 1) continue;
    ++idle;
    const auto used = connection->last_used();
    if (used >= oldest_use) continue;
    oldest = at;
    oldest_use = used;
  }
  if (idle <= max_idle) return;
  Connection& connection = oldest->second.connection;
  const std::weak_ptr<ClientConnection> weak = connection;
  connection = nullptr;
  connection = weak.lock();  // in use again: a thread had remembered it
  drop_if_empty(oldest);
}

void ClientPool::close_all() {
  std::vector<Connection> connections;
  {
    const MutexLock lock(mutex_);
    ++closed_;
    for (auto at = entries_.begin(); at != entries_.end();) {
      const auto here = at++;
      if (here->second.connection) connections.push_back(std::move(here->second.connection));
      here->second.connection = nullptr;
      drop_if_empty(here);
    }
  }
  for (const Connection& connection : connections) connection->close(fault::shut_down);
}

ClientPool& client_pool() {
  static auto* pool = new ClientPool;  // never destroyed: threads may still call while the process ends
  return *pool;
}

void close_client_connections() {
  client_pool().close_all();
  reply_threads().stop(fault::shut_down);
}

}  // namespace zrsv
