#include "serving/engine.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>

#include "base/options.h"
#include "base/process_life.h"
#include "references/named_keys.h"
#include "requests/call_chain.h"
#include "requests/gates.h"
#include "requests/upcall.h"
#include "wire/key_secret.h"

namespace zrsv {

namespace {

constexpr std::size_t keep = large_from;  // memory that a thread keeps in each of its buffers
constexpr unsigned turns_in_a_row = 64;   // messages and reads of one connection before others are looked at
constexpr unsigned ready_in_a_row = 16;   // connections from the ready list before new events are looked at

constexpr unsigned turns_while_looking = 2;  // of these, as others count on a thread that looks
constexpr unsigned turns_without_call = 16;  // reads that bring no call, before a thread is unpinned

// Nobody cancels the threads of the engine. The system, once told, leaves its book-keeping of that out of
// each call.
void never_cancelled() {
  int before = 0;
  ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  ::pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &before);
}

/// The rest of the descriptors are the program's.
uint32_t most_connections(const Options& options) {
  if (options.max_connections != 0) return options.max_connections;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= UINT32_MAX) return UINT32_MAX;
  return std::max(static_cast<uint32_t>(limit.rlim_cur / 5 * 4), 1u);
}

void reuse(Buffer* kept, Buffer* used) {
  used->clear();
  used->shrink(keep);
  *kept = std::move(*used);
}

}  // namespace

// ---- Start ----

Engine::Engine(uint32_t slots)
    : slots_(slots),
      pool_(*this),
      most_connections_(most_connections(pool_.options())),
      pins_(pool_.options().pinned_threads) {}

Engine::~Engine() {
  for (const int fd : {epoll_, wake_, hosted_work_}) {
    if (fd < 0) continue;
    ::close(fd);
    count_left(Left::Descriptors, -1);
  }
}

bool Engine::start() {
  epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
  wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  hosted_work_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  for (const int fd : {epoll_, wake_, hosted_work_}) count_left(Left::Descriptors, fd >= 0);
  epoll_event event{EPOLLIN | EPOLLET, {.ptr = nullptr}};
  if (epoll_ < 0 || wake_ < 0 || hosted_work_ < 0 || ::epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event) != 0)
    return false;
  queue_group().deliver_to([this](Requests requests) { deliver(std::move(requests)); });
  try {
    pins_.start([this](Connection& connection) {
      watch_input(connection, true);
      pass_on(connection);
    });
    const std::size_t count = slots_.count() + 1, most = count + pins_.count() + Slots::most_lent;
    const MutexLock lock(end_mutex_);
    threads_.reserve(most);
    ended_.reserve(most);
    while (threads_.size() < count) threads_.emplace_back([self = shared_from_this()] { self->work(); });
  } catch (const std::exception& e) {
    OM_log("a thread of the ORB cannot be started: %s", e.what());
    return false;
  }
  return true;
}

void Engine::add(int fd, const PeerAddress& peer) try {
  if (!has_room(peer)) {
    ::close(fd);
    return;
  }
  Connection* connection = pool_.take(fd, peer);
  epoll_event event{EPOLLIN | EPOLLRDHUP | EPOLLET, {.ptr = connection}};
  if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0) return;
  OM_log("%s refused: no memory to watch it", peer.text().c_str());
  if (connection->unregister()) connection->drop();
} catch (const std::exception& e) {
  OM_log("%s refused: %s", peer.text().c_str(), e.what());
  ::close(fd);
}

// ---- The thread's round ----

Reference* Engine::Worker::find_target(std::string_view key) {
  // What a name led to has a key of its own, which may be a name as well.
  if (!target || !target->is_local() || !same_key(target->key(), key)) {
    target = {};  // nobody else's, as a rule: its memory goes to the one that comes
    target = Reference::from_key(key);
  }
  if (!target) target = named_object(key);
  return target.get();
}

