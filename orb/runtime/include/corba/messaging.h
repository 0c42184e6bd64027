// How long calls may take (CORBA Messaging, "Messaging Quality of Service"). A limit is said for one reference
// (Object::_set_policy_overrides), for a thread ("PolicyCurrent") or for an ORB ("ORBPolicyManager"); the nearest one
// counts, and -ORBTimeout where none is said.
#pragma once

#include "corba/policy.h"

namespace TimeBase {

/// In units of 100 nanoseconds.
using TimeT = CORBA::ULongLong;

}  // namespace TimeBase

namespace Messaging {

inline constexpr CORBA::PolicyType RELATIVE_RT_TIMEOUT_POLICY_TYPE = 32;

/// The time limit of a call, from the moment that its request is ready to be sent until its reply is there;
/// then TIMEOUT is raised. Made by ORB::create_policy of a TimeBase::TimeT; 0 stands for no limit at all.
///
///   CORBA::Any limit;
///   limit <<= TimeBase::TimeT(10'000'000);  // a second
///   CORBA::Policy_var policy = orb->create_policy(Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE, limit);
class ZRSVCPP_API RelativeRoundtripTimeoutPolicy : public virtual CORBA::Policy {
 public:
  static RelativeRoundtripTimeoutPolicy* _nil() { return nullptr; }
  /// A copy, which the caller releases; nil for nil.
  static RelativeRoundtripTimeoutPolicy* _duplicate(RelativeRoundtripTimeoutPolicy* p);
  /// Nil when the policy is another one.
  static RelativeRoundtripTimeoutPolicy* _narrow(CORBA::Object* object);
  /// The limit, in units of 100 ns.
  virtual TimeBase::TimeT relative_expiry(CORBA_ENV) = 0;
};
using RelativeRoundtripTimeoutPolicy_ptr = RelativeRoundtripTimeoutPolicy*;
using RelativeRoundtripTimeoutPolicy_var = CORBA::ObjectVar<RelativeRoundtripTimeoutPolicy>;

}  // namespace Messaging
