#include "base/raise.h"
#include "records/poamanagerinfo.h"

namespace {

POAManagerInfo& record_of(PortableServer::POAManager* manager, CORBA::Environment& env) {
  POAManagerInfo* record = POAManagerInfo::findPOAManagerInfo(manager, env);
  if (!record) raise<CORBA::BAD_PARAM>(env, nullptr);
  return *record;
}

}  // namespace

void PortableServer_POAManager_impl::activate(CORBA::Environment& env) { record_of(this, env).activate(env); }

void PortableServer_POAManager_impl::hold_requests(CORBA::Boolean wait_for_completion,
                                                   CORBA::Environment& env) {
  record_of(this, env).hold_requests(wait_for_completion, env);
}

void PortableServer_POAManager_impl::discard_requests(CORBA::Boolean wait_for_completion,
                                                      CORBA::Environment& env) {
  record_of(this, env).discard_requests(wait_for_completion, env);
}

void PortableServer_POAManager_impl::deactivate(CORBA::Boolean etherealize_objects,
                                                CORBA::Boolean wait_for_completion, CORBA::Environment& env) {
  record_of(this, env).deactivate(etherealize_objects, wait_for_completion, env);
}

PortableServer::POAManager::State PortableServer_POAManager_impl::get_state(CORBA::Environment& env) {
  return record_of(this, env).get_state();
}
