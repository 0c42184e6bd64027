#include "connections/connection.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/counting.h"
#include "zrsocket.h"

namespace zrsv {

namespace {

constexpr std::size_t most_discarded = 1 << 18;  // of input thrown away at the end
constexpr std::size_t little = 64 << 10;         // of memory, that any connection may hold

// A large message is received to its last octet and no further: whether more has come is not known then, and who
// waits for its reply would be taken for one that does not.
bool nothing_waits(int fd) {
  char octet = 0;
  return ::recv(fd, &octet, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
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

bool PeerAddress::is_loopback() const {
  static constexpr unsigned char ipv6_loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  return ipv6 ? std::memcmp(octets, ipv6_loopback, sizeof octets) == 0 : octets[0] == 127;
}

std::array<unsigned char, 17> PeerAddress::party() const {
  std::array<unsigned char, 17> party{};
  std::memcpy(party.data(), octets, ipv6 ? 8 : 4);
  party.back() = ipv6;
  return party;
}

PeerAddress::Text PeerAddress::text() const {
  char host[46] = "?";
  OM_inet_ntop(ipv6 ? ZR_af_inet6 : ZR_af_inet, octets, host, sizeof host);
  Text text;
  std::snprintf(text.octets, sizeof text.octets, ipv6 ? "[%s]:%u" : "%s:%u", host, unsigned{port});
  return text;
}

// ---- Counting ----

Connection::Connection(ConnectionPool* pool)
    : pool_(pool),
      assembler_(pool->options().max_message),
      most_in_flight_(std::min<uint64_t>(pool->options().share, 1 << 20) * one_request) {}

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
  served = false;
  drained_ = false;
  code_sets = unsaid_code_sets;
  calls_in_turn_ = 0;
  calls_wanted_ = least_calls;
  hung_up_ = broken_ = false;
  in_line = false;
  in_flight_ = 0;
  paused_ = false;
  output_.open(fd);
  input_.open();
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
  note_input();
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
  const auto count = static_cast<std::size_t>(n);
  const bool all = count < room || (assembler_.ends_with(count) && nothing_waits(fd_));
  drained_ = all && !hung_up_.load(std::memory_order_relaxed);
  assembler_.received(count);
  return Input::Octets;
}

bool Connection::count_call() {
  calls_in_turn_ = more_input() ? 0 : calls_in_turn_ + 1;
  return calls_in_turn_ >= calls_wanted_;
}

void Connection::paused() {
  const bool worth_it = calls_in_turn_ / 2 >= calls_wanted_;  // as many as it took to get there
  calls_wanted_ = worth_it ? least_calls : std::min(calls_wanted_ * 2, most_calls);
  calls_in_turn_ = 0;
}

// ---- Sending ----

void Connection::send(Buffer* message, Apart apart) {
  if (broken()) return;
  switch (output_.send(message, pool_->options().fragment_size, std::move(apart))) {
    case OutputQueue::Sent::All:
      return;
    case OutputQueue::Sent::Rest:
      return pool_->host().watch_output(*this);
    case OutputQueue::Sent::Failed:
      return break_off();
  }
}

void Connection::flush() {
  if (!has_output()) return;
  if (output_.flush() == OutputQueue::Sent::Failed) return break_off();
  if (paused_.load()) try_resume();
}

// ---- Its share ----

// Who brings it back within its share looks for the pause afterwards: one of the two sees the other.
bool Connection::pause() {
  over_memory() ? note_input() : input_.waits(0, false);
  paused_ = true;
  return (over_share() && !broken()) || !paused_.exchange(false);
}

bool Connection::holds_much() const {
  return holds() > std::max(little, memory_budget() / std::max(pool_->open_connections(), 1u));
}

bool Connection::trim(Clock::time_point now) {
  if (!input_.has_gone_quiet(now) || !begin_read(false)) return false;
  assembler_.trim();
  return !end_read();
}

void Connection::try_resume() {
  if ((broken() || !over_share()) && end_pause()) pool_->host().resume_reading(*this);
}

const char* Connection::overdue(Clock::time_point now) {
  const Options& limits = pool_->options();
  const OutputQueue::Pace pace{std::chrono::milliseconds(limits.write_timeout_ms), InputWatch::least_rate,
                               output_mark};
  if (const char* slow = output_.too_slow(now, pace)) return slow;
  return input_.overdue(now, limits, has_requests() || has_output());
}

// ---- End ----

void Connection::break_off() {
  if (broken_.exchange(true)) return;
  with_socket([](int fd) { ::shutdown(fd, SHUT_RDWR); });
  if (paused_.load()) try_resume();
}

void Connection::say_goodbye(const unsigned char* message, std::size_t length) {
  broken_ = true;
  output_.finish(message, length);
  with_socket([](int fd) {
    unsigned char bin[4096];
    for (std::size_t thrown = 0; thrown < most_discarded;) {
      const ssize_t n = ::recv(fd, bin, sizeof bin, MSG_DONTWAIT);
      if (n <= 0) break;
      thrown += static_cast<std::size_t>(n);
    }
  });
}

void Connection::close_socket() {
  pool_->depart(*this);
  assembler_.reset();
  output_.close();
}

// ---- ConnectionPool ----

ConnectionPool::~ConnectionPool() {
  for (auto& connection : all_) connection->output_.close();
}

Connection* ConnectionPool::take(int fd, const PeerAddress& peer) {
  const MutexLock lock(mutex_);
  if (!free_) {
    all_.push_back(std::make_unique<Connection>(this));
    free_ = all_.back().get();
  }
  ++parties_[peer.party()];
  Connection* const connection = std::exchange(free_, free_->next_free_);
  connection->number_ = number_for(fd);
  connection->departed_ = false;
  connection->next_free_ = nullptr;
  connection->open(fd, peer);
  count_left(Left::Connections, 1);
  open_.fetch_add(1);
  return connection;
}

// The same number would name two clients, of which the earlier one is to be reported yet.
int32_t ConnectionPool::number_for(int fd) const {
  constexpr int32_t step = 1 << 20;  // more than descriptors
  const auto is_taken = [&](int32_t number) ZR_REQUIRES(mutex_) {
    return std::any_of(all_.begin(), all_.end(), [&](const auto& connection) {
      return connection->departed_ && connection->number_ == number;
    });
  };
  int32_t number = fd;
  while (departed_ > 0 && is_taken(number) && number < INT32_MAX - step) number += step;
  return number;
}

void ConnectionPool::forget(Connection& connection) {
  open_.fetch_sub(1);
  const auto party = parties_.find(connection.peer_.party());
  if (--party->second == 0) parties_.erase(party);
}

void ConnectionPool::depart(Connection& connection) {
  const MutexLock lock(mutex_);
  if (std::exchange(connection.departed_, true)) return;
  ++departed_;
  forget(connection);
}

void ConnectionPool::give_back(Connection* connection) {
  connection->assembler_.reset();
  connection->output_.close();
  count_left(Left::Connections, -1);
  const MutexLock lock(mutex_);
  std::exchange(connection->departed_, false) ? static_cast<void>(--departed_) : forget(*connection);
  connection->next_free_ = std::exchange(free_, connection);
}

uint32_t ConnectionPool::connections_of(const PeerAddress& peer) {
  const MutexLock lock(mutex_);
  const auto party = parties_.find(peer.party());
  return party == parties_.end() ? 0 : party->second;
}

Ref<Connection> ConnectionPool::next_open(std::size_t* index) {
  const MutexLock lock(mutex_);
  while (*index < all_.size())
    if (Connection* const connection = all_[(*index)++].get(); connection->try_add_ref())
      return Ref<Connection>::adopt(connection);
  return {};
}

}  // namespace zrsv
