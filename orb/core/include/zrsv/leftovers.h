/* What the library has of the system, and what it runs: so that a stop can be proved. */
#ifndef ZRSV_LEFTOVERS_H
#define ZRSV_LEFTOVERS_H

#include "zrsv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZR_Leftovers {
  uint32_t threads;     /* of the library */
  uint32_t descriptors; /* open ones */
  uint32_t connections; /* with clients, and to servers */
  uint32_t requests;    /* that run, or are held */
  uint32_t objects;     /* that are bound, and engines */
} ZR_Leftovers;

/* What there is now. All zero after the last CORBA_ORB_destroy, unless a servant still ran at the deadline of the
 * shutdown: its thread, and what that needs, go when it returns. Any thread. */
ZRSV_API ZR_Leftovers ZR_leftovers(void);

/* What still ran at the deadline of the last shutdown, a request a text: operation, object, client and for how long
 * at least; null past the last. Valid until the next shutdown. Any thread, once that shutdown is over. */
ZRSV_API const char* ZR_still_running(uint32_t index);

#ifdef __cplusplus
}
#endif

#endif