void Engine::work() {
  const Counting<Left::Threads> counted;
  never_cancelled();
  Worker worker;
  while (!quit_.load(std::memory_order_relaxed)) {
    try {
      round(worker);
    } catch (const std::exception& e) {
      OM_log("a thread of the ORB goes on after: %s", e.what());
    }
  }
  look_away(worker);
  const uint64_t one = 1;
  if (::write(wake_, &one, sizeof one) < 0) OM_log("a thread cannot be woken");  // the next one leaves
  const MutexLock lock(end_mutex_);
  ended_.push_back(std::this_thread::get_id());
  end_.notify_all();
}

void Engine::round(Worker& worker) {
  worker.roams = true;
  look(worker);
  if (!worker.slot && waiting_.any()) worker.slot = slots_.take();
  if (worker.slot) run_waiting(worker);
  const bool ready = ready_count_.load() > 0;
  if (!ready || ++worker.ready_in_turn % ready_in_a_row == 0) return wait_for_event(worker, !ready);
  if (Ref<Connection> connection = pop_ready()) serve(worker, connection);
}

// One event at a time: a second one would have to wait until the first request has run.
void Engine::wait_for_event(Worker& worker, bool block) {
  idle_.fetch_add(1);
  look_away(worker);
  if (ready_count_.load() > 0 || (waiting_.any() && slots_.any_free())) block = false;
  epoll_event event{};
  const int n = ::epoll_wait(epoll_, &event, 1, block ? -1 : 0);
  idle_.fetch_sub(1);
  look(worker);
  if (n <= 0) return;
  if (!event.data.ptr) {
    wake_pending_.store(false);
    return;
  }
  auto* connection = static_cast<Connection*>(event.data.ptr);
  if (!connection->try_add_ref()) return;
  const Ref<Connection> counted = Ref<Connection>::adopt(connection);
  take_event(worker, counted, event.events);
}

void Engine::take_event(Worker& worker, const Ref<Connection>& connection, uint32_t events) {
  if (connection->has_output()) look_away(worker);
  if (events & EPOLLOUT) connection->flush();
  if ((events & ~EPOLLOUT) == 0) return;
  const bool hung_up = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
  worker.may_pin = false;
  if (hung_up && connection->end_pause()) return lose(connection);  // what it sent last is not wanted
  if (connection->begin_read(hung_up)) serve(worker, connection);
  if (worker.may_pin) pin_to(worker, connection);
}

// ---- A thread pinned to a connection ----

void Engine::pin_to(Worker& worker, const Ref<Connection>& connection) {
  if (worker.slot) run_waiting(worker);
  Pins::Pin* const pin = pins_.take(*connection);
  if (!pin) return;
  worker.roams = false;
  look_away(worker);
  if (connection->begin_read(false)) {
    if (has_threads(threads_to_pin_, pins_.taken())) {
      watch_input(*connection, false);
      worker.turns_left = turns_without_call;
      while (serve_pinned(worker, connection, pin)) continue;
    } else {
      connection->paused();
      pass_on(*connection);
    }
  }
  pins_.leave(pin);
}

// Called with the ownership of reading. False: the thread leaves, and the connection is back in the epoll
// set.
bool Engine::serve_pinned(Worker& worker, const Ref<Connection>& connection, Pins::Pin* pin) {
  const bool leave = quit_ || connection->has_output();  // output is sent by who watches the connection
  const Connection::Input input = leave ? Connection::Input::None : connection->receive_patiently();
  if (input == Connection::Input::End) return lose(connection), false;
  if (input == Connection::Input::Octets) {
    worker.pin = pin;
    serve(worker, connection);
    const bool stays = std::exchange(worker.pin, nullptr) != nullptr;
    if (worker.slot) run_waiting(worker);
    if (!stays) return false;
    if (pin->running()) return pin->end_run();
    if (!connection->begin_read(false))
      return watch_input(*connection, true), false;  // another's now, or lost
    if (--worker.turns_left > 0) return true;
  }
  connection->paused();
  watch_input(*connection, true);
  pass_on(*connection);
  return false;
}

