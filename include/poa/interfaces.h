// The interfaces of module PortableServer, as the OMG C++ mapping presents them (CORBA, "The Portable Object Adapter").
//
// Every operation takes a CORBA::Environment last, by default a fresh one that nobody looks at, reports a
// failure both there and by throwing, and may be called from any thread. Every reference, id, list and string
// returned is new and the caller's, unless said otherwise; hold it in a _var. References, ids and texts that are
// given as arguments stay the caller's.
//
// X_ptr is a plain pointer, X_var owns one reference. The static functions of each interface are those of the mapping:
// _nil is the null pointer, _duplicate gives a reference more (nil for nil), _narrow the same object as that interface.
// What refers to objects of the library counts by its handle, and its wrappers may be released in any order.
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

/// POAs, as the_children gives them: an element owns its reference, and `list[i]` lends it.
///
///   PortableServer::POAList_var children = root->the_children();
///   for (CORBA::ULong i = 0; i < children->length(); ++i) {
///     CORBA::String_var name = children[i]->the_name();
///     std::cout << name.in() << std::endl;
///   }
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
/// long as one likes. `destroy` is not needed, and does nothing.
template <class Kind, class Value, CORBA::PolicyType Type, CORBA::Text Name>
class POA_API PolicyOf : public virtual CORBA::Policy {
 public:
  using value_type = Value;
  static constexpr CORBA::PolicyType type_id = Type;
  static constexpr CORBA::JoinedText repository_id{"IDL:omg.org/PortableServer/", Name.value, ":1.0"};
  static constexpr const char* interface_name = Name.value;

  static Kind* _nil() { return nullptr; }
  /// A copy made by the policy itself, which the caller releases; nil for nil.
  static Kind* _duplicate(Kind* p);
  /// Any non-nil reference narrows: a policy of this kind that this process made keeps its value, anything else gives
  /// one with the value that counts where nothing is said. Nil for nil. The caller releases it.
  static Kind* _narrow(CORBA::Object* object);

  /// The value. Raises nothing.
  virtual Value value(CORBA_ENV) = 0;
};

// In this order: whether requests of the POA run at once or one after the other; whether its references outlive the
// process; whether a servant may be several of its objects; who makes up ids; whether a servant becomes active when
// its reference is asked for; whether active objects are kept in a map; and who serves what the map does not hold.
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
/// any operation, also one that serves a request; the state changes as a whole. Nothing waits for requests that are
/// being served: what the standard calls wait_for_completion is accepted, and waits for nobody. All operations raise
/// BAD_PARAM (0x4B510007) on a reference that is no manager of this process.
class POA_API POAManager : public virtual CORBA::Object {
 public:
  /// What becomes of a request: held until the state changes; served; refused with TRANSIENT (0x4B510301), so
  /// that its client may try again; refused for good (UNKNOWN).
  enum State : CORBA::ULong { HOLDING = 0, ACTIVE = 1, DISCARDING = 2, INACTIVE = 3 };
  /// The manager is INACTIVE, the request queues refuse the change, or etherealizing failed.
  POA_PLAIN_EXCEPTION(AdapterInactive, "IDL:omg.org/PortableServer/POAManager/AdapterInactive:1.0")

  static POAManager* _nil() { return nullptr; }
  static POAManager* _duplicate(POAManager* p);
  /// Any non-nil reference narrows; one that is no manager of this process makes every operation raise BAD_PARAM.
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
  /// The end: requests are refused for good, those that were held as well. With `etherealize_objects`, every active
  /// object of the manager's POAs with RETAIN and USE_SERVANT_MANAGER is handed to the POA's servant activator,
  /// `wait_for_completion` being passed on to it; what that throws, and such a POA without an activator, end it with
  /// AdapterInactive, and the manager is INACTIVE all the same. The POAs stay, until they are destroyed.
  virtual void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                          CORBA_ENV) = 0;
  /// The state now; another thread may change it at once.
  virtual State get_state(CORBA_ENV) = 0;
  /// The id that it was created with; "" for the root POA's. The caller frees it with CORBA::string_free. Not to be
  /// overridden.
  char* get_id(CORBA_ENV);
};
using POAManager_ptr = POAManager*;
POA_VAR_CLASS(POAManager_var, CORBA::ObjectVar<POAManager>)

