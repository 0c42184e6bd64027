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

/// A policy of one value; the seven kinds derive from it. `Type` is its policy type id, `Name` its interface's
/// name.
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

  virtual Value value(CORBA_ENV) = 0;
};

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

/// Gates the requests of the POAs that share it.
class POA_API POAManager : public virtual CORBA::Object {
 public:
  enum State : CORBA::ULong { HOLDING = 0, ACTIVE = 1, DISCARDING = 2, INACTIVE = 3 };
  POA_PLAIN_EXCEPTION(AdapterInactive, "IDL:omg.org/PortableServer/POAManager/AdapterInactive:1.0")

  static POAManager* _nil() { return nullptr; }
  static POAManager* _duplicate(POAManager* p);
  static POAManager* _narrow(CORBA::Object* object);

  /// Each raises AdapterInactive once the manager is INACTIVE, or when the request queues refuse the change.
  virtual void activate(CORBA_ENV) = 0;
  virtual void hold_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;
  virtual void discard_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;
  virtual void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                          CORBA_ENV) = 0;
  virtual State get_state(CORBA_ENV) = 0;
};
using POAManager_ptr = POAManager*;
POA_VAR_CLASS(POAManager_var, CORBA::ObjectVar<POAManager>)

// ---- POA ----

/// One adapter: a name space of objects under one set of policies. Every operation raises CORBA::BAD_PARAM
/// (0x4B510007) once the POA was destroyed; the exceptions named at an operation come beside that.
class POA_API POA : public virtual CORBA::Object {
 public:
  POA_PLAIN_EXCEPTION(AdapterAlreadyExists, "IDL:omg.org/PortableServer/POA/AdapterAlreadyExists:1.0")
  POA_PLAIN_EXCEPTION(AdapterNonExistent, "IDL:omg.org/PortableServer/POA/AdapterNonExistent:1.0")
  POA_PLAIN_EXCEPTION(NoServant, "IDL:omg.org/PortableServer/POA/NoServant:1.0")
  POA_PLAIN_EXCEPTION(ObjectAlreadyActive, "IDL:omg.org/PortableServer/POA/ObjectAlreadyActive:1.0")
  POA_PLAIN_EXCEPTION(ObjectNotActive, "IDL:omg.org/PortableServer/POA/ObjectNotActive:1.0")
  POA_PLAIN_EXCEPTION(ServantAlreadyActive, "IDL:omg.org/PortableServer/POA/ServantAlreadyActive:1.0")
  POA_PLAIN_EXCEPTION(ServantNotActive, "IDL:omg.org/PortableServer/POA/ServantNotActive:1.0")
  POA_PLAIN_EXCEPTION(WrongAdapter, "IDL:omg.org/PortableServer/POA/WrongAdapter:1.0")
  POA_PLAIN_EXCEPTION(WrongPolicy, "IDL:omg.org/PortableServer/POA/WrongPolicy:1.0")
  /// The policy list breaks a rule; `index` is the element that completed the rejected combination.
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

  virtual char* the_name(CORBA_ENV) = 0;
  /// BAD_PARAM for the root POA, which has none.
  virtual POA* the_parent(CORBA_ENV) = 0;
  /// Newest first.
  virtual POAList* the_children(CORBA_ENV) = 0;
  virtual POAManager* the_POAManager(CORBA_ENV) = 0;
  /// The activator is the program's and must outlive its use here; nil takes it away.
  virtual void the_activator(AdapterActivator* activator, CORBA_ENV) = 0;
  /// BAD_PARAM when there is none.
  virtual AdapterActivator* the_activator(CORBA_ENV) = 0;

  /// A child POA. Nil manager: the one that the root POA has. The name may hold any octets but NUL and 0xFF.
  /// AdapterAlreadyExists, InvalidPolicy; BAD_PARAM for a null or empty name.
  virtual POA* create_POA(const char* adapter_name, POAManager* a_POAManager,
                          const CORBA::PolicyList& policies, CORBA_ENV) = 0;
  /// The child of that name, made by the adapter activator when need be and asked for. AdapterNonExistent.
  virtual POA* find_POA(const char* adapter_name, CORBA::Boolean activate_it, CORBA_ENV) = 0;
  /// Destroys the POA and all below it. BAD_PARAM for the root POA.
  virtual void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;

  /// The shared policy of a value; BAD_PARAM for a number that is none.
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

  /// The manager itself, not duplicated. WrongPolicy without USE_SERVANT_MANAGER; BAD_PARAM when none was
  /// set.
  virtual ServantManager* get_servant_manager(CORBA_ENV) = 0;
  /// Once a POA; the manager is the program's and must outlive the POA. WrongPolicy, BAD_INV_ORDER
  /// (0x4B510303) the second time, BAD_PARAM when the kind of manager does not fit the servant retention
  /// policy.
  virtual void set_servant_manager(ServantManager* imgr, CORBA_ENV) = 0;
  /// The default servant, no count added. WrongPolicy, NoServant.
  virtual ServantBase* get_servant(CORBA_ENV) = 0;
  /// Null takes it away. WrongPolicy.
  virtual void set_servant(ServantBase* p_servant, CORBA_ENV) = 0;

  /// Activates under a new system id. BAD_PARAM for null, WrongPolicy without RETAIN and SYSTEM_ID,
  /// ServantAlreadyActive. The servant stays the program's; it must not be deleted while active.
  virtual ObjectId* activate_object(ServantBase* p_servant, CORBA_ENV) = 0;
  /// BAD_PARAM for an empty id or null, WrongPolicy without RETAIN; with UNIQUE_ID ServantAlreadyActive,
  /// ObjectAlreadyActive.
  virtual void activate_object_with_id(const ObjectId& id, ServantBase* p_servant, CORBA_ENV) = 0;
  /// WrongPolicy, ObjectNotActive; BAD_PARAM for an empty id.
  virtual void deactivate_object(const ObjectId& oid, CORBA_ENV) = 0;