// Watched anew, a connection reports the input that has come meanwhile. The system may lack the memory for
// that: then it is broken off, which its next reader sees.
void Engine::watch_input(Connection& connection, bool on) {
  epoll_event event{EPOLLIN | EPOLLRDHUP | EPOLLET, {.ptr = &connection}};
  if (on && !connection.registered()) return;
  if (::epoll_ctl(epoll_, on ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, connection.fd(), &event) == 0) {
    if (on && connection.has_output()) watch_output(connection);
    return;
  }
  if (!on || errno == EEXIST) return;
  OM_log("%s: no memory to watch it: connection closed", connection.peer().text().c_str());
  connection.break_off();
}

// A connection that a thread is pinned to is not in the set: that thread sees the output, or who puts it back does.
void Engine::watch_output(Connection& connection) {
  bool failed = false;
  connection.with_socket([&](int fd) {
    epoll_event event{EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, {.ptr = &connection}};
    failed = ::epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event) != 0 && errno != ENOENT;
  });
  if (failed) connection.break_off();
}

void Engine::resume_reading(Connection& connection) { push_ready(Ref<Connection>::share(&connection)); }

// Called with the ownership of the connection's reading, which whatever goes wrong before it is given back leaves
// with this thread.
void Engine::serve(Worker& worker, const Ref<Connection>& connection) {
  try {
    read(worker, connection);
  } catch (const std::exception& e) {
    OM_log("%s: %s: connection closed", connection->peer().text().c_str(), e.what());
    lose(connection);
  }
}

void Engine::read(Worker& worker, const Ref<Connection>& connection) {
  for (unsigned turns = 0; turns < turns_in_a_row; ++turns) {
    if (worker.looks && (turns == turns_while_looking || connection->assembler().incomplete() >= large_from))
      look_away(worker);
    if (over_memory()) [[unlikely]]
      connection->note_input();
    if (connection->over_share() && connection->pause()) return;
    worker.header = {};
    switch (connection->assembler().next(&worker.header, &worker.message)) {
      case Assembler::Result::Message:
        if (handle(worker, connection) == Next::Leave) return;
        break;
      case Assembler::Result::Bad:
        if (worker.header.size > pool_.options().max_message)
          OM_log("%s sent a message of %u octets, over -ORBMaxMessage %u", connection->peer().text().c_str(),
                 worker.header.size, pool_.options().max_message);
        return reject(worker.header.minor, connection, connection->assembler().error());
      case Assembler::Result::NeedMore:
        // Who is pinned to a connection waits for the rest of a message there.
        const bool wait = worker.pin && connection->assembler().incomplete() > 0;
        const Connection::Input input = wait ? connection->receive_patiently() : connection->receive();
        if (input == Connection::Input::End) return lose(connection);
        if (input == Connection::Input::None && connection->end_read()) return;
    }
  }
  push_ready(connection);  // others want to be read, too
}

Engine::Next Engine::handle(Worker& worker, const Ref<Connection>& connection) {
  connection->note_message();
  connection->minor = worker.header.minor;
  switch (worker.header.type) {
    case giop::Type::Request:
      return handle_request(worker, connection);
    case giop::Type::LocateRequest:
      if (answer_locate(worker, connection)) return Next::Read;
      break;
    case giop::Type::CancelRequest:
      if (cancel(worker, connection)) return Next::Read;
      break;
    case giop::Type::MessageError:
      OM_log("%s could not read a reply", connection->peer().text().c_str());
      lose(connection);
      return Next::Leave;
    case giop::Type::CloseConnection:
      lose(connection);
      return Next::Leave;
    default:
      reject(connection->minor, connection, "a message that only servers send");
      return Next::Leave;
  }
  reject(connection->minor, connection, "malformed header of a message");
  return Next::Leave;
}

