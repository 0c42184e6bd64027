// The frame of the POA's operations: find the record, hand it the work, look at what it gives back.
#include <cstring>

#include "base/locks.h"
#include "base/raise.h"
#include "records/poainfo.h"

namespace {

using namespace PortableServer;

/// Runs `work` on the record of a POA object, which stays alive meanwhile. `no_record` is the trace when
/// there is none. Memory that cannot be had is NO_MEMORY.
template <class Work>
auto on_record(POA* self, CORBA::Environment& ev, const char* no_record, Work&& work) {
  return with_memory(ev, [&] {
    const POAInfoPtr record = POAInfo::findPOAInfo(self, ev);
    if (!record) raise<CORBA::BAD_PARAM>(ev, no_record);
    return work(*record);
  });
}

/// A result that must not be null.
template <class Result>
Result* present(Result* result, CORBA::Environment& ev, const char* is_null) {
  if (!result) raise<CORBA::BAD_PARAM>(ev, is_null);
  return result;
}

/// A reference that must not be nil, as a new one for the caller.
template <class Interface>
Interface* duplicate(Interface* result, CORBA::Environment& ev, const char* is_nil) {
  return Interface::_duplicate(present(result, ev, is_nil));
}

char* copy_text(const char* text, CORBA::Environment& ev, const char* no_memory) {
  const std::size_t length = std::strlen(text);
  char* copy = length < INT32_MAX ? CORBA::string_alloc(static_cast<CORBA::Long>(length + 1)) : nullptr;
  return static_cast<char*>(std::memcpy(present(copy, ev, no_memory), text, length + 1));
}

}  // namespace

// ---- Attributes and the tree ----

char* PortableServer_POA_impl::the_name(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::the_name [poa_info is null.]", [&](POAInfo& record) {
    return copy_text(record.the_name(ev), ev, "PortableServer_POA_impl::the_name [the_name is invalid.]");
  });
}

POA* PortableServer_POA_impl::the_parent(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::the_parent [poa_info is null.]",
                   [&](POAInfo& record) { return POA::_duplicate(record.the_parent(ev)); });
}

POAList* PortableServer_POA_impl::the_children(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::the_children [poa_info is null.]",
                   [&](POAInfo& record) { return record.the_children(ev); });
}

POAManager* PortableServer_POA_impl::the_POAManager(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::the_POAManager [poa_info is null.]",
                   [&](POAInfo& record) {
                     return duplicate(record.the_POAManager(ev), ev,
                                      "PortableServer_POA_impl::the_POAManager [poa manager is null.]");
                   });
}

void PortableServer_POA_impl::the_activator(AdapterActivator* activator, CORBA::Environment& ev) {
  on_record(this, ev, "PortableServer_POA_impl::the_activator [poa_info is null.]",
            [&](POAInfo& record) { record.the_activator(activator, ev); });
}

AdapterActivator* PortableServer_POA_impl::the_activator(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::the_activator [poa_info is null.]",
                   [&](POAInfo& record) {
                     return duplicate(record.the_activator(ev), ev,
                                      "PortableServer_POA_impl::the_activator [activator is null.]");
                   });
}

POA* PortableServer_POA_impl::create_POA(const char* adapter_name, POAManager* a_POAManager,
                                         const CORBA::PolicyList& policies, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::create_POA [poa_info is null.]", [&](POAInfo& record) {
    POA_var made = record.create_POA(adapter_name, a_POAManager, policies, ev);
    return present(made._retn(), ev, "PortableServer_POA_impl::create_POA [poa is nil.]");
  });
}

POA* PortableServer_POA_impl::find_POA(const char* adapter_name, CORBA::Boolean activate_it,
                                       CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::find_POA [poa_info is null.]", [&](POAInfo& record) {
    const POAObjectPtr found = record.find_POA(adapter_name, activate_it, ev);
    return duplicate(found.get(), ev, "PortableServer_POA_impl::find_POA [poa is nil.]");
  });
}

void PortableServer_POA_impl::destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                                      CORBA::Environment& ev) {
  on_record(this, ev, "PortableServer_POA_impl::destroy [poa_info is null.]", [&](POAInfo& record) {
    MutexGuard guard(poa_mutex);  // nobody finds a record that is destroyed and still in the tree
    record.destroy(etherealize_objects, wait_for_completion, ev);
    POANode::remove_from_list(&record);
  });
}

