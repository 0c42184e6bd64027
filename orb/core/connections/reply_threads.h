// The threads that take the replies of calls for which no thread of the program waits. As a rule it is one: it watches
// the connections that have such calls, reads where no other thread reads, keeps time limits, and finishes the calls.
// While finishing one may block, another takes its place. They start with the first such call and end with the ORB.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/fault.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// A connection on which replies come, made by std::make_shared.
class ReplySource : public std::enable_shared_from_this<ReplySource> {
 public:
  virtual ~ReplySource() = default;
  /// Its socket, the same as long as it lives.
  virtual int descriptor() const = 0;
  /// Reads what is there, unless somebody else does. Any thread.
  virtual void take_replies() = 0;
};

/// A call that no thread waits for.
class Deferred {
 public:
  Deferred() = default;
  Deferred(const Deferred&) = delete;
  Deferred& operator=(const Deferred&) = delete;

 protected:
  ~Deferred() = default;

 private:
  friend class ReplyThreads;

  // All are called without a lock, by one thread at a time.
  /// Gives the call up for that reason, unless it is settled already.
  virtual void give_up(Fault why) noexcept = 0;
  /// It is settled or given up: sends it again (arm), or tells that it is over.
  virtual void finish() noexcept = 0;
  /// Whether finish() may wait for something.
  virtual bool may_block() const = 0;

  enum class State : uint8_t { Sending, Sent, GivingUp, Settled, Finishing, SendingAgain, Over };
  using Deadlines = std::set<std::pair<Deadline, Deferred*>>;

  // Guarded by the mutex of ReplyThreads.
  State state_ = State::Sending;
  bool early_ = false;  // settled before its sender was through
  Deadline deadline_;
  Deadlines::node_type place_;  // among the deadlines, while it is not there
  Deferred* next_ = nullptr;    // behind it in the line of those that are settled
};

class ReplyThreads {
 public:
  /// Before the call is sent first. False when there is no thread. Throws std::bad_alloc.
  bool begin(Deferred& call, Deadline deadline);
  /// Before each attempt to send it: what an earlier one came to does not count.
  void attempt(Deferred& call);
  /// It was sent: it is to be finished when it is settled, or at its deadline. False when the threads are at their end.
  bool arm(Deferred& call);
  /// By whoever settles it, under the lock that guards that.
  void settled(Deferred& call);
  /// By its finish(), the last thing but to tell. Who waits for it may free it then.
  void over(Deferred& call);
  bool is_over(const Deferred& call);
  void wait_for_any(const std::vector<const Deferred*>& calls);
  /// Nothing is done with the call afterwards, but that settled() may come.
  void withdraw(Deferred& call);

  /// From now on the connection may be watched, and is forgotten before it goes. Throws std::bad_alloc.
  void know(ReplySource& source);
  void forget(ReplySource& source);
  /// Has it read as soon as there is something, once.
  void watch(ReplySource& source);

  /// Gives all calls up and ends the threads. They may start again.
  void stop(Fault why);

 private:
  bool open() ZR_REQUIRES(mutex_);
  bool start_thread() ZR_REQUIRES(mutex_);
  void work();
  void finish_first() ZR_REQUIRES(mutex_);
  void watch_input() ZR_REQUIRES(mutex_);
  void take_events(int epoll, int wake, Deadline until) ZR_REQUIRES(mutex_);
  void read(ReplySource* at);
  void give_up_until(Deadline last, Fault why) ZR_REQUIRES(mutex_);
  void leave_deadlines(Deferred& call) ZR_REQUIRES(mutex_);
  void line_up(Deferred& call) ZR_REQUIRES(mutex_);
  void leave_line(Deferred& call) ZR_REQUIRES(mutex_);
  void hand_over() ZR_REQUIRES(mutex_);
  void wake_watcher() ZR_REQUIRES(mutex_);

  static constexpr unsigned most_threads = 8;

  Mutex mutex_;  // taken while a connection's or a local call's is held, never the other way round
  Condition work_, over_;
  std::vector<std::thread> threads_ ZR_GUARDED_BY(mutex_);
  unsigned idle_ ZR_GUARDED_BY(mutex_) = 0;
  bool quit_ ZR_GUARDED_BY(mutex_) = false;
  bool watching_ ZR_GUARDED_BY(mutex_) = false;  // one of them waits for input
  std::thread::id watcher_ ZR_GUARDED_BY(mutex_);
  Deadline watches_until_ ZR_GUARDED_BY(mutex_);
  int epoll_ ZR_GUARDED_BY(mutex_) = -1;
  int wake_ ZR_GUARDED_BY(mutex_) = -1;  // an eventfd in it, with a null pointer
  std::map<ReplySource*, std::weak_ptr<ReplySource>> known_ ZR_GUARDED_BY(mutex_);
  Deferred::Deadlines deadlines_ ZR_GUARDED_BY(mutex_);  // of what was sent
  Deferred* first_ ZR_GUARDED_BY(mutex_) = nullptr;      // settled, to be finished
  Deferred* last_ ZR_GUARDED_BY(mutex_) = nullptr;
};

/// The process's.
ReplyThreads& reply_threads();

}  // namespace zrsv
