// The states of a POA manager, what each change tells the request queues, and what deactivation does to POAs.
#include <vector>

#include "base/corehandles.h"
#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "records/poainfo.h"
#include "records/poamanagerinfo.h"
#include "records/registration.h"

namespace {

using AdapterInactive = PortableServer::POAManager::AdapterInactive;
using State = PortableServer::POAManager::State;

POAInfoPtr root_record(CORBA::Environment& ev) {
  POAInfoPtr root = POAInfo::findPOAInfo(POANode::root_poa, ev);
  if (!root) raise<CORBA::BAD_PARAM>(ev, nullptr);
  return root;
}

/// Announces the process and lets its requests begin.
void announce_process(CORBA::Environment& ev) {
  root_record(ev);
  POA_TRACE("POAInfo::activate called...");
  _POA_impl_is_ready(core_handles.boa, ev);
  ZR_queue_begin();  // also where there is no name to register under
  POA_TRACE("POAInfo::activate end...");
}

/// Tells the queue group of the registered implementation; a failure is AdapterInactive.
void control_queue(int code, const char* trace, CORBA::Environment& ev) {
  CORBA_Environment core{};
  ZR_queue_control_queue_group(0, POA_impl_name, code, 0, &core);
  if (core._major == CORBA_NO_EXCEPTION) return;
  CORBA_exception_free(&core);
  POA_TRACE("ZR_queue_control_queue_group error,throw PortableServer::POAManager::AdapterInactive");
  raise<AdapterInactive>(ev, trace);
}

}  // namespace

// ---- Changes of the state ----

void POAManagerInfo::hold_at_gate(CORBA::Environment& ev) {
  if (gated) return;
  own_gate = std::make_shared<zrsv::Gate>(zrsv::Gate::Kind::barrier);
  if (state == PortableServer::POAManager::HOLDING) own_gate->close();
  gated = true;
  if (POA_impl_name && this == default_poa_manager_info)
    control_queue(ZR_QUEUE_RELEASE, "POAManagerInfo::hold_at_gate [ZR_queue_control_queue_group.]", ev);
}

// Who is let go meets the new state.
void POAManagerInfo::move_gate(State next, CORBA::Environment& ev) {
  POA_impl_is_ready_fl ? ZR_queue_begin() : announce_process(ev);
  if (next == PortableServer::POAManager::HOLDING) own_gate->close();
  state = next;
  if (next != PortableServer::POAManager::HOLDING) own_gate->open();
}

struct POAManagerInfo::Move {
  State next;
  const char* inactive;  // trace of a manager that is INACTIVE
  /// Tells the request queues, or announces a process that has none yet.
  void (*tell_queues)(State old, CORBA::Environment& ev);
};

bool POAManagerInfo::move(const Move& to, CORBA::Environment& ev) {
  MutexGuard guard(poa_mutex);
  const State old = state;
  if (to.next == PortableServer::POAManager::ACTIVE) {
    POA_TRACE_PLAIN("state=%d -> %d this=0x%lx", static_cast<int>(old), to.next, trace_address(this));
  } else {
    POA_TRACE_PLAIN("state=%d -> %d", static_cast<int>(old), to.next);
  }
  if (old == PortableServer::POAManager::INACTIVE) raise<AdapterInactive>(ev, to.inactive);
  if (old == to.next) return false;
  if (gated) return move_gate(to.next, ev), true;
  if (to.next == PortableServer::POAManager::HOLDING) {
    to.tell_queues(old, ev);
    state = to.next;
    return true;
  }
  state = to.next;  // before the queues are told: requests that they let go meet the new state
  try {
    to.tell_queues(old, ev);
  } catch (...) {
    state = old;
    throw;
  }
  return true;
}

void POAManagerInfo::activate(CORBA::Environment& ev) {
  constexpr Move ACTIVATE{PortableServer::POAManager::ACTIVE, "POAManagerInfo::activate [state is INACTIVE.]",
                          [](State old, CORBA::Environment& e) {
                            if (old != PortableServer::POAManager::HOLDING) return;
                            if (POA_impl_name)
                              control_queue(ZR_QUEUE_RELEASE,
                                            "POAManagerInfo::activate [ZR_queue_control_queue_group.]", e);
                            if (!POA_impl_is_ready_fl) announce_process(e);
                          }};
  POA_TRACE("POAManagerInfo::activate called...");
  if (move(ACTIVATE, ev)) POA_TRACE("POAManagerInfo::activate end...");
}

void POAManagerInfo::hold_requests(CORBA::Boolean, CORBA::Environment& ev) {
  constexpr Move HOLD{
      PortableServer::POAManager::HOLDING, "POAManagerInfo::hold_requests [state is INACTIVATE.]",
      [](State, CORBA::Environment& e) {
        if (!POA_impl_name) return announce_process(e);
        control_queue(ZR_QUEUE_HOLD, "POAManagerInfo::hold_requests [ZR_queue_control_queue_group.]", e);
      }};
  POA_TRACE("POAManagerInfo::hold_requests called...");
  if (move(HOLD, ev)) POA_TRACE("POAManagerInfo::hold_requests end...");
}

