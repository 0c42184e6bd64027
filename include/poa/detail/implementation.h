// The skeletons of the module's interfaces, and the classes of the objects that the library hands out for them.
// Programs use these through the interfaces; what each operation does is told there (poa/interfaces.h), and only what
// is added to that is told here.
#pragma once

#include "poa/interfaces.h"

// The skeletons: the base of each implementation below, and of those that programs derive from (poa/implementation.h).
// They add nothing to their interfaces, and are named here because generated code and programs of the mapping name
// them.
class POA_API _sk_PortableServer_POA : public virtual PortableServer::POA {};
class POA_API _sk_PortableServer_POAManager : public virtual PortableServer::POAManager {};
class POA_API _sk_PortableServer_AdapterActivator : public virtual PortableServer::AdapterActivator {};
class POA_API _sk_PortableServer_ServantManager : public virtual PortableServer::ServantManager {};
class POA_API _sk_PortableServer_ServantActivator : public virtual PortableServer::ServantActivator {};
class POA_API _sk_PortableServer_ServantLocator : public virtual PortableServer::ServantLocator {};
class POA_API _sk_PortableServer_Current : public virtual PortableServer::Current {};

/// The skeleton of the seven kinds of policies, one an instance.
template <class Kind>
class POA_API _sk_PortableServer_Policy : public virtual Kind {};
using _sk_PortableServer_ThreadPolicy = _sk_PortableServer_Policy<PortableServer::ThreadPolicy>;
using _sk_PortableServer_LifespanPolicy = _sk_PortableServer_Policy<PortableServer::LifespanPolicy>;
using _sk_PortableServer_IdUniquenessPolicy = _sk_PortableServer_Policy<PortableServer::IdUniquenessPolicy>;
using _sk_PortableServer_IdAssignmentPolicy = _sk_PortableServer_Policy<PortableServer::IdAssignmentPolicy>;
using _sk_PortableServer_ImplicitActivationPolicy =
    _sk_PortableServer_Policy<PortableServer::ImplicitActivationPolicy>;
using _sk_PortableServer_ServantRetentionPolicy =
    _sk_PortableServer_Policy<PortableServer::ServantRetentionPolicy>;
using _sk_PortableServer_RequestProcessingPolicy =
    _sk_PortableServer_Policy<PortableServer::RequestProcessingPolicy>;

/// A POA object: finds the record of its POA by the identity in its reference and works on it, so that any
/// reference of a POA is as good as another, and one whose POA is gone, or that never was one, raises BAD_PARAM
/// (0x4B510007). Programs get them from the library; one that a program makes itself refers to nothing until
/// set_ref. What each operation does is told at PortableServer::POA. Any thread.
class POA_API PortableServer_POA_impl : public virtual _sk_PortableServer_POA {
 public:
  // What it is, and its place in the tree.
  char* the_name(CORBA_ENV) override;
  PortableServer::POA* the_parent(CORBA_ENV) override;
  PortableServer::POAList* the_children(CORBA_ENV) override;
  PortableServer::POAManager* the_POAManager(CORBA_ENV) override;
  void the_activator(PortableServer::AdapterActivator* activator, CORBA_ENV) override;
  PortableServer::AdapterActivator* the_activator(CORBA_ENV) override;
  PortableServer::POA* create_POA(const char* adapter_name, PortableServer::POAManager* a_POAManager,
                                  const CORBA::PolicyList& policies, CORBA_ENV) override;
  PortableServer::POA* find_POA(const char* adapter_name, CORBA::Boolean activate_it, CORBA_ENV) override;
  void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion, CORBA_ENV) override;
  // Policies, for create_POA of any POA of the process.
  PortableServer::ThreadPolicy* create_thread_policy(PortableServer::ThreadPolicyValue value,
                                                     CORBA_ENV) override;
  PortableServer::LifespanPolicy* create_lifespan_policy(PortableServer::LifespanPolicyValue value,
                                                         CORBA_ENV) override;
  PortableServer::IdUniquenessPolicy* create_id_uniqueness_policy(
      PortableServer::IdUniquenessPolicyValue value, CORBA_ENV) override;
  PortableServer::IdAssignmentPolicy* create_id_assignment_policy(
      PortableServer::IdAssignmentPolicyValue value, CORBA_ENV) override;
  PortableServer::ImplicitActivationPolicy* create_implicit_activation_policy(
      PortableServer::ImplicitActivationPolicyValue value, CORBA_ENV) override;
  PortableServer::ServantRetentionPolicy* create_servant_retention_policy(
      PortableServer::ServantRetentionPolicyValue value, CORBA_ENV) override;
  PortableServer::RequestProcessingPolicy* create_request_processing_policy(
      PortableServer::RequestProcessingPolicyValue value, CORBA_ENV) override;
  // Who serves objects that are not active.
  PortableServer::ServantManager* get_servant_manager(CORBA_ENV) override;
  void set_servant_manager(PortableServer::ServantManager* servantManager_ptr, CORBA_ENV) override;
  PortableServer::ServantBase* get_servant(CORBA_ENV) override;
  void set_servant(PortableServer::ServantBase* p_servant, CORBA_ENV) override;
  // Activation, and references of objects that need not be active.
  PortableServer::ObjectId* activate_object(PortableServer::ServantBase* p_servant, CORBA_ENV) override;
  void activate_object_with_id(const PortableServer::ObjectId& id, PortableServer::ServantBase* p_servant,
                               CORBA_ENV) override;
  void deactivate_object(const PortableServer::ObjectId& oid, CORBA_ENV) override;
  CORBA::Object* create_reference(const char* intf, CORBA_ENV) override;
  CORBA::Object* create_reference_with_id(const PortableServer::ObjectId& oid, const char* intf,
                                          CORBA_ENV) override;
  // From one of servant, id and reference to another.
  PortableServer::ObjectId* servant_to_id(PortableServer::ServantBase* p_servant, CORBA_ENV) override;
  CORBA::Object* servant_to_reference(PortableServer::ServantBase* p_servant, CORBA_ENV) override;
  PortableServer::ServantBase* reference_to_servant(CORBA::Object* reference, CORBA_ENV) override;
  PortableServer::ObjectId* reference_to_id(CORBA::Object* reference, CORBA_ENV) override;
  PortableServer::ServantBase* id_to_servant(const PortableServer::ObjectId& oid, CORBA_ENV) override;
  CORBA::Object* id_to_reference(const PortableServer::ObjectId& oid, CORBA_ENV) override;
};

