// The operations of module PortableServer, one row each: the name on the wire, the member function, the user
// exceptions. CDR skeletons, in-process skeletons and stubs all come from these rows; arguments and result
// are the member function's.
#pragma once

#include "poa_cdr.h"

namespace PortableServer::operations {

using CORBA::Environment;
using CORBA::idl::by_member::operation;
using CORBA::idl::by_member::raises;

// ---- POA --------------------------------------------------------------------------------------------------

using create_POA =
    operation<"create_POA", &POA::create_POA, raises<POA::AdapterAlreadyExists, POA::InvalidPolicy>>;
using find_POA = operation<"find_POA", &POA::find_POA, raises<POA::AdapterNonExistent>>;
using destroy = operation<"destroy", &POA::destroy>;
using create_thread_policy = operation<"create_thread_policy", &POA::create_thread_policy>;
using create_lifespan_policy = operation<"create_lifespan_policy", &POA::create_lifespan_policy>;
using create_id_uniqueness_policy =
    operation<"create_id_uniqueness_policy", &POA::create_id_uniqueness_policy>;
using create_id_assignment_policy =
    operation<"create_id_assignment_policy", &POA::create_id_assignment_policy>;
using create_implicit_activation_policy =
    operation<"create_implicit_activation_policy", &POA::create_implicit_activation_policy>;
using create_servant_retention_policy =
    operation<"create_servant_retention_policy", &POA::create_servant_retention_policy>;
using create_request_processing_policy =
    operation<"create_request_processing_policy", &POA::create_request_processing_policy>;
using get_servant_manager =
    operation<"get_servant_manager", &POA::get_servant_manager, raises<POA::WrongPolicy>>;
using set_servant_manager =
    operation<"set_servant_manager", &POA::set_servant_manager, raises<POA::WrongPolicy>>;
using get_servant = operation<"get_servant", &POA::get_servant, raises<POA::NoServant, POA::WrongPolicy>>;
using set_servant = operation<"set_servant", &POA::set_servant, raises<POA::WrongPolicy>>;
using activate_object =
    operation<"activate_object", &POA::activate_object, raises<POA::ServantAlreadyActive, POA::WrongPolicy>>;
using activate_object_with_id =
    operation<"activate_object_with_id", &POA::activate_object_with_id,
              raises<POA::ServantAlreadyActive, POA::ObjectAlreadyActive, POA::WrongPolicy>>;
using deactivate_object =
    operation<"deactivate_object", &POA::deactivate_object, raises<POA::ObjectNotActive, POA::WrongPolicy>>;
using create_reference = operation<"create_reference", &POA::create_reference, raises<POA::WrongPolicy>>;
using create_reference_with_id =
    operation<"create_reference_with_id", &POA::create_reference_with_id, raises<POA::WrongPolicy>>;
using servant_to_id =
    operation<"servant_to_id", &POA::servant_to_id, raises<POA::ServantNotActive, POA::WrongPolicy>>;
using servant_to_reference = operation<"servant_to_reference", &POA::servant_to_reference,
                                       raises<POA::ServantNotActive, POA::WrongPolicy>>;
using reference_to_servant = operation<"reference_to_servant", &POA::reference_to_servant,
                                       raises<POA::ObjectNotActive, POA::WrongPolicy>>;
using reference_to_id =
    operation<"reference_to_id", &POA::reference_to_id, raises<POA::WrongAdapter, POA::WrongPolicy>>;
using id_to_servant =
    operation<"id_to_servant", &POA::id_to_servant, raises<POA::ObjectNotActive, POA::WrongPolicy>>;
using id_to_reference =
    operation<"id_to_reference", &POA::id_to_reference, raises<POA::ObjectNotActive, POA::WrongPolicy>>;
using get_the_name = operation<"_get_the_name", &POA::the_name>;
using get_the_parent = operation<"_get_the_parent", &POA::the_parent>;
using get_the_children = operation<"_get_the_children", &POA::the_children>;
using get_the_POAManager = operation<"_get_the_POAManager", &POA::the_POAManager>;
using get_the_activator =
    operation<"_get_the_activator",
              static_cast<AdapterActivator* (POA::*)(Environment&)>(&POA::the_activator)>;
using set_the_activator =
    operation<"_set_the_activator",
              static_cast<void (POA::*)(AdapterActivator*, Environment&)>(&POA::the_activator)>;

// ---- POAManager -------------------------------------------------------------------------------------------

using activate = operation<"activate", &POAManager::activate, raises<POAManager::AdapterInactive>>;
using hold_requests =
    operation<"hold_requests", &POAManager::hold_requests, raises<POAManager::AdapterInactive>>;
using discard_requests =
    operation<"discard_requests", &POAManager::discard_requests, raises<POAManager::AdapterInactive>>;
using deactivate = operation<"deactivate", &POAManager::deactivate, raises<POAManager::AdapterInactive>>;
using get_state = operation<"get_state", &POAManager::get_state>;

// ---- Policies, what programs give a POA, Current ----------------------------------------------------------

template <policy_interface Kind>
using get_value = operation<"_get_value", &Kind::value>;

using unknown_adapter =
    operation<"unknown_adapter", static_cast<CORBA::Boolean (AdapterActivator::*)(
                                     POA*, const char*, Environment&)>(&AdapterActivator::unknown_adapter)>;
using incarnate = operation<"incarnate", &ServantActivator::incarnate, raises<ForwardRequest>>;
using etherealize = operation<"etherealize", &ServantActivator::etherealize>;
using preinvoke =
    operation<"preinvoke",
              static_cast<ServantBase* (ServantLocator::*)(const ObjectId&, POA*, const char*,
                                                           ServantLocator::Cookie&, Environment&)>(
                  &ServantLocator::preinvoke),
              raises<ForwardRequest>>;
using postinvoke =
    operation<"postinvoke",
              static_cast<void (ServantLocator::*)(const ObjectId&, POA*, const char*, ServantLocator::Cookie,
                                                   ServantBase*, Environment&)>(&ServantLocator::postinvoke)>;
using get_POA = operation<"get_POA", &Current::get_POA, raises<Current::NoContext>>;
using get_object_id = operation<"get_object_id", &Current::get_object_id, raises<Current::NoContext>>;

// ---- Interfaces: their operations in table order ----------------------------------------------------------

template <class... Op>
struct list {};

template <interface X>
struct of;
template <>
struct of<POA> {
  using type =
      list<create_POA, find_POA, destroy, create_thread_policy, create_lifespan_policy,
           create_id_uniqueness_policy, create_id_assignment_policy, create_implicit_activation_policy,
           create_servant_retention_policy, create_request_processing_policy, get_servant_manager,
           set_servant_manager, get_servant, set_servant, activate_object, activate_object_with_id,
           deactivate_object, create_reference, create_reference_with_id, servant_to_id, servant_to_reference,
           reference_to_servant, reference_to_id, id_to_servant, id_to_reference, get_the_name,
           get_the_parent, get_the_children, get_the_POAManager, get_the_activator, set_the_activator>;
};
template <>
struct of<POAManager> {
  using type = list<activate, hold_requests, discard_requests, deactivate, get_state>;
};
template <policy_interface Kind>
struct of<Kind> {
  using type = list<get_value<Kind>>;  // beside what every policy has
};
template <>
struct of<AdapterActivator> {
  using type = list<unknown_adapter>;
};
template <>
struct of<ServantManager> {
  using type = list<>;
};
template <>
struct of<ServantActivator> {
  using type = list<incarnate, etherealize>;
};
template <>
struct of<ServantLocator> {
  using type = list<preinvoke, postinvoke>;
};
template <>
struct of<Current> {
  using type = list<get_POA, get_object_id>;
};

}  // namespace PortableServer::operations