Engine::Next Engine::handle_request(Worker& worker, const Ref<Connection>& connection) {
  ServerRequest request;
  std::swap(request.message, worker.message);
  if (!request.read_head(worker.header)) {
    reject(connection->minor, connection, "malformed header of a request");
    return Next::Leave;
  }
  request.use_code_sets(&connection->code_sets);
  request.in_flight = InFlight(
      *connection, request.message.size());  // before the look: say_goodbye looks the other way round
  if (stopping_.load()) return Next::Read;   // CloseConnection will tell the client that it was not taken
  worker.turns_left = turns_without_call;
  request.connection.borrow(connection.get());
  Next next = Next::Read;
  try {
    request.target.borrow(worker.find_target(request.head.key));
    next = admit(worker, request);
  } catch (const std::bad_alloc&) {  // it has not started, and is still here
    OM_log("%s: no memory for a request", connection->peer().text().c_str());
    refuse(worker, request, "NO_MEMORY");
  }
  reuse(&worker.message, &request.message);
  return next;
}

// The gates, in order: is there such an object, is the queue group open, is a slot free.
Engine::Next Engine::admit(Worker& worker, ServerRequest& request) {
  if (!request.target) {
    refuse(worker, request, "OBJECT_NOT_EXIST");
    return Next::Read;
  }
  if (!request.target->is_local()) [[unlikely]] {
    answer_now(worker, request, [&] { answer_forward(request, *request.target); });
    return Next::Read;
  }
  if (!request.target->is_internal() && !queue_group().is_open()) {
    const QueueGroup::Admission admission = queue_group().hold(&request, queue_limit(request));
    if (admission == QueueGroup::Admission::Held) return Next::Read;
    if (admission == QueueGroup::Admission::Full) {
      tell_of_full(request);
      refuse(worker, request, "TRANSIENT");
      return Next::Read;
    }
  }
  if (Slot slot = slot_to_run_now(request)) {
    worker.slot = std::move(slot);
    look_away(worker);
    give_reading_back(worker, *request.connection);
    run(worker, request, After::GiveBack);
    return Next::Leave;
  }
  if (!enqueue(&request)) refuse(worker, request, "TRANSIENT");
  return Next::Read;
}

// For a slot, or for the end of a hold.
void Engine::tell_of_full(const ServerRequest& request) const {
  if (stopping_.load()) return;
  OM_log("operation %s of %s refused: as many requests wait as may (-ORBQueue %u%s)", request.head.operation,
         request.connection ? request.connection->peer().text().c_str() : "this process",
         pool_.options().queue, over_memory() ? ", and -ORBMaxMemory is used up" : "");
}

// With a slot. The mark comes before the look: lose() looks the other way round.
void Engine::run(Worker& worker, ServerRequest& request, After after) {
  if (request.connection && !request.connection->served.load(std::memory_order_relaxed))
    request.connection->served = true;
  if (request.orphaned()) return;
  look_away(worker);
  execute(request, this, pool_.options().max_message, &worker.reply);
  if (in_forked_child()) end_forked_child();
  if (request.waits.wanted) [[unlikely]]
    return park(worker, request);
  // Looked at before the reply goes: a client that is lost after it has left nothing behind that is not reported.
  const bool left_behind = request.connection && !request.connection->registered();
  Apart apart = Apart::take(&request.cdr);  // never of a call of this process
  apart.keep(&request.message);
  Buffer reply = Buffer::take(&request.cdr);
  if (request.waiter) return request.waiter->finish(std::move(reply));
  const bool small = !apart && reply.size() < counted_from;
  if (small && worker.roams) look(worker);
  if (after == After::GiveBack && small) give_back_early(worker);
  if (request.connection && request.head.response_expected)
    send_reply(*request.connection, &reply, std::move(apart));
  if (left_behind) report_loss(*request.connection);
  reuse(&worker.reply, &reply);
}

