#include "waiting.h"

namespace zrsv {

bool matches(const ServerRequest& request, const Connection* connection, const uint32_t* id) {
  return (!connection || request.connection.get() == connection) && (!id || request.head.id == *id);
}

bool Waiting::add(ServerRequest* request, uint32_t limit) {
  std::lock_guard lock(mutex_);
  if (closed_ || count_ >= limit) return false;
  append(std::make_unique<ServerRequest>(std::move(*request)));
  return true;
}

void Waiting::add_released(Requests requests) {
  std::lock_guard lock(mutex_);
  for (auto& request : requests) append(std::move(request));
}

void Waiting::add_loss(Ref<Connection> connection) {
  std::lock_guard lock(mutex_);
  auto line = std::make_unique<Line>();
  line->lost = std::move(connection);
  push(std::move(line));
}

void Waiting::append(std::unique_ptr<ServerRequest> request) {
  Connection* const connection = request->connection.get();
  const auto found = line_of_.find(connection);
  if (connection && found != line_of_.end()) {
    found->second->requests.push_back({std::move(request), Clock::now()});
  } else {
    auto line = std::make_unique<Line>();
    line->requests.push_back({std::move(request), Clock::now()});
    if (connection) {
      line->of = Ref<Connection>::share(connection);
      line_of_.emplace(connection, line.get());
      connection->in_line.store(true);
    }
    push(std::move(line));
  }
  ++count_;
}

void Waiting::push(std::unique_ptr<Line> line) {
  lines_.push_back(std::move(line));
  turns_.fetch_add(1);
}

// Before the last request of a line starts, the line is gone: the next ones of the connection need not wait.
void Waiting::end(Line& line) {
  if (!line.of) return;
  line_of_.erase(line.of.get());
  line.of->in_line.store(false);
}

Waiting::Turn Waiting::next() {
  Turn turn;
  std::lock_guard lock(mutex_);
  while (!lines_.empty() && !turn.request && !turn.lost) {
    std::unique_ptr<Line> line = std::move(lines_.front());
    lines_.pop_front();
    turn.lost = std::move(line->lost);
    if (!line->requests.empty()) {  // else they were withdrawn
      turn.request = std::move(line->requests.front().request);
      line->requests.pop_front();
      --count_;
    }
    if (!line->requests.empty()) {
      lines_.push_back(std::move(line));
      continue;
    }
    end(*line);
    turns_.fetch_sub(1);
  }
  return turn;
}

template <class Wanted>
Requests Waiting::take_out(Wanted wanted) {
  Requests taken;
  std::lock_guard lock(mutex_);
  for (auto& line : lines_) {
    std::erase_if(line->requests, [&](Waiter& waiter) {
      if (!wanted(waiter)) return false;
      taken.push_back(std::move(waiter.request));
      return true;
    });
  }
  count_ -= static_cast<uint32_t>(taken.size());
  return taken;
}

Requests Waiting::withdraw(const Connection* connection, const uint32_t* id) {
  return take_out([&](const Waiter& waiter) { return matches(*waiter.request, connection, id); });
}

Requests Waiting::expired(Clock::time_point since) {
  return take_out([&](const Waiter& waiter) { return waiter.since < since; });
}

void Waiting::close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
}

}  // namespace zrsv