// ---- Policies ----

namespace {

/// A duplicate of a shared policy, asked of any POA.
template <class Kind>
Kind* policy(POA* self, typename Kind::value_type value, CORBA::Environment& ev, const char* no_record,
             const char* is_nil) {
  return on_record(self, ev, no_record,
                   [&](POAInfo&) { return duplicate(shared_policy<Kind>(value, ev), ev, is_nil); });
}

}  // namespace

ThreadPolicy* PortableServer_POA_impl::create_thread_policy(ThreadPolicyValue value, CORBA::Environment& ev) {
  return policy<ThreadPolicy>(this, value, ev,
                              "PortableServer_POA_impl::create_thread_policy [poa_info is null.]",
                              "PortableServer_POA_impl::create_thread_policy [thread policy is nil.]");
}

LifespanPolicy* PortableServer_POA_impl::create_lifespan_policy(LifespanPolicyValue value,
                                                                CORBA::Environment& ev) {
  return policy<LifespanPolicy>(this, value, ev,
                                "PortableServer_POA_impl::create_lifespan_policy [poa_info is null.]",
                                "PortableServer_POA_impl::create_lifespan_policy [lifespan policy is nil.]");
}

IdUniquenessPolicy* PortableServer_POA_impl::create_id_uniqueness_policy(IdUniquenessPolicyValue value,
                                                                         CORBA::Environment& ev) {
  return policy<IdUniquenessPolicy>(
      this, value, ev, "PortableServer_POA_impl::create_id_uniqueness_policy [poa_info is null.]",
      "PortableServer_POA_impl::create_id_uniqueness_policy [id_uniqueness policy is nil.]");
}

IdAssignmentPolicy* PortableServer_POA_impl::create_id_assignment_policy(IdAssignmentPolicyValue value,
                                                                         CORBA::Environment& ev) {
  return policy<IdAssignmentPolicy>(
      this, value, ev, "PortableServer_POA_impl::create_id_assignment_policy [poa_info is null.]",
      "PortableServer_POA_impl::create_id_assignment_policy [id_assignment policy is nil.]");
}

ImplicitActivationPolicy* PortableServer_POA_impl::create_implicit_activation_policy(
    ImplicitActivationPolicyValue value, CORBA::Environment& ev) {
  return policy<ImplicitActivationPolicy>(
      this, value, ev, "PortableServer_POA_impl::create_implicit_activation_policy [poa_info is null.]",
      "PortableServer_POA_impl::create_implicit_activation_policy [implicit_activation policy is nil.]");
}

ServantRetentionPolicy* PortableServer_POA_impl::create_servant_retention_policy(
    ServantRetentionPolicyValue value, CORBA::Environment& ev) {
  return policy<ServantRetentionPolicy>(
      this, value, ev, "PortableServer_POA_impl::create_servant_retention_policy [poa_info is null.]",
      "PortableServer_POA_impl::create_servant_retention_policy [servant_retention policy is nil.]");
}

RequestProcessingPolicy* PortableServer_POA_impl::create_request_processing_policy(
    RequestProcessingPolicyValue value, CORBA::Environment& ev) {
  return policy<RequestProcessingPolicy>(
      this, value, ev, "PortableServer_POA_impl::create_request_processing_policy [poa_info is null.]",
      "PortableServer_POA_impl::create_request_processing_policy [request_processing policy is nil.]");
}

// ---- Servant manager and default servant ----

ServantManager* PortableServer_POA_impl::get_servant_manager(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::get_servant_manager [poa_info is null.]",
                   [&](POAInfo& record) {
                     ServantManager* const manager =
                         present(record.get_servant_manager(ev), ev,
                                 "PortableServer_POA_impl::get_servant_manager [servant manager is nil.]");
                     manager->_share_reference();  // one that counts
                     return manager;
                   });
}

void PortableServer_POA_impl::set_servant_manager(ServantManager* servantManager_ptr,
                                                  CORBA::Environment& ev) {
  on_record(this, ev, "PortableServer_POA_impl::set_servant_manager [poa_info is null.]",
            [&](POAInfo& record) { record.set_servant_manager(servantManager_ptr, ev); });
}

ServantBase* PortableServer_POA_impl::get_servant(CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::get_servant [poa_info is null.]",
                   [&](POAInfo& record) { return record.get_servant(ev); });
}

