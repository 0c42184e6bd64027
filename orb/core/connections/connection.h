// One accepted connection: who owns its reading, what it may take from others, and when its descriptor may be
// closed.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/options.h"
#include "connections/assembler.h"
#include "connections/input_watch.h"
#include "connections/output_queue.h"
#include "connections/requests.h"
#include "references/reference.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// Address of a peer in network order, as the hooks and client data want it.
struct PeerAddress {
  unsigned char octets[16] = {};
  bool ipv6 = false;
  uint16_t port = 0;
  static PeerAddress of(const sockaddr_storage& from);
  bool is_loopback() const;
  /// Whom to count together: an address, or the network of 64 bits that an IPv6 address is one of.
  std::array<unsigned char, 17> party() const;
  /// "192.0.2.1:4711". Takes no memory.
  struct Text {
    char octets[64];
    const char* c_str() const { return octets; }
  };
  Text text() const;
};

class Connection;
class ConnectionPool;

/// Who serves connections. Any thread calls; no lock is held, and none may be waited for.
class ConnectionHost {
 public:
  virtual ~ConnectionHost() = default;
  /// The connection, which had paused, is to be read again: its reading is handed over.
  virtual void resume_reading(Connection& connection) = 0;
  /// flush() is to be called when the peer takes more.
  virtual void watch_output(Connection& connection) = 0;
};

/// The memory of a connection is never freed while its pool lives, it is used again for a later one. So a
/// thread that got an event for a connection that another thread has closed meanwhile finds no count to take,
/// or at worst looks in vain for input on the new one.
class Connection {
 public:
  explicit Connection(ConnectionPool* pool);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Counting. After the last drop it is used for another client.
  bool try_add_ref();
  void add_ref() { count_.fetch_add(1, std::memory_order_relaxed); }
  void drop();

  /// For the reader; others use with_socket().
  int fd() const { return fd_; }
  const PeerAddress& peer() const { return peer_; }
  /// Names the client, also when its descriptor is closed and another one's already: the number of the descriptor,
  /// unless that names one of whom requests still run.
  int32_t number() const { return number_; }

  // ---- Reading: one thread owns it at a time ----

  /// An event came. True: the caller owns reading now. False: another thread does, and will look again.
  bool begin_read(bool hung_up);
  /// Gives reading back. False: an event came meanwhile, and the caller still owns it.
  bool end_read();

  enum class Input { Octets, None, End };
  /// At most one recv into the assembler. A short read tells that there is no more, so the next call answers
  /// None without one.
  Input receive();
  /// The same, but waits for octets, for `patience` at most.
  Input receive_patiently();
  static constexpr std::chrono::milliseconds patience{5};
  /// Whether reading must go on without an event.
  bool more_input() const { return !drained_ || assembler_.more(); }

  // The reader's own:
  /// Counts a request. True when the client seems to call and wait, again and again: a thread should be
  /// pinned to it.
  bool count_call();
  /// The client paused: it takes more calls until a thread is pinned to it again, unless that was worth it.
  void paused();
  Assembler& assembler() { return assembler_; }
  Connection* next_ready = nullptr;  // in the engine's ready list, which owns reading then
  std::atomic<uint8_t> minor{0};     // of the last message; read by others at the end
  std::atomic<bool> served{false};   // a request of it has been run
  CodeSets code_sets;                // of the texts of its requests

  // ---- Sending: any thread ----

  /// Sends a whole message with what it has apart, in fragments where it is long. What the peer does not take now is
  /// kept, taken out of `message`, and sent later.
  void send(Buffer* message, Apart apart = {});
  /// The socket can take more.
  void flush();
  bool has_output() const { return !output_.empty(); }
  /// As OutputQueue's.
  template <class Use>
  void with_socket(Use use) {
    output_.with_socket(use);
  }

  // ---- Requests in flight ----

  void begin_request(std::size_t octets) { in_flight_.fetch_add(one_request + octets); }
  void end_request(std::size_t octets) {
    in_flight_.fetch_sub(one_request + octets);
    if (paused_.load()) try_resume();
  }
  /// A request of it waits for a reply of another one, which may have to come over this connection: it does not count
  /// in the share meanwhile.
  void lend() {
    lent_.fetch_add(one_request);
    if (paused_.load()) try_resume();
  }
  void take_back() { lent_.fetch_sub(one_request); }
  bool has_requests() const { return in_flight_.load() >= one_request; }

  // ---- Its share: a connection over it is not read until it is back within ----

  bool over_share() const {
    return in_flight_.load(std::memory_order_relaxed) >=
               most_in_flight_ + lent_.load(std::memory_order_relaxed) ||
           output_.octets() > output_mark || (over_memory() && holds_much());
  }
  /// Octets of it in flight: read, waiting for their turn, or not taken.
  std::size_t holds() const {
    return input_.partial() + in_flight_.load(std::memory_order_relaxed) % one_request + output_.octets();
  }
  /// By the reader: what it has read so far counts.
  void note_input() { input_.waits(assembler_.incomplete(), assembler_.in_fragments()); }
  /// What closing it gives back for sure.
  std::size_t holds_for_itself() const { return input_.partial() + output_.octets(); }
  /// By the watch: gives back the memory that an idle connection keeps for what it reads. True: input came
  /// meanwhile, and the caller owns reading.
  bool trim(Clock::time_point now);
  /// By the reader. True: it must leave, and the reading is handed to the host later.
  bool pause();
  /// True for the caller that ends a pause: the reading is its own.
  bool end_pause() { return paused_.load() && paused_.exchange(false); }
  /// Hands reading to the host when a pause need not last any longer.
  void try_resume();
  /// What a peer may leave untaken before it is read no more.
  static constexpr std::size_t output_mark = 256 << 10;