/// Managers, as POAManagerFactory::list gives them: an element owns its reference.
///
///   PortableServer::POAManagerFactory_var factory = root->the_POAManagerFactory();
///   PortableServer::POAManagerList_var all = factory->list();
///   for (CORBA::ULong i = 0; i < all->length(); ++i) all[i]->activate();
class POA_API POAManagerList : public CORBA::Sequence<POAManager_var> {
 public:
  using Sequence::Sequence;
};
POA_VAR_CLASS(POAManagerList_var, CORBA::SequenceVar<POAManagerList>)

/// Makes POA managers beside the root POA's (POA::the_POAManagerFactory). Any thread.
///
///   PortableServer::POAManagerFactory_var factory = root->the_POAManagerFactory();
///   PortableServer::POAManager_var own = factory->create_POAManager("reports", CORBA::PolicyList());
///   PortableServer::POA_var reports = root->create_POA("reports", own, list);
///   own->activate();  // the root's may go on holding
class POA_API POAManagerFactory : public virtual CORBA::LocalObject {
 public:
  /// The id is taken.
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
  /// All of the process, the root POA's first, the others by id. The caller frees the list.
  virtual POAManagerList* list(CORBA_ENV) = 0;
  /// The one of that id; nil when there is none, and for null. "" is the root POA's.
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
///   poa->activate_object_with_id(id, &servant);
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
  // What the operations raise. Each is a class without members, but InvalidPolicy, and X_var owns one.

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
  /// USE_DEFAULT_SERVANT needs MULTIPLE_ID, and IMPLICIT_ACTIVATION needs SYSTEM_ID and RETAIN. `index` is the element
  /// of the list that completed the rejected combination, from 0.
  ///
  ///   try {
  ///     PortableServer::POA_var made = root->create_POA("rows", nullptr, list);
  ///   } catch (const PortableServer::POA::InvalidPolicy& e) {
  ///     std::cerr << "policy " << e.index << " does not fit" << std::endl;
  ///   }
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
  /// The manager that gates the POA, as a new reference.
  virtual POAManager* the_POAManager(CORBA_ENV) = 0;
  /// Who makes missing children; nil takes it away. A local object that counts (CORBA::LocalObject) is counted once
  /// more until the POA is gone; any other is the program's and must outlive the POA: a request may be in it still.
  virtual void the_activator(AdapterActivator* activator, CORBA_ENV) = 0;
  /// The activator, counted once more, or, of one that does not count, a bare reference that is of no use. BAD_PARAM
  /// when there is none.
  virtual AdapterActivator* the_activator(CORBA_ENV) = 0;

