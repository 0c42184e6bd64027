// A connection to a server: requests of several threads out, their replies in. There is no thread of its own:
// of those that wait for a reply one reads for all, and hands that role on when its own reply is there. Where none
// waits, but replies are to come, the reply threads read.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "base/clock.h"
#include "base/counting.h"
#include "base/fault.h"
#include "base/thread_semaphore.h"
#include "connections/assembler.h"
#include "connections/reply_threads.h"
#include "references/reference.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// A reply, whole: its octets, and a stream over them that stands at the body.
struct Reply {
  Buffer message;
  giop::ReplyHead head;
  CDR body{};

  /// Reads head and body out of `message`. Null on success, else what is wrong.
  const char* open(const giop::Header& header);
};

/// A call as its connection sees it. While it is Waiting the connection's mutex guards what is written to it,
/// and it must stay where it is; the caller's otherwise.
struct ClientCall {
  enum class State : uint8_t {
    Idle,
    Waiting,
    Answered,  // `reply` is filled
    Unheard,   // the server closed before it took the request: it may be sent again
    Failed     // with `fault`
  };

  uint32_t id = 0;
  uint8_t minor = 2;  // GIOP version of its request
  std::atomic<State> state{State::Idle};
  Deferred* deferred = nullptr;  // told when it is settled; null: a thread waits
  bool asleep = false;           // its thread sleeps on `wake`, which will be posted once for that
  uint64_t left_to = 0;  // where its request ends among those left for another thread to send; 0: it was not
  /// The time, as its thread last read the clock. The library has not waited for anything since, so this is
  /// still good for time limits; reading the clock at every step would cost more than the steps.
  Clock::time_point now;
  Fault fault;
  Reply reply;
  Semaphore wake;
  std::atomic<bool> reads{false};    // its thread was woken to read for all
  ClientCall* next_woken = nullptr;  // to be woken after it
};

class ClientConnection final : public ReplySource {
 public:
  enum class Sent {
    Yes,
    Late,  // the time limit passed
    Dead   // the connection is of no use, and the server cannot have taken the request
  };

  /// Takes over `fd`, a connected, blocking socket.
  ClientConnection(Endpoint peer, unsigned lane, int fd);
  ~ClientConnection() override;
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;

  const Endpoint& peer() const { return peer_; }
  unsigned lane() const { return lane_; }
  /// False once it is of no use.
  bool usable() const { return usable_.load(std::memory_order_relaxed); }
  /// The same. A connection that was idle for a while is looked at first.
  bool alive(Clock::time_point now);
  Clock::time_point last_used() const { return last_used_.load(std::memory_order_relaxed); }

  /// Sends one whole request message, in fragments when it is over the limit for that; the message is as it
  /// was afterwards. With a reply expected, Yes leaves the call Waiting.
  Sent send(CDR* message, ClientCall* call, bool reply_expected, Deadline deadline);
  /// Returns when the call is no longer Waiting, true; or at the deadline, false: it is forgotten then.
  bool receive(ClientCall* call, Deadline deadline);
  /// A deferred call was sent: sees to it that somebody reads.
  void attend();
  /// Reads what is there, unless somebody else does.
  void take_replies() override;
  int descriptor() const override { return fd_; }
  /// Gives the call up: tells the server, and drops its reply should it still come.
  void forget(ClientCall* call);
  /// Fails the calls that wait. Any thread, at any time.
  void close(Fault why);