  // ---- Its time limits ----

  /// By the reader: a message is complete.
  void note_message() { input_.message(); }
  /// Null, or which limit is passed. One thread asks, again and again.
  const char* overdue(Clock::time_point now);
  /// Since when nothing has happened; as far as that thread saw.
  Clock::time_point quiet_since() const { return input_.quiet_since(); }

  // ---- End ----

  /// Ends the connection as far as others see it; the reader gets an event and finishes it.
  void break_off();
  bool broken() const { return broken_.load(std::memory_order_acquire); }
  /// Says the last word, none when it is empty: nothing is sent after it, and what the peer has sent is thrown
  /// away, so that closing does not take the word from it.
  void say_goodbye(const unsigned char* message, std::size_t length);
  /// By the reader, which never gives reading back: closes the descriptor, whatever still runs.
  void close_socket();
  /// Takes the engine's own count, once. True for the caller that must drop it.
  bool unregister() { return registered_.exchange(false); }
  bool registered() const { return registered_.load(); }

  /// Set while requests of it wait for a slot: later ones line up behind them.
  std::atomic<bool> in_line{false};
  Line lines[2];  // one in each Waiting

 private:
  friend class ConnectionPool;
  enum Reading : uint8_t { Idle, Owned, Again };

  void open(int fd, const PeerAddress& peer);
  Input receive_with(int flags);
  bool holds_much() const;

  static constexpr uint64_t one_request = uint64_t{1} << 40;  // the rest of in_flight_ are octets

  ConnectionPool* const pool_;
  std::atomic<uint32_t> count_{0};
  int fd_ = -1;
  int32_t number_ = -1;
  bool departed_ = false;  // guarded by the mutex of the pool, as the next
  Connection* next_free_ = nullptr;
  PeerAddress peer_;
  std::atomic<uint64_t> in_flight_{0}, lent_{0};
  std::atomic<bool> registered_{false};
  std::atomic<bool> broken_{false};

  std::atomic<uint8_t> reading_{Idle};
  std::atomic<bool> hung_up_{false};  // the end of input is near: read until it is seen
  bool drained_ = false;              // the reader's own
  static constexpr uint32_t least_calls = 4, most_calls = 4096;
  uint32_t calls_in_turn_ =
      0;  // the reader's own: requests that came alone, after the reply to the one before
  uint32_t calls_wanted_ = least_calls;
  Assembler assembler_;

  OutputQueue output_;
  const uint64_t most_in_flight_;
  std::atomic<bool> paused_{false};

  InputWatch input_;
};

/// Counts a request of a connection, from the moment that it is read until it is answered or dropped.
class InFlight {
 public:
  InFlight() = default;
  InFlight(Connection& of, std::size_t octets) : of_(&of), octets_(octets) { of.begin_request(octets); }
  InFlight(InFlight&& o) noexcept : of_(std::exchange(o.of_, nullptr)), octets_(o.octets_) {}
  InFlight& operator=(InFlight&& o) noexcept {
    std::swap(of_, o.of_);
    std::swap(octets_, o.octets_);
    return *this;
  }
  ~InFlight() {
    if (of_) of_->end_request(octets_);
  }

 private:
  Connection* of_ = nullptr;
  std::size_t octets_ = 0;
};

/// Makes and keeps the connections of an engine.
class ConnectionPool {
 public:
  /// With the options of now: the engine's, whatever becomes of it and them.
  explicit ConnectionPool(ConnectionHost& host) : host_(host), options_(zrsv::options()) {}
  ~ConnectionPool();
  const Options& options() const { return options_; }
  ConnectionHost& host() const { return host_; }

  /// A connection over `fd`, registered, with one count for that. The pool closes the descriptor, unless this
  /// throws.
  Connection* take(int fd, const PeerAddress& peer);
  /// A connection's last count is gone.
  void give_back(Connection* connection);
  /// Its descriptor is closed, though counts may be left.
  void depart(Connection& connection);
  uint32_t open_connections() const { return open_.load(); }
  uint32_t connections_of(const PeerAddress& peer);
  /// Calls `visit` with each that is open, a count of it held, and no lock.
  template <class Visit>
  void for_each(Visit visit) {
    for (std::size_t i = 0; const Ref<Connection> connection = next_open(&i);) visit(connection);
  }

 private:
  /// The first at or after *index, which is moved past it; null at the end.
  Ref<Connection> next_open(std::size_t* index);
  int32_t number_for(int fd) const ZR_REQUIRES(mutex_);
  void forget(Connection& connection) ZR_REQUIRES(mutex_);

  ConnectionHost& host_;
  const Options options_;
  std::atomic<uint32_t> open_{0};
  Mutex mutex_;
  std::vector<std::unique_ptr<Connection>> all_ ZR_GUARDED_BY(mutex_);
  Connection* free_ ZR_GUARDED_BY(mutex_) = nullptr;
  uint32_t departed_ ZR_GUARDED_BY(mutex_) = 0;
  std::map<std::array<unsigned char, 17>, uint32_t> parties_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zrsv
