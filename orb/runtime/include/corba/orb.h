// The ORB as programs see it (CORBA::ORB of the standard, as far as servers and their clients need it).
//
//   CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);       // takes the -ORB options
//   CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
//   PortableServer::POA_var root = PortableServer::POA::_narrow(object.in());
//   ...
//   orb->run();                                             // until somebody calls shutdown
//   orb->destroy();
#pragma once

#include "corba/sequence.h"
#include "corba/standard_sequences.h"
#include "corba/typecode_factory.h"

namespace CORBA {

class RequestSeq;

/// One ORB of the process. An ORB is named by an id, and every reference to it (_duplicate, ORB_init with the
/// same id) is another wrapper of the same ORB. ORBs are independent, but for one thing: the object adapter, its
/// end points and its threads belong to one of them, the first that resolves "RootPOA", until that one is
/// destroyed. Every operation raises BAD_INV_ORDER once the ORB is destroyed. Any thread.
class ZRSVCPP_API ORB : public virtual Object, public TypeCodeFactory {
 public:
  using InvalidName = PlainUserException<"IDL:omg.org/CORBA/ORB/InvalidName:1.0">;
  using ObjectIdList = StringSeq;
  using ObjectIdList_var = StringSeq_var;

  static ORB* _nil() { return nullptr; }
  static ORB* _duplicate(ORB* orb);
  static ORB* _narrow(Object* object) { return _duplicate(dynamic_cast<ORB*>(object)); }
  ~ORB() override;

  /// The id, "" for the ORB without one. The caller frees it.
  char* id(CORBA_ENV);

  /// A new reference that the caller releases: what was registered under the name, what -ORBInitRef says of it,
  /// one of the ORB's own ("RootPOA", "POACurrent", "ORBPolicyManager", "PolicyCurrent"), or what
  /// -ORBDefaultInitRef makes of it. InvalidName for another name, and for "RootPOA" when it is another ORB's;
  /// INITIALIZE when the server side cannot start. "RootPOA" opens the end points and starts the request
  /// threads.
  Object* resolve_initial_references(const char* name, CORBA_ENV);
  /// Makes `object` the answer for `name`. InvalidName for an empty name and one that has an answer already;
  /// BAD_PARAM for nil.
  void register_initial_reference(const char* name, Object* object, CORBA_ENV);
  /// The names that have an answer; the caller frees the list.
  ObjectIdList* list_initial_services(CORBA_ENV);

  /// A new reference, nil for the nil reference's text, from "IOR:...", "corbaloc:iiop:...",
  /// "corbaloc:rir:/NAME" (an initial reference) or "file://PATH" (a file that holds one of the others).
  /// BAD_PARAM when it is none of them.
  Object* string_to_object(const char* text, CORBA_ENV);
  /// "IOR:..." text that the caller frees with string_free.
  char* object_to_string(Object* object, CORBA_ENV);
  /// From now on `corbaloc:iiop:HOST:PORT/KEY` reaches `object`, of this process or another one; nil takes the
  /// key away. BAD_PARAM for a null or empty key. Beyond the standard.
  void register_key(const char* key, Object* object, CORBA_ENV);

  /// A new policy of that type. PolicyError.
  Policy* create_policy(PolicyType type, const Any& value, CORBA_ENV);

  /// For dynamic calls (corba/request.h), each new and the caller's to release: a list of so many arguments without a
  /// name and a type, a value without both, a list of no exceptions.
  void create_list(Long count, NVList*& list, CORBA_ENV);
  void create_named_value(NamedValue*& value, CORBA_ENV);
  void create_exception_list(ExceptionList*& list, CORBA_ENV);
  /// The context of the process (corba/context.h), as a new reference that the caller releases.
  void get_default_context(Context*& context, CORBA_ENV);
  /// Send one after the other.
  void send_multiple_requests_oneway(const RequestSeq& requests, CORBA_ENV);
  void send_multiple_requests_deferred(const RequestSeq& requests, CORBA_ENV);
  /// Of the requests that were so sent to be deferred: whether one has its reply, and the next that has, whose reply
  /// is taken then, with what it ended with in its env(). The caller releases it. BAD_INV_ORDER when no reply is
  /// outstanding.
  Boolean poll_next_response(CORBA_ENV);
  void get_next_response(Request*& request, CORBA_ENV);

  /// Serves until shutdown is complete.
  void run(CORBA_ENV);
  /// For a program that waits for input in a loop of its own: from the first of these three calls on, until run()
  /// is called, requests and POAdisconnect are run by perform_work only, on the thread that calls it, while the
  /// ORB's threads still read and write. Calls of the process to its own objects run on the calling thread.
  /// perform_work runs one of them, or nothing when none waits; it never blocks for one. Requests that the program
  /// is slow to run wait, up to -ORBQueue. BAD_INV_ORDER after a shutdown.
  Boolean work_pending(CORBA_ENV);
  void perform_work(CORBA_ENV);
  /// The descriptor to put into an epoll set or a poll list: readable while work is pending. It is the ORB's, good
  /// from the resolution of "RootPOA" until the shutdown; -1 at other times. Beyond the standard.
  int work_descriptor(CORBA_ENV);

  /// Stops serving: no new requests, running ones finish (bounded), clients are told. Any thread; `wait` true
  /// returns when all is done and raises BAD_INV_ORDER inside a servant, which cannot wait for itself.
  void shutdown(Boolean wait_for_completion, CORBA_ENV);
  /// Undoes one ORB_init of this id; the last one shuts down if need be and ends the ORB: calls of references
  /// that its string_to_object and initial references made raise BAD_INV_ORDER from then on, and of all references
  /// when no ORB is left.
  void destroy(CORBA_ENV);
};
using ORB_ptr = ORB*;
using ORB_var = ObjectVar<ORB>;

/// The ORB of that id, made when there is none, as a new reference. Takes the -ORB options (docs/orb.md) out of
/// argv; those that concern connections and threads count for the first ORB of the process only. -ORBid names the
/// id where `orb_id` is empty. BAD_PARAM for an unknown option or a bad value; a log line names it.
ZRSVCPP_API ORB* ORB_init(int& argc, char** argv, const char* orb_id = "", CORBA_ENV);

/// How policies of a type are made: from a value, null when the value is not fit.
using PolicyMaker = Policy* (*)(PolicyType type, const Any& value);
/// From now on ORB::create_policy asks `maker` for that type, in place of who was asked before. Any thread, also before
/// main.
ZRSVCPP_API void register_policy_maker(PolicyType type, PolicyMaker maker);

/// The BOA and its handle, as registration functions take it.
class ZRSVCPP_API BOA : public virtual Object {};

/// The handle of the ORB core, while there is an ORB.
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
