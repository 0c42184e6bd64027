#include "records/poamanagerinfo.h"

#include <unordered_map>

#include "base/raise.h"
#include "zrsv/thread_safety.h"

POAManagerInfo* default_poa_manager_info = nullptr;
PortableServer::POAManager* default_poa_manager = nullptr;

namespace {

constexpr const char* MANAGER_ID = "IDL:omg.org/PortableServer/POAManager:1.0";

/// The managers of the process by identity: a reference can only ever name one of these.
class LiveManagers {
 public:
  void enter(POAManagerInfo* record) {
    const zrsv::MutexLock lock(mutex_);
    records_.emplace(record->identity, record);
  }
  void leave(const POAManagerInfo* record) {
    const zrsv::MutexLock lock(mutex_);
    records_.erase(record->identity);
  }
  POAManagerInfo* find(Identity identity) {
    const zrsv::MutexLock lock(mutex_);
    const auto found = records_.find(identity);
    return found == records_.end() ? nullptr : found->second;
  }

 private:
  zrsv::Mutex mutex_;
  std::unordered_map<Identity, POAManagerInfo*> records_ ZR_GUARDED_BY(mutex_);
};

LiveManagers& live_managers() {
  static auto* managers = new LiveManagers;  // outlives every static record
  return *managers;
}

}  // namespace

POAManagerInfo::POAManagerInfo(State initial) : identity(new_identity()), state(initial) {
  POA_TRACE("POAManagerInfo::POAManagerInfo this=0x%lx", trace_address(this));
  CORBA::Environment ev;
  createObject(ev);
  enter();
}

POAManagerInfo::POAManagerInfo(CORBA::Environment& ev)
    : identity(new_identity()), state(PortableServer::POAManager::HOLDING) {
  POA_TRACE("POAManagerInfo::POAManagerInfo(_ev) this=0x%lx", trace_address(this));
  createObject(ev);
  enter();
}

void POAManagerInfo::enter() {
  try {
    live_managers().enter(this);
  } catch (...) {
    CORBA::release(poamanager_object);
    throw;
  }
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

PortableServer::POAManager* POAManagerInfo::default_object(CORBA::Environment& ev) {
  if (!default_poa_manager) {
    POA_TRACE("  default_poa_manager is NULL");
    POA_TRACE("  createObject call");
    default_poa_manager =
        own_object<PortableServer_POAManager_impl>(default_poa_manager_info->identity, MANAGER_ID);
    if (!default_poa_manager) raise<CORBA::BAD_PARAM>(ev, "POAInfo::POAInfo [obj is nil.]");
  }
  return default_poa_manager;
}
