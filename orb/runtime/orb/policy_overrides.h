// Policies that say how calls are made, wherever they are set: by reference, by thread, by ORB.
#pragma once

#include <cstdint>
#include <vector>

#include "corba/policy.h"
#include "zrsv/call_scope.h"

namespace CORBA {

/// A set of policies, one a type. Belongs to one thread at a time.
class PolicyOverrides {
 public:
  /// Takes copies of `policies`, of which each is of a type that calls know. InvalidPolicies, BAD_PARAM, and
  /// nothing changed.
  void set(const PolicyList& policies, SetOverrideType how, Environment& ev);
  PolicyList* list(const PolicyTypeSeq& types) const;
  /// Nil when there is none of that type.
  Policy* find(PolicyType type) const;
  /// As zrsv::CallLimit.
  std::int64_t time_limit() const;

 private:
  std::vector<Policy_var> all_;
};

/// The calls of a reference with overrides of its own.
struct ReferenceScope : zrsv::CallScope {
  using CallScope::CallScope;
  PolicyOverrides overrides;  // not changed once a reference has it
};

/// The calling thread's.
PolicyOverrides& thread_overrides();
/// The object that programs see of them; counted once more.
PolicyCurrent* policy_current();

/// A new policy of that type and value, by the factory registered for the type. PolicyError.
Policy* create_policy(PolicyType type, const Any& value, Environment& ev);

}  // namespace CORBA
