#include "connections/reply_threads.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/counting.h"
#include "zrsv.h"

namespace zrsv {
namespace {

bool control(int epoll, int operation, int fd, uint32_t events, void* data) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = data;
  return ::epoll_ctl(epoll, operation, fd, &event) == 0;
}

constexpr uint32_t once = EPOLLONESHOT, input_once = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;

}  // namespace

ReplyThreads& reply_threads() {
  static auto* const threads =
      new ReplyThreads;  // never destroyed: they may still run while the process ends
  return *threads;
}

// ---- The way of a call ------------------------------------------------------------------------------------

bool ReplyThreads::begin(Deferred& call, Deadline deadline) {
  Deferred::Deadlines one;
  one.emplace(deadline, &call);
  call.deadline_ = deadline;
  call.place_ = one.extract(one.begin());
  const MutexLock lock(mutex_);
  return !quit_ && (!threads_.empty() || open());
}

void ReplyThreads::attempt(Deferred& call) {
  const MutexLock lock(mutex_);
  using State = Deferred::State;
  const bool again = call.state_ == State::Finishing || call.state_ == State::SendingAgain;
  call.state_ = again ? State::SendingAgain : State::Sending;
  call.early_ = false;
}

bool ReplyThreads::arm(Deferred& call) {
  const MutexLock lock(mutex_);
  if (quit_ || threads_.empty()) return false;
  over_.notify_all();  // who withdraws it may have waited for this
  if (call.early_) return line_up(call), true;
  call.state_ = Deferred::State::Sent;
  deadlines_.insert(std::move(call.place_));
  if (call.deadline_ < watches_until_) wake_watcher();
  return true;
}

void ReplyThreads::settled(Deferred& call) {
  const MutexLock lock(mutex_);
  using State = Deferred::State;
  if (call.state_ == State::Sending || call.state_ == State::SendingAgain) call.early_ = true;
  if (call.state_ != State::Sent) return;
  leave_deadlines(call);
  line_up(call);
}

void ReplyThreads::over(Deferred& call) {
  const MutexLock lock(mutex_);
  call.state_ = Deferred::State::Over;
  over_.notify_all();
}

bool ReplyThreads::is_over(const Deferred& call) {
  const MutexLock lock(mutex_);
  return call.state_ == Deferred::State::Over;
}

void ReplyThreads::wait_for_any(const std::vector<const Deferred*>& calls) {
  const auto is_over = [](const Deferred* call) { return call->state_ == Deferred::State::Over; };
  const MutexLock lock(mutex_);
  while (std::ranges::none_of(calls, is_over)) over_.wait(mutex_);
}

void ReplyThreads::withdraw(Deferred& call) {
  using State = Deferred::State;
  const auto is_in_use = [&] {
    return call.state_ == State::GivingUp || call.state_ == State::Finishing ||
           call.state_ == State::SendingAgain;
  };
  const MutexLock lock(mutex_);
  while (is_in_use()) over_.wait(mutex_);
  if (call.state_ == State::Sent) leave_deadlines(call);
  if (call.state_ == State::Settled) leave_line(call);
  call.state_ = State::Over;
}

void ReplyThreads::leave_deadlines(Deferred& call) {
  call.place_ = deadlines_.extract({call.deadline_, &call});
}

void ReplyThreads::line_up(Deferred& call) {
  call.state_ = Deferred::State::Settled;
  call.next_ = nullptr;
  (first_ ? last_->next_ : first_) = &call;
  last_ = &call;
  idle_ ? work_.notify_one() : wake_watcher();
}

void ReplyThreads::leave_line(Deferred& call) {
  Deferred* before = nullptr;
  for (Deferred* at = first_; at != &call; at = at->next_) before = at;
  (before ? before->next_ : first_) = call.next_;
  if (last_ == &call) last_ = before;
}

// ---- Connections ------------------------------------------------------------------------------------------

void ReplyThreads::know(ReplySource& source) {
  const MutexLock lock(mutex_);
  known_[&source] = source.weak_from_this();
  control(epoll_, EPOLL_CTL_ADD, source.descriptor(), once, &source);
}

void ReplyThreads::forget(ReplySource& source) {
  const MutexLock lock(mutex_);
  known_.erase(&source);
}

void ReplyThreads::watch(ReplySource& source) {
  const MutexLock lock(mutex_);
  if (epoll_ >= 0) control(epoll_, EPOLL_CTL_MOD, source.descriptor(), input_once, &source);
}

