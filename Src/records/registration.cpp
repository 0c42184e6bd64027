#include "records/registration.h"

#include <cstdlib>
#include <string>

#include "base/corehandles.h"
#include "base/locks.h"
#include "base/raise.h"
#include "records/poanode.h"

// Never destroyed: threads may be registering while the process ends.
zrsv::RecursiveMutex& registration_mutex = *new zrsv::RecursiveMutex;
ZRImplementationDef implDef_cache[IMPL_DEF_CACHE_SIZE];
std::atomic<const char*> POA_impl_name{nullptr};
std::atomic<int> POA_impl_is_ready_fl{0};

namespace {

/// The name that the process serves under: ZR_IMPLID, else the root's newest child's.
struct ImplementationName {
  std::string text;
  bool from_variable = false;
  bool found = false;

  static ImplementationName now() {
    if (const char* variable = std::getenv("ZR_IMPLID")) return {variable, true, true};
    if (!root_poa_info) return {};
    MutexGuard guard(poa_mutex);
    const POANode* child = root_poa_info->the_first_child();
    return child ? ImplementationName{child->the_adapter_name(), false, true} : ImplementationName{};
  }
};

/// Stores the name, once. The copy is kept until the process ends.
void keep_name(const std::string& name) {
  const char* none = nullptr;
  if (POA_impl_name.load()) return;
  char* copy = CORBA::string_dup(name.c_str());
  if (!POA_impl_name.compare_exchange_strong(none, copy)) CORBA::string_free(copy);
}

void* lookup(const std::string& name, const char* failed, CORBA::Environment& ev) {
  CORBA::Environment core;
  void* definition =
      KQ_ImplementationRep_lookup_id(core_handles.implementation_repository, name.c_str(), core._evp);
  if (core._evp->_major != CORBA_NO_EXCEPTION) raise<CORBA::BAD_PARAM>(ev, failed);
  return definition;
}

bool announce(void* boa, void* definition) {
  CORBA::Environment core;
  CORBA_BOA_impl_is_ready(boa, definition, core._evp);
  return core._evp->_major == CORBA_NO_EXCEPTION;
}

std::atomic<unsigned> tables{1};  // cleared ones, and this one: what was found in it stays there

/// An interface that the thread found in a table, by the address of its text, which lasts as long as the process.
struct KnownInterface {
  const char* intf = nullptr;
  unsigned table = 0;
};

bool same_text(const char* a, const char* b) { return a == b || std::strcmp(a, b) == 0; }

}  // namespace

// ---- The table ----------------------------------------------------------------------------------

ZRImplementationDef* FindImplementationDef(const char* impl_id) {
  const zrsv::RecursiveMutexLock lock(registration_mutex);
  for (ZRImplementationDef& entry : implDef_cache)
    if (entry.impl_id && same_text(entry.impl_id, impl_id)) return &entry;
  return nullptr;
}

ZRImplementationDef* InsertImplementationDef(const char* impl_id, void* implDef) {
  const zrsv::RecursiveMutexLock lock(registration_mutex);
  if (ZRImplementationDef* entry = FindImplementationDef(impl_id)) return entry;
  for (ZRImplementationDef& entry : implDef_cache) {
    if (entry.impl_id) continue;
    entry = {impl_id, implDef, 0};
    return &entry;
  }
  POA_TRACE("InsertImplementationDef [NO_MEMORY]");
  throw CORBA::NO_MEMORY(MINOR_TABLE_FULL);
}

void clear_implementation_table() {
  const zrsv::RecursiveMutexLock lock(registration_mutex);
  ++tables;
  for (ZRImplementationDef& entry : implDef_cache) entry = {};
}

// ---- Interface by interface ---------------------------------------------------------------------