// The servant is done, and the reply small. While the thread sends, another one may run a request.
void Engine::give_back_early(Worker& worker) {
  worker.slot.give_back();
  if (waiting_.any()) worker.slot = slots_.take();
}

// An answer that there was no memory for is the connection's end.
void Engine::send_reply(Connection& connection, Buffer* reply, Apart apart) {
  reply->size() > 0 ? connection.send(reply, std::move(apart)) : connection.break_off();
}

void Engine::park(Worker& worker, ServerRequest& request) {
  if (!keep_at_gate(&request, pool_.options().queue)) refuse(worker, request, "TRANSIENT");
}

bool Engine::answer_locate(Worker& worker, const Ref<Connection>& connection) {
  ServerRequest request;
  std::swap(request.message, worker.message);
  if (!request.read_head(worker.header)) return false;
  const Reference* const target = worker.find_target(request.head.key);
  worker.reply.lend(&request.cdr);
  const auto status = !target              ? giop::LocateStatus::UnknownObject
                      : target->is_local() ? giop::LocateStatus::ObjectHere
                                           : giop::LocateStatus::ObjectForward;
  bool whole = giop::begin_locate_reply(&request.cdr, request.minor, request.head.id, status);
  if (status == giop::LocateStatus::ObjectForward) whole = whole && write_reference(&request.cdr, target);
  if (!whole) request.cdr.out_next = request.cdr.out_base;
  if (whole) giop::end_message(&request.cdr);
  Buffer reply = Buffer::take(&request.cdr);
  send_reply(*connection, &reply);
  reuse(&worker.reply, &reply);
  reuse(&worker.message, &request.message);
  return true;
}

bool Engine::cancel(Worker& worker, const Ref<Connection>& connection) {
  CDR cdr{};
  OM_cdr_open_decode(&cdr, worker.message.data() + giop::header_size, worker.header.size,
                     giop::needs_swap(worker.header));
  uint32_t id = 0;
  if (!OM_cdr_unsigned_long(&cdr, &id)) return false;
  connection->assembler().cancel(id);
  withdraw(connection.get(), &id);
  return true;
}

// ---- Reading, handed on ----

void Engine::pass_on(Connection& connection) {
  if (connection.broken() || connection.more_input() || !connection.end_read())
    push_ready(Ref<Connection>::share(&connection));
}

// Before a request runs. A thread that is pinned to its client keeps reading, unless the watch takes that from
// it; a client that sends more without waiting for the reply is none to be pinned to.
void Engine::give_reading_back(Worker& worker, Connection& connection) {
  worker.may_pin = connection.count_call();
  if (worker.pin && !connection.more_input()) return worker.pin->begin_run();
  if (std::exchange(worker.pin, nullptr)) watch_input(connection, true);
  pass_on(connection);
}

void Engine::push_ready(Ref<Connection> connection) {
  {
    const MutexLock lock(ready_mutex_);
    Connection* last = connection.release();
    last->next_ready = nullptr;
    (ready_head_ ? ready_tail_->next_ready : ready_head_) = last;
    ready_tail_ = last;
    ready_count_.fetch_add(1);
  }
  wake();
}

// What is left was told of when it came, or is when the last one who looks looks away.
Ref<Connection> Engine::pop_ready() {
  const MutexLock lock(ready_mutex_);
  if (!ready_head_) return {};
  Ref<Connection> first = Ref<Connection>::adopt(ready_head_);
  ready_head_ = ready_head_->next_ready;
  ready_count_.fetch_sub(1);
  return first;
}

// One wake-up at a time is on its way; the thread that it wakes wakes the next one where there is more to do.
void Engine::wake() {
  if (looking_.load() > 0 || idle_.load() == 0 || wake_pending_.exchange(true)) return;
  const uint64_t one = 1;
  if (::write(wake_, &one, sizeof one) < 0) wake_pending_.store(false);
}

