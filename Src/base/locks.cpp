#include "base/locks.h"

// The initialise functions answer true whatever the ORB core says: a lock that could not be made excludes
// nobody, and says so in the result of its reserve function.
#define POA_DEFINE_MUTEX(name)                                                  \
  CoreMutex name{};                                                             \
  bool name##_initialize() {                                                    \
    OM_thread_synch_sem_create(&name);                                          \
    return true;                                                                \
  }                                                                             \
  unsigned char name##_reserve() { return OM_thread_synch_sem_reserve(&name); } \
  unsigned char name##_release() { return OM_thread_synch_sem_release(&name); }

POA_DEFINE_MUTEX(poa_mutex)
POA_DEFINE_MUTEX(poa_svt_delete_mutex)
POA_DEFINE_MUTEX(poa_svt_ref_counter_mutex)
POA_DEFINE_MUTEX(poa_svt_lifespan_mutex)
POA_DEFINE_MUTEX(poa_default_servant_ref_mutex)
POA_DEFINE_MUTEX(poa_svt_objref_mutex)
