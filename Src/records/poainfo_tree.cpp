// The POA tree: creation, lookup, adapter activation, destruction.
#include <cstring>
#include <new>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "objects/adapteractivation.h"
#include "objects/referencedata.h"
#include "records/poainfo.h"

namespace {

using PortableServer::POA;

template <class... Kept>
bool is_one_of(const CORBA::Exception& e) {
  return (dynamic_cast<const Kept*>(&e) || ...);
}

/// Exceptions that leave a section under poa_mutex as what they are; others leave it as plain
/// CORBA::Exceptions.
bool keeps_type(const CORBA::Exception& e) {
  return is_one_of<POA::AdapterNonExistent, POA::InvalidPolicy, POA::AdapterAlreadyExists, POA::WrongPolicy,
                   POA::NoServant, POA::ServantAlreadyActive, POA::ObjectAlreadyActive, POA::ObjectNotActive,
                   POA::ServantNotActive, POA::WrongAdapter, PortableServer::POAManager::AdapterInactive,
                   CORBA::NO_MEMORY, CORBA::NO_RESOURCES, CORBA::BAD_PARAM, CORBA::TRANSIENT,
                   CORBA::OBJ_ADAPTER>(e);
}

template <class Work>
auto under_poa_mutex(Work&& work) {
  MutexGuard guard(poa_mutex);
  try {
    return work();
  } catch (const CORBA::Exception& e) {
    if (keeps_type(e)) throw;
    throw CORBA::Exception(e);
  }
}

void require_name(const char* name, const char* null_trace, const char* empty_trace, CORBA::Environment& ev) {
  if (!name) raise<CORBA::BAD_PARAM>(ev, "name=NULL, throw CORBA::StExcep::BAD_PARAM", null_trace);
  if (!*name) raise<CORBA::BAD_PARAM>(ev, "name=\"\", throw CORBA::StExcep::BAD_PARAM", empty_trace);
}

}  // namespace

// ---- Creation ----

PortableServer::POA_var POAInfo::create_POA(const char* _adapter_name,
                                            PortableServer::POAManager* a_POAManager,
                                            const CORBA::PolicyList& list, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::create_POA called...");
  require_name(_adapter_name, "POAInfo::create_POA [adapter_name is nil.]",
               "POAInfo::create_POA [adapter_name[0] is 0.]", ev);
  // No reference could be made in it.
  if (std::strchr(_adapter_name, poa_seperator[0]) || name_part_length(_adapter_name) > NAME_PART_MAXIMUM)
    raise<CORBA::BAD_PARAM>(ev, "POAInfo::create_POA [adapter_name is invalid.]");
  try {
    PortableServer::POA_var made = under_poa_mutex(
        [&]() ZR_REQUIRES(poa_mutex) { return add_child(_adapter_name, a_POAManager, list, ev); });
    POA_TRACE("POAInfo::create_POA end...");
    return made;
  } catch (const std::bad_alloc&) {
    raise<CORBA::NO_MEMORY>(ev, "POAInfo::create_POA [no memory.]");
  }
}

PortableServer::POA_var POAInfo::add_child(const char* name, PortableServer::POAManager* manager,
                                           const CORBA::PolicyList& list, CORBA::Environment& ev) {
  if (destroyed)  // by another thread, after the caller had found the record
    raise<CORBA::BAD_PARAM>(ev, "PortableServer_POA_impl::create_POA [poa_info is null.]");
  if (child_named(name)) {
    POA_TRACE("name=%s exists, throw PortableServer::POA::AdapterAlreadyExists", name);
    raise<POA::AdapterAlreadyExists>(ev, "POAInfo::create_POA [adapter already exists.]");
  }
  auto child = std::make_shared<POAInfo>(name, manager, list, ev);
  PortableServer::POA_var for_caller = POA::_duplicate(child->createObject(ev));
  link_child(child);
  return for_caller;
}

// ---- Lookup ----