// Between two requests a thread will look for more to do in a moment. Before it goes anywhere else it looks away, and sees
// then what has been left to it.
void Engine::look(Worker& worker) {
  if (!std::exchange(worker.looks, true)) looking_.fetch_add(1);
}

void Engine::look_away(Worker& worker) {
  if (!std::exchange(worker.looks, false) || looking_.fetch_sub(1) > 1) return;
  if (ready_count_.load() > 0 || (waiting_.any() && slots_.any_free())) wake();
}

// ---- Slots and jobs ----

// Nobody overtakes those that wait, or their own connection's released requests.
Slot Engine::slot_to_run_now(const ServerRequest& request) {
  if (request.connection && request.connection->in_line.load(std::memory_order_relaxed)) return {};
  if (waiting_.any() || hosted_.load(std::memory_order_relaxed)) return {};
  Slot slot = slots_.take();
  if (slot && stopping_.load()) slot.give_back();
  return slot;
}

bool Engine::enqueue(ServerRequest* request) {
  if (waits_for_itself(*request)) return false;
  if (!line().add(request, queue_limit(*request))) return tell_of_full(*request), false;
  tell_of_work();
  return true;
}

// With too much in flight already, larger ones do not wait.
uint32_t Engine::queue_limit(const ServerRequest& request) const {
  const bool large = request.message.capacity() >= counted_from;
  return large && over_memory() ? 0 : pool_.options().queue;
}

Waiting& Engine::line() { return hosted_.load() ? hosted_waiting_ : waiting_; }

void Engine::tell_of_work() {
  const uint64_t one = 1;
  if (hosted_waiting_.any() && ::write(hosted_work_, &one, sizeof one) < 0)
    OM_log("the program's loop cannot be told of a request");
  if (waiting_.any() && slots_.any_free()) wake();
}

// Called by the queue group.
void Engine::deliver(Requests requests) {
  Requests nested = requests.take_if(
      [](const ServerRequest& request) { return request.waiter && request.waiter->caller_in_upcall; });
  while (auto request = nested.pop_front()) LocalCall::hand_back(std::move(request));
  line().add_released(std::move(requests));
  tell_of_work();
}

// With a slot, which it gives back when nothing waits.
void Engine::run_waiting(Worker& worker) {
  do {
    while (waiting_.any() && !slots_.overdrawn()) {
      const Waiting::Turn turn = waiting_.next();
      if (ready_count_.load() > 0 || (waiting_.any() && slots_.any_free())) wake();
      if (turn.request) run(worker, *turn.request);
      if (turn.lost) tell_of_loss(worker, *turn.lost);
    }
    worker.slot.give_back();
    if (waiting_.any()) worker.slot = slots_.take();
  } while (worker.slot);
}

// Takes back requests that have not started: of a connection that is lost, those that want an answer; or all.
Requests Engine::withdraw(Connection* connection, const uint32_t* id) {
  Requests taken = queue_group().withdraw(connection, id);
  for (Waiting* waiting : {&waiting_, &hosted_waiting_}) taken.append(waiting->withdraw(connection, id));
  if (!connection) taken.append(withdraw_from_gates());
  return taken;
}

// ---- Slots that are lent ----

bool Engine::lend() {
  if (!slots_.lend([this](uint32_t lent) { return has_threads(threads_to_lend_, lent); })) {
    refuse_nested();
    return false;
  }
  if (waiting_.any()) wake();
  return true;
}

// A thread more for each that lends, or is pinned, as it is not there for others. They stay until the end.
bool Engine::has_threads(std::atomic<uint32_t>& more, uint32_t wanted) {
  if (more.load(std::memory_order_relaxed) >= wanted) return true;
  const MutexLock lock(end_mutex_);
  if (quit_.load() || stopping_.load()) return false;
  try {
    for (; more.load() < wanted; more.fetch_add(1))
      threads_.emplace_back([self = shared_from_this()] { self->work(); });
  } catch (const std::exception& e) {
    OM_log("the ORB cannot have another thread: %s", e.what());
    return false;
  }
  return true;
}

