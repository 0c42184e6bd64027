// The interfaces of module PortableServer, as the OMG C++ mapping presents them.
//
// Every operation takes a CORBA::Environment last, by default a fresh one that nobody looks at, reports a
// failure both there and by throwing, and may be called from any thread. Every reference, id, list and string
// returned is new and the caller's, unless said otherwise.
#pragma once

#include "poa/types.h"

// g++ hides what is made from a literal as a template argument, unless the literal is first named where
// things are visible.
#pragma GCC visibility push(default)

/// A user exception without members, and its holder.
#define POA_PLAIN_EXCEPTION(Name, id)                        \
  class POA_API Name : public CORBA::UserExceptionOf<Name> { \
   public:                                                   \
    static constexpr const char* repository_id = id;         \
  };                                                         \
  POA_VAR_CLASS(Name##_var, CORBA::ExceptionVar<Name>)

namespace PortableServer {

class AdapterActivator;
class POA;
class POAManagerFactory;
class ServantManager;
using AdapterActivator_ptr = AdapterActivator*;
using POA_ptr = POA*;
POA_VAR_CLASS(POA_var, CORBA::ObjectVar<POA>)
using ServantManager_ptr = ServantManager*;

class POA_API POAList : public CORBA::Sequence<POA_var> {
 public:
  using Sequence::Sequence;
};
POA_VAR_CLASS(POAList_var, CORBA::SequenceVar<POAList>)

// ---- Policies ----

/// A policy of one value, as `create_POA` takes it; the seven kinds derive from it. `Type` is its policy type
/// id, `Name` its interface's name.
///
///   CORBA::PolicyList list;
///   list.length(2);
///   list[0] = root->create_lifespan_policy(PortableServer::PERSISTENT);
///   list[1] = root->create_id_assignment_policy(PortableServer::USER_ID);
///   PortableServer::POA_var poa = root->create_POA("accounts", nullptr, list);
///
/// The library's policy objects are shared and do not change: any thread, and a duplicate may be kept for as
/// long as one likes. `destroy` is not needed.
template <class Kind, class Value, CORBA::PolicyType Type, CORBA::Text Name>
class POA_API PolicyOf : public virtual CORBA::Policy {
 public:
  using value_type = Value;
  static constexpr CORBA::PolicyType type_id = Type;
  static constexpr CORBA::JoinedText repository_id{"IDL:omg.org/PortableServer/", Name.value, ":1.0"};
  static constexpr const char* interface_name = Name.value;

  static Kind* _nil() { return nullptr; }
  /// A copy made by the policy itself; nil for nil.
  static Kind* _duplicate(Kind* p);
  /// Any non-nil reference narrows.
  static Kind* _narrow(CORBA::Object* object);

  /// The value. Raises nothing.
  virtual Value value(CORBA_ENV) = 0;
};

// In this order: what may be at work in the POA at once (requests of a POA are served by many threads, whatever
// is chosen); whether its references outlive the process; whether a servant may be several of its objects; who
// makes up ids; whether a servant becomes active when its reference is asked for; whether active objects are
// kept in a map; and who serves what the map does not hold.
#define POA_POLICY_CLASS(Name, ID)                                       \
  class POA_API Name : public PolicyOf<Name, Name##Value, ID, #Name> {}; \
  using Name##_ptr = Name*;                                              \
  POA_VAR_CLASS(Name##_var, CORBA::ObjectVar<Name>)

POA_POLICY_CLASS(ThreadPolicy, THREAD_POLICY_ID)
POA_POLICY_CLASS(LifespanPolicy, LIFESPAN_POLICY_ID)
POA_POLICY_CLASS(IdUniquenessPolicy, ID_UNIQUENESS_POLICY_ID)
POA_POLICY_CLASS(IdAssignmentPolicy, ID_ASSIGNMENT_POLICY_ID)
POA_POLICY_CLASS(ImplicitActivationPolicy, IMPLICIT_ACTIVATION_POLICY_ID)
POA_POLICY_CLASS(ServantRetentionPolicy, SERVANT_RETENTION_POLICY_ID)
POA_POLICY_CLASS(RequestProcessingPolicy, REQUEST_PROCESSING_POLICY_ID)
#undef POA_POLICY_CLASS

// ---- POAManager ----

/// Gates the requests of the POAs that share it. A POA that is created without one shares the root POA's.
///
///   PortableServer::POAManager_var manager = root->the_POAManager();
///   manager->activate();               // from now on requests are served
///   manager->hold_requests(false);     // while something is being changed
///   manager->activate();
///   manager->deactivate(true, false);  // for good
///
/// A manager starts HOLDING. One goes from any state to any other but never leaves INACTIVE. Any thread may call
/// any operation; the state changes as a whole. Nothing waits for requests that are being served: what the
/// standard calls wait_for_completion is accepted and has no effect on the first three operations.
class POA_API POAManager : public virtual CORBA::Object {
 public:
  /// What becomes of a request: held until the state changes; served; refused with TRANSIENT (0x4B510301), so
  /// that its client may try again; refused for good (UNKNOWN).
  enum State : CORBA::ULong { HOLDING = 0, ACTIVE = 1, DISCARDING = 2, INACTIVE = 3 };
  /// The manager is INACTIVE, or the request queues refuse the change.
  POA_PLAIN_EXCEPTION(AdapterInactive, "IDL:omg.org/PortableServer/POAManager/AdapterInactive:1.0")

  static POAManager* _nil() { return nullptr; }
  static POAManager* _duplicate(POAManager* p);
  static POAManager* _narrow(CORBA::Object* object);

  // Each of the four raises AdapterInactive once the manager is INACTIVE, or when the request queues refuse the
  // change; the state is then as it was. Asking for the state that there is changes nothing.

  /// Serves requests, those that were held first. The first change of any manager of the process also announces
  /// the process to its ORB: nothing is served before.
  virtual void activate(CORBA_ENV) = 0;
  /// Holds the requests that come from now on. Up to -ORBQueue of them; further ones are refused with TRANSIENT.
  virtual void hold_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;
  /// Refuses the requests that come from now on, and those that were held.
  virtual void discard_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;
  /// The end: requests are refused for good. With `etherealize_objects`, every active object of the manager's
  /// POAs is handed to the POA's servant activator, `wait_for_completion` being passed on to it.
  virtual void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                          CORBA_ENV) = 0;
  /// The state now; another thread may change it at once.
  virtual State get_state(CORBA_ENV) = 0;
  /// The id that it was created with; "" for the root POA's. The caller frees it. Not to be overridden.
  char* get_id(CORBA_ENV);
};
using POAManager_ptr = POAManager*;
POA_VAR_CLASS(POAManager_var, CORBA::ObjectVar<POAManager>)

class POA_API POAManagerList : public CORBA::Sequence<POAManager_var> {
 public:
  using Sequence::Sequence;
};
POA_VAR_CLASS(POAManagerList_var, CORBA::SequenceVar<POAManagerList>)

/// Makes POA managers beside the root POA's (POA::the_POAManagerFactory). Any thread.
class POA_API POAManagerFactory : public virtual CORBA::LocalObject {
 public:
  POA_PLAIN_EXCEPTION(ManagerAlreadyExists,
                      "IDL:omg.org/PortableServer/POAManagerFactory/ManagerAlreadyExists:1.0")

  static POAManagerFactory* _nil() { return nullptr; }
  static POAManagerFactory* _duplicate(POAManagerFactory* p) { return CORBA::idl::duplicate_local(p); }
  static POAManagerFactory* _narrow(CORBA::Object* object) {
    return CORBA::idl::narrow_local<POAManagerFactory>(object);
  }
  /// A manager of its own state, HOLDING at first; it lasts as long as the process. The policies are not looked at.
  /// BAD_PARAM for a null id, ManagerAlreadyExists for one that is taken ("" is the root POA's).
  virtual POAManager* create_POAManager(const char* id, const CORBA::PolicyList& policies, CORBA_ENV) = 0;
  virtual POAManagerList* list(CORBA_ENV) = 0;
  /// Nil when there is none.
  virtual POAManager* find(const char* id, CORBA_ENV) = 0;
};
using POAManagerFactory_ptr = POAManagerFactory*;
POA_VAR_CLASS(POAManagerFactory_var, CORBA::ObjectVar<POAManagerFactory>)

// ---- POA ----

/// One adapter: a name space of objects under one set of policies.
///
///   PortableServer::POA_var root = PortableServer::POA::_narrow(object);  // of "RootPOA"
///   PortableServer::POA_var poa = root->create_POA("accounts", nullptr, list);
///   PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId("4711");
///   poa->activate_object_with_id(id, &account);
///   CORBA::Object_var reference = poa->id_to_reference(id);
///   ...
///   poa->deactivate_object(id);
///
/// A POA object is a reference: duplicate and release it as any other; the POA itself lives until `destroy`.
/// Any thread may call any operation. Every operation raises CORBA::BAD_PARAM (0x4B510007) once the POA was
/// destroyed, and CORBA::NO_MEMORY when there is none; the exceptions named at an operation come beside that.
/// System exceptions carry 0x4B510007 where no other minor code is named. Texts, ids, lists and references that
/// an operation returns are the caller's, unless it is said otherwise; arguments are copied where they are kept,
/// but for servants, servant managers and activators, which stay the program's.
class POA_API POA : public virtual CORBA::Object {
 public:
  /// There is a child of that name.
  POA_PLAIN_EXCEPTION(AdapterAlreadyExists, "IDL:omg.org/PortableServer/POA/AdapterAlreadyExists:1.0")
  /// There is no child of that name, and no activator made one.
  POA_PLAIN_EXCEPTION(AdapterNonExistent, "IDL:omg.org/PortableServer/POA/AdapterNonExistent:1.0")
  /// There is no default servant.
  POA_PLAIN_EXCEPTION(NoServant, "IDL:omg.org/PortableServer/POA/NoServant:1.0")
  /// The id is active.
  POA_PLAIN_EXCEPTION(ObjectAlreadyActive, "IDL:omg.org/PortableServer/POA/ObjectAlreadyActive:1.0")
  /// The id is not active.
  POA_PLAIN_EXCEPTION(ObjectNotActive, "IDL:omg.org/PortableServer/POA/ObjectNotActive:1.0")
  /// The servant is active, or activating it failed.
  POA_PLAIN_EXCEPTION(ServantAlreadyActive, "IDL:omg.org/PortableServer/POA/ServantAlreadyActive:1.0")
  /// The servant is not active here, and may not become so by itself.
  POA_PLAIN_EXCEPTION(ServantNotActive, "IDL:omg.org/PortableServer/POA/ServantNotActive:1.0")
  /// The reference is none of this POA.
  POA_PLAIN_EXCEPTION(WrongAdapter, "IDL:omg.org/PortableServer/POA/WrongAdapter:1.0")
  /// The policies of the POA do not allow the operation.
  POA_PLAIN_EXCEPTION(WrongPolicy, "IDL:omg.org/PortableServer/POA/WrongPolicy:1.0")
  /// The policy list breaks a rule: NON_RETAIN needs USE_DEFAULT_SERVANT or USE_SERVANT_MANAGER,
  /// USE_DEFAULT_SERVANT needs MULTIPLE_ID, and IMPLICIT_ACTIVATION needs SYSTEM_ID and RETAIN. `index` is the element that completed the rejected combination.
  class POA_API InvalidPolicy : public CORBA::UserExceptionOf<InvalidPolicy> {
   public:
    static constexpr const char* repository_id = "IDL:omg.org/PortableServer/POA/InvalidPolicy:1.0";
    InvalidPolicy() = default;
    explicit InvalidPolicy(CORBA::UShort position) : index(position) {}

    CORBA::ExceptionMember<CORBA::UShort> index;
  };
  POA_VAR_CLASS(InvalidPolicy_var, CORBA::ExceptionVar<InvalidPolicy>)

  static POA* _nil() { return nullptr; }
  static POA* _duplicate(POA* p);
  /// Any non-nil reference narrows; one that is no POA of this process makes every operation raise BAD_PARAM.
  static POA* _narrow(CORBA::Object* object);

  // ---- The tree ----

  /// The name that `create_POA` was given; "rootPOA" for the root. Freed with CORBA::string_free.
  virtual char* the_name(CORBA_ENV) = 0;
  /// The parent, also while that is being destroyed. BAD_PARAM for the root POA, which has none.
  virtual POA* the_parent(CORBA_ENV) = 0;
  /// Newest first; empty when there is none. The time it takes is proportional to their number.
  virtual POAList* the_children(CORBA_ENV) = 0;
  /// The manager that gates the POA.
  virtual POAManager* the_POAManager(CORBA_ENV) = 0;
  /// The activator is the program's and must outlive its use here; nil takes it away.
  virtual void the_activator(AdapterActivator* activator, CORBA_ENV) = 0;
  /// The activator. BAD_PARAM when there is none.
  virtual AdapterActivator* the_activator(CORBA_ENV) = 0;

  /// A child POA. Nil manager: the one that the root POA has. The list may be empty and hold nil elements; of two
  /// policies of a kind the later one counts, and what it does not say is ORB_CTRL_MODEL, TRANSIENT, UNIQUE_ID,
  /// SYSTEM_ID, NO_IMPLICIT_ACTIVATION, RETAIN and USE_ACTIVE_OBJECT_MAP_ONLY. The name may hold any octets but
  /// NUL and 0xFF. AdapterAlreadyExists, InvalidPolicy; BAD_PARAM for a null or empty name, one that makes a path
  /// of more than 1,023 octets, and a manager of another process.
  virtual POA* create_POA(const char* adapter_name, POAManager* a_POAManager,
                          const CORBA::PolicyList& policies, CORBA_ENV) = 0;
  /// The child of that name; when there is none and `activate_it`, the adapter activator is asked to make it.
  /// AdapterNonExistent; BAD_PARAM for a null or empty name.
  virtual POA* find_POA(const char* adapter_name, CORBA::Boolean activate_it, CORBA_ENV) = 0;
  /// Destroys the POA and all below it: children first, each withdraws its references, and with
  /// `etherealize_objects` hands its active servants to its servant activator, to which `wait_for_completion` is
  /// passed on. Requests that are being served go on. BAD_PARAM for the root POA.
  virtual void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;

  // ---- Policies ----

  /// A duplicate of the process's policy of that value; BAD_PARAM for a number that is none.
  virtual ThreadPolicy* create_thread_policy(ThreadPolicyValue value, CORBA_ENV) = 0;
  virtual LifespanPolicy* create_lifespan_policy(LifespanPolicyValue value, CORBA_ENV) = 0;
  virtual IdUniquenessPolicy* create_id_uniqueness_policy(IdUniquenessPolicyValue value, CORBA_ENV) = 0;
  virtual IdAssignmentPolicy* create_id_assignment_policy(IdAssignmentPolicyValue value, CORBA_ENV) = 0;
  virtual ImplicitActivationPolicy* create_implicit_activation_policy(ImplicitActivationPolicyValue value,
                                                                      CORBA_ENV) = 0;
  virtual ServantRetentionPolicy* create_servant_retention_policy(ServantRetentionPolicyValue value,
                                                                  CORBA_ENV) = 0;
  virtual RequestProcessingPolicy* create_request_processing_policy(RequestProcessingPolicyValue value,
                                                                    CORBA_ENV) = 0;

  // ---- Who serves what is not active ----

  /// The manager itself, not duplicated. WrongPolicy without USE_SERVANT_MANAGER; BAD_PARAM when none was
  /// set.
  virtual ServantManager* get_servant_manager(CORBA_ENV) = 0;
  /// Once a POA; the manager is the program's and must outlive the POA. WrongPolicy, BAD_INV_ORDER
  /// (0x4B510303) the second time, BAD_PARAM when the kind of manager does not fit the servant retention
  /// policy.
  virtual void set_servant_manager(ServantManager* imgr, CORBA_ENV) = 0;
  /// The default servant, with a count for the caller when it counts. WrongPolicy, NoServant.
  virtual ServantBase* get_servant(CORBA_ENV) = 0;
  /// Installs the servant for all objects that are not in the map, under an id of its own; null takes it away,
  /// with the reference of that id. A servant may be the default of several POAs, and the program may delete it
  /// when it is that of none and no request is in it. WrongPolicy without USE_DEFAULT_SERVANT.
  virtual void set_servant(ServantBase* p_servant, CORBA_ENV) = 0;

  // ---- Activation ----

  /// Activates under a new system id. BAD_PARAM for null, WrongPolicy without RETAIN and SYSTEM_ID,
  /// ServantAlreadyActive (with UNIQUE_ID). The servant stays the program's; it must not be deleted while active.
  virtual ObjectId* activate_object(ServantBase* p_servant, CORBA_ENV) = 0;
  /// Activates under `id`, any octets. With MULTIPLE_ID an id may be activated again: the first one answers until
  /// it is deactivated. BAD_PARAM for an empty id or null, WrongPolicy without RETAIN; with UNIQUE_ID
  /// ServantAlreadyActive, ObjectAlreadyActive.
  virtual void activate_object_with_id(const ObjectId& id, ServantBase* p_servant, CORBA_ENV) = 0;
  /// The object is active no more, and its references are withdrawn; then the servant activator, if there is one,
  /// is handed the servant. Requests may still be in it: once they have ended the servant is the program's alone.
  /// WrongPolicy without RETAIN, ObjectNotActive; BAD_PARAM for an empty id.
  virtual void deactivate_object(const ObjectId& oid, CORBA_ENV) = 0;

  // ---- References to objects that need not be active ----

  /// Of repository id `intf`, under a new system id. BAD_PARAM for null, WrongPolicy without SYSTEM_ID.
  virtual CORBA::Object* create_reference(const char* intf, CORBA_ENV) = 0;
  /// The same under `oid`. BAD_PARAM for null and for an empty id, WrongPolicy with SYSTEM_ID.
  virtual CORBA::Object* create_reference_with_id(const ObjectId& oid, const char* intf, CORBA_ENV) = 0;

  // ---- Conversions ----
  // Servants are returned with a count for the caller, when they count; of others the program sees to it that nobody
  // deletes them meanwhile.

  /// With UNIQUE_ID the id that the servant is active under; else with IMPLICIT_ACTIVATION a new one, under which
  /// it is active from now on; else that of the default servant. BAD_PARAM for null, ServantNotActive,
  /// WrongPolicy.
  virtual ObjectId* servant_to_id(ServantBase* p_servant, CORBA_ENV) = 0;
  /// The reference of the same object, which the servant keeps: asked again, an equivalent one. BAD_PARAM for
  /// null, ServantNotActive, WrongPolicy without RETAIN and SYSTEM_ID, or with neither UNIQUE_ID nor
  /// IMPLICIT_ACTIVATION.
  virtual CORBA::Object* servant_to_reference(ServantBase* p_servant, CORBA_ENV) = 0;
  /// The active servant of the reference's object, else the default servant. ObjectNotActive, WrongAdapter for a
  /// reference of another POA, WrongPolicy with neither RETAIN nor USE_DEFAULT_SERVANT, BAD_PARAM for nil.
  virtual ServantBase* reference_to_servant(CORBA::Object* reference, CORBA_ENV) = 0;
  /// The id in the reference, active or not. WrongAdapter, BAD_PARAM for nil.
  virtual ObjectId* reference_to_id(CORBA::Object* reference, CORBA_ENV) = 0;
  /// The active servant, else the default servant. ObjectNotActive, WrongPolicy, BAD_PARAM for an empty id.
  virtual ServantBase* id_to_servant(const ObjectId& oid, CORBA_ENV) = 0;
  /// The reference of an active object, as servant_to_reference gives it. ObjectNotActive, WrongPolicy without
  /// RETAIN, BAD_PARAM for an empty id.
  virtual CORBA::Object* id_to_reference(const ObjectId& oid, CORBA_ENV) = 0;

  // Not to be overridden:
  /// Octets that no other POA of this process has, or had.
  CORBA::OctetSeq* id(CORBA_ENV);
  /// What makes further managers, the same for all POAs of the process, counted once more.
  POAManagerFactory* the_POAManagerFactory(CORBA_ENV);
  /// At most so many objects that the servant activator makes from now on stay active; 0, as at first: any number.
  /// Beyond it the one that was used longest ago is handed to `etherealize` as by deactivate_object, on the thread of
  /// the request that brought the new one. One that a request is in stays, so there may be some more meanwhile. A
  /// request may have an id made again while it is being etherealized. Clients that make up ids cost memory without end
  /// else. WrongPolicy without RETAIN and USE_SERVANT_MANAGER.
  ///
  ///   poa->set_servant_manager(&accounts);
  ///   poa->set_incarnation_limit(10'000);
  void set_incarnation_limit(CORBA::ULong most, CORBA_ENV);
};

// ---- What a program gives a POA ----

/// Makes missing child POAs, when a request or `find_POA` comes upon one.
///
///   class Customers : public PortableServer_AdapterActivator_impl {
///     CORBA::Boolean unknown_adapter(PortableServer::POA* parent, const char* name, CORBA::Environment&) override {
///       if (!is_customer(name)) return false;
///       PortableServer::POA_var made = parent->create_POA(name, nullptr, CORBA::PolicyList());
///       return true;
///     }
///   };
///
/// Called with no lock held: for one name by one thread at a time (others wait at most 10 s for it), for different
/// names by several at once. The object is the program's and must outlive its use.
class POA_API AdapterActivator : public virtual CORBA::Object {
 public:
  static AdapterActivator* _nil() { return nullptr; }
  static AdapterActivator* _duplicate(AdapterActivator* p);
  static AdapterActivator* _narrow(CORBA::Object* object);
  /// Creates `name` under `parent` and returns true, or returns false: then the request, or `find_POA`, fails with
  /// AdapterNonExistent. `parent` stays the library's, and `name` is good for the length of the call. Programs override
  /// one of the three; each gives the question on to the next one.
  virtual CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA::Environment& ev);
  /// What the library calls.
  virtual CORBA::Boolean unknown_adapter(POA* parent, char* name, CORBA_ENV) {
    return unknown_adapter(parent, static_cast<const char*>(name), ev);
  }
  /// The standard's signature. NO_IMPLEMENT here.
  virtual CORBA::Boolean unknown_adapter(POA* parent, const char* name);
};
POA_VAR_CLASS(AdapterActivator_var, CORBA::ObjectVar<AdapterActivator>)

/// A servant manager is an activator (RETAIN) or a locator (NON_RETAIN); programs derive from those two. It is the
/// program's, and has to outlive the POAs that it was set at.
class POA_API ServantManager : public virtual CORBA::Object {
 public:
  ~ServantManager() override = 0;
  static ServantManager* _nil() { return nullptr; }
  static ServantManager* _duplicate(ServantManager* p);
  static ServantManager* _narrow(CORBA::Object* object);
  /// This manager as a ServantActivator* or ServantLocator*; null when it is not of that kind.
  virtual void* get_servant_activator() { return nullptr; }
  virtual void* get_servant_locator() { return nullptr; }
  CORBA::Boolean is_activator() const { return _is_activator; }

 protected:
  CORBA::Boolean _is_activator = 1;
};
POA_VAR_CLASS(ServantManager_var, CORBA::ObjectVar<ServantManager>)

/// Makes servants when the first request for an object comes, which is active from then on.
///
///   class Accounts : public PortableServer_ServantActivator_impl {
///     PortableServer::ServantBase* incarnate(const PortableServer::ObjectId& id, PortableServer::POA*,
///                                            CORBA::Environment&) override {
///       return new Account(load(id));
///     }
///     void etherealize(const PortableServer::ObjectId&, PortableServer::POA*, PortableServer::ServantBase* servant,
///                      CORBA::Boolean, CORBA::Boolean, CORBA::Environment&) override {
///       servant->servant_delete();
///     }
///   };
///   poa->set_servant_manager(&accounts);  // of a POA with RETAIN and USE_SERVANT_MANAGER
///
/// What it throws reaches the client as UNKNOWN, unless it has the standard's signatures.
class POA_API ServantActivator : public virtual ServantManager {
 public:
  static ServantActivator* _nil() { return nullptr; }
  static ServantActivator* _duplicate(ServantActivator* p);
  static ServantActivator* _narrow(CORBA::Object* object);
  void* get_servant_activator() override { return this; }

  /// The servant of `oid`, which stays the program's. Called with no lock held; two threads may ask for one
  /// id at once. Gives the question on to the standard's form.
  virtual ServantBase* incarnate(const ObjectId& oid, POA* adapter, CORBA::Environment& ev);
  /// The object is active no more. Requests may still be in the servant: ServantBase::servant_delete, not
  /// delete, is the way to be rid of it. At destruction and deactivation of a POA it is called with the POA
  /// tree's lock held (re-entrant for the calling thread): it may call POA operations but must not wait for
  /// another thread that does.
  virtual void etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv,
                           CORBA::Boolean cleanup_in_progress, CORBA::Boolean remaining_activations,
                           CORBA::Environment& ev);

  /// The standard's signatures, for programs that override these instead. What incarnate raises reaches the client
  /// as it is; ForwardRequest sends it elsewhere. etherealize is told whether the POA or its manager is at its end, and
  /// whether the servant has other objects in the POA. NO_IMPLEMENT here, and nothing.
  virtual ServantBase* incarnate(const ObjectId& oid, POA* adapter);
  virtual void etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv,
                           CORBA::Boolean cleanup_in_progress, CORBA::Boolean remaining_activations);
};
using ServantActivator_ptr = ServantActivator*;
POA_VAR_CLASS(ServantActivator_var, CORBA::ObjectVar<ServantActivator>)