// An event may be older than the end of its connection.
void ReplyThreads::read(ReplySource* at) {
  std::shared_ptr<ReplySource> source;
  {
    const MutexLock lock(mutex_);
    if (const auto found = known_.find(at); found != known_.end()) source = found->second.lock();
  }
  if (source) source->take_replies();
}

// ---- The threads ------------------------------------------------------------------------------------------

bool ReplyThreads::open() {
  epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
  wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (epoll_ >= 0 && wake_ >= 0 && control(epoll_, EPOLL_CTL_ADD, wake_, EPOLLIN, nullptr) &&
      start_thread()) {
    count_left(Left::Descriptors, 2);
    return true;
  }
  OM_log("no thread for replies that nobody waits for");
  for (int* fd : {&epoll_, &wake_})
    if (*fd >= 0) ::close(std::exchange(*fd, -1));
  return false;
}

bool ReplyThreads::start_thread() {
  try {
    threads_.emplace_back([this] { work(); });
    return true;
  } catch (const std::exception&) {  // no thread, or no memory
    return false;
  }
}

void ReplyThreads::work() {
  const Counting<Left::Threads> counted;
  const MutexLock lock(mutex_);
  while (first_ || !quit_) {
    if (first_) {
      finish_first();
    } else if (!watching_) {
      watch_input();
    } else {
      ++idle_;
      work_.wait(mutex_);
      --idle_;
    }
  }
}

void ReplyThreads::finish_first() {
  Deferred* const call = first_;
  first_ = call->next_;
  call->state_ = Deferred::State::Finishing;
  if (call->may_block()) hand_over();
  const Unlocked unlocked(mutex_);
  call->finish();
}

/// This thread may not come back soon. Where a thread is idle, one is on its way to watch: it went idle while another
/// watched, who has left that for a call that lined up since, and each that lines up wakes one.
void ReplyThreads::hand_over() {
  if (watching_) return first_ ? wake_watcher() : void();
  if (!idle_ && !quit_ && threads_.size() < most_threads) start_thread();
}

void ReplyThreads::watch_input() {
  watching_ = true;
  watcher_ = std::this_thread::get_id();
  watches_until_ = deadlines_.empty() ? Deadline::max() : deadlines_.begin()->first;
  take_events(epoll_, wake_, watches_until_);
  watching_ = false;
  watcher_ = {};
  if (!deadlines_.empty()) give_up_until(Clock::now(), fault::time_limit);
}

void ReplyThreads::take_events(int epoll, int wake, Deadline until) {
  const Unlocked unlocked(mutex_);
  epoll_event events[16];
  const int count = ::epoll_wait(epoll, events, std::size(events), poll_timeout(until));
  uint64_t woken = 0;
  for (int i = 0; i < count; ++i) {
    auto* const source = static_cast<ReplySource*>(events[i].data.ptr);
    if (source) read(source);
    if (!source && ::read(wake, &woken, sizeof woken) < 0) continue;  // another event woke it, too
  }
}

void ReplyThreads::give_up_until(Deadline last, Fault why) {
  while (!deadlines_.empty() && deadlines_.begin()->first <= last) {
    Deferred& call = *deadlines_.begin()->second;
    leave_deadlines(call);
    call.state_ = Deferred::State::GivingUp;
    {
      const Unlocked unlocked(mutex_);
      call.give_up(why);
    }
    line_up(call);
    over_.notify_all();
  }
}

void ReplyThreads::wake_watcher() {
  if (!watching_ || watcher_ == std::this_thread::get_id()) return;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t n = ::write(wake_, &one, sizeof one);
}

void ReplyThreads::stop(Fault why) {
  const MutexLock lock(mutex_);
  if (threads_.empty()) return;
  quit_ = true;
  give_up_until(Deadline::max(), why);
  wake_watcher();
  work_.notify_all();
  std::vector<std::thread> ended = std::move(threads_);
  {
    const Unlocked unlocked(mutex_);
    for (std::thread& thread : ended) thread.join();
  }
  threads_.clear();
  for (int* fd : {&epoll_, &wake_}) ::close(std::exchange(*fd, -1));
  count_left(Left::Descriptors, -2);
  known_.clear();
  quit_ = false;
}

}  // namespace zrsv
