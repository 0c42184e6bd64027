#include "failing.h"

#include <malloc.h>
#include <poll.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "comes_true.h"

namespace {

using failing::What;

std::atomic<long> until{0};  // calls that still succeed; below 0 they fail
std::atomic<long> last{0};
std::atomic<What> kind{What::allocation};
std::atomic<bool> armed{false}, failed{false};
std::atomic<long> hours{0};                  // that the clock has leapt
thread_local std::function<void()> acts[2];  // by Moment
thread_local bool counted = true;
[[maybe_unused]] const bool main_counts = counted = false;  // the thread that runs the tests
std::atomic<long> allocated{0}, trimmed{0};
/// What the next thread that counts does at some point.
class Once {
 public:
  void set(std::function<void()> act) {
    const std::lock_guard lock(mutex_);
    act_ = std::move(act);
    is_set_ = true;
  }
  void run() {
    if (!counted || !is_set_.exchange(false)) return;
    std::unique_lock lock(mutex_);
    const auto act = std::move(act_);
    lock.unlock();
    const failing::Counted not_this(false);
    act();
  }

 private:
  std::mutex mutex_;
  std::function<void()> act_;
  std::atomic<bool> is_set_{false};
};
Once act_before_send, act_after_wake;
std::atomic<long> sleepers{0};

/// While one lives, this thread sleeps, unless it does not count.
class Asleep {
 public:
  explicit Asleep(bool sleeps_long) : counts_(sleeps_long && counted) { sleepers += counts_; }
  ~Asleep() { sleepers -= counts_; }
  Asleep(const Asleep&) = delete;
  Asleep& operator=(const Asleep&) = delete;

 private:
  const bool counts_;
};

/// The system's clock has not leapt.
timespec as_if_none_had_passed(timespec deadline) {
  if (counted) deadline.tv_sec = std::max<time_t>(deadline.tv_sec - hours * 3600, 0);
  return deadline;
}

long size_of(void* block) { return static_cast<long>(::malloc_usable_size(block)); }
void* taken(void* block) {
  if (block) allocated.fetch_add(size_of(block), std::memory_order_relaxed);
  return block;
}

bool fails(What what = What::allocation) {
  if (!armed.load(std::memory_order_relaxed) || kind.load(std::memory_order_relaxed) != what || !counted)
    return false;
  const long left = until.fetch_sub(1);
  if (left > 0 || left < last.load()) return false;
  return failed = true;
}

/// For what needs more of the system: -1 where there is none, or the call fails otherwise.
int refused(int error, int shortage) {
  if (!fails(What::shortage)) return fails(What::socket) ? (errno = error, -1) : 0;
  errno = shortage;
  return -1;
}

/// -1 where the call fails now, with that error or as one that a signal ended.
int broken(int error) {
  const bool lost = fails(What::socket);
  if (!lost && !fails(What::interrupted)) return 0;
  errno = lost ? error : EINTR;
  return -1;
}

void came(failing::Moment moment) {
  if (const auto& act = acts[static_cast<int>(moment)]) act();
}

/// For those who count: tests measure themselves by the true time.
timespec leapt(timespec now) {
  if (!counted) return now;
  if (fails(What::clock)) ++hours;
  now.tv_sec += hours * 3600;
  return now;
}

}  // namespace

namespace failing {

void begin(What what, long n, long more) {
  kind = what;
  until = n - 1;
  last = -more;
  failed = false;
  armed = true;
}

bool end() {
  armed = false;
  return failed;
}

void at(Moment moment, std::function<void()> act) { acts[static_cast<int>(moment)] = std::move(act); }

void before_send(std::function<void()> act) { act_before_send.set(std::move(act)); }
void after_wake(std::function<void()> act) { act_after_wake.set(std::move(act)); }

bool wait_for_asleep(long threads) {
  return comes_true([=] { return sleepers == threads; });
}

long live() { return allocated; }
long trims() { return trimmed; }

Counted::Counted(bool now) : before_(std::exchange(counted, now)) {}
Counted::~Counted() { counted = before_; }

}  // namespace failing

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_aligned_alloc(std::size_t alignment, std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size) { return fails() ? nullptr : taken(__real_malloc(size)); }
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails() ? nullptr : taken(__real_aligned_alloc(alignment, size));
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : taken(__real_calloc(count, size));
}
void* __wrap_realloc(void* block, std::size_t size) {
  if (fails()) return nullptr;
  const long before = size_of(block);
  void* const changed = __real_realloc(block, size);
  if (changed) allocated.fetch_sub(before, std::memory_order_relaxed);
  return taken(changed);
}
int __real_malloc_trim(std::size_t keep);
int __wrap_malloc_trim(std::size_t keep) { return ++trimmed, __real_malloc_trim(keep); }
void __wrap_free(void* block) {
  allocated.fetch_sub(size_of(block), std::memory_order_relaxed);
  __real_free(block);
}
}

// ---- Octets that are moved, and waited for ----