POAObjectPtr POAInfo::find_POA(const char* _adapter_name, CORBA::Boolean activate_it,
                               CORBA::Environment& ev) {
  POA_TRACE("POAInfo::find_POA called...");
  require_name(_adapter_name, "POAInfo::find_POA [adapter_name is null.]",
               "POAInfo::find_POA [adapter_name[0] is 0.]", ev);
  POA_TRACE("call findChildByName %s activate_it=%d", _adapter_name, activate_it);
  const POAInfoPtr child = findChildByName(_adapter_name, ev, activate_it);
  if (!child) {
    raise<POA::AdapterNonExistent>(ev, "No Exists.throw PortableServer::POA::AdapterNonExistent.",
                                   "POAInfo::find_POA [AdapterNonExistent.]");
  }
  POA_TRACE("POAInfo::find_POA end...[return poa_object]");
  return {child, child->poa_object};
}

POAInfoPtr POAInfo::findChildByName(const char* _adapter_name, CORBA::Environment& ev, CORBA::Boolean act) {
  POA_TRACE("POAInfo::findChildByName called...");
  if (!_adapter_name) {
    raise<CORBA::BAD_PARAM>(ev, "name=NULL,throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::findChildByName [adapter_name is nil.]");
  }
  {
    MutexGuard guard(poa_mutex);
    if (POANode* child = child_named(_adapter_name)) {
      POA_TRACE("POAInfo::findChildByName end...[found name = %s : return 0x%lx]", _adapter_name,
                trace_address(child));
      return record_of(child->shared_from_this());
    }
    POA_TRACE("  not found name = %s", _adapter_name);
  }
  PortableServer::AdapterActivator* activator = adapter_activator;
  if (!act || CORBA::is_nil(activator)) {
    raise<POA::AdapterNonExistent>(ev, "not found name,non adapter_act,throw AdapterNonExistent",
                                   "POAInfo::findChildByName [adapter_activator is nil.]");
  }
  return ask_activator(*activator, _adapter_name, ev);
}

POAInfoPtr POAInfo::ask_activator(PortableServer::AdapterActivator& activator, const char* name,
                                  CORBA::Environment& ev) {
  const AdapterActivation activation(identity, name);
  {  // another thread's may just have come to its end
    MutexGuard guard(poa_mutex);
    if (POANode* child = child_named(name)) return record_of(child->shared_from_this());
  }
  POA_TRACE("call adapter_activator->unknown_adapter..");
  if (!activator.unknown_adapter(poa_object, const_cast<char*>(name), ev)) {
    raise<POA::AdapterNonExistent>(ev, "adapter_act returns NULL,throw AdapterNonExistent",
                                   "POAInfo::findChildByName [adapter_activator->unknown_adapter.]");
  }
  {
    MutexGuard guard(poa_mutex);
    if (POANode* child = child_named(name)) return record_of(child->shared_from_this());
  }
  raise<POA::AdapterNonExistent>(ev, "adapter_act returns NULL,  throw AdapterNonExistent",
                                 "POAInfo::findChildByName [adapter_act returns null.]");
}

// ---- Attributes ----

char* POAInfo::the_name(CORBA::Environment&) {
  POA_TRACE("POAInfo::the_name called...");
  return adapter_name;
}

PortableServer::POA* POAInfo::the_parent(CORBA::Environment& ev) {
  POA_TRACE("POAInfo::the_parent called...");
  if (!parent) {
    raise<CORBA::BAD_PARAM>(ev, "poa_info=NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::the_parent [poa_info is null.]");
  }
  return parent->poa_object;
}

PortableServer::POAList* POAInfo::the_children(CORBA::Environment&) {
  POA_TRACE("POAInfo::the_children called...");
  MutexGuard guard(poa_mutex);
  CORBA::ULong count = 0;
  for (const POANode* child = first_child; child; child = child->siblings) ++count;
  auto list = std::make_unique<PortableServer::POAList>(count);
  list->length(count);
  CORBA::ULong at = 0;
  for (const POANode* child = first_child; child; child = child->siblings)
    (*list)[at++] = POA::_duplicate(child->poa_object);
  return list.release();
}

