/* Ground of the ORB core: the environment record, memory, locks and trace. */
#ifndef ZRSV_BASE_H
#define ZRSV_BASE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#define ZRSV_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Environment: how a call of this interface reports a failure ------------------------------------------- */

enum {
  CORBA_NO_EXCEPTION = 0,
  CORBA_USER_EXCEPTION = 1,
  CORBA_SYSTEM_EXCEPTION = 2,
  CORBA_LOCATION_FORWARD = 3
};

enum { CORBA_COMPLETED_YES = 0, CORBA_COMPLETED_NO = 1, CORBA_COMPLETED_MAYBE = 2 };

/* All zero means "no exception". A call that fails leaves _major non-zero; a call that succeeds leaves the
 * record as it found it, so callers clear it first. Belongs to one thread at a time.
 *
 *   CORBA_Environment ev = {0};
 *   CORBA_ORB_run(orb, &ev);
 *   if (ev._major != CORBA_NO_EXCEPTION) puts(CORBA_exception_id(&ev));
 *   CORBA_exception_free(&ev); */
typedef struct CORBA_Environment {
  uint32_t _major;     /* CORBA_NO_EXCEPTION ... CORBA_LOCATION_FORWARD */
  uint32_t _minor;     /* minor code of a system exception */
  uint32_t _completed; /* CORBA_COMPLETED_... of a system exception */
  const char* _id;     /* repository id of the exception; null when there is none */
  char* _owned;        /* the text behind _id when it is the record's own (user exceptions); else null */
} CORBA_Environment;

/* Repository id of the exception in `ev`, or null. The text belongs to the record. */
ZRSV_API const char* CORBA_exception_id(const CORBA_Environment* ev);

/* Empties the record and frees what it owns. Null is allowed. */
ZRSV_API void CORBA_exception_free(CORBA_Environment* ev);

/* Fills `ev` with the system exception of repository id `id` ("IDL:CORBA/StExcep/BAD_PARAM:1.0"; the ids
 * "IDL:omg.org/CORBA/BAD_PARAM:1.0" are taken too and stored in the first form; anything else becomes
 * UNKNOWN). */
ZRSV_API void CORBA_BOA_set_standard_exception(CORBA_Environment* ev, const char* id, uint32_t minor,
                                               uint32_t completed);

/* Fills `ev` with the user exception of repository id `id`, of which the record keeps a copy. */
ZRSV_API void ZR_set_user_exception(CORBA_Environment* ev, const char* id);

/* ---- Memory ------------------------------------------------------------------------------------------- */

/* An octet sequence. Those that this library returns are one block, freed with one CORBA_free. */
typedef struct CORBA_sequence_octet {
  uint32_t _maximum;
  uint32_t _length;
  unsigned char* _buffer;
} CORBA_sequence_octet;

/* Frees what a call of this library returned as newly allocated. Null is allowed. */
ZRSV_API void CORBA_free(void* block);

/* `length` + 1 octets, the first one NUL; null when there is no memory. Freed with CORBA_free. */
ZRSV_API char* CORBA_string_alloc(uint32_t length);

/* ---- Locks: mutual exclusion, re-entrant for the thread that holds it ---------------------------------- */

/* Storage of one lock. Zero-filled before OM_thread_synch_sem_create; lives until the process ends. */
typedef struct OM_sem {
  void* state;
} OM_sem;

/* Makes the lock ready; a lock that is ready already stays as it is. True on success. */
ZRSV_API unsigned char OM_thread_synch_sem_create(OM_sem* sem);
/* Takes and gives back the lock; false when it was never created. Any thread. */
ZRSV_API unsigned char OM_thread_synch_sem_reserve(OM_sem* sem);
ZRSV_API unsigned char OM_thread_synch_sem_release(OM_sem* sem);

/* The one POA semaphore of the process. `line` is the caller's source line, kept for diagnosis only. */
ZRSV_API void ZR_poa_sem_reserve(uint32_t reserved, uint32_t line);
ZRSV_API void ZR_poa_sem_release(uint32_t reserved, uint32_t line);

/* ---- Trace -------------------------------------------------------------------------------------------- */

/* First octet non-zero: trace on. May be changed at any time by any thread. */
extern ZRSV_API unsigned char OM_sys_params[16];

#define OM_TRACE_IS_ON __builtin_expect(__atomic_load_n(&OM_sys_params[0], __ATOMIC_RELAXED) != 0, 0)

ZRSV_API void OM_trace_switch(unsigned char on);

/* One trace line: printf-style, prefixed with time and thread, in one write to standard error. Nothing while
 * the trace is off; callers test OM_TRACE_IS_ON first so that arguments cost nothing then. `level` is 1 for
 * all lines of today. */
ZRSV_API void OM_trace_select(int level, const char* format, ...) __attribute__((cold, format(printf, 2, 3)));
ZRSV_API void OM_trace(const char* format, ...) __attribute__((cold, format(printf, 1, 2)));

/* Sends trace lines (text without prefix and newline) to `sink` instead of standard error; null goes back.
 * The sink is called on the tracing thread, possibly by several at once and with locks of the adapter held:
 * it must not call back. */
typedef void (*OM_trace_sink)(const char* text, void* closure);
ZRSV_API void OM_trace_set_sink(OM_trace_sink sink, void* closure);

/* ---- Log: refusals, lost peers, start-up --------------------------------------------------------------- */

enum { ZR_LOG_ERROR = 0, ZR_LOG_WARNING = 1, ZR_LOG_INFO = 2 };

/* One line, printf-style, to standard error, with time, thread and "zrsv: " in front; OM_log is a warning. Control
 * characters are written as \xNN and over-long lines cut. Of lines with the same format (a literal) at most 10 pass in a
 * second; the next one says how many were left out. Never waits for standard error, allocates nothing, raises no
 * signal: lines that cannot be written are lost, and counted in the next one that can. Any thread. */
ZRSV_API void OM_log(const char* format, ...) __attribute__((cold, format(printf, 1, 2)));
ZRSV_API void OM_log_at(int level, const char* format, ...) __attribute__((cold, format(printf, 2, 3)));

/* Sends the lines (text without prefix and newline) to `sink` instead of standard error; null goes back. The sink is
 * called on the thread that logs, by several at once and with locks held: it must not call back, and how long it takes
 * is for the program to answer for. When this returns, no call of the sink before is left. */
typedef void (*ZR_log_sink)(int level, const char* text, void* closure);
ZRSV_API void OM_log_set_sink(ZR_log_sink sink, void* closure);

#ifdef __cplusplus
}
#endif
#endif
