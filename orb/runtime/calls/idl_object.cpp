#include <map>
#include <memory>
#include <string>

#include "corba/orb.h"
#include "corba/policy.h"
#include "zrsv/thread_safety.h"

namespace {

using CORBA::Object;

struct IdlClass {
  OM_IDL_make make = nullptr;
  OM_IDL_dispose dispose = nullptr;
  OM_IDL_cast cast = nullptr;
};

/// The skeleton classes of this process by repository id. CORBA's own abstract interfaces have no class, but
/// an object that was seen as one of them can be disposed of as such.
struct Classes {
  zrsv::SharedMutex mutex;
  std::map<std::string, IdlClass, std::less<>> by_id ZR_GUARDED_BY(mutex){
      {"IDL:CORBA/Policy:1.0", {nullptr, [](void* p) { delete static_cast<CORBA::Policy*>(p); }, nullptr}},
      {"IDL:CORBA/Current:1.0", {nullptr, [](void* p) { delete static_cast<CORBA::Current*>(p); }, nullptr}},
  };
};

Classes& classes() {
  static Classes* const one = new Classes;  // requests may come until the process ends
  return *one;
}

IdlClass find_class(const char* repository_id) {
  Classes& all = classes();
  const zrsv::SharedLock lock(all.mutex);
  const auto found = all.by_id.find(std::string_view(repository_id ? repository_id : ""));
  return found == all.by_id.end() ? IdlClass{} : found->second;
}

/// The class asked for; when that is an abstract interface, the class of the object's own interface.
IdlClass class_of(void* object, const char* repository_id) {
  const IdlClass asked = find_class(repository_id);
  return asked.make ? asked : find_class(ZR_object_get_IntfID(object, 0, nullptr));
}

}  // namespace

unsigned char OM_IDL_get_object2(void*& obj_ptr, void* object, void* /*request*/, const char* repository_id) {
  const IdlClass serving = class_of(object, repository_id);
  if (!serving.make) return 0;
  std::unique_ptr<void, OM_IDL_dispose> made(serving.make(), serving.dispose);
  if (!made) return 0;
  auto* base = static_cast<Object*>(serving.cast(made.get(), nullptr));
  void* seen = serving.cast(made.get(), repository_id);
  if (!base || !seen) return 0;
  base->set_ref(CORBA_object_duplicate(object, nullptr));
  made.release();
  obj_ptr = seen;
  return 1;
}

void OM_IDL_release_object2(void* obj_ptr, const char* repository_id) {
  const IdlClass seen_as = find_class(repository_id);
  if (obj_ptr && seen_as.dispose) seen_as.dispose(obj_ptr);
}

void OM_IDL_register_class(const char* repository_id, OM_IDL_make make, OM_IDL_dispose dispose,
                           OM_IDL_cast cast) {
  if (!repository_id || !make || !dispose || !cast) return;
  Classes& all = classes();
  const zrsv::SharedMutexLock lock(all.mutex);
  all.by_id.insert_or_assign(repository_id, IdlClass{make, dispose, cast});
}
