// The operations of module PortableServer, one row each: the name on the wire, the member function, the user
// exceptions, the result and the parameters. CDR skeletons, direct skeletons and stubs all come from these rows.
#pragma once

#include "corba/detail/own_row.h"
#include "mapping/poa_types.h"

namespace PortableServer::operations {

using CORBA::Boolean;
using CORBA::PolicyList;
using CORBA::idl::in;
using CORBA::idl::out;
using CORBA::idl::own_operation;
using CORBA::idl::raises;
using CORBA::idl::ref;
using String = CORBA::idl::string<>;
using Reference = ref<CORBA::Object>;

// ---- POA --------------------------------------------------------------------------------------------------

constexpr own_operation<POA, ref<POA>(in<String>, in<ref<POAManager>>, in<PolicyList>)> create_POA{
    "create_POA", &POA::create_POA, raises<POA::AdapterAlreadyExists, POA::InvalidPolicy>};
constexpr own_operation<POA, ref<POA>(in<String>, in<Boolean>)> find_POA{"find_POA", &POA::find_POA,
                                                                         raises<POA::AdapterNonExistent>};
constexpr own_operation<POA, void(in<Boolean>, in<Boolean>)> destroy{"destroy", &POA::destroy};
constexpr own_operation<POA, ref<ThreadPolicy>(in<ThreadPolicyValue>)> create_thread_policy{
    "create_thread_policy", &POA::create_thread_policy};
constexpr own_operation<POA, ref<LifespanPolicy>(in<LifespanPolicyValue>)> create_lifespan_policy{
    "create_lifespan_policy", &POA::create_lifespan_policy};
constexpr own_operation<POA, ref<IdUniquenessPolicy>(in<IdUniquenessPolicyValue>)>
    create_id_uniqueness_policy{"create_id_uniqueness_policy", &POA::create_id_uniqueness_policy};
constexpr own_operation<POA, ref<IdAssignmentPolicy>(in<IdAssignmentPolicyValue>)>
    create_id_assignment_policy{"create_id_assignment_policy", &POA::create_id_assignment_policy};
constexpr own_operation<POA, ref<ImplicitActivationPolicy>(in<ImplicitActivationPolicyValue>)>
    create_implicit_activation_policy{"create_implicit_activation_policy",
                                      &POA::create_implicit_activation_policy};
constexpr own_operation<POA, ref<ServantRetentionPolicy>(in<ServantRetentionPolicyValue>)>
    create_servant_retention_policy{"create_servant_retention_policy", &POA::create_servant_retention_policy};
constexpr own_operation<POA, ref<RequestProcessingPolicy>(in<RequestProcessingPolicyValue>)>
    create_request_processing_policy{"create_request_processing_policy",
                                     &POA::create_request_processing_policy};
constexpr own_operation<POA, ref<ServantManager>()> get_servant_manager{
    "get_servant_manager", &POA::get_servant_manager, raises<POA::WrongPolicy>};
constexpr own_operation<POA, void(in<ref<ServantManager>>)> set_servant_manager{
    "set_servant_manager", &POA::set_servant_manager, raises<POA::WrongPolicy>};
constexpr own_operation<POA, ServantBase()> get_servant{"get_servant", &POA::get_servant,
                                                        raises<POA::NoServant, POA::WrongPolicy>};
constexpr own_operation<POA, void(in<ServantBase>)> set_servant{"set_servant", &POA::set_servant,
                                                                raises<POA::WrongPolicy>};
constexpr own_operation<POA, ObjectId(in<ServantBase>)> activate_object{
    "activate_object", &POA::activate_object, raises<POA::ServantAlreadyActive, POA::WrongPolicy>};
constexpr own_operation<POA, void(in<ObjectId>, in<ServantBase>)> activate_object_with_id{
    "activate_object_with_id", &POA::activate_object_with_id,
    raises<POA::ServantAlreadyActive, POA::ObjectAlreadyActive, POA::WrongPolicy>};
constexpr own_operation<POA, void(in<ObjectId>)> deactivate_object{
    "deactivate_object", &POA::deactivate_object, raises<POA::ObjectNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, Reference(in<String>)> create_reference{
    "create_reference", &POA::create_reference, raises<POA::WrongPolicy>};
constexpr own_operation<POA, Reference(in<ObjectId>, in<String>)> create_reference_with_id{
    "create_reference_with_id", &POA::create_reference_with_id, raises<POA::WrongPolicy>};
constexpr own_operation<POA, ObjectId(in<ServantBase>)> servant_to_id{
    "servant_to_id", &POA::servant_to_id, raises<POA::ServantNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, Reference(in<ServantBase>)> servant_to_reference{
    "servant_to_reference", &POA::servant_to_reference, raises<POA::ServantNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, ServantBase(in<Reference>)> reference_to_servant{
    "reference_to_servant", &POA::reference_to_servant, raises<POA::ObjectNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, ObjectId(in<Reference>)> reference_to_id{
    "reference_to_id", &POA::reference_to_id, raises<POA::WrongAdapter, POA::WrongPolicy>};
constexpr own_operation<POA, ServantBase(in<ObjectId>)> id_to_servant{
    "id_to_servant", &POA::id_to_servant, raises<POA::ObjectNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, Reference(in<ObjectId>)> id_to_reference{
    "id_to_reference", &POA::id_to_reference, raises<POA::ObjectNotActive, POA::WrongPolicy>};
constexpr own_operation<POA, String()> get_the_name{"_get_the_name", &POA::the_name};
constexpr own_operation<POA, ref<POA>()> get_the_parent{"_get_the_parent", &POA::the_parent};
constexpr own_operation<POA, POAList()> get_the_children{"_get_the_children", &POA::the_children};
constexpr own_operation<POA, ref<POAManager>()> get_the_POAManager{"_get_the_POAManager",
                                                                   &POA::the_POAManager};
constexpr own_operation<POA, ref<AdapterActivator>()> get_the_activator{"_get_the_activator",
                                                                        &POA::the_activator};
constexpr own_operation<POA, void(in<ref<AdapterActivator>>)> set_the_activator{"_set_the_activator",
                                                                                &POA::the_activator};

// ---- POAManager --------------------------------------------------------------------------------------------

constexpr own_operation<POAManager, void()> activate{"activate", &POAManager::activate,
                                                     raises<POAManager::AdapterInactive>};
constexpr own_operation<POAManager, void(in<Boolean>)> hold_requests{
    "hold_requests", &POAManager::hold_requests, raises<POAManager::AdapterInactive>};
constexpr own_operation<POAManager, void(in<Boolean>)> discard_requests{
    "discard_requests", &POAManager::discard_requests, raises<POAManager::AdapterInactive>};
constexpr own_operation<POAManager, void(in<Boolean>, in<Boolean>)> deactivate{
    "deactivate", &POAManager::deactivate, raises<POAManager::AdapterInactive>};
constexpr own_operation<POAManager, POAManager::State()> get_state{"get_state", &POAManager::get_state};

// ---- Policies, what programs give a POA, Current -----------------------------------------------------------

template <policy_interface Kind>
constexpr own_operation<Kind, typename Kind::value_type()> get_value{"_get_value", &Kind::value};

constexpr own_operation<AdapterActivator, Boolean(in<ref<POA>>, in<String>)> unknown_adapter{
    "unknown_adapter",
    static_cast<CORBA::Boolean (AdapterActivator::*)(POA*, const char*, CORBA::Environment&)>(
        &AdapterActivator::unknown_adapter)};
constexpr own_operation<ServantActivator, ServantBase(in<ObjectId>, in<ref<POA>>)> incarnate{
    "incarnate",
    static_cast<PortableServer::ServantBase* (ServantActivator::*)(const PortableServer::ObjectId&, POA*,
                                                                   CORBA::Environment&)>(
        &ServantActivator::incarnate),
    raises<ForwardRequest>};
constexpr own_operation<ServantActivator,
                        void(in<ObjectId>, in<ref<POA>>, in<ServantBase>, in<Boolean>, in<Boolean>)>
    etherealize{"etherealize",
                static_cast<void (ServantActivator::*)(
                    const PortableServer::ObjectId&, POA*, PortableServer::ServantBase*, CORBA::Boolean,
                    CORBA::Boolean, CORBA::Environment&)>(&ServantActivator::etherealize)};
constexpr own_operation<ServantLocator,
                        ServantBase(in<ObjectId>, in<ref<POA>>, in<String>, out<ServantLocator::Cookie>)>
    preinvoke{"preinvoke", &ServantLocator::preinvoke, raises<ForwardRequest>};
constexpr own_operation<ServantLocator, void(in<ObjectId>, in<ref<POA>>, in<String>,
                                             in<ServantLocator::Cookie>, in<ServantBase>)>
    postinvoke{"postinvoke", &ServantLocator::postinvoke};
constexpr own_operation<Current, ref<POA>()> get_POA{"get_POA", &Current::get_POA,
                                                     raises<Current::NoContext>};
constexpr own_operation<Current, ObjectId()> get_object_id{"get_object_id", &Current::get_object_id,
                                                           raises<Current::NoContext>};

// ---- Interfaces: their operations in table order ----------------------------------------------------------

template <const auto&... Row>
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
