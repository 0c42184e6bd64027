// How long a call may take, by the policies of its reference, its thread and its ORB.
#pragma once

#include "references/reference.h"
#include "zrsv/call_scope.h"

namespace zrsv {

/// False until the first program code says anything about calls: the only question that a call asks then.
inline std::atomic<bool> call_scopes_used{false};

/// The limit of a call of `object`, in nanoseconds, 0 for none; limit_unsaid where only -ORBTimeout speaks.
int64_t said_limit(const Reference& object);
/// True when the ORB of the reference is gone.
bool is_closed(const Reference& object);

}  // namespace zrsv
