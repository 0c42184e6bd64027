// What is said of calls beside the reference itself: whose they are, and how long they may take. Set by the
// runtime (CORBA::Object::_set_policy_overrides, CORBA::PolicyManager, CORBA::PolicyCurrent).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "zrsv/base.h"

namespace zrsv {

/// No time limit is said here: the next wider place says it.
inline constexpr int64_t limit_unsaid = -1;

/// A time limit of calls in nanoseconds; 0: none; limit_unsaid.
using CallLimit = std::atomic<int64_t>;

/// The calls of one reference, or of the references of one ORB. May be used by several threads at once.
class ZRSV_API CallScope {
 public:
  explicit CallScope(std::shared_ptr<CallScope> wider = nullptr) : wider_(std::move(wider)) {}
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;
  virtual ~CallScope() = default;

  /// The scope around this one, or null.
  const std::shared_ptr<CallScope>& wider() const { return wider_; }

  CallLimit limit{limit_unsaid};
  /// Calls are refused: the ORB is gone.
  std::atomic<bool> closed{false};

 private:
  const std::shared_ptr<CallScope> wider_;
};

/// A new handle to the same object whose calls are in `scope`. Null for null. Throws std::bad_alloc.
ZRSV_API void* object_in_scope(void* object, std::shared_ptr<CallScope> scope);
/// The scope of a handle, null when it has none.
ZRSV_API std::shared_ptr<CallScope> scope_of(void* object);

/// Sets the limit of the calls of this thread, and of the calls of references without a scope. They count
/// after that of the reference, in that order, and before -ORBTimeout.
ZRSV_API void set_thread_limit(int64_t nanoseconds);
ZRSV_API void set_default_limit(int64_t nanoseconds);
/// To be called before the first limit is set in a scope, or a scope closed: until then no call looks.
ZRSV_API void use_call_scopes();

}  // namespace zrsv
