// The end of an engine: it stops what runs, says goodbye, and ends its threads.
#include <unistd.h>

#include <algorithm>

#include "requests/gates.h"
#include "serving/engine.h"
#include "serving/inventory.h"

namespace zrsv {

std::vector<std::string> Engine::stop(Clock::time_point deadline) {
  queue_group().deliver_to(nullptr);
  stopping_ = true;
  for (Waiting* waiting : {&waiting_, &hosted_waiting_}) waiting->close();
  refuse(withdraw(nullptr, nullptr));
  if (const uint32_t count = slots_.wait_until_unused(deadline))
    OM_log("shutdown: %u requests still run at the deadline", count);
  std::vector<std::string> still_running = describe_runs(Clock::now());
  for (const std::string& one : still_running) OM_log("shutdown: still runs: %s", one.c_str());
  drain_output(deadline);
  say_goodbye();
  pins_.stop();
  end_threads(std::max(deadline, Clock::now() + std::chrono::milliseconds(200)));
  while (pop_ready()) continue;
  return still_running;
}

void Engine::refuse(Requests requests) {
  Worker worker;
  while (auto request = requests.pop_front()) refuse(worker, *request, "TRANSIENT");
}

// Replies that clients are taking may go out, and those that threads are about to send.
void Engine::drain_output(Clock::time_point deadline) {
  const auto has_output = [this] {
    bool any = false;
    pool_.for_each([&](const auto& connection) {
      any |= (connection->has_output() || connection->has_requests()) && !connection->broken();
    });
    return any;
  };
  while (has_output() && Clock::now() < deadline) {
    const MutexLock lock(end_mutex_);
    end_.wait_until(end_mutex_, Clock::now() + std::chrono::milliseconds(5));
  }
}

// CloseConnection says that what has not been answered was not taken, and may be sent again elsewhere. A client
// with a request in a servant is not told so.
void Engine::say_goodbye() {
  pool_.for_each([](const Ref<Connection>& connection) {
    unsigned char message[giop::header_size];
    giop::write_empty(message, connection->minor, giop::Type::CloseConnection);
    connection->say_goodbye(message, connection->has_requests() ? 0 : sizeof message);
    if (!connection->unregister()) return;
    if (connection->begin_read(false))
      connection->close_socket();  // else its reader has it, until it comes back
    connection->drop();
  });
}

void Engine::end_threads(Clock::time_point deadline) {
  quit_ = true;
  const uint64_t one = 1;
  const MutexLock lock(end_mutex_);
  if (threads_.empty()) return;
  if (::write(wake_, &one, sizeof one) < 0) OM_log("the threads cannot be woken");
  while (ended_.size() != threads_.size() && end_.wait_until(end_mutex_, deadline)) continue;
  for (std::thread& thread : threads_) {
    if (std::find(ended_.begin(), ended_.end(), thread.get_id()) == ended_.end()) {
      thread.detach();  // in a servant; it keeps the engine alive until it comes back
      continue;
    }
    const Unlocked unlocked(end_mutex_);
    thread.join();
  }
  threads_.clear();
}

}  // namespace zrsv