  /// References to objects that need not be active, of repository id `intf`. BAD_PARAM for null; WrongPolicy
  /// without (with) SYSTEM_ID.
  virtual CORBA::Object* create_reference(const char* intf, CORBA_ENV) = 0;
  virtual CORBA::Object* create_reference_with_id(const ObjectId& oid, const char* intf, CORBA_ENV) = 0;

  /// Conversions. ServantNotActive or ObjectNotActive when there is nothing to convert; WrongPolicy;
  /// WrongAdapter for a reference of another POA. Servants are returned without a count.
  virtual ObjectId* servant_to_id(ServantBase* p_servant, CORBA_ENV) = 0;
  virtual CORBA::Object* servant_to_reference(ServantBase* p_servant, CORBA_ENV) = 0;
  virtual ServantBase* reference_to_servant(CORBA::Object* reference, CORBA_ENV) = 0;
  virtual ObjectId* reference_to_id(CORBA::Object* reference, CORBA_ENV) = 0;
  virtual ServantBase* id_to_servant(const ObjectId& oid, CORBA_ENV) = 0;
  virtual CORBA::Object* id_to_reference(const ObjectId& oid, CORBA_ENV) = 0;
};

// ---- What a program gives a POA ----

/// Makes missing child POAs. Called with no lock held: for one name by one thread at a time (others wait at most
/// 10 s for it), for different names by several at once.
class POA_API AdapterActivator : public virtual CORBA::Object {
 public:
  static AdapterActivator* _nil() { return nullptr; }
  static AdapterActivator* _duplicate(AdapterActivator* p);
  static AdapterActivator* _narrow(CORBA::Object* object);
  /// Creates `name` under `parent` and returns true, or returns false. `parent` stays the library's.
  virtual CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA_ENV) = 0;
  /// What the library calls: the same for programs that declare the name as `char*`.
  virtual CORBA::Boolean unknown_adapter(POA* parent, char* name, CORBA_ENV) {
    return unknown_adapter(parent, static_cast<const char*>(name), env);
  }
};
POA_VAR_CLASS(AdapterActivator_var, CORBA::ObjectVar<AdapterActivator>)

/// A servant manager is an activator (RETAIN) or a locator (NON_RETAIN); programs derive from those two.
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

class POA_API ServantActivator : public virtual ServantManager {
 public:
  static ServantActivator* _nil() { return nullptr; }
  static ServantActivator* _duplicate(ServantActivator* p);
  static ServantActivator* _narrow(CORBA::Object* object);
  void* get_servant_activator() override { return this; }

  /// The servant of `oid`, which stays the program's. Called with no lock held; two threads may ask for one
  /// id at once.
  virtual ServantBase* incarnate(const ObjectId& oid, POA* adapter, CORBA_ENV) = 0;
  /// The object is active no more. Requests may still be in the servant: ServantBase::servant_delete, not
  /// delete, is the way to be rid of it. At destruction and deactivation of a POA it is called with the POA
  /// tree's lock held (re-entrant for the calling thread): it may call POA operations but must not wait for
  /// another thread that does.
  virtual void etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv,
                           CORBA::Boolean cleanup_in_progress, CORBA::Boolean remaining_activations,
                           CORBA_ENV) = 0;
};
using ServantActivator_ptr = ServantActivator*;
POA_VAR_CLASS(ServantActivator_var, CORBA::ObjectVar<ServantActivator>)

class POA_API ServantLocator : public virtual ServantManager {
 public:
  using Cookie = CORBA::ULong;

  ServantLocator() { _is_activator = 0; }
  static ServantLocator* _nil() { return nullptr; }
  static ServantLocator* _duplicate(ServantLocator* p);
  static ServantLocator* _narrow(CORBA::Object* object);
  void* get_servant_locator() override { return this; }

  /// The servant for one request. Called with no lock held, by many threads at once.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie& the_cookie,
                                 CORBA_ENV) = 0;
  /// After the request that preinvoke gave a servant for; same thread, same cookie.
  virtual void postinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie the_cookie,
                          ServantBase* the_servant, CORBA_ENV) = 0;
  /// What the library calls: the same for programs that declare the operation as `char*`.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, char* operation, Cookie& the_cookie,
                                 CORBA_ENV) {
    return preinvoke(oid, adapter, static_cast<const char*>(operation), the_cookie, env);
  }
  virtual void postinvoke(const ObjectId& oid, POA* adapter, char* operation, Cookie the_cookie,
                          ServantBase* the_servant, CORBA_ENV) {
    postinvoke(oid, adapter, static_cast<const char*>(operation), the_cookie, the_servant, env);
  }
};
using ServantLocator_ptr = ServantLocator*;
POA_VAR_CLASS(ServantLocator_var, CORBA::ObjectVar<ServantLocator>)

/// On whose behalf the calling thread runs.
class POA_API Current : public virtual CORBA::Current {
 public:
  POA_PLAIN_EXCEPTION(NoContext, "IDL:omg.org/PortableServer/Current/NoContext:1.0")

  static Current* _nil() { return nullptr; }
  static Current* _duplicate(Current* p);
  static Current* _narrow(CORBA::Object* object);
  /// NoContext outside a request.
  virtual POA* get_POA(CORBA_ENV) = 0;
  virtual ObjectId* get_object_id(CORBA_ENV) = 0;
};
using Current_ptr = Current*;
POA_VAR_CLASS(Current_var, CORBA::ObjectVar<Current>)

}  // namespace PortableServer

#pragma GCC visibility pop

#undef POA_PLAIN_EXCEPTION
