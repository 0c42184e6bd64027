#include "records/poainfo.h"

#include <cstring>

#include "base/locks.h"
#include "base/raise.h"
#include "records/poamanagerinfo.h"
#include "records/queue.h"

namespace {

constexpr const char* POA_OBJECT_ID = "IDL:org.omg/PortableServer/POA:1.0";

/// A copy for CORBA::string_free; null without memory.
char* copy_name(const char* name) {
  const std::size_t length = std::strlen(name);
  char* copy = length < INT32_MAX ? CORBA::string_alloc(static_cast<CORBA::Long>(length + 1)) : nullptr;
  if (copy) std::memcpy(copy, name, length + 1);
  return copy;
}

}  // namespace

// ---- Life ----

POAInfo::POAInfo() { POA_TRACE("POAInfo::POAInfo called...[this=0x%lx]", trace_address(this)); }

POAInfo::POAInfo(const char* _adapter_name, PortableServer::POAManager* a_POAManager,
                 const CORBA::PolicyList& list, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::POAInfo(...) called...");
  policies = PolicySet::read(list, ev);
  if (policies.thread == threadPolicy_SINGLE_THREAD_MODEL_tag)
    one_at_a_time = std::make_shared<zrsv::Gate>(zrsv::Gate::Kind::mutex);
  CORBA::String_var name(copy_name(_adapter_name));
  if (!name.in()) {
    raise<CORBA::BAD_PARAM>(ev, "NULL name.. throw CORBA::StExcep::BAD_PARAM.",
                            "POAInfo::POAInfo [adapter_name is invalid.]");
  }
  share_manager(a_POAManager, ev);
  adapter_name = name._retn();
  POA_TRACE("POAInfo::POAInfo(...) end...");
}

void POAInfo::share_manager(PortableServer::POAManager* manager, CORBA::Environment& ev) {
  if (!CORBA::is_nil(manager)) {
    POA_TRACE("  set this->poa_manager to a_POAManger");
    poa_managerInfo_ptr = POAManagerInfo::findPOAManagerInfo(manager, ev);
    if (!poa_managerInfo_ptr) raise<CORBA::BAD_PARAM>(ev, "POAInfo::POAInfo [a_POAManager is unknown.]");
    // The manager's own object: the one at hand is the program's, which may release it at once.
    poa_manager = poa_managerInfo_ptr->poamanager_object;
  } else {
    POA_TRACE("  a_POAManager is NULL");
    poa_managerInfo_ptr = default_poa_manager_info;
    poa_manager = POAManagerInfo::default_object(ev);
  }
}

POAInfo::~POAInfo() {
  POA_TRACE("POAInfo::~POAInfo called...[this=0x%lx]", trace_address(this));
  delete active_object_map.exchange(nullptr);
  requestCache.reset();
  CORBA::release(std::exchange(poa_object, nullptr));
}

// ---- The POA object ----

PortableServer::POA* POAInfo::createObject(CORBA::Environment& ev) {
  POA_TRACE("POAInfo::createObject called...");
  POA_TRACE("  POAInfo::createObject(...) call");
  poa_object = own_object<PortableServer_POA_impl>(identity, POA_OBJECT_ID);
  POA_TRACE("  POAInfo::createObject(...) end");
  if (!poa_object) {
    raise<CORBA::BAD_PARAM>(ev, "obj = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::createObject [obj is nil.]");
  }
  POA_TRACE("POAInfo::createObject end...");
  return poa_object;
}

POAInfoPtr POAInfo::findPOAInfo(PortableServer::POA* _this, CORBA::Environment&) {
  return record_of(find_live(_this));
}
