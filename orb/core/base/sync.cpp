#include <atomic>
#include <deque>
#include <mutex>
#include <system_error>

#include "zrsv.h"
#include "zrsv/thread_safety.h"

namespace {

/// All locks ever made. They live until the process ends, whatever becomes of the records that name them, and
/// stay reachable here.
struct LockStore {
  zrsv::Mutex mutex;
  std::deque<std::recursive_mutex> locks ZR_GUARDED_BY(mutex);  // elements never move
};

LockStore& lock_store() {
  static LockStore& one = *new LockStore;
  return one;
}

/// The POA semaphore of the process, which each request takes: a word to take it, and who has it, as its holder may take
/// it again.
class PoaSemaphore {
 public:
  void lock(uint32_t line) {
    static thread_local char self;
    if (holder_.load(std::memory_order_relaxed) == &self) {
      ++again_;
      return;
    }
    uint32_t state = free;
    if (!state_.compare_exchange_strong(state, taken, std::memory_order_acquire)) [[unlikely]]
      wait();
    holder_.store(&self, std::memory_order_relaxed);
    line_.store(line, std::memory_order_relaxed);
  }
  /// By its holder.
  void unlock() {
    if (again_ > 0) {
      --again_;
      return;
    }
    holder_.store(nullptr, std::memory_order_relaxed);
    if (state_.exchange(free, std::memory_order_release) == waited_for) [[unlikely]]
      state_.notify_one();
  }

 private:
  static constexpr uint32_t free = 0, taken = 1, waited_for = 2;

  // Who has waited does not know whether others do, so it leaves the word as it found it.
  [[gnu::cold]] void wait() {
    while (state_.exchange(waited_for, std::memory_order_acquire) != free) state_.wait(waited_for);
  }

  std::atomic<uint32_t> state_{free};
  std::atomic<const char*> holder_{nullptr};
  uint32_t again_ = 0;             // the holder's
  std::atomic<uint32_t> line_{0};  // where it was taken last, for a debugger
};

PoaSemaphore& poa_semaphore() {
  static constinit PoaSemaphore one;
  return one;
}

std::recursive_mutex* lock_of(const OM_sem* sem) {
  return sem ? static_cast<std::recursive_mutex*>(__atomic_load_n(&sem->state, __ATOMIC_ACQUIRE)) : nullptr;
}

}  // namespace

unsigned char OM_thread_synch_sem_create(OM_sem* sem) {
  if (!sem) return 0;
  if (lock_of(sem)) return 1;
  LockStore& store = lock_store();
  const zrsv::MutexLock guard(store.mutex);
  if (lock_of(sem)) return 1;  // another thread made it meanwhile
  try {
    __atomic_store_n(&sem->state, static_cast<void*>(&store.locks.emplace_back()), __ATOMIC_RELEASE);
  } catch (const std::exception&) {
    return 0;
  }
  return 1;
}

unsigned char OM_thread_synch_sem_reserve(OM_sem* sem) {
  std::recursive_mutex* lock = lock_of(sem);
  if (!lock) return 0;
  try {
    lock->lock();
  } catch (const std::system_error&) {  // taken too many times by this thread
    return 0;
  }
  return 1;
}

unsigned char OM_thread_synch_sem_release(OM_sem* sem) {
  std::recursive_mutex* lock = lock_of(sem);
  if (!lock) return 0;
  lock->unlock();
  return 1;
}

void ZR_poa_sem_reserve(uint32_t /*reserved*/, uint32_t line) { poa_semaphore().lock(line); }

void ZR_poa_sem_release(uint32_t /*reserved*/, uint32_t /*line*/) { poa_semaphore().unlock(); }
