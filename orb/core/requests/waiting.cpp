#include "requests/waiting.h"

#include "requests/call_chain.h"

namespace zrsv {

bool matches(const ServerRequest& request, const Connection* connection, const uint32_t* id) {
  if (!connection) return true;
  return request.connection.get() == connection &&
         (id ? request.head.id == *id : request.head.response_expected);
}

bool Waiting::add(ServerRequest* request, uint32_t limit) {
  const MutexLock lock(mutex_);
  if (closed_ || count_ >= limit) return false;
  append(std::make_unique<ServerRequest>(std::move(*request)));
  return true;
}

void Waiting::add_released(Requests requests) {
  const MutexLock lock(mutex_);
  while (auto request = requests.pop_front()) append(std::move(request));
}

void Waiting::add_loss(Connection& connection) {
  const MutexLock lock(mutex_);
  line_of(connection).lost = true;
  join(line_of(connection), &connection);
}

void Waiting::append(std::unique_ptr<ServerRequest> request) {
  Connection* const connection = request->connection.get();
  Line& line = connection ? line_of(*connection) : request->waiter->line;
  request->since = Clock::now();
  line.requests.push_back(std::move(request));
  join(line, connection);
  ++count_;
}

void Waiting::join(Line& line, Connection* of) {
  if (line.queued) return;
  line.queued = true;
  if (of) {
    line.of = Ref<Connection>::share(of);
    of->in_line.store(true);
  }
  push(line);
  turns_.fetch_add(1);
}

void Waiting::push(Line& line) {
  line.next = nullptr;
  (first_ ? last_->next : first_) = &line;
  last_ = &line;
}

Line* Waiting::pop() {
  Line* const line = first_;
  if (line) first_ = line->next;
  return line;
}

// Before the last request of a line starts, the line is gone: the next ones of the connection need not wait.
void Waiting::leave(Line& line) {
  line.queued = false;
  turns_.fetch_sub(1);
  if (const Ref<Connection> of = std::move(line.of)) of->in_line.store(false);
}

Waiting::Turn Waiting::next() {
  Turn turn;
  const MutexLock lock(mutex_);
  while (!turn.request && !turn.lost) {
    Line* const line = pop();
    if (!line) break;
    if (std::exchange(line->lost, false)) turn.lost = line->of;
    turn.request = line->requests.pop_front();  // null: it was withdrawn
    if (turn.request) --count_;
    line->requests.empty() ? leave(*line) : push(*line);
  }
  return turn;
}

// A line without requests leaves: the call that it is a part of may go.
template <class Wanted>
Requests Waiting::take_out(Wanted wanted) {
  Requests taken;
  const MutexLock lock(mutex_);
  for (uint32_t left = turns_.load(); left > 0; --left) {
    Line* const line = pop();
    taken.append(line->requests.take_if(wanted));
    line->requests.empty() && !line->lost ? leave(*line) : push(*line);
  }
  count_ -= static_cast<uint32_t>(taken.size());
  return taken;
}

Requests Waiting::withdraw(Connection* connection, const uint32_t* id) {
  const auto wanted = [&](const ServerRequest& request) { return matches(request, connection, id); };
  if (!connection) return take_out(wanted);
  const MutexLock lock(mutex_);
  Requests taken = line_of(*connection).requests.take_if(wanted);
  count_ -= static_cast<uint32_t>(taken.size());
  return taken;
}

Requests Waiting::expired(Clock::time_point since) {
  return take_out([&](const ServerRequest& request) { return request.since < since; });
}

Requests Waiting::nested() {
  return take_out([](const ServerRequest& request) { return leads_back(request.head.chain); });
}

void Waiting::close() {
  const MutexLock lock(mutex_);
  closed_ = true;
}

}  // namespace zrsv
