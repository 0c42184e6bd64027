// The six process-wide mutexes and the POA semaphore.
//
// Order, outermost first: poa_mutex, poa_svt_ref_counter_mutex, poa_svt_delete_mutex, poa_svt_lifespan_mutex,
// poa_default_servant_ref_mutex, poa_svt_objref_mutex, the POA semaphore. All are re-entrant for the thread
// that holds them. The plain mutexes of single records and tables (default servants, shared policies, live
// managers, registration) are leaves: taken last.
//
// What each guards is said at the data by ZR_GUARDED_BY, which clang++ checks.
#pragma once

#include "zrsv.h"
#include "zrsv/thread_safety.h"

/// A lock of the ORB core, made at start-up.
struct ZR_CAPABILITY("mutex") CoreMutex : OM_sem {};

#define POA_DECLARE_MUTEX(name)   \
  extern CoreMutex name;          \
  bool name##_initialize();       \
  unsigned char name##_reserve(); \
  unsigned char name##_release();

POA_DECLARE_MUTEX(poa_mutex)                      // the POA tree: links, records alive
POA_DECLARE_MUTEX(poa_svt_delete_mutex)           // servant_delete_list
POA_DECLARE_MUTEX(poa_svt_ref_counter_mutex)      // the servants' request counters
POA_DECLARE_MUTEX(poa_svt_lifespan_mutex)         // lifespan timers and servant_lifespan_list()
POA_DECLARE_MUTEX(poa_default_servant_ref_mutex)  // the default servants' counts
POA_DECLARE_MUTEX(poa_svt_objref_mutex)           // each servant's reference list
#undef POA_DECLARE_MUTEX

/// Holds one of the six for a scope, exceptions included.
class ZR_SCOPED_CAPABILITY MutexGuard {
 public:
  explicit MutexGuard(CoreMutex& mutex) ZR_ACQUIRE(mutex) : mutex_(mutex) {
    OM_thread_synch_sem_reserve(&mutex_);
  }
  ~MutexGuard() ZR_RELEASE() { OM_thread_synch_sem_release(&mutex_); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  CoreMutex& mutex_;
};

/// The ORB core's POA semaphore, as the checker sees it: every active-object-map operation, and binding and
/// unbinding of references.
struct ZR_CAPABILITY("semaphore") PoaSemaphore {};
inline PoaSemaphore poa_semaphore;

/// Holds it for a scope. PoaSemaphoreGuard guard(__LINE__);
class ZR_SCOPED_CAPABILITY PoaSemaphoreGuard {
 public:
  explicit PoaSemaphoreGuard(uint32_t line) ZR_ACQUIRE(poa_semaphore) : line_(line) {
    ZR_poa_sem_reserve(0, line_);
  }
  ~PoaSemaphoreGuard() ZR_RELEASE() { ZR_poa_sem_release(0, line_); }
  PoaSemaphoreGuard(const PoaSemaphoreGuard&) = delete;
  PoaSemaphoreGuard& operator=(const PoaSemaphoreGuard&) = delete;

 private:
  uint32_t line_;
};
