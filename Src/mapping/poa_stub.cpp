#include "mapping/poa_operations.h"

using namespace PortableServer;
using CORBA::Boolean;

#define POA_UNPACK(...) __VA_OPT__(, ) __VA_ARGS__
#define POA_UNPACK_FIRST(...) __VA_ARGS__ __VA_OPT__(, )

/// Both members of one operation: its row, its result, its name, its parameters and their names.
#define POA_STUB(Row, Result, Class, operation, parameters, arguments)                                     \
  Result Class::operation(POA_UNPACK_FIRST parameters CORBA::Environment& ev) {                            \
    return operations::Row(this, POA_UNPACK_FIRST arguments ev);                                           \
  }                                                                                                        \
  Result Class::UNO_IIOP_##operation(void* request, unsigned char response_expected POA_UNPACK parameters, \
                                     CORBA::Environment& ev) {                                             \
    return operations::Row.iiop(this, request, response_expected != 0, POA_UNPACK_FIRST arguments ev);     \
  }

// ---- POA --------------------------------------------------------------------------------------------------

#define STUB(Result, operation, parameters, arguments) \
  POA_STUB(operation, Result, _st_PortableServer_POA, operation, parameters, arguments)
#define ATTRIBUTE(Row, Result, operation, parameters, arguments) \
  POA_STUB(Row, Result, _st_PortableServer_POA, operation, parameters, arguments)

ATTRIBUTE(get_the_name, char*, the_name, (), ())
ATTRIBUTE(get_the_parent, POA*, the_parent, (), ())
ATTRIBUTE(get_the_children, POAList*, the_children, (), ())
ATTRIBUTE(get_the_POAManager, POAManager*, the_POAManager, (), ())
ATTRIBUTE(set_the_activator, void, the_activator, (AdapterActivator * activator), (activator))
ATTRIBUTE(get_the_activator, AdapterActivator*, the_activator, (), ())
STUB(POA*, create_POA, (const char* name, POAManager* manager, const CORBA::PolicyList& policies),
     (name, manager, policies))
STUB(POA*, find_POA, (const char* name, Boolean activate_it), (name, activate_it))
STUB(void, destroy, (Boolean etherealize_objects, Boolean wait_for_completion),
     (etherealize_objects, wait_for_completion))
STUB(ThreadPolicy*, create_thread_policy, (ThreadPolicyValue value), (value))
STUB(LifespanPolicy*, create_lifespan_policy, (LifespanPolicyValue value), (value))
STUB(IdUniquenessPolicy*, create_id_uniqueness_policy, (IdUniquenessPolicyValue value), (value))
STUB(IdAssignmentPolicy*, create_id_assignment_policy, (IdAssignmentPolicyValue value), (value))
STUB(ImplicitActivationPolicy*, create_implicit_activation_policy, (ImplicitActivationPolicyValue value),
     (value))
STUB(ServantRetentionPolicy*, create_servant_retention_policy, (ServantRetentionPolicyValue value), (value))
STUB(RequestProcessingPolicy*, create_request_processing_policy, (RequestProcessingPolicyValue value),
     (value))
STUB(ServantManager*, get_servant_manager, (), ())
STUB(void, set_servant_manager, (ServantManager * manager), (manager))
STUB(ServantBase*, get_servant, (), ())
STUB(void, set_servant, (ServantBase * servant), (servant))
STUB(ObjectId*, activate_object, (ServantBase * servant), (servant))
STUB(void, activate_object_with_id, (const ObjectId& oid, ServantBase* servant), (oid, servant))
STUB(void, deactivate_object, (const ObjectId& oid), (oid))
STUB(CORBA::Object*, create_reference, (const char* intf), (intf))
STUB(CORBA::Object*, create_reference_with_id, (const ObjectId& oid, const char* intf), (oid, intf))
STUB(ObjectId*, servant_to_id, (ServantBase * servant), (servant))
STUB(CORBA::Object*, servant_to_reference, (ServantBase * servant), (servant))
STUB(ServantBase*, reference_to_servant, (CORBA::Object * reference), (reference))
STUB(ObjectId*, reference_to_id, (CORBA::Object * reference), (reference))
STUB(ServantBase*, id_to_servant, (const ObjectId& oid), (oid))
STUB(CORBA::Object*, id_to_reference, (const ObjectId& oid), (oid))