void POAManagerInfo::discard_requests(CORBA::Boolean, CORBA::Environment& ev) {
  constexpr Move DISCARD{
      PortableServer::POAManager::DISCARDING, "POAManagerInfo::discard_requests [state is INACTIVATE.]",
      [](State old, CORBA::Environment& e) {
        if (old != PortableServer::POAManager::HOLDING) return;
        if (!POA_impl_name) return announce_process(e);
        control_queue(ZR_QUEUE_RELEASE, "POAManagerInfo::discard_requests [ZR_queue_control_queue_group.]",
                      e);
      }};
  POA_TRACE("POAManagerInfo::discard_requests called...");
  if (move(DISCARD, ev)) POA_TRACE("POAManagerInfo::discard_requests end...");
}

// ---- Deactivation, and what it does to POAs ----

namespace {

/// Hands every active servant to the POA's servant activator, when it has one.
void etherealize_active(POAInfo& poa, CORBA::Boolean wait_for_completion, CORBA::Environment& ev) {
  POA_TRACE("  POAInfo::deactivate [etherealize_objects is TRUE]");
  if (!poa.policies.retains() || !poa.policies.uses_servant_manager()) return;
  PortableServer::ServantManager* servant_manager = poa.get_servant_manager(ev);
  if (CORBA::is_nil(servant_manager) || !servant_manager->is_activator()) {
    if (CORBA::is_nil(servant_manager)) POA_TRACE("throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::deactivate [servant manager is nil.]", MINOR_NO_MANAGER);
  }
  auto* activator = static_cast<PortableServer::ServantActivator*>(servant_manager->get_servant_activator());
  POA_TRACE("  AOM->etherealize call");
  if (ActiveObjectMap* map = poa.active_object_map; map && activator)
    map->etherealize(poa.poa_object, /*etherealize_objects=*/1, wait_for_completion, activator, ev);
}

void deactivate_objects(POAInfo& poa, CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                        CORBA::Environment& ev) {
  POA_TRACE("POAInfo::deactivate called...");
  replacing<AdapterInactive>(ev, "throw PortableServer::POAManager::AdapterInactive",
                             "POAInfo::deactivate [PortableServer::POAManager::AdapterInactive.]", [&] {
                               if (etherealize_objects) etherealize_active(poa, wait_for_completion, ev);
                             });
  POA_TRACE("POAInfo::deactivate end...");
}

/// The manager's POAs among this one and all below it.
void deactivate_tree(POAInfo& poa, const POAManagerInfo* manager, CORBA::Boolean etherealize_objects,
                     CORBA::Boolean wait_for_completion, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::deactivate[POAManger] called...");
  replacing<AdapterInactive>(ev, "throw PortableServer::POAManager::AdapterInactive",
                             "POAInfo::deactivate [PortableServer::POAManager::AdapterInactive.]", [&] {
                               if (manager == poa.poa_managerInfo_ptr) {
                                 POA_TRACE("  POAInfo::deactivate call");
                                 deactivate_objects(poa, etherealize_objects, wait_for_completion, ev);
                               }
                               MutexGuard guard(poa_mutex);
                               // A program's etherealize may destroy POAs: the children are those of now, less what goes meanwhile.
                               std::vector<POAInfoPtr> children;
                               for (POANode* child = poa.first_child; child; child = child->siblings)
                                 children.push_back(record_of(child->shared_from_this()));
                               for (const POAInfoPtr& child : children)
                                 if (!child->destroyed)
                                   deactivate_tree(*child, manager, etherealize_objects, wait_for_completion,
                                                   ev);
                             });
  POA_TRACE("POAInfo::deactivate[POAManager] end...");
}

}  // namespace

void POAManagerInfo::deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                                CORBA::Environment& ev) {
  constexpr Move DEACTIVATE{
      PortableServer::POAManager::INACTIVE, "POAManagerInfo::deactivate [state is INACTIVE.]",
      [](State, CORBA::Environment& e) {
        if (!POA_impl_name) {
          POA_TRACE("  poa_info->activate call");
          return announce_process(e);
        }
        control_queue(ZR_QUEUE_DRAIN, "POAManagerInfo::deactivate [ZR_queue_control_queue_group 1.]", e);
        control_queue(ZR_QUEUE_CLOSE, "POAManagerInfo::deactivate [ZR_queue_control_queue_group 2.]", e);
      }};
  POA_TRACE("POAManagerInfo::deactivate_requests called...");
  move(DEACTIVATE, ev);
  POA_TRACE("  poa_info->deactivate call");
  deactivate_tree(*root_record(ev), this, etherealize_objects, wait_for_completion, ev);
  POA_TRACE("POAManagerInfo::deactivate_requests end...");
}
