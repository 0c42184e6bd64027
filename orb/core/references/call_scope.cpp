#include "references/call_scope.h"

namespace zrsv {
namespace {

thread_local int64_t thread_limit = limit_unsaid;
CallLimit default_limit{limit_unsaid};

}  // namespace

// The narrowest word counts: the reference's own, the thread's, the ORB's.
int64_t said_limit(const Reference& object) {
  const CallScope* scope = object.scope().get();
  if (scope && scope->wider()) {
    if (const int64_t own = scope->limit.load(); own != limit_unsaid) return own;
    scope = scope->wider().get();
  }
  if (thread_limit != limit_unsaid) return thread_limit;
  return scope ? scope->limit.load() : default_limit.load();
}

bool is_closed(const Reference& object) {
  for (const CallScope* scope = object.scope().get(); scope; scope = scope->wider().get())
    if (scope->closed.load()) return true;
  return false;
}

void* object_in_scope(void* object, std::shared_ptr<CallScope> scope) {
  if (!object) return nullptr;
  return Reference::in_scope(*as_reference(object), std::move(scope)).release();
}

std::shared_ptr<CallScope> scope_of(void* object) { return object ? as_reference(object)->scope() : nullptr; }

void set_thread_limit(int64_t nanoseconds) {
  use_call_scopes();
  thread_limit = nanoseconds;
}

void set_default_limit(int64_t nanoseconds) {
  use_call_scopes();
  default_limit = nanoseconds;
}

void use_call_scopes() { call_scopes_used.store(true); }

}  // namespace zrsv