// ---- POAManager -------------------------------------------------------------------------------------------

#undef STUB
#define STUB(Result, operation, parameters, arguments) \
  POA_STUB(operation, Result, _st_PortableServer_POAManager, operation, parameters, arguments)

STUB(void, activate, (), ())
STUB(void, hold_requests, (Boolean wait_for_completion), (wait_for_completion))
STUB(void, discard_requests, (Boolean wait_for_completion), (wait_for_completion))
STUB(void, deactivate, (Boolean etherealize_objects, Boolean wait_for_completion),
     (etherealize_objects, wait_for_completion))
STUB(POAManager::State, get_state, (), ())

// ---- Policies ---------------------------------------------------------------------------------------------

template <class Kind>
typename Kind::value_type _st_PortableServer_Policy<Kind>::value(CORBA::Environment& ev) {
  return operations::get_value<Kind>(this, ev);
}

template <class Kind>
typename Kind::value_type _st_PortableServer_Policy<Kind>::UNO_IIOP_value(void* request,
                                                                          unsigned char response_expected,
                                                                          CORBA::Environment& ev) {
  return operations::get_value<Kind>.iiop(this, request, response_expected != 0, ev);
}

template <class Kind>
CORBA::Policy* _st_PortableServer_Policy<Kind>::copy(CORBA::Environment& ev) {
  const CORBA::Policy_var copied = _st_CORBA_Policy::copy(ev);
  if (!copied.in()) return nullptr;
  auto* stub = new _st_PortableServer_Policy;
  stub->set_ref(CORBA_object_duplicate(copied->get_ref(), nullptr));
  return stub;
}

template <class Kind>
void* _st_PortableServer_Policy<Kind>::_cast(const char* id) {
  if (id && std::strcmp(id, Kind::repository_id.value) == 0) return static_cast<Kind*>(this);
  return _st_CORBA_Policy::_cast(id);
}

template class _st_PortableServer_Policy<ThreadPolicy>;
template class _st_PortableServer_Policy<LifespanPolicy>;
template class _st_PortableServer_Policy<IdUniquenessPolicy>;
template class _st_PortableServer_Policy<IdAssignmentPolicy>;
template class _st_PortableServer_Policy<ImplicitActivationPolicy>;
template class _st_PortableServer_Policy<ServantRetentionPolicy>;
template class _st_PortableServer_Policy<RequestProcessingPolicy>;

// ---- What programs give a POA, Current --------------------------------------------------------------------

#undef STUB
#define STUB(Result, Interface, operation, parameters, arguments) \
  POA_STUB(operation, Result, _st_PortableServer_##Interface, operation, parameters, arguments)

STUB(Boolean, AdapterActivator, unknown_adapter, (POA * parent, const char* name), (parent, name))
STUB(ServantBase*, ServantActivator, incarnate, (const ObjectId& oid, POA* adapter), (oid, adapter))
STUB(void, ServantActivator, etherealize,
     (const ObjectId& oid, POA* adapter, ServantBase* servant, Boolean cleanup_in_progress,
      Boolean remaining_activations),
     (oid, adapter, servant, cleanup_in_progress, remaining_activations))
STUB(ServantBase*, ServantLocator, preinvoke,
     (const ObjectId& oid, POA* adapter, const char* operation, Cookie& the_cookie),
     (oid, adapter, operation, the_cookie))
STUB(void, ServantLocator, postinvoke,
     (const ObjectId& oid, POA* adapter, const char* operation, Cookie the_cookie, ServantBase* servant),
     (oid, adapter, operation, the_cookie, servant))
STUB(POA*, Current, get_POA, (), ())
STUB(ObjectId*, Current, get_object_id, (), ())
