/* Requests: replies on the server's side, calls on the client's. */
#ifndef ZRSV_REQUEST_H
#define ZRSV_REQUEST_H

#include "zrsv/boa.h"
#include "zrsv/cdr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Server side: what an upcall gets ---- */

typedef struct ZR_RequestInfo {
  void* request;                   /* the handle for the reply encoders below */
  uint32_t request_type;           /* 2: it came over IIOP; 3: from this process */
  uint32_t sequence;               /* the engine's own */
  const char* operation;           /* in place; lives as long as the request */
  unsigned char response_expected; /* non-zero when the client waits */
} ZR_RequestInfo;

/* The untyped `request` of _call_cpp_. */
typedef struct ZR_ServerRequest {
  ZR_RequestInfo* info;
} ZR_ServerRequest;

/* The request's stream: arguments to decode, later the reply to encode (the caller sets `direction`). Server
 * and client side. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_get_cdr(void* request, CDR** cdr);

enum {
  ZR_REPLY_NO_EXCEPTION = 0,
  ZR_REPLY_USER_EXCEPTION = 1,
  ZR_REPLY_SYSTEM_EXCEPTION = 2,
  ZR_REPLY_LOCATION_FORWARD = 3
};

/* Starts the reply with that status, throwing away a reply begun before. The body is encoded after it; the
 * reply is sent when the upcall returns, and only when the client expects one. False when there is no memory
 * or the status is none of the four. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_encode_reply_header(void* request, uint32_t status);
/* The body of a system exception reply (id in its public form, minor, completion). */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_encode_standard_excep(void* request, const CORBA_Environment* ev);
/* Both at once: makes the system exception in `ev` the reply, also where one was begun before. */
ZRSV_API unsigned char ZR_reply_system_exception(void* request, const CORBA_Environment* ev);
/* The repository id that starts the body of a user exception reply. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_encode_user_excep_hdr(void* request, const CORBA_Environment* ev);

/* ---- Client side: one call is create, [get_cdr, encode], send, recv, decode_reply_header, decode, complete ----
 *
 *   void* request;
 *   uint32_t kind, status;
 *   CDR* cdr;
 *   if (!OM_req_lib_initiator_request_create(object, "ping", 1, &request, &kind)) return failed();
 *   unsigned char answered = OM_req_lib_UNO_IIOP_get_cdr(request, &cdr) && OM_req_lib_UNO_IIOP_send_request(request) &&
 *                            OM_req_lib_UNO_IIOP_recv_reply(request) &&
 *                            OM_req_lib_UNO_IIOP_decode_reply_header(request, &status);
 *   ...
 *   OM_req_lib_UNO_IIOP_initiator_request_complete(request);
 *
 * A request belongs to one thread at a time. */

enum { ZR_REQUEST_IIOP = 2, ZR_REQUEST_DIRECT = 3 };

/* Each returns true on success. On false the reason is kept for the calling thread, for SetStdExReqLib. */
/* A new request for `operation` (copied) on `object` (a handle that outlives the request). *kind says which
 * road to take: DIRECT, a call of a function in the operation table of its interface, when there is one and the
 * object is of this process, else IIOP. Null object: INV_OBJREF. BAD_INV_ORDER once the ORB is destroyed, and in a child that was forked from a
 * process whose ORB was in use. */
ZRSV_API unsigned char OM_req_lib_initiator_request_create(void* object, const char* operation,
                                                           unsigned char response_expected, void** request,
                                                           uint32_t* kind);
/* True when requests on `object` are DIRECT ones. False for a null object, and for one that no request can be made
 * on. */
ZRSV_API unsigned char ZR_runs_directly(void* object);
/* The direct skeleton of the operation; false with BAD_OPERATION when the table has none. */
ZRSV_API unsigned char OM_req_lib_INTRA_PROCESS_get_method(void* request, ZR_method* method);
ZRSV_API void OM_req_lib_INTRA_PROCESS_initiator_request_complete(void* request);
/* Sends the request, opening or sharing a connection. A request to an end point of this very process is run
 * on the calling thread, without a socket, and becomes a message only when it has to wait. TRANSIENT: no connection;
 * COMM_FAILURE: it broke; TIMEOUT: -ORBTimeout; IMP_LIMIT: the request is over -ORBMaxMessage. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_send_request(void* request);
/* Waits for the reply, at most until the time limit of the call. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_recv_reply(void* request);
/* The reply's status, ZR_REPLY_...; the stream then stands at the body. */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_decode_reply_header(void* request, uint32_t* status);
/* Read the head of the body into `ev`: the id of a user exception; a whole system exception (id in its
 * internal form). */
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_decode_user_excep_hdr(void* request, CORBA_Environment* ev);
ZRSV_API unsigned char OM_req_lib_UNO_IIOP_decode_standard_excep(void* request, CORBA_Environment* ev);
/* What moves the arguments and the results of a call between its stream and the caller's memory: true on success. */
typedef struct ZR_call_moves {
  unsigned char (*arguments)(CDR* cdr, void* of); /* may be asked again where the call is not at hand */
  void (*results)(CDR* cdr, void* of);
} ZR_call_moves;
enum {
  ZR_CALL_NOT_AT_HAND = 0, /* nothing was done: take the steps above */
  ZR_CALL_DONE = 1,        /* the results were moved */
  ZR_CALL_SENT = 2,        /* *request was sent: go on with recv_reply */
  ZR_CALL_FAILED = 3       /* as when sending failed */
};
/* All steps of a call in one, where the object is of this process and nothing stands between: no interceptor, and
 * no forward. `operation` need last for the call only. What `results` throws passes. */
ZRSV_API int ZR_call_at_hand(void* object, const char* operation, unsigned char response_expected,
                             const ZR_call_moves* moves, void* of, void** request);
/* Frees the request, whatever became of it; a reply that comes later is dropped. */
ZRSV_API void OM_req_lib_UNO_IIOP_initiator_request_complete(void* request);
/* From now on calls on `object` go to where `forward` points, until that fails. After `ZR_FORWARD_LIMIT`
 * forwards in a row without an answer between them it returns false with TRANSIENT. Takes over nothing. */
enum { ZR_FORWARD_LIMIT = 10 };
ZRSV_API unsigned char OM_req_lib_set_locate_object(void* object, void* forward);
/* Fills `ev` with the reason of this thread's last failure on the client side, with that completion value;
 * TRANSIENT is always "no", as it is the core's word only for requests that nobody took. */
ZRSV_API void SetStdExReqLib(uint32_t completed, CORBA_Environment* ev);

#ifdef __cplusplus
}
#endif
#endif