 private:
  enum class Got { Octets, Nothing, End };
  class Hold;
  bool sleep(ClientCall* call, Deadline deadline);
  void wake(ClientCall* call, bool to_read) ZR_REQUIRES(mutex_);
  Sent take_turn(ClientCall* call, Deadline deadline) ZR_REQUIRES(mutex_);
  void enlist(ClientCall* call) ZR_REQUIRES(mutex_);
  bool leave(const CDR& message, ClientCall* call, Deadline deadline) ZR_REQUIRES(mutex_);
  bool is_left(const ClientCall& call) const ZR_REQUIRES(mutex_) {
    return usable_ && call.left_to > octets_sent_;
  }
  bool is_cut() const ZR_REQUIRES(mutex_) { return cut_to_ > octets_sent_; }
  void send_left(Deadline deadline, Clock::time_point* now) ZR_REQUIRES(mutex_);
  void write_left(Clock::time_point* now) ZR_REQUIRES(mutex_);
  void took(std::size_t octets) ZR_REQUIRES(mutex_);
  bool wake_writer() ZR_REQUIRES(mutex_);
  void pass_writing_on(Deadline deadline, Clock::time_point* now) ZR_REQUIRES(mutex_);
  void end_writing(Deadline deadline, Clock::time_point* now);
  void lead(ClientCall* own, Deadline deadline);
  void set_receive_limit(Deadline deadline, Clock::time_point now);
  Got receive_some(int flags);  // the reader's
  void stop_leading(const ClientCall& own) ZR_REQUIRES(mutex_);
  void pass_reading_on() ZR_REQUIRES(mutex_);
  void take_input(Got got) ZR_REQUIRES(mutex_);
  void take_messages() ZR_REQUIRES(mutex_);
  const char* take_message(const giop::Header& header) ZR_REQUIRES(mutex_);
  [[gnu::cold]] void log_bad_input(const giop::Header& header, const char* wrong) const;
  void settle(ClientCall* call, ClientCall::State state) ZR_REQUIRES(mutex_);
  bool unlink(ClientCall* call) ZR_REQUIRES(mutex_);
  [[gnu::cold]] void fail_all(Fault why, bool may_send_again) ZR_REQUIRES(mutex_);
  [[gnu::cold]] void give_up(ClientCall* call) ZR_REQUIRES(mutex_);
  void cancel(const ClientCall& call) ZR_REQUIRES(mutex_);
  [[gnu::cold]] void retire() ZR_REQUIRES(mutex_);

  const Counting<Left::Connections> counted_;
  const Counting<Left::Descriptors> counted_socket_;
  const Endpoint peer_;
  const unsigned lane_;
  const int fd_;

  // Set by the thread that writes a message, one at a time, and cleared by it without the mutex.
  std::atomic<bool> writing_{false};
  // Threads that saw it set, or are about to look; and one more while requests are left to be sent.
  std::atomic<uint32_t> write_waiters_{0};
  // Set by the thread that reads for all, with or without the mutex, and cleared with it, so that those who
  // sleep miss no turn. The assembler and limit_ are that thread's own.
  std::atomic<bool> reading_{false};
  std::atomic<Clock::time_point> last_used_{Clock::now()};

  Mutex mutex_;
  Condition write_free_;
  // Small requests that came while another thread wrote, for whoever writes next; how many octets were left so and how
  // many of these were sent; and how many must be before anything else is, as a request among them may have begun to go.
  Buffer left_ ZR_GUARDED_BY(mutex_);
  bool any_left_ ZR_GUARDED_BY(mutex_) = false;  // counted in write_waiters_
  uint64_t octets_left_ ZR_GUARDED_BY(mutex_) = 0, octets_sent_ ZR_GUARDED_BY(mutex_) = 0;
  uint64_t cut_to_ ZR_GUARDED_BY(mutex_) = 0;
  Buffer going_;  // of the thread that writes
  // Whom to wake when the mutex is free, in turn.
  ClientCall* first_woken_ ZR_GUARDED_BY(mutex_) = nullptr;
  ClientCall* last_woken_ ZR_GUARDED_BY(mutex_) = nullptr;
  std::atomic<bool> usable_{true};  // written with mutex_ held
  std::vector<ClientCall*> waiting_ ZR_GUARDED_BY(mutex_);
  uint32_t deferred_ ZR_GUARDED_BY(mutex_) = 0;           // of these, calls that no thread waits for
  bool known_ ZR_GUARDED_BY(mutex_) = false;              // to the reply threads
  bool watched_ ZR_GUARDED_BY(mutex_) = false;            // by them
  std::deque<uint32_t> cancelled_ ZR_GUARDED_BY(mutex_);  // ids whose reply may still come
  Reply incoming_ ZR_GUARDED_BY(mutex_);                  // the one being taken; its memory goes round
  Assembler assembler_;
  Clock::duration limit_{0};  // the SO_RCVTIMEO in force; 0: none
};

}  // namespace zrsv