/// A POA manager's object: as the POA's, of its manager's record. Any thread.
class POA_API PortableServer_POAManager_impl : public virtual _sk_PortableServer_POAManager {
 public:
  void activate(CORBA_ENV) override;
  void hold_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) override;
  void discard_requests(CORBA::Boolean wait_for_completion, CORBA_ENV) override;
  void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion, CORBA_ENV) override;
  State get_state(CORBA_ENV) override;
};

/// The policy objects: hold their value; `copy` gives the same reference, so a copy in a policy list counts
/// as the original. Programs get them from POA::create_thread_policy and the like, and ask them for their value:
///
///   PortableServer::ThreadPolicy_var policy = root->create_thread_policy(PortableServer::ORB_CTRL_MODEL);
///   PortableServer::ThreadPolicyValue value = policy->value();
///
/// They do not change, so any thread may ask.
template <class Kind>
class POA_API PortableServer_Policy_impl : public virtual _sk_PortableServer_Policy<Kind>,
                                           public virtual CORBA_Policy_impl {
 public:
  using Value = typename Kind::value_type;
  /// The kind's default value, without a reference: in a policy list it counts as nothing said.
  PortableServer_Policy_impl();
  /// The value it holds.
  Value value(CORBA_ENV) override;
  /// A new object of the same value and reference, the caller's; null when the reference cannot be duplicated.
  CORBA::Policy* copy(CORBA_ENV) override;
  /// This object as the interface of that repository id: its own kind's, or CORBA::Policy's; else null.
  void* _cast(const char* repository_id) override;

  /// For the library, which sets it before anybody sees the object.
  Value __value;
};
using PortableServer_ThreadPolicy_impl = PortableServer_Policy_impl<PortableServer::ThreadPolicy>;
using PortableServer_LifespanPolicy_impl = PortableServer_Policy_impl<PortableServer::LifespanPolicy>;
using PortableServer_IdUniquenessPolicy_impl = PortableServer_Policy_impl<PortableServer::IdUniquenessPolicy>;
using PortableServer_IdAssignmentPolicy_impl = PortableServer_Policy_impl<PortableServer::IdAssignmentPolicy>;
using PortableServer_ImplicitActivationPolicy_impl =
    PortableServer_Policy_impl<PortableServer::ImplicitActivationPolicy>;
using PortableServer_ServantRetentionPolicy_impl =
    PortableServer_Policy_impl<PortableServer::ServantRetentionPolicy>;
using PortableServer_RequestProcessingPolicy_impl =
    PortableServer_Policy_impl<PortableServer::RequestProcessingPolicy>;

/// The POA Current, which resolve_initial_references gives for "POACurrent": one object answers each thread for its own
/// request. Any thread.
class POA_API PortableServer_Current_impl : public virtual _sk_PortableServer_Current,
                                            public virtual CORBA_Current_impl {
 public:
  PortableServer::POA* get_POA(CORBA_ENV) override;
  PortableServer::ObjectId* get_object_id(CORBA_ENV) override;
};
