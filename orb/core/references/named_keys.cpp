#include "references/named_keys.h"

#include <atomic>
#include <map>

#include "references/environment.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

struct Names {
  std::atomic<bool> any{false};  // whether there was ever a name: unknown keys cost no lock then
  Mutex mutex;
  std::map<std::string, Ref<Reference>, std::less<>> objects ZR_GUARDED_BY(mutex);
};

Names& names() {
  static auto& one = *new Names;
  return one;
}

}  // namespace

void name_object(std::string key, Ref<Reference> object) {
  Names& all = names();
  const MutexLock lock(all.mutex);
  all.any = true;
  if (object) {
    all.objects.insert_or_assign(std::move(key), std::move(object));
  } else {
    all.objects.erase(key);
  }
}

Ref<Reference> named_object(std::string_view key) {
  Names& all = names();
  if (!all.any.load(std::memory_order_relaxed)) return {};
  const MutexLock lock(all.mutex);
  const auto found = all.objects.find(key);
  return found == all.objects.end() ? Ref<Reference>() : found->second;
}

}  // namespace zrsv

using namespace zrsv;

void ZR_register_key(const char* key, void* object, CORBA_Environment* ev) {
  if (!key || !*key) return raise_standard(ev, "BAD_PARAM");
  guarded(ev, [&] { return name_object(key, Ref<Reference>::share(as_reference(object))), true; });
}
