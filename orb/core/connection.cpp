#include "connection.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "endpoint_text.h"
#include "zrsocket.h"

namespace zrsv {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t most_kept = 1 << 20;       // of messages that a peer does not take
constexpr std::size_t most_discarded = 1 << 18;  // of input thrown away at the end
constexpr std::size_t parts_at_once = 64;

bool wait_writable(int fd, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd p{fd, POLLOUT, 0};
    const int n = ::poll(&p, 1, static_cast<int>(std::max<long long>(left, 0)));
    if (n > 0) return true;
    if (n == 0 || errno != EINTR) return false;
  }
}

}  // namespace

// ---- PeerAddress ----

PeerAddress PeerAddress::of(const sockaddr_storage& from) {
  PeerAddress peer;
  if (from.ss_family == AF_INET6) {
    const auto& a = reinterpret_cast<const sockaddr_in6&>(from);
    peer.ipv6 = true;
    peer.port = ntohs(a.sin6_port);
    std::memcpy(peer.octets, &a.sin6_addr, 16);
  } else if (from.ss_family == AF_INET) {
    const auto& a = reinterpret_cast<const sockaddr_in&>(from);
    peer.port = ntohs(a.sin_port);
    std::memcpy(peer.octets, &a.sin_addr, 4);
  }
  return peer;
}

std::string PeerAddress::text() const {
  char text[46] = "?";
  OM_inet_ntop(ipv6 ? ZR_af_inet6 : ZR_af_inet, octets, text, sizeof text);
  return endpoint_text({text, port});
}

// ---- Counting ----

Connection::Connection(ConnectionPool* pool) : pool_(pool), assembler_(pool->options().max_message) {}

bool Connection::try_add_ref() {
  uint32_t count = count_.load(std::memory_order_relaxed);
  while (count != 0)
    if (count_.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel, std::memory_order_relaxed))
      return true;
  return false;
}

void Connection::drop() {
  if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) pool_->give_back(this);
}

void Connection::open(int fd, const PeerAddress& peer) {
  fd_ = fd;
  peer_ = peer;
  minor = 0;
  served = drained_ = false;
  calls_in_turn_ = 0;
  calls_wanted_ = least_calls;
  hung_up_ = broken_ = false;
  in_line = loss_told = false;
  reading_ = Idle;
  registered_ = true;
  const timeval limit{0, std::chrono::microseconds(patience).count()};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  count_.store(1, std::memory_order_release);
}

// ---- Reading ----

bool Connection::begin_read(bool hung_up) {
  if (hung_up) hung_up_.store(true, std::memory_order_relaxed);
  uint8_t state = reading_.load(std::memory_order_relaxed);
  while (!reading_.compare_exchange_weak(state, state == Idle ? Owned : Again, std::memory_order_acq_rel,
                                         std::memory_order_relaxed)) {
  }
  if (state != Idle) return false;
  drained_ = false;
  return true;
}

bool Connection::end_read() {
  uint8_t state = Owned;
  if (reading_.compare_exchange_strong(state, Idle, std::memory_order_acq_rel)) return true;
  reading_.exchange(Owned, std::memory_order_acq_rel);  // reads what the thread that set Again wrote before
  drained_ = false;
  return false;
}

Connection::Input Connection::receive() {
  if (drained_ && !broken()) return Input::None;
  return receive_with(MSG_DONTWAIT);
}

Connection::Input Connection::receive_patiently() { return receive_with(0); }

Connection::Input Connection::receive_with(int flags) {
  if (broken()) return Input::End;
  std::size_t room = 0;
  unsigned char* to = assembler_.room(&room);
  if (!to) return Input::End;
  ssize_t n = 0;
  do n = ::recv(fd_, to, room, flags);
  while (n < 0 && errno == EINTR);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
    drained_ = true;
    return Input::None;
  }
  if (n <= 0) return Input::End;
  assembler_.received(static_cast<std::size_t>(n));
  drained_ = static_cast<std::size_t>(n) < room && !hung_up_.load(std::memory_order_relaxed);
  return Input::Octets;
}

bool Connection::count_call() {
  calls_in_turn_ = more_input() ? 0 : calls_in_turn_ + 1;
  return calls_in_turn_ >= calls_wanted_;
}

void Connection::paused() {
  const bool worth_it = calls_in_turn_ / 4 >= calls_wanted_;
  calls_wanted_ = worth_it ? least_calls : std::min(calls_wanted_ * 2, most_calls);
  calls_in_turn_ = 0;
}

// ---- Sending ----

void Connection::send(unsigned char* message, std::size_t length) {
  std::unique_lock lock(out_mutex_);
  std::size_t sent = 0;
  if (!out_busy_ && out_kept_.size() == 0 && !broken() &&
      !must_fragment(message, length, pool_->options().fragment_size)) {
    const ssize_t n = ::send(fd_, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n == static_cast<ssize_t>(length)) return;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return failed(nullptr);
    if (n > 0) sent = static_cast<std::size_t>(n);
  }
  Pieces pieces(message, length, pool_->options().fragment_size);
  rest_of(pieces.parts(), sent);  // cuts the first, which is the only one when some has been sent
  write_in_turn(lock, &pieces.parts());
}

