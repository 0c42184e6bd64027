#include "connections/client_connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>
#include <span>

#include "base/options.h"
#include "connections/reply_threads.h"
#include "wire/cdr_chain.h"

namespace zrsv {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

// A connection that was idle for longer than this is looked at before it is used: servers close idle ones.
constexpr auto trusted_idle = std::chrono::seconds(1);
// Ids of given-up calls that are remembered. A server that never answers those must not cost memory.
constexpr std::size_t max_cancelled = 1024;
// How far SO_RCVTIMEO may be over the time that is left, so that it is not set anew for each call.
constexpr auto limit_slack = milliseconds(10);
// Requests of up to so many octets are left for another thread that writes, up to so many octets together; a thread
// sends so often for others, and looks so often, in milliseconds, who else could.
constexpr std::size_t small_request = 4096, most_left = 64 << 10;
constexpr unsigned turns_for_others = 4;
constexpr int moment_ms = 1;

/// The time of the last tick of the system's clock, some milliseconds old at most: a third of the price.
Clock::time_point coarse_now() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return Clock::time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

std::size_t size_of(const CDR& message) {
  return static_cast<std::size_t>(message.out_next - message.out_base);
}

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

enum class Written { All, Part, Nothing, Dead };  // Part, Nothing: the time limit passed

/// What the system takes at once of the parts; -1 with errno.
ssize_t write_some(int fd, std::span<iovec> parts) {
  constexpr int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
  if (parts.size() == 1)
    return ::send(fd, parts[0].iov_base, parts[0].iov_len, flags);  // cheaper than sendmsg
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = std::min<std::size_t>(parts.size(), 1024);
  return ::sendmsg(fd, &message, flags);
}

/// Writes all parts, which are used up by it. *now is read anew when it had to wait.
Written write_parts(int fd, std::span<iovec> parts, Deadline deadline, Clock::time_point* now) {
  bool begun = false;
  while (!parts.empty()) {
    const ssize_t n = write_some(fd, parts);
    if (n >= 0) {
      begun = true;
      parts = rest_of(parts, static_cast<std::size_t>(n));
      continue;
    }
    if (errno == EINTR) continue;
    if (!would_block(errno)) return Written::Dead;
    pollfd poll_fd{fd, POLLOUT, 0};
    const int ready = ::poll(&poll_fd, 1, poll_timeout(deadline));
    *now = Clock::now();
    if (ready == 0) return begun ? Written::Part : Written::Nothing;
  }
  return Written::All;
}

/// A message on its way out, cut into fragments where it must be. The message is as it was when this goes.
class Outgoing {
 public:
  Outgoing(unsigned char* message, std::size_t size, const ZR_cdr_apart& apart)
      : message_(message), whole_(io_vectors_of(message, size, apart)) {
    const uint32_t limit = options().fragment_size;
    if (!must_fragment(message, size, limit)) return;
    std::memcpy(header_, message, sizeof header_);
    fragments_.emplace(message, size, limit);
  }
  ~Outgoing() {
    if (fragments_) std::memcpy(message_, header_, sizeof header_);
  }
  bool is_small() const {
    return !fragments_ && whole_[1].iov_len == 0 && whole_[0].iov_len <= small_request;
  }
  Outgoing(const Outgoing&) = delete;
  Outgoing& operator=(const Outgoing&) = delete;

  Written write(int fd, Deadline deadline, Clock::time_point* now) {
    const std::span whole(whole_.data(), whole_[1].iov_len == 0 ? 1 : whole_.size());
    return write_parts(fd, fragments_ ? std::span(fragments_->parts()) : whole, deadline, now);
  }

 private:
  unsigned char* message_;
  IoVectors whole_;
  unsigned char header_[giop::header_size];
  std::optional<Fragments> fragments_;
};

}  // namespace