PortableServer::POAManager* POAInfo::the_POAManager(CORBA::Environment&) {
  POA_TRACE("POAInfo::the_POAManager called...");
  return poa_manager;
}

PortableServer::AdapterActivator* POAInfo::the_activator(CORBA::Environment&) {
  POA_TRACE("POAInfo::the_activator[get] called...");
  return adapter_activator;
}

void POAInfo::the_activator(PortableServer::AdapterActivator* adapterActivator_ptr, CORBA::Environment&) {
  POA_TRACE("POAInfo::the_activator[set] called...");
  const CORBA::Object_var count(adapterActivator_ptr ? adapterActivator_ptr->_share_reference() : nullptr);
  MutexGuard guard(poa_mutex);
  if (count.in()) counted.push_back(count);  // also one that is replaced: a thread may be in it
  adapter_activator = adapterActivator_ptr;
}

// ---- Destruction ----

void POAInfo::destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                      CORBA::Environment& ev) {
  POA_TRACE("POAInfo::destroy called...");
  under_poa_mutex([&]() ZR_REQUIRES(poa_mutex) { _destroy(etherealize_objects, wait_for_completion_, ev); });
  POA_TRACE("POAInfo::destroy end...");
}

void POAInfo::_destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                       CORBA::Environment& ev) {
  POA_TRACE("POAInfo::_destroy called...");
  if (this == root_poa_info) {
    raise<CORBA::BAD_PARAM>(ev, "pos is root, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::_destroy [this is root_poa_info.]");
  }
  if (destroyed) raise<CORBA::BAD_PARAM>(ev, "PortableServer_POA_impl::destroy [poa_info is null.]");
  destroyed = true;  // from here on no child is made, not even by a servant activator that is called below
  ++tree_changes;    // threads that remember the POA look it up again, and wait for the lock
  try {
    destroy_children(etherealize_objects, wait_for_completion_, ev);
    {
      PortableServer::LeavingServant leaving;
      MutexGuard counts(poa_default_servant_ref_mutex);
      exchange_default(nullptr, nullptr, leaving);
    }
    if (ActiveObjectMap* map = active_object_map; policies.retains() && map) {
      POA_TRACE("call clear_servants");
      map->clear_servants(poa_object);
    }
    etherealize_destroyed(etherealize_objects, wait_for_completion_, ev);
    if (ActiveObjectMap* map = active_object_map) map->let_go_of_servants();
  } catch (...) {
    destroyed = !is_live();  // still in the tree: it works on and can be destroyed again
    throw;
  }
}

void POAInfo::destroy_children(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                               CORBA::Environment& ev) {
  while (first_child) {
    const POAInfoPtr child = record_of(first_child->shared_from_this());
    // A child may have been destroyed and not be unlinked yet: by another thread, or further out on this
    // thread's stack.
    if (!child->destroyed) child->_destroy(etherealize_objects, wait_for_completion_, ev);
    child->unlink_from_parent();
  }
}

void POAInfo::etherealize_destroyed(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                                    CORBA::Environment& ev) {
  PortableServer::ServantManager* servant_manager = nullptr;
  try {
    servant_manager = get_servant_manager(ev);
  } catch (const CORBA::Exception&) {
    return;  // the POA uses none; ev keeps what the question stored there
  }
  if (CORBA::is_nil(servant_manager)) {
    POA_TRACE("POAInfo::_destroy end...");
    return;
  }
  ActiveObjectMap* map = nullptr;
  {  // waits for a servant that is being entered, perhaps into a first map: later ones see that the POA goes
    PoaSemaphoreGuard guard(__LINE__);
    map = active_object_map;
  }
  if (policies.retains() && map && etherealize_objects) {
    auto* activator =
        static_cast<PortableServer::ServantActivator*>(servant_manager->get_servant_activator());
    POA_TRACE(" active_object_map->ethrealize call");
    if (activator) map->etherealize(poa_object, etherealize_objects, wait_for_completion_, activator, ev);
  }
  POA_TRACE("POAInfo::_destroy end...[Servant Manager is not NULL]");
}
