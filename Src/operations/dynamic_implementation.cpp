// Servants without a skeleton.
#include <cstring>
#include <set>
#include <string>

#include "poa.h"
#include "records/currentinfo.h"
#include "zrsv/thread_safety.h"

namespace PortableServer {
namespace {

struct Texts {
  zrsv::Mutex mutex;
  std::set<std::string, std::less<>> all ZR_GUARDED_BY(mutex);
};

/// Texts that live until the process ends, one of each: the library keeps repository ids.
const char* kept_text(const char* text) {
  static auto& texts = *new Texts;
  const zrsv::MutexLock lock(texts.mutex);
  const auto known = texts.all.find(std::string_view(text));
  return (known != texts.all.end() ? known : texts.all.emplace(text).first)->c_str();
}

}  // namespace

void DynamicImplementation::invoke(CORBA::ServerRequest*) { throw CORBA::NO_IMPLEMENT(); }
CORBA::RepositoryId DynamicImplementation::_primary_interface(const ObjectId&, POA*) { return nullptr; }

CORBA::Boolean DynamicImplementation::invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) {
  if (ServantBase::invoke(request, ev)) return 1;
  invoke(request);
  return 1;
}

const char* DynamicImplementation::_primary_interface(const ObjectId& oid, POA* poa, CORBA::Environment& ev) {
  const CORBA::String_var id(_primary_interface(oid, poa));
  return id.in() ? kept_text(id.in()) : ServantBase::_primary_interface(oid, poa, ev);
}

CORBA::Boolean DynamicImplementation::_is_a(const char* logical_type_id, CORBA::Environment& ev) {
  const CurrentContext* const context = CurrentContext::innermost();
  if (!logical_type_id || !context || !context->has_object_id) return 0;
  const ObjectId_var oid(context->copy_object_id());
  const char* const id = _primary_interface(oid.in(), context->poa_ptr, ev);
  return (id && std::strcmp(id, logical_type_id) == 0) ||
         std::strcmp(logical_type_id, "IDL:omg.org/CORBA/Object:1.0") == 0;
}

CORBA::Object* DynamicImplementation::_this() { return nullptr; }

}  // namespace PortableServer
