// The threads that read requests and run them.
//
// N + 1 threads wait on one epoll set. The one that gets an event reads the connection, and runs the request
// that it read itself, after it has given reading back: no other thread has to be woken for it. At most N
// threads run requests at a time, so one is always left to read, to refuse and to close. A thread more is started
// for each that is pinned to a connection (pinning.h).
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/counting.h"
#include "base/memory.h"
#include "base/slots.h"
#include "connections/connection.h"
#include "connections/pinning.h"
#include "requests/client_request.h"
#include "requests/queue_group.h"
#include "requests/server_request.h"
#include "requests/waiting.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

class Engine : public std::enable_shared_from_this<Engine>, public SlotLender, private ConnectionHost {
 public:
  explicit Engine(uint32_t slots);
  ~Engine() override;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  /// False when the descriptors or threads cannot be had; stop() cleans up.
  bool start();
  /// Serves an accepted connection. Takes over `fd`, and closes it when there are too many or no memory.
  void add(int fd, const PeerAddress& peer);
  /// Starts nothing any more, lets running requests finish until `deadline`, says CloseConnection to every
  /// client of which no request runs, and ends the threads. One that is still in a servant then is left to
  /// itself. Not for threads of the engine. What still runs at the deadline, a request a text.
  std::vector<std::string> stop(Clock::time_point deadline);
  /// Drops who passes a time limit. To be called every `watch_period()`, by one thread; waits for nobody.
  void look_after(Clock::time_point now);
  std::chrono::milliseconds watch_period() const;
  /// From now on requests and the losses of clients wait for perform_work. The descriptor is readable while one
  /// does.
  int host_work();
  /// The threads run them again.
  void end_hosting();
  bool work_pending() const { return hosted_waiting_.any(); }
  /// Runs one of them on the calling thread, or nothing when none waits.
  void perform_work();
  /// The request of this thread waits for a reply until take_back() with the result. True: its slot is another's
  /// meanwhile. False: no more slots are lent.
  bool lend() override;
  void take_back(bool lent) override { slots_.take_back(lent); }
  /// call_in_process (in_process.h).
  Fault call_local(ServerRequest& request, ClientRequest& call);
  /// call_in_process_later (in_process.h).
  Fault call_local_later(ServerRequest& request, ClientRequest& call, std::shared_ptr<LocalCall> waiter);

 private:
  /// What one thread keeps from request to request.
  struct Worker {
    giop::Header header;
    Buffer message;  // the one just read; its memory goes round with those of the connections
    Buffer reply;
    Ref<Reference> target;  // of the last request: the next one is for the same object as a rule
    /// What the key names, there until the next call; null when this process never minted such a key.
    Reference* find_target(std::string_view key);
    Slot slot;
    bool roams = false;          // it serves whatever comes, and is not pinned
    bool looks = false;          // it is one of looking_
    bool may_pin = false;        // the connection just served is one to be pinned to
    Pins::Pin* pin = nullptr;    // while it is pinned to the connection that it serves
    unsigned turns_left = 0;     // that may bring no call, while it is pinned
    unsigned ready_in_turn = 0;  // connections from the ready list
  };
  /// What the reader does after a message: read on, or leave, as reading is another's now or at its end.
  enum class Next { Read, Leave };
  /// What becomes of the slot once the servant is done.
  enum class After { KeepSlot, GiveBack };

  // The thread's round, and the road of a request.
  void work();
  void round(Worker& worker);
  void wait_for_event(Worker& worker, bool block);
  void serve(Worker& worker, const Ref<Connection>& connection);
  void read(Worker& worker, const Ref<Connection>& connection);
  void pin_to(Worker& worker, const Ref<Connection>& connection);
  bool serve_pinned(Worker& worker, const Ref<Connection>& connection, Pins::Pin* pin);
  void watch_input(Connection& connection, bool on);
  void take_event(Worker& worker, const Ref<Connection>& connection, uint32_t events);
  Next handle(Worker& worker, const Ref<Connection>& connection);
  Next handle_request(Worker& worker, const Ref<Connection>& connection);
  Next admit(Worker& worker, ServerRequest& request);
  void run(Worker& worker, ServerRequest& request, After after = After::KeepSlot);
  void give_back_early(Worker& worker);
  [[gnu::cold]] void park(Worker& worker, ServerRequest& request);
  [[gnu::cold]] static bool make_lasting(ServerRequest& request, ClientRequest& call);
  Fault park_and_await(ServerRequest& request, bool in_upcall, Clock::time_point deadline, Buffer* reply);
  bool answer_locate(Worker& worker, const Ref<Connection>& connection);
  bool cancel(Worker& worker, const Ref<Connection>& connection);

