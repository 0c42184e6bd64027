#include "base/raise.h"
#include "records/poamanagerinfo.h"

namespace {

/// Runs `work` on the record of a manager object. Memory that cannot be had is NO_MEMORY.
template <class Work>
auto on_record(PortableServer::POAManager* self, CORBA::Environment& ev, Work&& work) {
  return with_memory(ev, [&] {
    POAManagerInfo* const record = POAManagerInfo::findPOAManagerInfo(self, ev);
    if (!record) raise<CORBA::BAD_PARAM>(ev, nullptr);
    return work(*record);
  });
}

}  // namespace

void PortableServer_POAManager_impl::activate(CORBA::Environment& ev) {
  on_record(this, ev, [&](POAManagerInfo& record) { record.activate(ev); });
}

void PortableServer_POAManager_impl::hold_requests(CORBA::Boolean wait_for_completion,
                                                   CORBA::Environment& ev) {
  on_record(this, ev, [&](POAManagerInfo& record) { record.hold_requests(wait_for_completion, ev); });
}

void PortableServer_POAManager_impl::discard_requests(CORBA::Boolean wait_for_completion,
                                                      CORBA::Environment& ev) {
  on_record(this, ev, [&](POAManagerInfo& record) { record.discard_requests(wait_for_completion, ev); });
}

void PortableServer_POAManager_impl::deactivate(CORBA::Boolean etherealize_objects,
                                                CORBA::Boolean wait_for_completion, CORBA::Environment& ev) {
  on_record(this, ev,
            [&](POAManagerInfo& record) { record.deactivate(etherealize_objects, wait_for_completion, ev); });
}

PortableServer::POAManager::State PortableServer_POAManager_impl::get_state(CORBA::Environment& ev) {
  return on_record(this, ev, [](const POAManagerInfo& record) { return record.get_state(); });
}

char* PortableServer::POAManager::get_id(CORBA::Environment& ev) {
  ev.clear();
  return on_record(this, ev,
                   [](const POAManagerInfo& record) { return CORBA::string_dup(record.id.c_str()); });
}
