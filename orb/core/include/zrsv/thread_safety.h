// Locks whose use clang++ checks (-Wthread-safety): what a lock guards is said at the member, what a function needs
// held at its declaration. Other compilers see nothing of it.
//
//   zrsv::Mutex mutex_;
//   int count_ ZR_GUARDED_BY(mutex_) = 0;
//   void add() { const zrsv::MutexLock lock(mutex_); ++count_; }
//   void add_locked() ZR_REQUIRES(mutex_) { ++count_; }
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#if defined(__clang__)
#define ZR_LOCK_ATTRIBUTE(x) __attribute__((x))
#else
#define ZR_LOCK_ATTRIBUTE(x)
#endif

/// A class whose objects are locks, and one whose objects hold one for a scope.
#define ZR_CAPABILITY(name) ZR_LOCK_ATTRIBUTE(capability(name))
#define ZR_SCOPED_CAPABILITY ZR_LOCK_ATTRIBUTE(scoped_lockable)
/// Data that is read and written under that lock only.
#define ZR_GUARDED_BY(lock) ZR_LOCK_ATTRIBUTE(guarded_by(lock))
/// Functions: called with the lock held; taking it; giving it back.
#define ZR_REQUIRES(...) ZR_LOCK_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZR_ACQUIRE(...) ZR_LOCK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZR_ACQUIRE_SHARED(...) ZR_LOCK_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define ZR_RELEASE(...) ZR_LOCK_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZR_RELEASE_SHARED(...) ZR_LOCK_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
/// Lets a function say to the checker that the lock is held, where it cannot see that.
#define ZR_ASSERT_HELD(...) ZR_LOCK_ATTRIBUTE(assert_capability(__VA_ARGS__))
#define ZR_NOT_CHECKED ZR_LOCK_ATTRIBUTE(no_thread_safety_analysis)

namespace zrsv {

/// std::mutex, seen by the checker.
class ZR_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() = default;
  void lock() ZR_ACQUIRE() { mutex_.lock(); }
  void unlock() ZR_RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

/// std::recursive_mutex, likewise.
class ZR_CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() ZR_ACQUIRE() { mutex_.lock(); }
  void unlock() ZR_RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

/// std::shared_mutex, likewise.
class ZR_CAPABILITY("mutex") SharedMutex {
 public:
  void lock() ZR_ACQUIRE() { mutex_.lock(); }
  void unlock() ZR_RELEASE() { mutex_.unlock(); }
  void lock_shared() ZR_ACQUIRE_SHARED() { mutex_.lock_shared(); }
  void unlock_shared() ZR_RELEASE_SHARED() { mutex_.unlock_shared(); }

 private:
  std::shared_mutex mutex_;
};

/// Holds one of them for a scope.
template <class Lock>
class ZR_SCOPED_CAPABILITY LockFor {
 public:
  explicit LockFor(Lock& lock) ZR_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~LockFor() ZR_RELEASE() { lock_.unlock(); }
  LockFor(const LockFor&) = delete;
  LockFor& operator=(const LockFor&) = delete;

 private:
  Lock& lock_;
};
using MutexLock = LockFor<Mutex>;
using RecursiveMutexLock = LockFor<RecursiveMutex>;
using SharedMutexLock = LockFor<SharedMutex>;

/// Holds a SharedMutex for reading.
class ZR_SCOPED_CAPABILITY SharedLock {
 public:
  explicit SharedLock(SharedMutex& mutex) ZR_ACQUIRE_SHARED(mutex) : mutex_(mutex) { mutex_.lock_shared(); }
  ~SharedLock() ZR_RELEASE() { mutex_.unlock_shared(); }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

 private:
  SharedMutex& mutex_;
};

/// Gives a lock back for a scope in which others may have it.
class ZR_SCOPED_CAPABILITY Unlocked {
 public:
  explicit Unlocked(Mutex& mutex) ZR_RELEASE(mutex) : mutex_(mutex) { mutex_.unlock(); }
  ~Unlocked() ZR_RELEASE() { mutex_.lock(); }  // releases the scope, says the checker
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  Mutex& mutex_;
};

/// std::condition_variable for a Mutex. A wait may end for no reason: it stands in a loop that asks what is waited for, where
/// the checker sees the lock.
class Condition {
 public:
  void wait(Mutex& mutex) ZR_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    event_.wait(lock);
    lock.release();
  }
  /// False: the deadline has passed. max(): there is none.
  bool wait_until(Mutex& mutex, std::chrono::steady_clock::time_point deadline) ZR_REQUIRES(mutex) {
    if (deadline == std::chrono::steady_clock::time_point::max()) return wait(mutex), true;
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const bool in_time = event_.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return in_time;
  }
  void notify_one() { event_.notify_one(); }
  void notify_all() { event_.notify_all(); }

 private:
  std::condition_variable event_;
};

}  // namespace zrsv