  /// A child POA, as a new reference. Nil manager: the one that the root POA has, which holds requests until it is
  /// activated. Requests for the child may come before this returns. The list may be empty and hold nil elements; of
  /// two policies of a kind the later one counts, and what it does not say is ORB_CTRL_MODEL, TRANSIENT, UNIQUE_ID,
  /// SYSTEM_ID, NO_IMPLICIT_ACTIVATION, RETAIN and USE_ACTIVE_OBJECT_MAP_ONLY. The name may hold any octets but NUL
  /// and 0xFF. AdapterAlreadyExists, InvalidPolicy; BAD_PARAM for a null or empty name, one that makes a path of more
  /// than 1,023 octets, and a manager of another process.
  virtual POA* create_POA(const char* adapter_name, POAManager* a_POAManager,
                          const CORBA::PolicyList& policies, CORBA_ENV) = 0;
  /// The child of that name; when there is none and `activate_it`, the adapter activator is asked to make it.
  /// AdapterNonExistent; BAD_PARAM for a null or empty name. What an activator throws comes out as it is.
  virtual POA* find_POA(const char* adapter_name, CORBA::Boolean activate_it, CORBA_ENV) = 0;
  /// Destroys the POA and all below it: children first, each withdraws its references, and with `etherealize_objects`
  /// hands its active servants to its servant activator, to which `wait_for_completion` is passed on. Requests that
  /// are being served go on, and nobody waits for them: servants that do not count are the program's once those have
  /// ended. Requests that come later end with UNKNOWN, or find the POA that is made anew under the name. BAD_PARAM
  /// for the root POA, which goes with the process. What an activator throws comes out of it: the POA is there still,
  /// and can be destroyed again.
  virtual void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion, CORBA_ENV) = 0;

  // ---- Policies ----

  // Each gives a duplicate of the process's policy of that value, for the caller to release (or to put into a
  // PolicyList, which does), and raises BAD_PARAM for a number that is none.

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

  /// The manager itself: counted once more when it counts, to be released then; else the program's own, which it is
  /// not to release. WrongPolicy without USE_SERVANT_MANAGER; BAD_PARAM when none was set.
  virtual ServantManager* get_servant_manager(CORBA_ENV) = 0;
  /// Once a POA. A local object that counts (CORBA::LocalObject, the _this of POA_PortableServer::ServantActivator)
  /// is counted once more until the POA is gone; any other is the program's and must outlive the POA. Null changes
  /// nothing. WrongPolicy without USE_SERVANT_MANAGER, BAD_INV_ORDER (0x4B510303) the second time, BAD_PARAM when the
  /// kind of manager does not fit the servant retention policy: an activator goes with RETAIN, a locator with
  /// NON_RETAIN.
  virtual void set_servant_manager(ServantManager* imgr, CORBA_ENV) = 0;
  /// The default servant, with a count for the caller when it counts. WrongPolicy without USE_DEFAULT_SERVANT,
  /// NoServant.
  virtual ServantBase* get_servant(CORBA_ENV) = 0;
  /// Installs the servant for all objects that are not in the map, under an id of its own; null takes it away,
  /// with the reference of that id. A servant may be the default of several POAs, and the program may delete it
  /// when it is that of none and no request is in it; one that counts has a count of the POA's meanwhile. The servant
  /// that is there already changes nothing. WrongPolicy without USE_DEFAULT_SERVANT.
  ///
  ///   poa->set_servant(&servant);
  ///   CORBA::Object_var row = poa->create_reference_with_id(id, "IDL:Bank/Account:1.0");
  virtual void set_servant(ServantBase* p_servant, CORBA_ENV) = 0;

  // ---- Activation ----

  /// Activates under a new system id, and gives that. BAD_PARAM for null, WrongPolicy without RETAIN and SYSTEM_ID,
  /// ServantAlreadyActive (with UNIQUE_ID). The servant stays the program's, which does not delete it while it is
  /// active; of one that counts the POA takes a count until the end of the last request after its deactivation.
  ///
  ///   PortableServer::ServantBase_var mine = new Account;
  ///   PortableServer::ObjectId_var made = poa->activate_object(mine);
  ///   CORBA::Object_var reference = poa->id_to_reference(made);
  virtual ObjectId* activate_object(ServantBase* p_servant, CORBA_ENV) = 0;
  /// Activates under `id`, any octets. With MULTIPLE_ID an id may be activated again: the first one answers until
  /// it is deactivated. Also with SYSTEM_ID any id is taken. Whose the servant is: as above. BAD_PARAM for an empty id
  /// or null, WrongPolicy without RETAIN; with UNIQUE_ID ServantAlreadyActive, ObjectAlreadyActive.
  virtual void activate_object_with_id(const ObjectId& id, ServantBase* p_servant, CORBA_ENV) = 0;
  /// The object is active no more, and its references are withdrawn; then the servant activator, if there is one, is
  /// handed the servant, on this thread and with no lock held. Requests may still be in it: once they have ended the
  /// servant is the program's alone. A request that comes later is answered as for any object that is not active. Of
  /// two threads that deactivate an object one gets ObjectNotActive. What the activator throws comes out of it.
  /// WrongPolicy without RETAIN, ObjectNotActive; BAD_PARAM for an empty id.
  virtual void deactivate_object(const ObjectId& oid, CORBA_ENV) = 0;

  // ---- References to objects that need not be active ----

  /// Of repository id `intf`, under a new system id. Nothing is activated, and nobody looks whether the text is the
  /// id of an interface. BAD_PARAM for null, WrongPolicy without SYSTEM_ID.
  virtual CORBA::Object* create_reference(const char* intf, CORBA_ENV) = 0;
  /// The same under `oid`: how references to rows of a table, and to objects that a servant manager makes, come to be.
  /// BAD_PARAM for null and for an empty id, WrongPolicy with SYSTEM_ID.
  virtual CORBA::Object* create_reference_with_id(const ObjectId& oid, const char* intf, CORBA_ENV) = 0;

  // ---- Conversions ----
  // Servants are returned with a count for the caller, when they count; of others the program sees to it that nobody
  // deletes them meanwhile. With a ServantBase_var both are right:
  //
  //   PortableServer::ServantBase_var found = poa->id_to_servant(id);
  //   Account* account = dynamic_cast<Account*>(found.in());

  /// With UNIQUE_ID the id that the servant is active under; else with IMPLICIT_ACTIVATION a new one, under which
  /// it is active from now on; else that of the default servant. BAD_PARAM for null; ServantNotActive; WrongPolicy
  /// without USE_DEFAULT_SERVANT where RETAIN is missing, or both UNIQUE_ID and IMPLICIT_ACTIVATION are.
  virtual ObjectId* servant_to_id(ServantBase* p_servant, CORBA_ENV) = 0;
  /// The reference of the same object, which the servant keeps: asked again, an equivalent one. BAD_PARAM for
  /// null, ServantNotActive, WrongPolicy without RETAIN and SYSTEM_ID, or with neither UNIQUE_ID nor
  /// IMPLICIT_ACTIVATION.
  virtual CORBA::Object* servant_to_reference(ServantBase* p_servant, CORBA_ENV) = 0;
  /// The active servant of the reference's object, else the default servant. ObjectNotActive, WrongAdapter for a
  /// reference of another POA, WrongPolicy with neither RETAIN nor USE_DEFAULT_SERVANT, BAD_PARAM for nil.
  virtual ServantBase* reference_to_servant(CORBA::Object* reference, CORBA_ENV) = 0;
  /// The id in the reference, active or not. WrongAdapter for a reference of another POA, BAD_PARAM for nil.
  virtual ObjectId* reference_to_id(CORBA::Object* reference, CORBA_ENV) = 0;
  /// The active servant, else the default servant. No servant manager is asked. ObjectNotActive, WrongPolicy with
  /// neither RETAIN nor USE_DEFAULT_SERVANT, BAD_PARAM for an empty id.
  virtual ServantBase* id_to_servant(const ObjectId& oid, CORBA_ENV) = 0;
  /// The reference of an active object, as servant_to_reference gives it. ObjectNotActive, WrongPolicy without
  /// RETAIN, BAD_PARAM for an empty id.
  virtual CORBA::Object* id_to_reference(const ObjectId& oid, CORBA_ENV) = 0;

  // Not to be overridden:
  /// Octets that no other POA of this process has, or had; the caller frees them.
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
/// names by several at once. Requests for the new POA wait until it has returned, so it may activate objects there
/// first. A system exception that it throws reaches the client as it is, any other as UNKNOWN; find_POA gives it to its
/// caller. The object is the program's and must outlive the POA, unless it counts (POA::the_activator).
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