void PortableServer_POA_impl::set_servant(ServantBase* p_servant, CORBA::Environment& ev) {
  POA_TRACE("PortableServer_POA_impl::set_servant servant=0x%lx", trace_address(p_servant));
  on_record(this, ev, "PortableServer_POA_impl::set_servant [poa_info is null.]",
            [&](POAInfo& record) { record.set_servant(p_servant, ev); });
}

// ---- Activation ----

ObjectId* PortableServer_POA_impl::activate_object(ServantBase* p_servant, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::activate_object [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.activate_object(p_servant, ev), ev,
                                    "PortableServer_POA_impl::activate_object [objectId is null.]");
                   });
}

void PortableServer_POA_impl::activate_object_with_id(const ObjectId& id, ServantBase* p_servant,
                                                      CORBA::Environment& ev) {
  on_record(this, ev, "PortableServer_POA_impl::activate_object_with_id [poa_info is null.]",
            [&](POAInfo& record) { record.activate_object_with_id(id, p_servant, ev); });
}

void PortableServer_POA_impl::deactivate_object(const ObjectId& oid, CORBA::Environment& ev) {
  on_record(this, ev, "PortableServer_POA_impl::deactivate_object [poa_info is null.]",
            [&](POAInfo& record) { record.deactivate_object(oid, ev); });
}

CORBA::Object* PortableServer_POA_impl::create_reference(const char* intf, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::create_reference [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.create_reference(intf, ev), ev,
                                    "PortableServer_POA_impl::create_reference [object is null.]");
                   });
}

CORBA::Object* PortableServer_POA_impl::create_reference_with_id(const ObjectId& oid, const char* intf,
                                                                 CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::create_reference_with_id [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.create_reference_with_id(oid, intf, ev), ev,
                                    "PortableServer_POA_impl::create_reference_with_id [object is null.]");
                   });
}

// ---- Conversions ----

ObjectId* PortableServer_POA_impl::servant_to_id(ServantBase* p_servant, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::servant_to_id [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.servant_to_id(p_servant, ev), ev,
                                    "PortableServer_POA_impl::servant_to_id [objectId is null.]");
                   });
}

CORBA::Object* PortableServer_POA_impl::servant_to_reference(ServantBase* p_servant, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::servant_to_reference [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.servant_to_reference(p_servant, ev), ev,
                                    "PortableServer_POA_impl::servant_to_reference [object is null.]");
                   });
}

ServantBase* PortableServer_POA_impl::reference_to_servant(CORBA::Object* reference, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::reference_to_servant [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.reference_to_servant(reference, ev), ev,
                                    "PortableServer_POA_impl::reference_to_servant [servant is null.]");
                   });
}

ObjectId* PortableServer_POA_impl::reference_to_id(CORBA::Object* reference, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::reference_to_id [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.reference_to_id(reference, ev), ev,
                                    "PortableServer_POA_impl::reference_to_id [objectId is null.]");
                   });
}

ServantBase* PortableServer_POA_impl::id_to_servant(const ObjectId& oid, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::id_to_servant [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.id_to_servant(oid, ev), ev,
                                    "PortableServer_POA_impl::id_to_servant [servant is null.]");
                   });
}

CORBA::Object* PortableServer_POA_impl::id_to_reference(const ObjectId& oid, CORBA::Environment& ev) {
  return on_record(this, ev, "PortableServer_POA_impl::id_to_reference [poa_info is null.]",
                   [&](POAInfo& record) {
                     return present(record.id_to_reference(oid, ev), ev,
                                    "PortableServer_POA_impl::id_to_reference [object is null.]");
                   });
}

// ---- Operations that are not virtual ----

void POA::set_incarnation_limit(CORBA::ULong most, CORBA::Environment& ev) {
  ev.clear();
  on_record(this, ev, nullptr, [&](POAInfo& record) { record.set_incarnation_limit(most, ev); });
}

CORBA::OctetSeq* POA::id(CORBA::Environment& ev) {
  ev.clear();
  return on_record(this, ev, nullptr, [](const POAInfo& record) {
    constexpr auto size = static_cast<CORBA::ULong>(sizeof record.identity);
    auto octets = std::make_unique<CORBA::OctetSeq>();
    octets->length(size);
    std::memcpy(octets->get_buffer(), &record.identity, size);
    return octets.release();
  });
}
