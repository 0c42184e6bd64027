// The ORB as programs see it (CORBA::ORB of the standard, as far as servers and their clients need it).
#pragma once

#include "corba/object.h"
#include "corba/typecode_factory.h"

namespace CORBA {

class ZRSVCPP_API ORB : public virtual Object, public TypeCodeFactory {
 public:
  using InvalidName = PlainUserException<"IDL:omg.org/CORBA/ORB/InvalidName:1.0">;

  static ORB* _nil() { return nullptr; }
  static ORB* _duplicate(ORB* orb);
  ~ORB() override;

  /// "RootPOA", "POACurrent": a new reference that the caller releases. InvalidName for another name;
  /// INITIALIZE when the server side cannot start. "RootPOA" opens the end points and starts the request
  /// threads.
  Object* resolve_initial_references(const char* name, CORBA_ENV);
  /// "IOR:..." or "corbaloc:iiop:..." to a new reference, nil for the nil reference's text. BAD_PARAM when it
  /// is neither.
  Object* string_to_object(const char* text, CORBA_ENV);
  /// "IOR:..." text that the caller frees with string_free.
  char* object_to_string(Object* object, CORBA_ENV);

  /// Serves until shutdown is complete.
  void run(CORBA_ENV);
  /// Stops serving: no new requests, running ones finish (bounded), clients are told. Any thread; `wait` true
  /// returns when all is done and raises BAD_INV_ORDER inside a servant, which cannot wait for itself.
  void shutdown(Boolean wait_for_completion, CORBA_ENV);
  /// Shuts down if need be and frees the ORB.
  void destroy(CORBA_ENV);
};
using ORB_ptr = ORB*;
using ORB_var = ObjectVar<ORB>;

/// The process's ORB, as a new reference. Takes the -ORB options (docs/orb.md) out of argv. BAD_PARAM for an
/// unknown option or a bad value; a log line names it.
ZRSVCPP_API ORB* ORB_init(int& argc, char** argv, const char* orb_id = "", CORBA_ENV);

/// The BOA and its handle, as registration functions take it.
class ZRSVCPP_API BOA : public virtual Object {};

/// The handle of the process's ORB.
extern ZRSVCPP_API void* OM_this_ORB;

}  // namespace CORBA

/// The object that serves `object` (a handle) as the class of that repository id: made by the factory
/// registered for the id, given one more handle, and stored as that class through obj_ptr; false when no
/// factory is registered. OM_IDL_release_object2 disposes of it.
ZRSVCPP_API unsigned char OM_IDL_get_object2(void*& obj_ptr, void* object, void* request,
                                             const char* repository_id);
ZRSVCPP_API void OM_IDL_release_object2(void* obj_ptr, const char* repository_id);
/// Factory functions of the skeleton class of a repository id: make one, dispose of one, see one as the class
/// of another id (null id: as CORBA::Object).
using OM_IDL_make = void* (*)();
using OM_IDL_dispose = void (*)(void*);
using OM_IDL_cast = void* (*)(void*, const char*);
ZRSVCPP_API void OM_IDL_register_class(const char* repository_id, OM_IDL_make make, OM_IDL_dispose dispose,
                                       OM_IDL_cast cast);
