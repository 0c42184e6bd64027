#include "base/raise.h"
#include "records/poamanagerinfo.h"

namespace {

POAManagerInfo& record_of(PortableServer::POAManager* manager, CORBA::Environment& ev) {
  POAManagerInfo* record = POAManagerInfo::findPOAManagerInfo(manager, ev);
  if (!record) raise<CORBA::BAD_PARAM>(ev, nullptr);
  return *record;
}

}  // namespace

void PortableServer_POAManager_impl::activate(CORBA::Environment& ev) { record_of(this, ev).activate(ev); }

void PortableServer_POAManager_impl::hold_requests(CORBA::Boolean wait_for_completion,
                                                   CORBA::Environment& ev) {
  record_of(this, ev).hold_requests(wait_for_completion, ev);
}

void PortableServer_POAManager_impl::discard_requests(CORBA::Boolean wait_for_completion,
                                                      CORBA::Environment& ev) {
  record_of(this, ev).discard_requests(wait_for_completion, ev);
}

void PortableServer_POAManager_impl::deactivate(CORBA::Boolean etherealize_objects,
                                                CORBA::Boolean wait_for_completion, CORBA::Environment& ev) {
  record_of(this, ev).deactivate(etherealize_objects, wait_for_completion, ev);
}

PortableServer::POAManager::State PortableServer_POAManager_impl::get_state(CORBA::Environment& ev) {
  return record_of(this, ev).get_state();
}
