#include "records/currentinfo.h"

#include <atomic>

#include "base/raise.h"
#include "objects/common_poa.h"

CurrentInfo* current_info = nullptr;
PortableServer::Current* poa_current = nullptr;

namespace {

constexpr const char* CURRENT_ID = "IDL:org.omg/PortableServer/Current:1.0";

thread_local CurrentContext* innermost_context = nullptr;

// The process has one record; only its identity is one that a Current object may carry.
std::atomic<CurrentInfo*> live_record{nullptr};

}  // namespace

CurrentInfo::CurrentInfo(CORBA::Environment& ev) : identity(new_identity()) {
  createObject(ev);
  live_record = this;
}

CurrentInfo::CurrentInfo() : identity(new_identity()) {
  CORBA::Environment ev;
  createObject(ev);
  live_record = this;
}

CurrentInfo::CurrentInfo(PortableServer::Current* object, CORBA::Environment&)
    : identity(new_identity()), current_object(object) {}

CurrentInfo::~CurrentInfo() {
  CurrentInfo* self = this;
  live_record.compare_exchange_strong(self, nullptr);
}

PortableServer::Current* CurrentInfo::createObject(CORBA::Environment& ev) {
  current_object = own_object<PortableServer_Current_impl>(identity, CURRENT_ID);
  if (!current_object) raise<CORBA::BAD_PARAM>(ev, "CurrentInfo::createObject [object is nil.]");
  return current_object;
}

CurrentInfo* CurrentInfo::findCurrentInfo(PortableServer::Current* current, CORBA::Environment&) {
  bool failed = false;
  CORBA_Environment core{};
  const Identity found = read_identity(current, &failed, &core);
  if (failed) report_core_exception("Src/currentinfo", __LINE__, core, static_cast<int>(core._major));
  CurrentInfo* record = live_record;
  return record && record->identity == found ? record : nullptr;
}

PortableServer::POA* CurrentInfo::get_POA(CORBA::Environment& ev) {
  const CurrentContext* context = CurrentContext::innermost();
  if (!context) raise<PortableServer::Current::NoContext>(ev, "CurrentInfo::get_POA [POA is nil.]");
  return PortableServer::POA::_duplicate(context->poa_ptr);
}

PortableServer::ObjectId* CurrentInfo::get_object_id(CORBA::Environment& ev) {
  const CurrentContext* context = CurrentContext::innermost();
  if (!context || !context->has_object_id)
    raise<PortableServer::Current::NoContext>(ev, "CurrentInfo::get_object_id [ObjectId is nil.]");
  return context->copy_object_id();
}

CORBA::Object* PortableServer::Current::get_reference(CORBA::Environment& ev) {
  ev.clear();
  const CurrentContext* context = CurrentContext::innermost();
  if (!context || !context->target) raise<NoContext>(ev, nullptr);
  return with_memory(ev, [&] { return CORBA::Object::_duplicate(context->target); });
}

PortableServer::ServantBase* PortableServer::Current::get_servant(CORBA::Environment& ev) {
  ev.clear();
  const CurrentContext* context = CurrentContext::innermost();
  if (!context || !context->servant) raise<NoContext>(ev, nullptr);
  context->servant->_add_ref();
  return context->servant;
}

CurrentContext::CurrentContext(PortableServer::POA* poa, std::string_view oid, bool oid_known,
                               CORBA::Object* object, PortableServer::ServantBase* of)
    : poa_ptr(poa),
      object_id(oid),
      has_object_id(oid_known),
      target(object),
      servant(of),
      outer_(innermost_context) {
  innermost_context = this;
}

CurrentContext::~CurrentContext() { innermost_context = outer_; }

CurrentContext* CurrentContext::innermost() { return innermost_context; }

PortableServer::ObjectId* CurrentContext::copy_object_id() const { return make_oid(object_id); }