bool Connection::send_now(const unsigned char* message, std::size_t length) {
  std::unique_lock lock(out_mutex_);
  if (broken()) return false;
  std::size_t sent = 0;
  if (!out_busy_ && out_kept_.size() == 0) {
    const ssize_t n = ::send(fd_, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return failed(nullptr), false;
    if (n > 0) sent = static_cast<std::size_t>(n);
    if (sent == length) return false;
  }
  const bool first = out_kept_.size() == 0;
  if (out_kept_.size() + length > most_kept || !out_kept_.append(message + sent, length - sent))
    return failed("reads no replies"), false;
  return first && !out_busy_;  // a busy sender looks after what was kept before it leaves
}

void Connection::flush() {
  std::unique_lock lock(out_mutex_);
  std::vector<iovec> nothing;
  write_in_turn(lock, &nothing);
}

// Waits until no other thread is sending, then sends what was kept and `parts`, with the lock open while the
// peer is slow.
void Connection::write_in_turn(std::unique_lock<std::mutex>& lock, std::vector<iovec>* parts) {
  out_turn_.wait(lock, [this] { return !out_busy_; });
  out_busy_ = true;
  do {
    Buffer kept;
    std::swap(kept, out_kept_);
    lock.unlock();
    if (kept.size() > 0) parts->insert(parts->begin(), iovec{kept.data(), kept.size()});
    const bool ok = broken() || write_all(parts);
    parts->clear();
    lock.lock();
    if (!ok) failed("takes no reply");
  } while (out_kept_.size() > 0 && !broken());
  out_busy_ = false;
  out_turn_.notify_one();
}

// How long a peer may take for so many octets: the time limit of calls, and as much again for each 60 MiB.
std::chrono::milliseconds Connection::send_limit(std::size_t octets) const {
  const uint64_t limit = pool_->options().timeout_ms ? pool_->options().timeout_ms : 60'000;
  return std::chrono::milliseconds(limit + limit * (octets >> 20) / 60);
}

bool Connection::write_all(std::vector<iovec>* parts) {
  std::size_t octets = 0;
  for (const iovec& part : *parts) octets += part.iov_len;
  const auto deadline = Clock::now() + send_limit(octets);
  for (std::span<iovec> left(*parts); !left.empty();) {
    msghdr message{};
    message.msg_iov = left.data();
    message.msg_iovlen = std::min(left.size(), parts_at_once);
    const ssize_t n = ::sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      left = rest_of(left, static_cast<std::size_t>(n));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (!wait_writable(fd_, deadline)) return false;
    } else if (errno != EINTR) {
      break_off();
      return true;
    }
  }
  return true;
}

// ---- End ----

void Connection::failed(const char* what) {
  if (what && !broken()) OM_log("%s %s: connection closed", peer_.text().c_str(), what);
  break_off();
}

void Connection::break_off() {
  if (!broken_.exchange(true, std::memory_order_acq_rel)) ::shutdown(fd_, SHUT_RDWR);
}

void Connection::say_goodbye(const unsigned char* message, std::size_t length) {
  {
    std::lock_guard lock(out_mutex_);
    // In the middle of another message it would only be taken for a part of it.
    if (!broken() && !out_busy_ && out_kept_.size() == 0)
      ::send(fd_, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    broken_ = true;
  }
  ::shutdown(fd_, SHUT_WR);
  unsigned char bin[4096];
  for (std::size_t thrown = 0; thrown < most_discarded;) {
    const ssize_t n = ::recv(fd_, bin, sizeof bin, MSG_DONTWAIT);
    if (n <= 0) break;
    thrown += static_cast<std::size_t>(n);
  }
}

// ---- ConnectionPool ----

ConnectionPool::~ConnectionPool() {
  for (auto& connection : all_)
    if (connection->fd_ >= 0) ::close(connection->fd_);
}

Connection* ConnectionPool::take(int fd, const PeerAddress& peer) {
  std::lock_guard lock(mutex_);
  if (free_.empty()) {
    free_.reserve(all_.size() + 1);  // so that give_back needs no memory
    all_.push_back(std::make_unique<Connection>(this));
    free_.push_back(all_.back().get());
  }
  Connection* connection = free_.back();
  free_.pop_back();
  connection->open(fd, peer);
  open_.fetch_add(1);
  return connection;
}

void ConnectionPool::give_back(Connection* connection) {
  connection->assembler_.reset();
  connection->out_kept_.clear();
  connection->out_kept_.shrink(0);
  const int fd = std::exchange(connection->fd_, -1);
  {
    std::lock_guard lock(mutex_);
    free_.push_back(connection);
  }
  open_.fetch_sub(1);
  ::close(fd);
}

std::vector<Ref<Connection>> ConnectionPool::all() {
  std::lock_guard lock(mutex_);
  std::vector<Ref<Connection>> open;
  for (auto& connection : all_)
    if (connection->try_add_ref()) open.push_back(Ref<Connection>::adopt(connection.get()));
  return open;
}

}  // namespace zrsv