/// Finds a servant for each request; nothing stays active.
///
///   class Rows : public PortableServer_ServantLocator_impl {
///     PortableServer::ServantBase* preinvoke(const PortableServer::ObjectId& id, PortableServer::POA*,
///                                            const char* operation, Cookie& cookie,
///                                            CORBA::Environment&) override {
///       cookie = open(id);
///       return &row_servant_;
///     }
///     void postinvoke(const PortableServer::ObjectId&, PortableServer::POA*, const char*, Cookie cookie,
///                     PortableServer::ServantBase*, CORBA::Environment&) override {
///       close(cookie);
///     }
///   };
///   poa->set_servant_manager(&rows);  // of a POA with NON_RETAIN and USE_SERVANT_MANAGER
///
/// A system exception reaches the client as it is, any other as UNKNOWN. When the operation throws, `postinvoke`
/// is not called, unless it has the standard's signatures.
class POA_API ServantLocator : public virtual ServantManager {
 public:
  /// A number that preinvoke leaves for the postinvoke of the same request.
  using Cookie = CORBA::ULong;

  ServantLocator() { _is_activator = 0; }
  static ServantLocator* _nil() { return nullptr; }
  static ServantLocator* _duplicate(ServantLocator* p);
  static ServantLocator* _narrow(CORBA::Object* object);
  void* get_servant_locator() override { return this; }

