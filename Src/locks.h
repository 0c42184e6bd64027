// The six process-wide mutexes and the POA semaphore.
//
// Order, outermost first: poa_mutex, poa_svt_ref_counter_mutex, poa_svt_delete_mutex, poa_svt_lifespan_mutex,
// poa_default_servant_ref_mutex, poa_svt_objref_mutex, the POA semaphore. All are re-entrant for the thread
// that holds them. The plain mutexes of single records and tables (default_mutex, shared policies, live
// managers, registration) are leaves: taken last.
#pragma once

#include "zrsv.h"

#define POA_DECLARE_MUTEX(name)   \
  extern OM_sem name;             \
  bool name##_initialize();       \
  unsigned char name##_reserve(); \
  unsigned char name##_release();

POA_DECLARE_MUTEX(poa_mutex)                      // the POA tree: links, records alive, POAInfo::system_id
POA_DECLARE_MUTEX(poa_svt_delete_mutex)           // servant_delete_list
POA_DECLARE_MUTEX(poa_svt_ref_counter_mutex)      // the servants' request counters
POA_DECLARE_MUTEX(poa_svt_lifespan_mutex)         // lifespan timers and servant_lifespan_list
POA_DECLARE_MUTEX(poa_default_servant_ref_mutex)  // the default servants' counts
POA_DECLARE_MUTEX(poa_svt_objref_mutex)           // each servant's reference list
#undef POA_DECLARE_MUTEX

/// Holds one of the six for a scope, exceptions included.
class MutexGuard {
 public:
  explicit MutexGuard(OM_sem& sem) : sem_(sem) { OM_thread_synch_sem_reserve(&sem_); }
  ~MutexGuard() { OM_thread_synch_sem_release(&sem_); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  OM_sem& sem_;
};

/// Holds the ORB core's POA semaphore for a scope: every active-object-map operation, and binding and
/// unbinding of references. PoaSemaphoreGuard guard(__LINE__);
class PoaSemaphoreGuard {
 public:
  explicit PoaSemaphoreGuard(uint32_t line) : line_(line) { ZR_poa_sem_reserve(0, line_); }
  ~PoaSemaphoreGuard() { ZR_poa_sem_release(0, line_); }
  PoaSemaphoreGuard(const PoaSemaphoreGuard&) = delete;
  PoaSemaphoreGuard& operator=(const PoaSemaphoreGuard&) = delete;

 private:
  uint32_t line_;
};