/// A servant manager is an activator (RETAIN) or a locator (NON_RETAIN); programs derive from those two, in one of
/// three ways. From PortableServer_ServantActivator_impl or PortableServer_ServantLocator_impl
/// (poa/implementation.h): an environment last in each operation, the cookie a number, and the object the program's,
/// which outlives the POAs. From PortableServer::ServantActivator or ServantLocator and CORBA::LocalObject: the
/// standard's signatures, and the object counts. From POA_PortableServer::ServantActivator or ServantLocator
/// (poa/standard_managers.h): the same as a servant.
class POA_API ServantManager : public virtual CORBA::Object {
 public:
  ~ServantManager() override = 0;
  static ServantManager* _nil() { return nullptr; }
  static ServantManager* _duplicate(ServantManager* p);
  static ServantManager* _narrow(CORBA::Object* object);
  /// This manager as a ServantActivator* or ServantLocator*, not duplicated; null when it is not of that kind.
  virtual void* get_servant_activator() { return nullptr; }
  virtual void* get_servant_locator() { return nullptr; }
  /// Whether it goes with RETAIN: what set_servant_manager looks at.
  CORBA::Boolean is_activator() const { return _is_activator; }

 protected:
  CORBA::Boolean _is_activator = 1;  ///< locators set it to 0
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
///   Accounts accounts;
///   poa->set_servant_manager(&accounts);  // of a POA with RETAIN and USE_SERVANT_MANAGER
///
/// The servant must have been made with new where anybody calls servant_delete for it; one that counts is let go with
/// _remove_ref instead. What incarnate throws, and a null servant, reach the client as UNKNOWN, unless the activator
/// has the standard's signatures. Without one set, the client gets UNKNOWN, too.
class POA_API ServantActivator : public virtual ServantManager {
 public:
  static ServantActivator* _nil() { return nullptr; }
  static ServantActivator* _duplicate(ServantActivator* p);
  static ServantActivator* _narrow(CORBA::Object* object);
  void* get_servant_activator() override { return this; }

