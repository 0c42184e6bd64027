#include "poamanagerinfo.h"

#include <mutex>
#include <unordered_map>
#include <vector>

#include "poainfo.h"

namespace {

using AdapterInactive = PortableServer::POAManager::AdapterInactive;
using State = PortableServer::POAManager::State;

constexpr const char* MANAGER_ID = "IDL:omg.org/PortableServer/POAManager:1.0";

/// The managers of the process by identity: a reference can only ever name one of these.
class LiveManagers {
 public:
  void enter(POAManagerInfo* record) {
    std::lock_guard lock(mutex_);
    records_.emplace(record->identity, record);
  }
  void leave(const POAManagerInfo* record) {
    std::lock_guard lock(mutex_);
    records_.erase(record->identity);
  }
  POAManagerInfo* find(Identity identity) {
    std::lock_guard lock(mutex_);
    const auto found = records_.find(identity);
    return found == records_.end() ? nullptr : found->second;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<Identity, POAManagerInfo*> records_;  // guarded by mutex_
};

LiveManagers& live_managers() {
  static auto* managers = new LiveManagers;  // outlives every static record
  return *managers;
}

/// Registers the implementation through the root POA's record.
void register_implementation(POAManagerInfo* manager, CORBA::Environment& ev) {
  const POAInfoPtr root = POAInfo::findPOAInfo(POAInfo::root_poa, ev);
  if (!root) raise<CORBA::BAD_PARAM>(ev, nullptr);
  root->activate(manager, ev);
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

/// A state taken on before the queues are told, so that requests which they let go meet the new state; given
/// up again when they refuse.
class TentativeState {
 public:
  TentativeState(POAManagerInfo& manager, State next) : manager_(manager), old_(manager.get_state()) {
    manager_.set_state(next);
  }
  ~TentativeState() {
    if (!kept_) manager_.set_state(old_);
  }
  TentativeState(const TentativeState&) = delete;
  TentativeState& operator=(const TentativeState&) = delete;
  void keep() { kept_ = true; }

 private:
  POAManagerInfo& manager_;
  const State old_;
  bool kept_ = false;
};

void refuse_inactive(State state, const char* trace, CORBA::Environment& ev) {
  if (state == PortableServer::POAManager::INACTIVE) raise<AdapterInactive>(ev, trace);
}

}  // namespace

POAManagerInfo::POAManagerInfo() : identity(new_identity()) {
  POA_TRACE("POAManagerInfo::POAManagerInfo this=0x%lx", trace_address(this));
  CORBA::Environment ev;
  createObject(ev);
  live_managers().enter(this);
}

POAManagerInfo::POAManagerInfo(CORBA::Environment& ev) : identity(new_identity()) {
  POA_TRACE("POAManagerInfo::POAManagerInfo(_ev) this=0x%lx", trace_address(this));
  createObject(ev);
  live_managers().enter(this);
}

POAManagerInfo::~POAManagerInfo() { live_managers().leave(this); }

PortableServer::POAManager* POAManagerInfo::createObject(CORBA::Environment& ev) {
  POA_TRACE("POAManagerInfo::createObject this=0x%lx", trace_address(this));
  poamanager_object = own_object<PortableServer_POAManager_impl>(identity, MANAGER_ID);
  if (!poamanager_object) raise<CORBA::BAD_PARAM>(ev, "POAManagerInfo::createObject [obj is nil.]");
  return poamanager_object;
}

POAManagerInfo* POAManagerInfo::findPOAManagerInfo(PortableServer::POAManager* manager, CORBA::Environment&) {
  POA_TRACE("POAManagerInfo::findPOAManagerInfo");
  bool failed = false;
  CORBA_Environment core{};
  const Identity found = read_identity(manager, &failed, &core);
  if (failed) report_core_exception("Src/poamanagerinfo", __LINE__, core, static_cast<int>(core._major));
  POAManagerInfo* record = found ? live_managers().find(found) : nullptr;
  if (record) {
    POA_TRACE_PLAIN("found POAManagerInfo=0x%lx obj=0x%lx poamanager=0x%lx", trace_address(record),
                    trace_address(manager->get_ref()), trace_address(manager));
  }
  return record;
}

void POAManagerInfo::activate(CORBA::Environment& ev) {
  POA_TRACE("POAManagerInfo::activate called...");
  MutexGuard guard(poa_mutex);
  const State old = state;
  POA_TRACE_PLAIN("state=%d -> %d this=0x%lx", static_cast<int>(old), PortableServer::POAManager::ACTIVE,
                  trace_address(this));
  refuse_inactive(old, "POAManagerInfo::activate [state is INACTIVE.]", ev);
  if (old == PortableServer::POAManager::ACTIVE) return;
  TentativeState change(*this, PortableServer::POAManager::ACTIVE);
  if (old == PortableServer::POAManager::HOLDING) {
    if (POA_impl_name)
      control_queue(ZR_QUEUE_RELEASE, "POAManagerInfo::activate [ZR_queue_control_queue_group.]", ev);
    if (!POA_impl_is_ready_fl) register_implementation(this, ev);
  }
  change.keep();
  POA_TRACE("POAManagerInfo::activate end...");
}

void POAManagerInfo::hold_requests(CORBA::Boolean, CORBA::Environment& ev) {
  POA_TRACE("POAManagerInfo::hold_requests called...");
  MutexGuard guard(poa_mutex);
  const State old = state;
  POA_TRACE_PLAIN("state=%d -> %d", static_cast<int>(old), PortableServer::POAManager::HOLDING);
  refuse_inactive(old, "POAManagerInfo::hold_requests [state is INACTIVATE.]", ev);
  if (old == PortableServer::POAManager::HOLDING) return;
  if (!POA_impl_name) {
    register_implementation(this, ev);
  } else {
    control_queue(ZR_QUEUE_HOLD, "POAManagerInfo::hold_requests [ZR_queue_control_queue_group.]", ev);
  }
  state = PortableServer::POAManager::HOLDING;
  POA_TRACE("POAManagerInfo::hold_requests end...");
}

void POAManagerInfo::discard_requests(CORBA::Boolean, CORBA::Environment& ev) {
  POA_TRACE("POAManagerInfo::discard_requests called...");
  MutexGuard guard(poa_mutex);
  const State old = state;
  POA_TRACE_PLAIN("state=%d -> %d", static_cast<int>(old), PortableServer::POAManager::DISCARDING);
  refuse_inactive(old, "POAManagerInfo::discard_requests [state is INACTIVATE.]", ev);
  if (old == PortableServer::POAManager::DISCARDING) return;
  TentativeState change(*this, PortableServer::POAManager::DISCARDING);
  if (old == PortableServer::POAManager::HOLDING) {
    if (!POA_impl_name) {
      register_implementation(this, ev);
    } else {
      control_queue(ZR_QUEUE_RELEASE, "POAManagerInfo::discard_requests [ZR_queue_control_queue_group.]", ev);
    }
  }
  change.keep();
  POA_TRACE("POAManagerInfo::discard_requests end...");
}

void POAManagerInfo::deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                                CORBA::Environment& ev) {
  POA_TRACE("POAManagerInfo::deactivate_requests called...");
  {
    MutexGuard guard(poa_mutex);
    const State old = state;
    POA_TRACE_PLAIN("state=%d -> %d", static_cast<int>(old), PortableServer::POAManager::INACTIVE);
    refuse_inactive(old, "POAManagerInfo::deactivate [state is INACTIVE.]", ev);
    TentativeState change(*this, PortableServer::POAManager::INACTIVE);
    if (!POA_impl_name) {
      POA_TRACE("  poa_info->activate call");
      register_implementation(this, ev);
    } else {
      control_queue(ZR_QUEUE_DRAIN, "POAManagerInfo::deactivate [ZR_queue_control_queue_group 1.]", ev);
      control_queue(ZR_QUEUE_CLOSE, "POAManagerInfo::deactivate [ZR_queue_control_queue_group 2.]", ev);
    }
    change.keep();
  }
  POA_TRACE("  poa_info->deactivate call");
  const POAInfoPtr root = POAInfo::findPOAInfo(POAInfo::root_poa, ev);
  if (!root) raise<CORBA::BAD_PARAM>(ev, nullptr);
  root->deactivate(this, etherealize_objects, wait_for_completion, ev);
  POA_TRACE("POAManagerInfo::deactivate_requests end...");
}

// ---- What a manager does to POA records ----

void POAInfo::activate(POAManagerInfo*, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::activate called...");
  _POA_impl_is_ready(core_handles.boa, ev);
  ZR_queue_begin();  // also where there is no name to register under
  POA_TRACE("POAInfo::activate end...");
}

void POAInfo::deactivate(POAManagerInfo* manager, CORBA::Boolean etherealize_objects,
                         CORBA::Boolean wait_for_completion_, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::deactivate[POAManger] called...");
  replacing<AdapterInactive>(ev, "throw PortableServer::POAManager::AdapterInactive",
                             "POAInfo::deactivate [PortableServer::POAManager::AdapterInactive.]", [&] {
                               if (manager == poa_managerInfo_ptr) {
                                 POA_TRACE("  POAInfo::deactivate call");
                                 deactivate(etherealize_objects, wait_for_completion_, ev);
                               }
                               MutexGuard guard(poa_mutex);
                               // A program's etherealize may destroy POAs: the children are those of now,
                               // less what goes meanwhile.
                               std::vector<POAInfoPtr> children;
                               for (POAInfo* child = first_child; child; child = child->siblings)
                                 children.push_back(child->shared_from_this());
                               for (const POAInfoPtr& child : children)
                                 if (!child->destroyed)
                                   child->deactivate(manager, etherealize_objects, wait_for_completion_, ev);
                             });
  POA_TRACE("POAInfo::deactivate[POAManager] end...");
}

void POAInfo::deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                         CORBA::Environment& ev) {
  POA_TRACE("POAInfo::deactivate called...");
  replacing<AdapterInactive>(ev, "throw PortableServer::POAManager::AdapterInactive",
                             "POAInfo::deactivate [PortableServer::POAManager::AdapterInactive.]",
                             [&] { etherealize_active(etherealize_objects, wait_for_completion_, ev); });
  POA_TRACE("POAInfo::deactivate end...");
}

void POAInfo::etherealize_active(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                                 CORBA::Environment& ev) {
  if (!etherealize_objects) return;
  POA_TRACE("  POAInfo::deactivate [etherealize_objects is TRUE]");
  if (!policies.retains() || !policies.uses_servant_manager()) return;
  PortableServer::ServantManager* servant_manager = get_servant_manager(ev);
  if (CORBA::is_nil(servant_manager) || !servant_manager->is_activator()) {
    if (CORBA::is_nil(servant_manager)) POA_TRACE("throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::deactivate [servant manager is nil.]", MINOR_NO_MANAGER);
  }
  auto* activator = static_cast<PortableServer::ServantActivator*>(servant_manager->get_servant_activator());
  POA_TRACE("  AOM->etherealize call");
  if (ActiveObjectMap* map = active_object_map; map && activator)
    map->etherealize(poa_object, etherealize_objects, wait_for_completion_, activator, ev);
}
