#include "base/raise.h"
#include "records/currentinfo.h"

namespace {

CurrentInfo& record_of(PortableServer::Current* current, CORBA::Environment& env) {
  CurrentInfo* record = CurrentInfo::findCurrentInfo(current, env);
  if (!record) raise<CORBA::BAD_PARAM>(env, nullptr);
  return *record;
}

}  // namespace

PortableServer::POA* PortableServer_Current_impl::get_POA(CORBA::Environment& env) {
  return record_of(this, env).get_POA(env);
}

PortableServer::ObjectId* PortableServer_Current_impl::get_object_id(CORBA::Environment& env) {
  return record_of(this, env).get_object_id(env);
}
