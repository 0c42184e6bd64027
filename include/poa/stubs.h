// Stub classes: call objects of the module through the ORB core, in another process or in this one. For tools that
// watch or steer a server; a server's own POAs are called directly.
//
// A new stub refers to nothing; set_ref gives it a handle, which it owns from then on:
//
//   _st_PortableServer_POA remote;
//   remote.set_ref(CORBA_object_duplicate(reference->get_ref(), nullptr));
//   PortableServer::POA_var child = remote.find_POA("child", 0);
//
// Each operation marshals, waits for the reply and follows location forwards. Beside the exceptions of the
// interface it raises the ORB core's system exceptions (INV_OBJREF without a handle, TRANSIENT, COMM_FAILURE,
// TIMEOUT, MARSHAL, ...). A user exception that the operation does not list is left in the environment and
// not thrown. Operations that send or return a servant raise MARSHAL: servants cannot travel. What sends one fails
// before it is sent (completed NO); what returns one has been carried out at the other end (completed YES). References
// that operations return are objects of this process's own classes and drive nothing elsewhere: give their handle
// to a stub.
//
// UNO_IIOP_<operation> is the IIOP part alone, for a request that the caller created and completes
// (zrsv/request.h). A location forward is then in the environment (_major 3), and the caller calls again. Programs call
// the operation itself; this part is for who counts or times what goes over the wire.
//
// Policies, managers and the other references that a stub takes may be of this process or of the other one: they
// travel as references.
//
// A stub belongs to one thread at a time.
#pragma once

#include "corba/detail/stubs.h"
#include "poa/interfaces.h"

/// An operation, as its interface declares it, and its IIOP part.
#define POA_STUB(Result, operation, ...)                                                                 \
  Result operation(__VA_ARGS__ __VA_OPT__(, ) CORBA_ENV) override;                                       \
  Result UNO_IIOP_##operation(void* request, unsigned char response_expected __VA_OPT__(, ) __VA_ARGS__, \
                              CORBA_ENV);

/// Drives a POA of another process, which must have called register_for_remote_use. What the operations do is told at
/// the interfaces in poa/interfaces.h; what stubs add to that, above. Texts, ids, lists and references that come back
/// are the caller's.
///
///   _st_PortableServer_POA remote;
///   remote.set_ref(CORBA_object_duplicate(object->get_ref(), nullptr));
///   CORBA::String_var name = remote.the_name();
class POA_API _st_PortableServer_POA : public virtual PortableServer::POA {
 public:
  // What it is, and its place in the tree.
  POA_STUB(char*, the_name)
  POA_STUB(PortableServer::POA*, the_parent)
  POA_STUB(PortableServer::POAList*, the_children)
  POA_STUB(PortableServer::POAManager*, the_POAManager)
  // What makes missing children. An activator that is set from afar is kept and given back, but what stands in for it
  // at the other end makes none.
  POA_STUB(void, the_activator, PortableServer::AdapterActivator* activator)
  POA_STUB(PortableServer::AdapterActivator*, the_activator)
  // Children, and the end of the POA. What create_POA and find_POA give is for a stub, too: its handle, not itself.
  POA_STUB(PortableServer::POA*, create_POA, const char* adapter_name,
           PortableServer::POAManager* a_POAManager, const CORBA::PolicyList& policies)
  POA_STUB(PortableServer::POA*, find_POA, const char* adapter_name, CORBA::Boolean activate_it)
  POA_STUB(void, destroy, CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion)
  // Policies of the other process, for its create_POA.
  POA_STUB(PortableServer::ThreadPolicy*, create_thread_policy, PortableServer::ThreadPolicyValue value)
  POA_STUB(PortableServer::LifespanPolicy*, create_lifespan_policy, PortableServer::LifespanPolicyValue value)
  POA_STUB(PortableServer::IdUniquenessPolicy*, create_id_uniqueness_policy,
           PortableServer::IdUniquenessPolicyValue value)
  POA_STUB(PortableServer::IdAssignmentPolicy*, create_id_assignment_policy,
           PortableServer::IdAssignmentPolicyValue value)
  POA_STUB(PortableServer::ImplicitActivationPolicy*, create_implicit_activation_policy,
           PortableServer::ImplicitActivationPolicyValue value)
  POA_STUB(PortableServer::ServantRetentionPolicy*, create_servant_retention_policy,
           PortableServer::ServantRetentionPolicyValue value)
  POA_STUB(PortableServer::RequestProcessingPolicy*, create_request_processing_policy,
           PortableServer::RequestProcessingPolicyValue value)
  // Servant managers travel as references; the default servant does not.
  POA_STUB(PortableServer::ServantManager*, get_servant_manager)
  POA_STUB(void, set_servant_manager, PortableServer::ServantManager* imgr)
  POA_STUB(PortableServer::ServantBase*, get_servant)
  POA_STUB(void, set_servant, PortableServer::ServantBase* p_servant)
  // Activation is for the process of the servant: MARSHAL. Deactivation is for anybody.
  POA_STUB(PortableServer::ObjectId*, activate_object, PortableServer::ServantBase* p_servant)
  POA_STUB(void, activate_object_with_id, const PortableServer::ObjectId& id,
           PortableServer::ServantBase* p_servant)
  POA_STUB(void, deactivate_object, const PortableServer::ObjectId& oid)
  // References and ids: those that name no servant work from afar.
  POA_STUB(CORBA::Object*, create_reference, const char* intf)
  POA_STUB(CORBA::Object*, create_reference_with_id, const PortableServer::ObjectId& oid, const char* intf)
  POA_STUB(PortableServer::ObjectId*, servant_to_id, PortableServer::ServantBase* p_servant)
  POA_STUB(CORBA::Object*, servant_to_reference, PortableServer::ServantBase* p_servant)
  POA_STUB(PortableServer::ServantBase*, reference_to_servant, CORBA::Object* reference)
  POA_STUB(PortableServer::ObjectId*, reference_to_id, CORBA::Object* reference)
  POA_STUB(PortableServer::ServantBase*, id_to_servant, const PortableServer::ObjectId& oid)
  POA_STUB(CORBA::Object*, id_to_reference, const PortableServer::ObjectId& oid)
};

