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

/// Holds the POA semaphore of the process.
struct PoaSemaphore {
  zrsv::RecursiveMutex mutex;
  std::atomic<uint32_t> line{0};  // where it was taken last, for a debugger
};

PoaSemaphore& poa_semaphore() {
  static PoaSemaphore& one = *new PoaSemaphore;
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

void ZR_poa_sem_reserve(uint32_t /*reserved*/, uint32_t line) ZR_NOT_CHECKED {
  PoaSemaphore& semaphore = poa_semaphore();
  semaphore.mutex.lock();
  semaphore.line.store(line, std::memory_order_relaxed);
}

void ZR_poa_sem_release(uint32_t /*reserved*/, uint32_t /*line*/) ZR_NOT_CHECKED {
  poa_semaphore().mutex.unlock();
}