/// Holds the mutex, and wakes those for whom something was done meanwhile when it is free.
class ZR_SCOPED_CAPABILITY ClientConnection::Hold {
 public:
  explicit Hold(ClientConnection& of) ZR_ACQUIRE(of.mutex_) : of_(of) { of_.mutex_.lock(); }
  ~Hold() ZR_RELEASE() {
    ClientCall* next = std::exchange(of_.first_woken_, nullptr);
    of_.mutex_.unlock();
    while (ClientCall* const call = next) {
      next = call->next_woken;
      call->wake.post();  // the last that is done to it
    }
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  ClientConnection& of_;
};

const char* Reply::open(const giop::Header& header) {
  giop::open_message(&body, header, message.data());
  return giop::read_reply(&body, header.minor, &head) ? nullptr : "malformed reply header";
}

ClientConnection::ClientConnection(Endpoint peer, unsigned lane, int fd)
    : peer_(std::move(peer)), lane_(lane), fd_(fd), assembler_(options().max_message) {}

ClientConnection::~ClientConnection() {
  if (known_) reply_threads().forget(*this);
  ::close(fd_);
}

bool ClientConnection::alive(Clock::time_point now) {
  if (!usable_.load(std::memory_order_relaxed)) return false;
  if (now - last_used() <= trusted_idle) return true;
  const Hold hold(*this);
  if (usable_ && !reading_.exchange(true)) {
    take_input(receive_some(MSG_DONTWAIT));
    pass_reading_on();
  }
  return usable_;
}

ClientConnection::Sent ClientConnection::send(CDR* message, ClientCall* call, bool reply_expected,
                                              Deadline deadline) {
  Outgoing outgoing(message->out_base, static_cast<std::size_t>(message->out_next - message->out_base),
                    message->apart);
  call->left_to = 0;
  {
    const Hold hold(*this);
    const bool waits = reply_expected && !call->deferred;
    if (waits && outgoing.is_small() && leave(*message, call, deadline)) return Sent::Yes;
    if (const Sent turn = take_turn(call, deadline); turn != Sent::Yes) return turn;
    // Waiting from before the first octet is out: the reply may be read by another thread.
    if (reply_expected) enlist(call);
    writing_.store(true, std::memory_order_relaxed);
  }
  const Written written = outgoing.write(fd_, deadline, &call->now);
  last_used_.store(call->now, std::memory_order_relaxed);
  if (written == Written::All) return end_writing(deadline, &call->now), Sent::Yes;

  const Hold hold(*this);
  // Before anybody writes behind a part of a message. Other calls are not failed here: their replies may have arrived
  // before the break, and their threads see.
  if (written != Written::Nothing) retire();
  writing_ = false;
  pass_writing_on(deadline, &call->now);
  if (call->state == ClientCall::State::Answered) return Sent::Yes;
  if (unlink(call)) call->state = ClientCall::State::Idle;
  return written == Written::Dead ? Sent::Dead : Sent::Late;
}

/// Waits until this thread may write. Yes: it may.
ClientConnection::Sent ClientConnection::take_turn(ClientCall* call, Deadline deadline) {
  while (usable_ && (writing_ || is_cut())) {
    if (!writing_) {
      send_left(deadline, &call->now);
      if (is_cut() && call->now >= deadline) return Sent::Late;
      continue;
    }
    ++write_waiters_;
    const bool in_time = !writing_ || write_free_.wait_until(mutex_, deadline);
    --write_waiters_;
    call->now = Clock::now();
    // Late, but free: the wake-up may have been this thread's, so it takes the turn.
    if (!in_time && writing_) return Sent::Late;
  }
  return usable_ ? Sent::Yes : Sent::Dead;
}

void ClientConnection::enlist(ClientCall* call) {
  if (call->deferred && !known_) {
    reply_threads().know(*this);
    known_ = true;
  }
  waiting_.push_back(call);
  deferred_ += call->deferred != nullptr;
  call->state.store(ClientCall::State::Waiting, std::memory_order_relaxed);
}

/// While another thread writes a small request is left for that one, and this thread waits for the reply only. False: it
/// is to send itself.
bool ClientConnection::leave(const CDR& message, ClientCall* call, Deadline deadline) {
  const std::size_t size = size_of(message);
  if (!usable_ || !(writing_ || any_left_) || left_.size() > most_left || !left_.reserve(size)) return false;
  waiting_.reserve(waiting_.size() + 1);
  ++write_waiters_;  // who ends writing from now on looks
  if (!writing_ && left_.size() == 0) return --write_waiters_, false;
  if (std::exchange(any_left_, true)) --write_waiters_;
  left_.append(message.out_base, size);
  octets_left_ += size;
  call->left_to = octets_left_;
  enlist(call);
  send_left(deadline, &call->now);
  return true;
}

/// Sends what was left, unless another thread writes. Who does that for others does it a few times only, and hands it on
/// to one of those then.
void ClientConnection::send_left(Deadline deadline, Clock::time_point* now) {
  for (unsigned turns = 0; usable_ && !writing_ && left_.size() > 0; ++turns) {
    if (turns >= turns_for_others && wake_writer()) return;
    if (turns > 0 && *now >= deadline) return;
    write_left(now);
  }
}

/// One send; where there is no room it waits for a moment.
void ClientConnection::write_left(Clock::time_point* now) {
  writing_ = true;
  std::swap(going_, left_);
  ssize_t n = 0;
  bool dead = false;
  {
    const Unlocked unlocked(mutex_);
    n = ::send(fd_, going_.data(), going_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    const bool full = n < 0 && would_block(errno);
    dead = n < 0 && !full && errno != EINTR;
    if (full) {
      pollfd poll_fd{fd_, POLLOUT, 0};
      ::poll(&poll_fd, 1, moment_ms);
      *now = Clock::now();
    }
  }
  writing_ = false;
  write_free_.notify_one();
  if (dead) retire();
  took(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
}

/// Of what is going so many octets went; the rest comes before what others have left meanwhile.
void ClientConnection::took(std::size_t octets) {
  octets_sent_ += octets;
  going_.consume(octets);
  if (going_.size() > 0) {
    cut_to_ = octets_sent_ + going_.size();
    if (!going_.append(left_.data(), left_.size())) retire();
    std::swap(going_, left_);
  }
  going_.clear();
  if (left_.size() == 0 && std::exchange(any_left_, false)) --write_waiters_;
  // Those whose requests were left did not read before these were sent.
  if (!reading_.exchange(true)) pass_reading_on();
}

/// Has one of those whose requests are left send. False: none of them sleeps.
bool ClientConnection::wake_writer() {
  const auto next =
      std::find_if(waiting_.begin(), waiting_.end(),
                   [this](const ClientCall* c) ZR_REQUIRES(mutex_) { return c->asleep && is_left(*c); });
  if (next == waiting_.end()) return false;
  wake(*next, false);
  return true;
}

void ClientConnection::end_writing(Deadline deadline, Clock::time_point* now) {
  writing_ = false;
  if (write_waiters_ == 0) return;  // who counts itself from now on sees that the turn is free
  const Hold hold(*this);
  pass_writing_on(deadline, now);
}

void ClientConnection::pass_writing_on(Deadline deadline, Clock::time_point* now) {
  send_left(deadline, now);
  if (usable_ && !writing_ && left_.size() > 0) wake_writer();
  write_free_.notify_one();
}

bool ClientConnection::receive(ClientCall* call, Deadline deadline) {
  // The program may have done something else since it sent the request.
  if (deadline != Deadline::max()) call->now = std::max(call->now, coarse_now());
  bool reads = call->left_to == 0 && !reading_.exchange(true);
  for (;;) {
    if (reads) lead(call, deadline);
    if (call->state != ClientCall::State::Waiting) return true;
    if (call->now >= deadline) break;
    reads = sleep(call, deadline);
  }
  forget(call);
  return call->state != ClientCall::State::Idle;
}

/// Sleeps while another thread reads, until the call is settled or its time is up. True: this thread is to read now.
bool ClientConnection::sleep(ClientCall* call, Deadline deadline) {
  {
    const Hold hold(*this);
    if (is_left(*call)) send_left(deadline, &call->now);
    if (!is_left(*call) && !reading_.exchange(true)) return true;
    if (call->state != ClientCall::State::Waiting || call->now >= deadline) return false;
    call->asleep = true;
  }
  const bool woken = call->wake.wait_until(deadline);
  if (woken && !call->reads) return false;
  call->now = Clock::now();
  if (woken) return true;
  {
    const Hold hold(*this);
    if (std::exchange(call->asleep, false)) return false;
  }
  call->wake.wait();  // the post was on its way
  return call->reads;
}

/// Wakes its thread, which sleeps, once the mutex is free: it would only wait for that.
void ClientConnection::wake(ClientCall* call, bool to_read) {
  call->asleep = false;
  call->reads.store(to_read, std::memory_order_release);
  call->next_woken = nullptr;
  (first_woken_ ? last_woken_->next_woken : first_woken_) = call;
  last_woken_ = call;
}

void ClientConnection::attend() {
  const Hold hold(*this);
  if (!reading_.exchange(true)) pass_reading_on();
}

void ClientConnection::take_replies() {
  const Hold hold(*this);
  watched_ = false;
  if (reading_.exchange(true)) return;  // who reads has it watched again, where need be
  take_input(receive_some(MSG_DONTWAIT));
  last_used_.store(Clock::now(), std::memory_order_relaxed);
  pass_reading_on();
}

void ClientConnection::forget(ClientCall* call) {
  const Hold hold(*this);
  if (call->state == ClientCall::State::Waiting) give_up(call);
  if (usable_ && !writing_ && left_.size() > 0) wake_writer();  // that may have been this thread's
}

void ClientConnection::close(Fault why) {
  const Hold hold(*this);
  fail_all(why, false);
}

/// Reads for everybody until this thread's own call is settled or its time is up. The caller has set
/// reading_.
void ClientConnection::lead(ClientCall* own, Deadline deadline) {
  while (own->state == ClientCall::State::Waiting) {
    set_receive_limit(deadline, own->now);
    const Got got = receive_some(0);
    const Hold hold(*this);
    take_input(got);
    if (own->state == ClientCall::State::Waiting) {
      own->now = Clock::now();
      if (own->now < deadline) continue;  // else it is over, also while the replies of others keep coming
    }
    return stop_leading(*own);
  }
  const Hold hold(*this);
  stop_leading(*own);
}

void ClientConnection::stop_leading(const ClientCall& own) {
  last_used_.store(own.now, std::memory_order_relaxed);
  pass_reading_on();
}

/// The reading is this thread's. The one that sent last gets it: the replies of the others come before its own, so it
/// reads for them all.
void ClientConnection::pass_reading_on() {
  ClientCall* next = nullptr;
  for (ClientCall* call : waiting_)
    if (call->asleep && !is_left(*call) && (!next || static_cast<int32_t>(call->id - next->id) > 0))
      next = call;
  if (next) return wake(next, true);
  reading_.store(false, std::memory_order_release);
  if (deferred_ > 0 && !watched_) [[unlikely]] {
    watched_ = true;
    reply_threads().watch(*this);
  }
}

/// One recv. Nothing: the socket's time limit passed, or nothing was there.
ClientConnection::Got ClientConnection::receive_some(int flags) {
  std::size_t room = 0;
  unsigned char* at = assembler_.room(&room);
  if (!at) return Got::End;
  const ssize_t n = ::recv(fd_, at, room, flags);
  if (n < 0 && (would_block(errno) || errno == EINTR)) return Got::Nothing;
  if (n <= 0) return Got::End;
  assembler_.received(static_cast<std::size_t>(n));
  return Got::Octets;
}

void ClientConnection::take_input(Got got) {
  if (got == Got::Nothing) return;
  if (got == Got::End) return fail_all(fault::lost, false);
  try {
    take_messages();
  } catch (const std::bad_alloc&) {
    fail_all(fault::no_memory, false);
  }
}

void ClientConnection::take_messages() {
  for (;;) {
    giop::Header header;
    const Assembler::Result result = assembler_.next(&header, &incoming_.message);
    if (result == Assembler::Result::NeedMore) return;
    const bool message = result == Assembler::Result::Message;
    // The server's word that it took none of the requests without an answer.
    if (message && header.type == giop::Type::CloseConnection) return fail_all(fault::turned_away, true);
    if (const char* wrong = message ? take_message(header) : assembler_.error()) {
      log_bad_input(header, wrong);
      return fail_all(fault::bad_reply, false);
    }
    if (assembler_.at_rest()) return;
  }
}

void ClientConnection::log_bad_input(const giop::Header& header, const char* wrong) const {
  const uint32_t limit = options().max_message;
  char too_long[64] = "";
  if (header.size > limit)
    std::snprintf(too_long, sizeof too_long, ": %u octets, over -ORBMaxMessage %u", header.size, limit);
  OM_log("connection to %s:%u dropped: bad message: %s%s", peer_.host.c_str(), unsigned{peer_.port}, wrong,
         too_long);
}

/// Gives the incoming reply to the call that waits for it. Null, or what is wrong with the message.
const char* ClientConnection::take_message(const giop::Header& header) {
  if (header.type == giop::Type::MessageError) return "the server says that it got no GIOP";
  if (header.type != giop::Type::Reply) return "a message that only clients send";
  if (const char* wrong = incoming_.open(header)) return wrong;
  const uint32_t id = incoming_.head.id;
  const auto call =
      std::find_if(waiting_.begin(), waiting_.end(), [&](const ClientCall* c) { return c->id == id; });
  if (call != waiting_.end()) {
    Reply& reply = (*call)->reply;
    std::swap(reply.message, incoming_.message);  // its memory goes round
    reply.head = incoming_.head;
    reply.body = incoming_.body;
    settle(*call, ClientCall::State::Answered);
    return nullptr;
  }
  const auto late = std::find(cancelled_.begin(), cancelled_.end(), id);
  if (late == cancelled_.end()) return "a reply to no request";
  cancelled_.erase(late);
  return nullptr;
}

/// The last that is done to a call: an owner that does not sleep may free it at once.
void ClientConnection::settle(ClientCall* call, ClientCall::State state) {
  unlink(call);
  // Before it is settled: its owner is not there any more afterwards.
  if (call->asleep) wake(call, false);
  Deferred* const deferred = call->deferred;
  call->state.store(state, std::memory_order_release);
  if (deferred) [[unlikely]]
    reply_threads().settled(*deferred);
}

bool ClientConnection::unlink(ClientCall* call) {
  const auto found = std::find(waiting_.begin(), waiting_.end(), call);
  if (found == waiting_.end()) return false;
  deferred_ -= call->deferred != nullptr;
  *found = waiting_.back();
  waiting_.pop_back();
  return true;
}

void ClientConnection::fail_all(Fault why, bool may_send_again) {
  retire();
  while (!waiting_.empty()) {
    ClientCall* call = waiting_.back();
    call->fault = why;
    settle(call, may_send_again || call->left_to > octets_sent_ ? ClientCall::State::Unheard
                                                                : ClientCall::State::Failed);
  }
}

void ClientConnection::give_up(ClientCall* call) {
  unlink(call);
  call->state = ClientCall::State::Idle;
  if (cancelled_.size() == max_cancelled) cancelled_.pop_front();
  try {
    cancelled_.push_back(call->id);
  } catch (const std::bad_alloc&) {
    return retire();  // its reply would be taken for one to no request
  }
  cancel(*call);
}

/// Tells the server, when that costs no waiting: it is a hint, no more.
void ClientConnection::cancel(const ClientCall& call) {
  if (writing_ || !usable_ || left_.size() > 0) return;
  unsigned char message[giop::cancel_size];
  giop::write_cancel(message, call.minor, call.id);
  const ssize_t n = ::send(fd_, message, sizeof message, MSG_NOSIGNAL | MSG_DONTWAIT);
  const bool part = n >= 0 && static_cast<std::size_t>(n) < sizeof message;
  if (part || (n < 0 && !would_block(errno))) retire();
}

/// No more requests on this connection. What the server sent before can still be read.
void ClientConnection::retire() {
  usable_ = false;
  ::shutdown(fd_, SHUT_RDWR);
  write_free_.notify_all();
  // Those whose requests were left sleep, and nobody need be reading. They are to see the end.
  if (any_left_ && !reading_.exchange(true)) pass_reading_on();
}

/// Keeps SO_RCVTIMEO close to the time left; too short costs a turn of the loop, too long a late TIMEOUT.
void ClientConnection::set_receive_limit(Deadline deadline, Clock::time_point now) {
  Clock::duration wanted{0};
  if (deadline != Deadline::max()) {
    wanted = std::max<Clock::duration>(deadline - now, milliseconds(1));
    if (limit_ >= wanted / 2 && limit_ <= wanted + limit_slack) return;
  } else if (limit_.count() == 0) {
    return;
  }
  const auto rounded = std::chrono::ceil<microseconds>(wanted);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(rounded);
  timeval value{};
  value.tv_sec = static_cast<time_t>(seconds.count());
  value.tv_usec = static_cast<suseconds_t>((rounded - seconds).count());
  if (::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &value, sizeof value) == 0) limit_ = wanted;
}

}  // namespace zrsv