/// Drives a POA manager of another process: holds, discards and serves its requests, or ends it. What its POAs' state
/// is for their clients is told at PortableServer::POAManager.
///
///   _st_PortableServer_POAManager remote;
///   remote.set_ref(CORBA_object_duplicate(object->get_ref(), nullptr));
///   remote.hold_requests(false);
class POA_API _st_PortableServer_POAManager : public virtual PortableServer::POAManager {
 public:
  POA_STUB(void, activate)
  POA_STUB(void, hold_requests, CORBA::Boolean wait_for_completion)
  POA_STUB(void, discard_requests, CORBA::Boolean wait_for_completion)
  POA_STUB(void, deactivate, CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion)
  POA_STUB(State, get_state)
};

/// Asks a policy of another process for its value. CORBA::Policy's own operations are there as well. One instance a
/// kind, by the names below.
///
///   _st_PortableServer_ThreadPolicy remote;
///   remote.set_ref(CORBA_object_duplicate(object->get_ref(), nullptr));
///   PortableServer::ThreadPolicyValue value = remote.value();
template <class Kind>
class POA_API _st_PortableServer_Policy : public virtual Kind, public virtual _st_CORBA_Policy {
 public:
  using Value = typename Kind::value_type;
  POA_STUB(Value, value)
  /// A stub of this kind for the copy that the policy made.
  CORBA::Policy* copy(CORBA_ENV) override;
  /// Answers the kind's own id, and those of CORBA::Policy.
  void* _cast(const char* id) override;
};
using _st_PortableServer_ThreadPolicy = _st_PortableServer_Policy<PortableServer::ThreadPolicy>;
using _st_PortableServer_LifespanPolicy = _st_PortableServer_Policy<PortableServer::LifespanPolicy>;
using _st_PortableServer_IdUniquenessPolicy = _st_PortableServer_Policy<PortableServer::IdUniquenessPolicy>;
using _st_PortableServer_IdAssignmentPolicy = _st_PortableServer_Policy<PortableServer::IdAssignmentPolicy>;
using _st_PortableServer_ImplicitActivationPolicy =
    _st_PortableServer_Policy<PortableServer::ImplicitActivationPolicy>;
using _st_PortableServer_ServantRetentionPolicy =
    _st_PortableServer_Policy<PortableServer::ServantRetentionPolicy>;
using _st_PortableServer_RequestProcessingPolicy =
    _st_PortableServer_Policy<PortableServer::RequestProcessingPolicy>;

/// Asks an adapter activator of another process: true when it says that it has made the child, in that process or
/// wherever it likes. Locks that the calling thread holds here are not held there.
class POA_API _st_PortableServer_AdapterActivator : public virtual PortableServer::AdapterActivator {
 public:
  POA_STUB(CORBA::Boolean, unknown_adapter, PortableServer::POA* parent, const char* name)
};

/// Servant managers can be referred to from elsewhere, so these three exist; all of their operations raise MARSHAL, as
/// servants cannot travel.
class POA_API _st_PortableServer_ServantManager : public virtual PortableServer::ServantManager {};

/// incarnate is carried out at the other end, and its servant stays there (completed YES); etherealize is not sent.
class POA_API _st_PortableServer_ServantActivator : public virtual PortableServer::ServantActivator {
 public:
  POA_STUB(PortableServer::ServantBase*, incarnate, const PortableServer::ObjectId& oid,
           PortableServer::POA* adapter)
  POA_STUB(void, etherealize, const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
           PortableServer::ServantBase* serv, CORBA::Boolean cleanup_in_progress,
           CORBA::Boolean remaining_activations)
};

/// Likewise: preinvoke is carried out, postinvoke is not sent.
class POA_API _st_PortableServer_ServantLocator : public virtual PortableServer::ServantLocator {
 public:
  POA_STUB(PortableServer::ServantBase*, preinvoke, const PortableServer::ObjectId& oid,
           PortableServer::POA* adapter, const char* operation, Cookie& the_cookie)
  POA_STUB(void, postinvoke, const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
           const char* operation, Cookie the_cookie, PortableServer::ServantBase* the_servant)
};

/// Asks the Current of another process: for the request that it serves, which is this very question. For tests of a
/// server's reach rather than for programs.
class POA_API _st_PortableServer_Current : public virtual PortableServer::Current,
                                           public virtual _st_CORBA_Current {
 public:
  POA_STUB(PortableServer::POA*, get_POA)
  POA_STUB(PortableServer::ObjectId*, get_object_id)
};

#undef POA_STUB