// No slot is lent any more, so a call of this process may wait for this very request, and all slots for such calls.
bool Engine::waits_for_itself(const ServerRequest& request) const {
  if (request.head.chain.empty() || slots_.kept_by_waiting() == 0 || !leads_back(request.head.chain))
    return false;
  char chain[400];
  describe_chain(request.head.chain, chain, sizeof chain);
  OM_log("%u calls of servants wait for replies, the most that may: %s is refused, which came of %s",
         slots_.waiting(), request.head.operation, chain);
  return true;
}

void Engine::refuse_nested() {
  Requests nested = waiting_.nested();
  Worker worker;
  while (auto request = nested.pop_front()) {
    waits_for_itself(*request);
    refuse(worker, *request, "TRANSIENT");
  }
}

// ---- A program with a loop of its own ----

int Engine::host_work() {
  hosted_.store(true);
  return hosted_work_;
}

void Engine::end_hosting() {
  if (!hosted_.exchange(false)) return;
  Requests requests;
  while (hosted_waiting_.any()) {
    Waiting::Turn turn = hosted_waiting_.next();
    if (turn.request) requests.push_back(std::move(turn.request));
    if (turn.lost) waiting_.add_loss(*turn.lost);
  }
  deliver(std::move(requests));
}

// The descriptor is emptied before the last look, and who adds something fills it afterwards.
void Engine::perform_work() {
  const Slot slot = slots_.take_past_the_limit();
  const Waiting::Turn turn = hosted_waiting_.next();
  uint64_t count = 0;
  if (!hosted_waiting_.any() && ::read(hosted_work_, &count, sizeof count) > 0) tell_of_work();
  Worker worker;
  if (turn.request) run(worker, *turn.request);
  if (turn.lost) tell_of_loss(worker, *turn.lost);
}

// ---- Refusals ----

template <class Answer>
void Engine::answer_now(Worker& worker, ServerRequest& request, Answer&& answer) {
  if (!request.connection || !request.head.response_expected) return;
  worker.reply.lend(&request.cdr);
  answer();
  if (request.cdr.out_next != request.cdr.out_base) giop::end_message(&request.cdr);
  Buffer reply = Buffer::take(&request.cdr);
  send_reply(*request.connection, &reply);
  reuse(&worker.reply, &reply);
}

void Engine::refuse(Worker& worker, ServerRequest& request, const char* exception) {
  if (request.waiter) return request.waiter->finish({}, exception);
  answer_now(worker, request, [&] { answer_exception(request, exception); });
}

void Engine::reject(uint8_t minor, const Ref<Connection>& connection, const char* what) {
  OM_log("%s sent bad input (%s): connection closed", connection->peer().text().c_str(), what);
  unsigned char message[giop::header_size];
  giop::write_empty(message, minor, giop::Type::MessageError);
  connection->say_goodbye(message, sizeof message);
  lose(connection);
}

// By the thread that owns reading, which is never given back: nothing of this connection is started any more.
void Engine::lose(const Ref<Connection>& connection) {
  if (!connection->unregister()) return;
  // A forked child may have the socket too, and it would stay in the set.
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, connection->fd(), nullptr);
  connection->close_socket();
  withdraw(connection.get(), nullptr);
  if (connection->served || connection->has_requests()) report_loss(*connection);
  connection->drop();
}

void Engine::report_loss(Connection& connection) {
  if (stopping_.load()) return;
  line().add_loss(connection);
  tell_of_work();
}

void Engine::tell_of_loss(Worker& worker, Connection& connection) {
  look_away(worker);
  const Upcall upcall;
  PeerAddress peer = connection.peer();
  try {
    if (_call_disconnect_cpp_) _call_disconnect_cpp_(connection.number(), peer.octets, peer.ipv6);
  } catch (...) {
    OM_log("%s: exception past the disconnect hook", peer.text().c_str());
  }
}

}  // namespace zrsv