  /// The servant of `oid`, which stays the program's; `oid` and `adapter` are the library's, and good for the length of
  /// the call. Called with no lock held; two threads may ask for one id at once: the first servant serves both, and the
  /// second is handed to etherealize at once. Gives the question on to the standard's form.
  virtual ServantBase* incarnate(const ObjectId& oid, POA* adapter, CORBA::Environment& ev);
  /// The object is active no more. Requests may still be in the servant: ServantBase::servant_delete, not delete, is
  /// the way to be rid of it. At destruction and deactivation of a POA it is called with the POA tree's lock held
  /// (re-entrant for the calling thread): it may call POA operations but must not wait for another thread that does.
  /// The flags of this form are those of destroy and of POAManager::deactivate (`etherealize_objects`,
  /// `wait_for_completion`); both true from deactivate_object and set_incarnation_limit, and both false for a servant
  /// that came second.
  virtual void etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv,
                           CORBA::Boolean cleanup_in_progress, CORBA::Boolean remaining_activations,
                           CORBA::Environment& ev);

  /// The standard's signatures, for programs that override these instead. What incarnate raises reaches the client
  /// as it is; ForwardRequest sends it elsewhere. etherealize is told whether the POA or its manager is at its end, and
  /// whether the servant is another active object still, of this POA or another one. NO_IMPLEMENT here, and nothing.
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
///     Account row_servant_;
///   };
///   Rows rows;
///   poa->set_servant_manager(&rows);  // of a POA with NON_RETAIN and USE_SERVANT_MANAGER
///
/// A system exception reaches the client as it is, any other as UNKNOWN; a null servant gives OBJ_ADAPTER
/// (0x4B510302), as does a POA without a locator. When the operation throws, `postinvoke` is not called, unless it has
/// the standard's signatures.
class POA_API ServantLocator : public virtual ServantManager {
 public:
  /// A number that preinvoke leaves for the postinvoke of the same request.
  using Cookie = CORBA::ULong;

  ServantLocator() { _is_activator = 0; }
  static ServantLocator* _nil() { return nullptr; }
  static ServantLocator* _duplicate(ServantLocator* p);
  static ServantLocator* _narrow(CORBA::Object* object);
  void* get_servant_locator() override { return this; }

  /// The servant for one request, which stays the program's. The id, the POA and the operation's name are the
  /// library's, and good for the length of the call. Called with no lock held, by many threads at once.
  virtual ServantBase* preinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie& the_cookie,
                                 CORBA_ENV);
  /// After the request that preinvoke gave a servant for, when that was served; same thread, same cookie. The reply has
  /// not been sent then: what it throws takes the place of it.
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
/// threads; each is answered for the innermost request that it is in. Any thread.
///
///   CORBA::Object_var found = orb->resolve_initial_references("POACurrent");
///   PortableServer::Current_var current = PortableServer::Current::_narrow(found);
///   PortableServer::ObjectId_var id = current->get_object_id();  // in an operation of a default servant
class POA_API Current : public virtual CORBA::Current {
 public:
  /// The thread is in no request, or the request lacks what was asked for.
  POA_PLAIN_EXCEPTION(NoContext, "IDL:omg.org/PortableServer/Current/NoContext:1.0")

  static Current* _nil() { return nullptr; }
  static Current* _duplicate(Current* p);
  static Current* _narrow(CORBA::Object* object);
  /// The POA of the request, as a new reference. NoContext outside a request.
  virtual POA* get_POA(CORBA_ENV) = 0;
  /// A copy of the id of the object that was called. NoContext outside a request, and for a reference that
  /// carries no id.
  virtual ObjectId* get_object_id(CORBA_ENV) = 0;
  /// The object that was called, as a new reference, and the servant that serves it, with a count for the caller when
  /// it counts. NoContext outside a request.
  CORBA::Object* get_reference(CORBA_ENV);
  ServantBase* get_servant(CORBA_ENV);
};
using Current_ptr = Current*;
POA_VAR_CLASS(Current_var, CORBA::ObjectVar<Current>)

}  // namespace PortableServer

#pragma GCC visibility pop

#undef POA_PLAIN_EXCEPTION
