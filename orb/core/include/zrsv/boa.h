/* The ORB, the Basic Object Adapter, the two repositories, queue groups, clients, and the hooks into the
 * adapter. */
#ifndef ZRSV_BOA_H
#define ZRSV_BOA_H

#include "zrsv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Hooks: variables that the object adapter fills ---- */

/* Builds the root POA and returns a new handle to it, or null. Called under the ORB's start-up lock, by the
 * thread that first asks for "RootPOA", before any request is read. */
extern ZRSV_API void* (*_cpp_poa_init)(void* orb, void* boa);
/* One request for an object of the adapter. Called on the thread that read it, several at once, no lock held;
 * target and request live until it returns, and the reply is sent then. It may block, and must let no
 * exception pass. */
extern ZRSV_API void (*_call_cpp_)(void* target, void* request, CORBA_Environment* ev);
/* The client `fd` at that address (4 or 16 octets, network order) is gone: the number that
 * OM_ext_get_client_info_ip6 gave, which names no other client meanwhile; the descriptor is closed. Called once, and
 * once more after each request of the connection that ends later, on any thread of
 * the engine, no lock held. */
extern ZRSV_API void (*_call_disconnect_cpp_)(long fd, void* host_addr, unsigned char is_ipv6);
/* The lifespan tick; always the same thread, no lock held, never twice at once. */
extern ZRSV_API void (*_call_poa_inst_lifespan_)(void);

/* ---- ORB ---- */

/* The ORB of the process, made by the first call; each call is undone by one CORBA_ORB_destroy. Takes the
 * -ORB options (docs/orb.md) out of argv and lowers *argc; argc and argv may be null. Null with BAD_PARAM in
 * `ev` for an option that is unknown or has a bad value: a log line names it. Any thread. */
ZRSV_API void* CORBA_ORB_init(int* argc, char** argv, const char* orb_id, CORBA_Environment* ev);

/* A new handle to an initial reference. "RootPOA" opens the end points, calls _cpp_poa_init and starts the
 * engine's threads on first use. Others: "POACurrent", "KQ_LightInterfaceRepository",
 * "ImplementationRepository" (the last two are untyped service handles, not references). INV_OBJREF-free
 * failure: BAD_PARAM (id "InvalidName") for an unknown name, INITIALIZE when the start failed. */
ZRSV_API void* CORBA_ORB_resolve_initial_references(void* orb, const char* name, CORBA_Environment* ev);
/* Makes `object` (a handle, duplicated) the answer for `name`. */
ZRSV_API void ZR_register_initial_reference(void* orb, const char* name, void* object);

/* Serves until CORBA_ORB_shutdown is complete. */
ZRSV_API void CORBA_ORB_run(void* orb, CORBA_Environment* ev);
/* Stops accepting, lets running requests finish up to the deadline (-ORBShutdownTimeout), says
 * CloseConnection to every client and frees the connections. `wait`: return only when that is done
 * (BAD_INV_ORDER from inside an upcall, which cannot wait for itself). Any thread; again is allowed and
 * changes nothing. */
ZRSV_API void CORBA_ORB_shutdown(void* orb, unsigned char wait, CORBA_Environment* ev);
/* Undoes one CORBA_ORB_init; the last one shuts down, waits and frees. */
ZRSV_API void CORBA_ORB_destroy(void* orb, CORBA_Environment* ev);

/* For a program that waits for input in a loop of its own: from the first of these calls on, until CORBA_ORB_run,
 * requests and the disconnect hook are run by ZR_perform_work only, on the thread that calls it; calls that the process makes to its own objects run on
 * the calling thread. The descriptor is readable
 * while a request waits to be run; -1 while nothing is served. It is the ORB's, and good until the shutdown.
 * ZR_perform_work runs one request, or nothing when none waits, and never blocks for one. BAD_INV_ORDER after a
 * shutdown. Any thread. */
ZRSV_API int ZR_work_descriptor(void* orb, CORBA_Environment* ev);
ZRSV_API unsigned char ZR_work_pending(void* orb, CORBA_Environment* ev);
ZRSV_API void ZR_perform_work(void* orb, CORBA_Environment* ev);

/* "host:port" published in references, at index 0, 1, ...; null past the last. Valid from the resolution of
 * "RootPOA" on. */
ZRSV_API const char* ZR_published_endpoint(void* orb, uint32_t index);

/* ---- BOA, repositories ---- */

/* The process has that implementation. Its requests wait until ZR_queue_begin. */
ZRSV_API void CORBA_BOA_impl_is_ready(void* boa, void* impl_def, CORBA_Environment* ev);

/* The definition of an implementation name; NO_IMPLEMENT when the repository does not know it. Lives as long
 * as the ORB. */
ZRSV_API void* KQ_ImplementationRep_lookup_id(void* impl_rep, const char* name, CORBA_Environment* ev);

/* A new handle to the definition of an interface id; INTF_REPOS when no class of that id is linked in. */
ZRSV_API void* CORBA_Repository_lookup_id(void* intf_rep, const char* id, CORBA_Environment* ev);
/* Makes an interface id known. `id` must outlive the process's use of it (a literal). Any thread, also before
 * main. */
ZRSV_API void ZR_register_interface(const char* id);

/* A CDR skeleton: decodes, calls, encodes; false on a marshalling failure. */
typedef unsigned char (*ZR_skeleton)(void* request, void* object, uint32_t type,
                                     unsigned char response_expected, void* table);
typedef void (*ZR_method)(void);

/* Hands the operation table of interface `intf_id` to the core: requests for references of that interface
 * which name no POA path, and direct calls of them, find their operations here. The arrays end with null
 * entries and are copied. Replaces an earlier table of the same id. Without a table such requests are
 * answered OBJECT_NOT_EXIST. `boa`: the handle, or null. */
ZRSV_API void CORBA_BOA_set_impl_methods(void* boa, CORBA_Environment* ev, void* intf_def,
                                         const char* const* names, const ZR_skeleton* skeletons,
                                         const ZR_method* direct);

/* ---- Queue groups ---- */

enum { ZR_QUEUE_DRAIN = 4, ZR_QUEUE_RELEASE = 5, ZR_QUEUE_HOLD = 6, ZR_QUEUE_CLOSE = 7 };

/* The program wants to be called: from now on requests are delivered, unless the queue group is held. Any
 * thread; again changes nothing. */
ZRSV_API void ZR_queue_begin(void);

/* Holds or releases the requests for the implementation `name`; codes in docs/orb.md. NO_IMPLEMENT when the
 * process has not announced it, BAD_PARAM for another code. */
ZRSV_API void ZR_queue_control_queue_group(uint32_t reserved, const char* name, int code, uint32_t reserved2,
                                           CORBA_Environment* ev);

/* ---- Clients ---- */

/* 1 when client data is to be recorded (-ORBClientInfo, on by default). */
ZRSV_API int OM_boa_lib_get_iswitch(void);
/* Number (that of its descriptor, as a rule) and address (network order, 4 or 16 octets) of the client whose request this thread is running;
 * false, and nothing stored, outside a request and for a request made in this process. */
ZRSV_API unsigned char OM_ext_get_client_info_ip6(int32_t* fd, unsigned char* is_ipv6, void* host_addr,
                                                  void* reserved1, void* reserved2, CORBA_Environment* ev);

#ifdef __cplusplus
}
#endif
#endif
