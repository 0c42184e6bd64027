#include "records/poainfo.h"

#include <cstring>
#include <unordered_map>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "records/poamanagerinfo.h"
#include "records/queue.h"

PortableServer::POA* POAInfo::root_poa = nullptr;
std::atomic<std::uint64_t> POAInfo::tree_changes{1};

POAInfo* root_poa_info = nullptr;

namespace {

constexpr const char* POA_OBJECT_ID = "IDL:org.omg/PortableServer/POA:1.0";

/// The records that are alive, by identity; it owns them. Guarded by poa_mutex. Never destroyed: POAs live
/// until the process ends.
std::unordered_map<Identity, POAInfoPtr>& live_records() ZR_REQUIRES(poa_mutex) {
  static auto& records = *new std::unordered_map<Identity, POAInfoPtr>;
  return records;
}

POAInfoPtr live_record(Identity identity) {
  MutexGuard guard(poa_mutex);
  const auto found = live_records().find(identity);
  return found == live_records().end() ? nullptr : found->second;
}

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
    turnstile = std::make_shared<zrsv::Gate>(zrsv::Gate::Kind::turnstile);
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
  CORBA::string_free(std::exchange(adapter_name, nullptr));
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
  POA_TRACE("POAInfo::findPOAInfo called...");
  Identity wanted = 0;
  switch (read_reference_data(_this, &wanted, sizeof wanted)) {
    case DataRead::failed:
      POA_TRACE("POAInfo::findPOAInfo end... [return NULL : exeption]");
      return nullptr;
    case DataRead::too_short:
      POA_TRACE("POAInfo::findPOAInfo end... [return NULL 1]");
      return nullptr;
    case DataRead::whole:
      break;
  }
  POAInfoPtr record = live_record(wanted);
  // The table is the proof of life; the walk through the tree is for its trace lines.
  if (!record || (OM_TRACE_IS_ON && !is_existent(record.get()))) {
    POA_TRACE("POAInfo::findPOAInfo end... [return NULL 2]");
    return nullptr;
  }
  POA_TRACE("POAInfo::findPOAInfo end... [find POAInfo]");
  return record;
}

// ---- Proof of life ----

bool POAInfo::is_existent(const POAInfo* target) {
  POA_TRACE("POAInfo::is_existent called...");
  if (!target) return false;
  if (!root_poa_info) {
    POA_TRACE("not exist...");
    return false;
  }
  MutexGuard guard(poa_mutex);
  const bool exists = is_below(root_poa_info, target);
  POA_TRACE("POAInfo::is_existent end...");
  return exists;
}

bool POAInfo::is_below(const POAInfo* parent, const POAInfo* target) {
  POA_TRACE("POAInfo::is_existent_sub called...");
  if (parent == target) return true;
  for (const POAInfo* child = parent->first_child; child; child = child->siblings) {
    if (child == target) {
      POA_TRACE("POAInfo::is_existent_sub end...[exist]");
      return true;
    }
    if (is_below(child, target)) return true;
  }
  POA_TRACE("POAInfo::is_existent_sub end...[not exist]");
  return false;
}

void POAInfo::enter_live(const POAInfoPtr& record) {
  live_records().emplace(record->identity, record);
  ++tree_changes;
}

bool POAInfo::is_live(const POAInfo& record) { return live_records().count(record.identity) != 0; }

bool POAInfo::unlink(const POAInfo& child) {
  if (!child.parent || child.parent->child_named(child.adapter_name) != &child) return false;
  child.parent->children.erase(child.adapter_name);
  (child.newer_sibling ? child.newer_sibling->siblings : child.parent->first_child) = child.siblings;
  if (child.siblings) child.siblings->newer_sibling = child.newer_sibling;
  live_records().erase(child.identity);
  ++tree_changes;
  return true;
}

void POAInfo::remove_from_list(POAInfo* target) {
  POA_TRACE("POAInfo::remove_from_list called...");
  if (!target || !root_poa_info) return;
  const POAInfoPtr hold = target->shared_from_this();  // so that it is deleted with the lock given back
  MutexGuard guard(poa_mutex);
  const bool is_first = target->parent && target->parent->first_child == target;
  const bool removed = unlink(*target);
  if (is_first) return;
  if (removed) {
    POA_TRACE("POAInfo::remove_from_list end...[removed. POAInfo=0x%lx]", trace_address(target));
  } else {
    POA_TRACE("POAInfo::remove_from_list end...[not removed]");
  }
}
