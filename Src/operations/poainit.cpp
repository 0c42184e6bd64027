#include "operations/poainit.h"

#include "base/corehandles.h"
#include "base/locks.h"
#include "base/raise.h"
#include "dispatch/upcalls.h"
#include "objects/common_poa.h"
#include "records/currentinfo.h"
#include "records/poainfo.h"
#include "records/poamanagerinfo.h"
#include "records/registration.h"

bool initialised = false;

namespace {

[[maybe_unused]] const bool hook_installed = [] {
  _cpp_poa_init = _poa_init;
  return true;
}();

bool create_mutexes() {
  constexpr struct {
    bool (*initialize)();
    const char* failure;
  } mutexes[] = {
      {poa_mutex_initialize, "poa_mutex : mutex_init"},
      {poa_svt_delete_mutex_initialize, "poa_svt_delete_mutex : mutex_init"},
      {poa_svt_ref_counter_mutex_initialize, "poa_svt_ref_counter_mutex : mutex_init"},
      {poa_svt_lifespan_mutex_initialize, "poa_svt_lifespan_mutex : mutex_init"},
      {poa_default_servant_ref_mutex_initialize, "poa_default_servant_ref_mute : mutex_init"},
      {poa_svt_objref_mutex_initialize, "poa_svt_objref_mutex : mutex_init"},
  };
  for (const auto& mutex : mutexes) {
    if (mutex.initialize()) continue;
    POA_TRACE("%s", mutex.failure);
    return false;
  }
  return true;
}

void install_upcalls() {
  _call_cpp_ = call_cpp_handler;
  _call_disconnect_cpp_ = call_disconnect_cpp_handler;
  _call_poa_inst_lifespan_ = call_poa_inst_lifespan;
}

/// Stores an initial reference; false when the ORB core reports an exception.
bool resolve(void* orb, const char* name, void*& reference) {
  CORBA::Environment ev;
  reference = CORBA_ORB_resolve_initial_references(orb, name, ev._evp);
  return ev._evp->_major == CORBA_NO_EXCEPTION;
}

/// The records that a start-up which failed later on had made are used again: references name them by now.
void make_current(CORBA::Environment& ev) {
  if (!current_info) current_info = new CurrentInfo(ev);
  poa_current = current_info->current_object;
}

void make_root(CORBA::Environment& ev) {
  if (!default_poa_manager_info) default_poa_manager_info = new POAManagerInfo(ev);
  CORBA::PolicyList policies;
  policies.length(1);
  policies[0] = PortableServer::ImplicitActivationPolicy::_duplicate(
      shared_policy<PortableServer::ImplicitActivationPolicy>(PortableServer::IMPLICIT_ACTIVATION, ev));
  const auto record = std::make_shared<POAInfo>("rootPOA", PortableServer::POAManager::_nil(), policies, ev);
  PortableServer::POA* object = record->createObject(ev);
  {
    MutexGuard guard(poa_mutex);
    POANode::enter_live(record);
    root_poa_info = record.get();
  }
  POANode::root_poa = object;
  initialised = true;
}

/// Makes the root POA; a handle to it that the caller owns, or null.
void* start(void* orb) {
  CORBA::Environment ev;
  if (!create_mutexes()) return nullptr;
  install_upcalls();
  set_system_id(0x01234567);
  if (!resolve(orb, "KQ_LightInterfaceRepository", core_handles.interface_repository) ||
      !resolve(orb, "ImplementationRepository", core_handles.implementation_repository))
    return nullptr;
  clear_implementation_table();
  make_current(ev);
  try {
    make_root(ev);
    return CORBA_object_duplicate(POANode::root_poa->get_ref(), ev._evp);
  } catch (const CORBA::Exception&) {
    POA_TRACE("root_poa is nil!");
    return nullptr;
  }
}

}  // namespace

extern "C" void* _poa_init(void* orb, void* boa) {
  POA_TRACE("_poa_init");
  core_handles.orb = orb;
  core_handles.boa = boa;
  void* root = initialised ? POANode::root_poa->get_ref() : start(orb);
  if (root) ZR_register_initial_reference(orb, "POACurrent", poa_current->get_ref());
  return root;
}
