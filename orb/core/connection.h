// One accepted connection: who owns its reading, what it sends, and when its descriptor may be closed.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "assembler.h"
#include "options.h"
#include "reference.h"

namespace zrsv {

/// Address of a peer in network order, as the hooks and client data want it.
struct PeerAddress {
  unsigned char octets[16] = {};
  bool ipv6 = false;
  uint16_t port = 0;
  static PeerAddress of(const sockaddr_storage& from);
  std::string text() const;
};

class ConnectionPool;

/// The memory of a connection is never freed while its pool lives, it is used again for a later one. So a
/// thread that got an event for a connection that another thread has closed meanwhile finds no count to take,
/// or at worst looks in vain for input on the new one.
class Connection {
 public:
  explicit Connection(ConnectionPool* pool);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Counting. The last drop closes the descriptor, so it is not used again while a request may still send on
  /// it.
  bool try_add_ref();
  void add_ref() { count_.fetch_add(1, std::memory_order_relaxed); }
  void drop();

  int fd() const { return fd_; }
  const PeerAddress& peer() const { return peer_; }

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
  /// Counts a request. True when the client seems to call and wait, again and again: a thread should stay
  /// with it.
  bool count_call();
  /// The client paused: it takes more calls until a thread stays again, unless staying was worth it.
  void paused();
  Assembler& assembler() { return assembler_; }
  Connection* next_ready = nullptr;  // in the engine's ready list, which owns reading then
  std::atomic<uint8_t> minor{0};     // of the last message; read by others at the end
  bool served = false;               // has carried a request

  // ---- Sending: any thread, whole messages ----

  /// Sends a message (its header may be changed), in fragments where it is long. Waits for a slow peer, at
  /// most until the limit for that; then the connection is broken.
  void send(unsigned char* message, std::size_t length);
  /// The same without waiting: what the peer does not take now is kept. True: somebody must call flush().
  bool send_now(const unsigned char* message, std::size_t length);
  /// Sends what was kept; waits as send() does.
  void flush();

  // ---- End ----

  /// Ends the connection as far as others see it; the reader gets an event and finishes it.
  void break_off();
  bool broken() const { return broken_.load(std::memory_order_acquire); }
  /// Says the last word: nothing is sent after `message`, and what the peer has sent is thrown away, so that
  /// closing does not take the message from it.
  void say_goodbye(const unsigned char* message, std::size_t length);
  /// Takes the engine's own count, once. True for the caller that must drop it.
  bool unregister() { return registered_.exchange(false); }
  bool registered() const { return registered_.load(); }

  /// Set before the loss is told: a request that ends later has it told again, for what it has left behind.
  std::atomic<bool> loss_told{false};
  /// Set while requests that were held are delivered one after another: later ones line up behind them.
  std::atomic<bool> in_line{false};

 private:
  friend class ConnectionPool;
  enum Reading : uint8_t { Idle, Owned, Again };

  void open(int fd, const PeerAddress& peer);
  Input receive_with(int flags);
  bool write_all(std::vector<iovec>* parts);
  std::chrono::milliseconds send_limit(std::size_t octets) const;
  void write_in_turn(std::unique_lock<std::mutex>& lock, std::vector<iovec>* parts);
  void failed(const char* what);

  ConnectionPool* const pool_;
  std::atomic<uint32_t> count_{0};
  int fd_ = -1;
  PeerAddress peer_;
  std::atomic<bool> registered_{false};
  std::atomic<bool> broken_{false};

  std::atomic<uint8_t> reading_{Idle};
  std::atomic<bool> hung_up_{false};  // the end of input is near: read until it is seen
  bool drained_ = false;              // the reader's own
  static constexpr uint32_t least_calls = 16, most_calls = 4096;
  uint32_t calls_in_turn_ =
      0;  // the reader's own: requests that came alone, after the reply to the one before
  uint32_t calls_wanted_ = least_calls;
  Assembler assembler_;

  std::mutex out_mutex_;
  std::condition_variable out_turn_;
  bool out_busy_ = false;  // guarded by out_mutex_: a thread waits for the peer; the socket is its own
  Buffer out_kept_;        // guarded by out_mutex_: whole messages, perhaps without the head of the first
};

/// Makes and keeps the connections of an engine.
class ConnectionPool {
 public:
  /// With the options of now: the engine's, whatever becomes of it and them.
  ConnectionPool() : options_(zrsv::options()) {}
  ~ConnectionPool();
  const Options& options() const { return options_; }

  /// A connection over `fd`, registered, with one count for that. The pool closes the descriptor.
  Connection* take(int fd, const PeerAddress& peer);
  void give_back(Connection* connection);
  uint32_t open_connections() const { return open_.load(); }
  /// All that are open.
  std::vector<Ref<Connection>> all();

 private:
  const Options options_;
  std::atomic<uint32_t> open_{0};
  std::mutex mutex_;
  std::vector<std::unique_ptr<Connection>> all_;  // guarded by mutex_
  std::vector<Connection*> free_;                 // guarded by mutex_
};

}  // namespace zrsv