extern "C" {
ssize_t __real_recv(int fd, void* at, std::size_t octets, int flags);
ssize_t __real_send(int fd, const void* at, std::size_t octets, int flags);
ssize_t __real_sendmsg(int fd, const msghdr* message, int flags);
int __real_accept4(int fd, sockaddr* from, socklen_t* length, int flags);
int __real_connect(int fd, const sockaddr* to, socklen_t length);
int __real_epoll_ctl(int set, int operation, int fd, epoll_event* event);
int __real_epoll_wait(int set, epoll_event* events, int most, int milliseconds);
int __real_poll(pollfd* all, nfds_t count, int milliseconds);
int __real_clock_gettime(clockid_t clock, timespec* now);

ssize_t __wrap_recv(int fd, void* at, std::size_t octets, int flags) {
  if (broken(ECONNRESET)) return -1;
  return __real_recv(fd, at, octets, flags);  // takes all that is there, so it is never short of that
}
ssize_t __wrap_send(int fd, const void* at, std::size_t octets, int flags) {
  act_before_send.run();
  if (broken(EPIPE)) return -1;
  if (fails(What::full)) return errno = EAGAIN, -1;
  const std::size_t some = octets > 1 && fails(What::shortened) ? 1 : octets;
  const failing::Counted not_what_a_server_does(false);
  return __real_send(fd, at, some, flags);
}
ssize_t __wrap_sendmsg(int fd, const msghdr* message, int flags) {
  act_before_send.run();
  if (broken(EPIPE)) return -1;
  const bool one = fails(What::shortened);
  const failing::Counted not_what_a_server_does(false);
  if (one) return __real_send(fd, message->msg_iov->iov_base, 1, flags);
  const ssize_t sent = __real_sendmsg(fd, message, flags);
  if (sent < 0 && errno == EAGAIN) {
    came(failing::Moment::told_full);
    errno = EAGAIN;
  }
  return sent;
}
int __wrap_accept4(int fd, sockaddr* from, socklen_t* length, int flags) {
  if (fails(What::interrupted)) return errno = EINTR, -1;
  if (refused(ECONNABORTED, EMFILE) < 0) return -1;
  return __real_accept4(fd, from, length, flags);
}
int __wrap_connect(int fd, const sockaddr* to, socklen_t length) {
  came(failing::Moment::connecting);
  if (fails(What::socket)) return errno = ECONNREFUSED, -1;
  const failing::Counted not_what_a_server_does(false);
  return __real_connect(fd, to, length);
}
int __wrap_epoll_ctl(int set, int operation, int fd, epoll_event* event) {
  return operation != EPOLL_CTL_DEL && refused(ENOMEM, ENOSPC) < 0
             ? -1
             : __real_epoll_ctl(set, operation, fd, event);
}
int __wrap_epoll_wait(int set, epoll_event* events, int most, int milliseconds) {
  if (broken(EINTR)) return -1;
  const Asleep this_thread(milliseconds < 0);
  const int count = __real_epoll_wait(set, events, most, milliseconds);
  if (count == 1 && !events->data.ptr) act_after_wake.run();
  return count;
}
int __wrap_poll(pollfd* all, nfds_t count, int milliseconds) {
  return broken(EINTR) ? -1 : __real_poll(all, count, milliseconds);
}

// ---- Threads, and conditions ----

void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)());
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)()) {
  if (fails(What::shortage)) throw std::system_error(EAGAIN, std::generic_category());
  __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(thread, state,
                                                                                               depend);
}

int __real_pthread_cond_clockwait(pthread_cond_t* event, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* until);
int __wrap_pthread_cond_clockwait(pthread_cond_t* event, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* until) {
  const Asleep this_thread(true);
  const timespec real = as_if_none_had_passed(*until);
  return __real_pthread_cond_clockwait(event, mutex, clock, &real);
}
int __real_sem_wait(sem_t* semaphore);
int __wrap_sem_wait(sem_t* semaphore) {
  const Asleep this_thread(true);
  return __real_sem_wait(semaphore);
}
int __real_sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until);
int __wrap_sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until) {
  const Asleep this_thread(true);
  const timespec real = as_if_none_had_passed(*until);
  return __real_sem_clockwait(semaphore, clock, &real);
}
void __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(std::condition_variable* event,
                                                                      std::unique_lock<std::mutex>& lock);
void __wrap__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(std::condition_variable* event,
                                                                      std::unique_lock<std::mutex>& lock) {
  const Asleep this_thread(true);
  __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(event, lock);
}

// ---- The clock ----

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  const int result = __real_clock_gettime(clock, now);
  if (clock != CLOCK_REALTIME) *now = leapt(*now);
  return result;
}
std::chrono::steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  timespec now{};
  __wrap_clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::steady_clock::time_point(std::chrono::seconds(now.tv_sec) +
                                               std::chrono::nanoseconds(now.tv_nsec));
}
}

void* operator new(std::size_t size) {
  void* const block = __wrap_malloc(size ? size : 1);
  if (!block) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return __wrap_malloc(size ? size : 1);
}
void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete[](void* block) noexcept { __wrap_free(block); }
void operator delete(void* block, std::size_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, std::size_t) noexcept { __wrap_free(block); }
