/* Object references. A handle is an opaque, counted pointer to an immutable reference. */
#ifndef ZRSV_REFERENCE_H
#define ZRSV_REFERENCE_H

#include "zrsv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A new reference of this process, whose object key carries the implementation name, the interface
 * (repository) id and a copy of the reference data. Null, with `ev` filled: BAD_PARAM for a null argument or
 * a part over 65535 octets, NO_IMPLEMENT when an implementation repository file is in force and does not know
 * `impl`. */
ZRSV_API void* ZR_create_object_reference(const CORBA_sequence_octet* data, const char* intf,
                                          const char* impl, CORBA_Environment* ev);

/* The reference data of a reference of this process, newly allocated (CORBA_free); length 0 when it has none.
 * Null, with `ev` filled: BAD_PARAM for a null handle, INV_OBJREF for a reference that another server made.
 */
ZRSV_API CORBA_sequence_octet* CORBA_BOA_get_id(void* boa, void* object, CORBA_Environment* ev);

/* The same without a copy: the view lives as long as the handle. False where CORBA_BOA_get_id fails. */
ZRSV_API unsigned char ZR_object_peek_id(void* object, const unsigned char** data, uint32_t* length);

/* One more handle to the same reference; null for null. CORBA_object_release gives one back; null is allowed.
 */
ZRSV_API void* CORBA_object_duplicate(void* object, CORBA_Environment* ev);
ZRSV_API void* server_CORBA_object_duplicate(void* object, CORBA_Environment* ev);
ZRSV_API void CORBA_object_release(void* object);

/* Implementation name and interface id in the key of a reference of this process; "" for others. The texts
 * live as long as the handle. */
ZRSV_API const char* ZR_object_get_ImplID(void* object, uint32_t reserved, CORBA_Environment* ev);
ZRSV_API const char* ZR_object_get_IntfID(void* object, uint32_t reserved, CORBA_Environment* ev);

/* The type id in the reference itself, whoever made it. */
ZRSV_API const char* ZR_object_type_id(void* object);

/* True when both name the same object (same key and end point), or both are null. */
ZRSV_API unsigned char CORBA_object_is_equivalent(void* a, void* b);
/* A hash that equal references share, 0 to `maximum`. */
ZRSV_API uint32_t CORBA_object_hash(void* object, uint32_t maximum);

/* "IOR:..." text, newly allocated (CORBA_free). Null handle: the nil reference's text. */
ZRSV_API char* CORBA_ORB_object_to_string(void* orb, void* object, CORBA_Environment* ev);
/* A new handle from "IOR:..." or "corbaloc:iiop:..." text; null for the nil reference. BAD_PARAM when the
 * text is neither (null, malformed, or a wrong length anywhere). */
ZRSV_API void* CORBA_ORB_string_to_object(void* orb, const char* text, CORBA_Environment* ev);

/* "corbaloc:iiop:..." text with the address of each IIOP profile and the key, newly allocated (CORBA_free).
 * Null, with `ev` filled: BAD_PARAM for a null handle, INV_OBJREF for a reference without such a profile. */
ZRSV_API char* ZR_object_to_corbaloc(void* orb, void* object, CORBA_Environment* ev);

/* From now on requests whose object key is the text `key` (as in corbaloc:iiop:host:port/Bank) reach `object`:
 * it serves them when it is of this process, else the client is sent there. A null object takes the key away.
 * BAD_PARAM for a null or empty key. */
ZRSV_API void ZR_register_key(const char* key, void* object, CORBA_Environment* ev);

/* Enters a reference of this process into, and takes it out of, the table of objects known to be active. A
 * reference may be bound once: BAD_INV_ORDER when its key is bound already or the ORB is shut down;
 * NO_RESOURCES when the table cannot grow. Unbinding what is not bound changes nothing. `orb` may be null. */
ZRSV_API void CORBA_ORB_bind_object2(void* orb, void* object, void* reserved, CORBA_Environment* ev);
ZRSV_API void CORBA_ORB_unbind_object2(void* orb, void* object, void* reserved, CORBA_Environment* ev);
/* How many are bound now. */
ZRSV_API uint32_t ZR_bound_objects(void);

#ifdef __cplusplus
}
#endif
#endif