  /// The servant for one request. Called with no lock held, by many threads at once.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie& the_cookie,
                                 CORBA_ENV);
  /// After the request that preinvoke gave a servant for, when that was served; same thread, same cookie.
  virtual void postinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie the_cookie,
                          ServantBase* the_servant, CORBA_ENV);
  /// What the library calls: the same for programs that declare the operation as `char*`.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, char* operation, Cookie& the_cookie,
                                 CORBA_ENV) {
    return preinvoke(oid, adapter, static_cast<const char*>(operation), the_cookie, ev);
  }
  virtual void postinvoke(const ObjectId& oid, POA* adapter, char* operation, Cookie the_cookie,
                          ServantBase* the_servant, CORBA_ENV) {
    postinvoke(oid, adapter, static_cast<const char*>(operation), the_cookie, the_servant, ev);
  }

  /// The standard's signatures, for programs that override these instead: the cookie is a pointer, preinvoke may raise
  /// ForwardRequest, and postinvoke follows each preinvoke that gave a servant, whatever became of the request.
  /// NO_IMPLEMENT here, and nothing.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, const char* operation, void*& the_cookie);
  virtual void postinvoke(const ObjectId& oid, POA* adapter, const char* operation, void* the_cookie,
                          ServantBase* the_servant);
};
using ServantLocator_ptr = ServantLocator*;
POA_VAR_CLASS(ServantLocator_var, CORBA::ObjectVar<ServantLocator>)

/// On whose behalf the calling thread runs: "POACurrent" among the initial references. One object serves all
/// threads; each is answered for the innermost request that it is in.
///
///   PortableServer::ObjectId_var id = current->get_object_id();  // in an operation of a default servant
class POA_API Current : public virtual CORBA::Current {
 public:
  POA_PLAIN_EXCEPTION(NoContext, "IDL:omg.org/PortableServer/Current/NoContext:1.0")

  static Current* _nil() { return nullptr; }
  static Current* _duplicate(Current* p);
  static Current* _narrow(CORBA::Object* object);
  /// The POA of the request. NoContext outside a request.
  virtual POA* get_POA(CORBA_ENV) = 0;
  /// A copy of the id of the object that was called. NoContext outside a request, and for a reference that
  /// carries no id.
  virtual ObjectId* get_object_id(CORBA_ENV) = 0;
  /// The object that was called, as a new reference, and the servant that serves it.
  CORBA::Object* get_reference(CORBA_ENV);
  ServantBase* get_servant(CORBA_ENV);
};
using Current_ptr = Current*;
POA_VAR_CLASS(Current_var, CORBA::ObjectVar<Current>)

}  // namespace PortableServer

#pragma GCC visibility pop

#undef POA_PLAIN_EXCEPTION
