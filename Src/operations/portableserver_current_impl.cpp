#include "base/raise.h"
#include "records/currentinfo.h"

namespace {

CurrentInfo& record_of(PortableServer::Current* current, CORBA::Environment& ev) {
  CurrentInfo* record = CurrentInfo::findCurrentInfo(current, ev);
  if (!record) raise<CORBA::BAD_PARAM>(ev, nullptr);
  return *record;
}

}  // namespace

PortableServer::POA* PortableServer_Current_impl::get_POA(CORBA::Environment& ev) {
  return record_of(this, ev).get_POA(ev);
}

PortableServer::ObjectId* PortableServer_Current_impl::get_object_id(CORBA::Environment& ev) {
  return record_of(this, ev).get_object_id(ev);
}
