#include "base/raise.h"
#include "records/currentinfo.h"

namespace {

/// Runs `work` on the process's record, where the object is of it. Memory that cannot be had is NO_MEMORY.
template <class Work>
auto on_record(PortableServer::Current* self, CORBA::Environment& ev, Work&& work) {
  return with_memory(ev, [&] {
    CurrentInfo* const record = CurrentInfo::findCurrentInfo(self, ev);
    if (!record) raise<CORBA::BAD_PARAM>(ev, nullptr);
    return work(*record);
  });
}

}  // namespace

PortableServer::POA* PortableServer_Current_impl::get_POA(CORBA::Environment& ev) {
  return on_record(this, ev, [&](CurrentInfo& record) { return record.get_POA(ev); });
}

PortableServer::ObjectId* PortableServer_Current_impl::get_object_id(CORBA::Environment& ev) {
  return on_record(this, ev, [&](CurrentInfo& record) { return record.get_object_id(ev); });
}
