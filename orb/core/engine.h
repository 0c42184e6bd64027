// The threads that read requests and run them.
//
// N + 1 threads wait on one epoll set. The one that gets an event reads the connection, and runs the request that it read itself, after it
// has given reading back, so that no other thread has to be woken for it. At most N run requests at a time: one thread is always left to
// read, to refuse and to close.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "connection.h"
#include "queue_group.h"
#include "server_request.h"

namespace zrsv {

class Engine : public std::enable_shared_from_this<Engine> {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Engine(uint32_t threads);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  /// False when the descriptors or threads cannot be had; stop() cleans up.
  bool start();
  /// Serves an accepted connection. Takes over `fd`; false, and it is closed, when there are too many or the engine stops.
  bool add(int fd, const PeerAddress& peer);
  /// Starts nothing any more, lets running requests finish until `deadline`, says CloseConnection to every client and ends the threads. One
  /// that is still in a servant then is left to itself. Not for threads of the engine.
  void stop(Clock::time_point deadline);
  /// in_process.h.
  const char* call_local(ServerRequest* request, Clock::time_point deadline, Buffer* reply);

 private:
  /// What one thread keeps from request to request.
  struct Worker {
    giop::Header header;
    Buffer message;  // the one just read; its memory goes round with those of the connections
    Buffer reply;
  };
  /// What waits for a thread: requests to run one after another, the end of a connection to report, or its output to send.
  struct Job {
    QueueGroup::Requests requests;
    std::size_t next = 0;
    Ref<Connection> lost;
    Ref<Connection> flush;
  };
  enum class Next { Read, Leave };  // what the reader does after a message: go on reading, or leave, as another one reads now

  // The thread's round.
  void work();
  void wait_for_event(Worker& worker, bool busy);
  void serve(Worker& worker, const Ref<Connection>& connection);
  Next handle(Worker& worker, const Ref<Connection>& connection);
  Next handle_request(Worker& worker, const Ref<Connection>& connection);
  void handle_locate(Worker& worker, const Ref<Connection>& connection, ServerRequest& request);
  void cancel(const Connection& connection, uint32_t id);
  void run(Worker& worker, ServerRequest& request);

  // Reading handed on.
  void pass_on(const Ref<Connection>& connection);
  void push_ready(const Ref<Connection>& connection);
  Ref<Connection> pop_ready();
  void wake();

  // Slots and waiting jobs.
  bool enter();
  void leave();
  void release_slot();
  bool stand_in_line(ServerRequest& request);
  bool must_wait(ServerRequest& request);
  void deliver(QueueGroup::Requests requests);
  void push_job(Job job);
  void run_jobs(Worker& worker);
  void run_job(Worker& worker, Job& job);
  std::unique_ptr<ServerRequest> next_request(Job& job);
  void withdraw(const Connection* connection, const uint32_t* id);

  // Answers of threads that must not wait.
  void refuse(Worker& worker, ServerRequest& request, const char* exception);
  void send_now(const Ref<Connection>& connection, const unsigned char* message, std::size_t length);
  void reject(const Ref<Connection>& connection, const char* what);
  void lose(const Ref<Connection>& connection);
  void report_lost(const Connection& connection);

  // The end.
  void refuse_all_waiting();
  void say_goodbye();
  void end_threads(Clock::time_point deadline);

  const uint32_t slots_;
  ConnectionPool pool_;
  int epoll_ = -1;
  int wake_ = -1;  // eventfd in the epoll set
  std::atomic<bool> stopping_{false};
  std::atomic<bool> quit_{false};

  // A thread that finds nothing to do counts itself idle before it looks a last time; who adds something looks for idle ones afterwards.
  std::atomic<uint32_t> idle_{0};
  std::atomic<bool> wake_pending_{false};

  std::atomic<uint32_t> running_{0};  // slots taken
  std::atomic<uint32_t> ready_count_{0};
  std::mutex ready_mutex_;
  Connection* ready_head_ = nullptr;  // guarded by ready_mutex_; each with a count and the ownership of its reading
  Connection* ready_tail_ = nullptr;

  std::atomic<uint32_t> job_count_{0};
  std::mutex jobs_mutex_;
  std::deque<std::unique_ptr<Job>> jobs_;                // guarded by jobs_mutex_, as all below
  uint32_t waiting_ = 0;                                 // requests in jobs_ that wait for a slot, but for released ones
  std::unordered_map<const Connection*, Job*> in_line_;  // released requests of a connection, not all run yet

  std::mutex end_mutex_;
  std::condition_variable end_;
  uint32_t alive_ = 0;  // guarded by end_mutex_: threads in work()
  std::vector<std::thread> threads_;
};

}  // namespace zrsv