namespace {

/// For an interface that is not in the table. One thread at a time.
void register_interface(const char* intf, const ImplementationName& name, CORBA::Environment& ev)
    ZR_REQUIRES(registration_mutex) {
  void* definition = lookup(name.text, "POAInfo::POA_impl_is_ready [KQ_ImplementationRep_lookup_id.]", ev);
  ZRImplementationDef* entry = InsertImplementationDef(intf, definition);
  if (POA_impl_is_ready_fl != 0) {
    POA_TRACE("POAInfo::POA_impl_is_ready end...[flug is not 0]");
    return;
  }
  if (entry->is_ready) {
    POA_TRACE("POAInfo::POA_impl_is_ready end...[is ready]");
    return;
  }
  keep_name(name.text);
  if (!announce(core_handles.boa, entry->implDef))
    raise<CORBA::BAD_PARAM>(ev, "_POAInfo::POA_impl_is_ready [CORBA_BOA_impl_is_ready.]");
  POA_TRACE("POAInfo::POA_impl_is_ready end...");
  entry->is_ready = 1;
}

}  // namespace

void POA_impl_is_ready(PortableServer::ServantBase* servant, const PortableServer::ObjectId* oid,
                       CORBA::Environment& ev) {
  POA_TRACE("POAInfo::POA_impl_is_ready called...");
  const char* intf = servant->_primary_interface(*oid, nullptr, ev);
  if (!intf) intf = "";
  thread_local constinit KnownInterface known;
  const unsigned table = tables;
  if (known.intf == intf && known.table == table) return;
  if (FindImplementationDef(intf)) {
    known = {intf, table};
    return;
  }
  const auto name = ImplementationName::now();
  if (name.from_variable) {
    POA_TRACE("getenv(ZR_IMPLID)=%s", name.text.c_str());
  } else {
    POA_TRACE("ZR_IMPLID)=NULL use _intf = %s", intf);
  }
  if (!name.found) return;  // nothing to register under
  const zrsv::RecursiveMutexLock lock(registration_mutex);
  if (FindImplementationDef(intf)) return;  // another thread was first
  register_interface(intf, name, ev);
}

// ---- The whole process --------------------------------------------------------------------------

namespace {

struct ProcessTexts {
  const char* call;
  const char* done;
  const char* end;
};
constexpr ProcessTexts BY_VARIABLE = {"  CORBA_BOA_impl_is_ready call [ZR_IMPLID]",
                                      "  CORBA_BOA_impl_is_ready done [ZR_IMPLID]",
                                      "_POA_impl_is_ready end...[ZR_IMPLID]"};
constexpr ProcessTexts BY_CHILD = {"  CORBA_BOA_impl_is_ready call [ZR_IMPLID is NULL]",
                                   "  CORBA_BOA_impl_is_ready done [ZR_IMPLID is NULL]",
                                   "_POA_impl_is_ready end...[ZR_IMPLID is NULL]"};

void register_process(void* boa, const ImplementationName& name, CORBA::Environment& ev) {
  const ProcessTexts& texts = name.from_variable ? BY_VARIABLE : BY_CHILD;
  POA_TRACE(name.from_variable ? "getenv(ZR_IMPLID)=%s" : "use poa_name.. %s", name.text.c_str());
  void* definition = lookup(name.text, "_POA_impl_is_ready [KQ_ImplementationRep_lookup_id.]", ev);
  keep_name(name.text);
  POA_impl_is_ready_fl = 1;
  POA_TRACE("%s", texts.call);
  const bool announced = announce(boa, definition);
  POA_TRACE("%s", texts.done);
  if (!announced) raise<CORBA::BAD_PARAM>(ev, "_POA_impl_is_ready [CORBA_BOA_impl_is_ready.]");
  POA_TRACE("%s", texts.end);
}

}  // namespace

void _POA_impl_is_ready(void* _boa, CORBA::Environment& ev) {
  POA_TRACE("_POA_impl_is_ready called...");
  if (POA_impl_is_ready_fl != 0) return;
  const auto name = ImplementationName::now();
  if (!name.found) return;
  const zrsv::RecursiveMutexLock lock(registration_mutex);
  if (POA_impl_is_ready_fl == 0) register_process(_boa, name, ev);
}