  // Reading, handed on to another thread where there is more.
  void pass_on(Connection& connection);
  void give_reading_back(Worker& worker, Connection& connection);
  void push_ready(Ref<Connection> connection);
  void resume_reading(Connection& connection) override;
  void watch_output(Connection& connection) override;
  Ref<Connection> pop_ready();
  void wake();
  void look(Worker& worker);
  void look_away(Worker& worker);

  // Slots, and what waits for one.
  bool has_threads(std::atomic<uint32_t>& more, uint32_t wanted);
  bool waits_for_itself(const ServerRequest& request) const;
  Slot slot_to_run_now(const ServerRequest& request);
  bool enqueue(ServerRequest* request);
  Waiting& line();
  uint32_t queue_limit(const ServerRequest& request) const;
  void tell_of_work();
  void deliver(Requests requests);
  void run_waiting(Worker& worker);
  Requests withdraw(Connection* connection, const uint32_t* id);
  Fault await(LocalCall& call, Clock::time_point deadline, Buffer* reply);

  // Answers of threads that must not wait for the peer.
  template <class Answer>
  void answer_now(Worker& worker, ServerRequest& request, Answer&& answer);
  [[gnu::cold]] void refuse(Worker& worker, ServerRequest& request, const char* exception);
  [[gnu::cold]] void tell_of_full(const ServerRequest& request) const;
  void send_reply(Connection& connection, Buffer* reply, Apart apart = {});
  [[gnu::cold]] void reject(uint8_t minor, const Ref<Connection>& connection, const char* what);
  [[gnu::cold]] void lose(const Ref<Connection>& connection);
  [[gnu::cold]] void report_loss(Connection& connection);
  void tell_of_loss(Worker& worker, Connection& connection);
  bool has_room(const PeerAddress& peer);

  void relieve(Clock::time_point now);
  template <class Wanted>
  void close_longest_idle(Wanted wanted);
  void close_if_idle(const Ref<Connection>& connection);
  void refuse(Requests requests);
  [[gnu::cold]] void refuse_nested();
  void drain_output(Clock::time_point deadline);
  void say_goodbye();
  void end_threads(Clock::time_point deadline);

  const Counting<Left::Objects> counted_;
  Slots slots_;
  ConnectionPool pool_;
  const uint32_t most_connections_;
  Pins pins_;
  int epoll_ = -1;
  int hosted_work_ = -1;  // an eventfd, readable while hosted_waiting_ has any
  std::atomic<bool> hosted_{false};
  int wake_ = -1;  // an eventfd in the epoll set, with a null pointer
  std::atomic<bool> stopping_{false};
  std::atomic<bool> quit_{false};

  // A thread that found nothing to do counts itself idle before it looks a last time, and who adds something
  // looks for idle threads afterwards: one of the two sees the other.
  std::atomic<uint32_t> idle_{0};
  // Threads that will soon look for more to do, whatever comes: neither idle, nor in a servant, nor busy with much input
  // or output. While there is one nobody has to be woken; who ceases to be one looks afterwards.
  std::atomic<uint32_t> looking_{0};
  std::atomic<bool> wake_pending_{false};
  // Beside the first ones; written with end_mutex_ held.
  std::atomic<uint32_t> threads_to_lend_{0}, threads_to_pin_{0};
  std::atomic<uint32_t> ready_count_{0};
  Waiting waiting_{0};
  Waiting hosted_waiting_{1};  // for perform_work

  // Of the thread that looks after the limits.
  Clock::time_point over_memory_since_;
  MemoryReturn memory_return_;

  Mutex ready_mutex_;
  // Each with a count and the ownership of its reading.
  Connection* ready_head_ ZR_GUARDED_BY(ready_mutex_) = nullptr;
  Connection* ready_tail_ ZR_GUARDED_BY(ready_mutex_) = nullptr;

  Mutex end_mutex_;
  Condition end_;  // a thread ended
  std::vector<std::thread::id> ended_ ZR_GUARDED_BY(end_mutex_);
  std::vector<std::thread> threads_ ZR_GUARDED_BY(end_mutex_);  // once started
};

}  // namespace zrsv
