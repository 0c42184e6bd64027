#include "orb/policy_overrides.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "base/raise.h"
#include "corba/any.h"
#include "corba/messaging.h"
#include "corba/orb.h"
#include "zrsv/thread_safety.h"

namespace CORBA {
namespace {

constexpr ULong two_of_a_type = OMGVMCID | 30;

/// The types that calls know.
bool is_of_calls(PolicyType type) { return type == Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE; }

void check(const PolicyList& policies, Environment& ev) {
  std::set<PolicyType> seen;
  Sequence<UShort> wrong;
  for (ULong i = 0; i < policies.length(); ++i) {
    Policy* const policy = policies[i].in();
    const bool known = policy && is_of_calls(policy->policy_type());
    if (known && !seen.insert(policy->policy_type()).second)
      raise<BAD_PARAM>(ev, two_of_a_type, COMPLETED_NO);
    if (known) continue;
    wrong.length(wrong.length() + 1);
    wrong[wrong.length() - 1] = static_cast<UShort>(i);
  }
  if (wrong.length() > 0) raise<InvalidPolicies>(ev, wrong);
}

class ThreadManager : public PolicyCurrent {
 public:
  PolicyList* get_policy_overrides(const PolicyTypeSeq& types, Environment& ev) override {
    ev.clear();
    return thread_overrides().list(types);
  }
  void set_policy_overrides(const PolicyList& policies, SetOverrideType how, Environment& ev) override {
    ev.clear();
    thread_overrides().set(policies, how, ev);
    zrsv::set_thread_limit(thread_overrides().time_limit());
  }
};

/// Who makes policies of which type.
struct Factories {
  zrsv::Mutex mutex;
  std::map<PolicyType, PolicyMaker> by_type ZR_GUARDED_BY(mutex);
};

Factories& factories() {
  static Factories* const one = new Factories;
  return *one;
}

}  // namespace

void PolicyOverrides::set(const PolicyList& policies, SetOverrideType how, Environment& ev) {
  check(policies, ev);
  if (how == SET_OVERRIDE) all_.clear();
  for (ULong i = 0; i < policies.length(); ++i) {
    const PolicyType type = policies[i]->policy_type();
    std::erase_if(all_, [&](const Policy_var& p) { return p->policy_type() == type; });
    all_.emplace_back(policies[i]->copy());
  }
}

PolicyList* PolicyOverrides::list(const PolicyTypeSeq& types) const {
  auto found = std::make_unique<PolicyList>();
  for (const Policy_var& policy : all_) {
    bool wanted = types.length() == 0;
    for (ULong i = 0; i < types.length(); ++i) wanted = wanted || types[i] == policy->policy_type();
    if (!wanted) continue;
    found->length(found->length() + 1);
    (*found)[found->length() - 1] = policy->copy();
  }
  return found.release();
}

Policy* PolicyOverrides::find(PolicyType type) const {
  for (const Policy_var& policy : all_)
    if (policy->policy_type() == type) return policy->copy();
  return nullptr;
}

std::int64_t PolicyOverrides::time_limit() const {
  constexpr std::int64_t unit = 100;
  for (const Policy_var& policy : all_) {
    auto* const timeout = dynamic_cast<Messaging::RelativeRoundtripTimeoutPolicy*>(policy.in());
    if (!timeout) continue;
    const TimeBase::TimeT time = timeout->relative_expiry();
    return time > TimeBase::TimeT{INT64_MAX / unit / 4} ? 0 : static_cast<std::int64_t>(time) * unit;
  }
  return zrsv::limit_unsaid;
}

PolicyOverrides& thread_overrides() {
  static thread_local PolicyOverrides overrides;
  return overrides;
}

PolicyCurrent* policy_current() {
  static ThreadManager* const one = new ThreadManager;
  return PolicyCurrent::_duplicate(one);
}

void register_policy_maker(PolicyType type, PolicyMaker maker) {
  Factories& all = factories();
  const zrsv::MutexLock lock(all.mutex);
  all.by_type[type] = maker;
}

Policy* create_policy(PolicyType type, const Any& value, Environment& ev) {
  PolicyMaker maker = nullptr;
  {
    Factories& all = factories();
    const zrsv::MutexLock lock(all.mutex);
    if (const auto found = all.by_type.find(type); found != all.by_type.end()) maker = found->second;
  }
  if (!maker) raise<PolicyError>(ev, BAD_POLICY_TYPE);
  Policy* const made = maker(type, value);
  if (!made) raise<PolicyError>(ev, BAD_POLICY_VALUE);
  return made;
}

}  // namespace CORBA

// ---- Time limits --------------------------------------------------------------------------------------

namespace {

using Messaging::RelativeRoundtripTimeoutPolicy;

constexpr const char* timeout_id = "IDL:omg.org/Messaging/RelativeRoundtripTimeoutPolicy:1.0";

class TimeoutPolicy : public virtual RelativeRoundtripTimeoutPolicy, public virtual CORBA_Policy_impl {
 public:
  explicit TimeoutPolicy(TimeBase::TimeT expiry) : expiry_(expiry) {
    __policy_type = Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE;
  }
  TimeBase::TimeT relative_expiry(CORBA::Environment& ev) override { return ev.clear(), expiry_; }
  CORBA::Policy* copy(CORBA::Environment& ev) override { return ev.clear(), new TimeoutPolicy(expiry_); }
  void* _cast(const char* id) override {
    if (id && std::strcmp(id, timeout_id) == 0) return static_cast<RelativeRoundtripTimeoutPolicy*>(this);
    return CORBA_Policy_impl::_cast(id);
  }

 private:
  const TimeBase::TimeT expiry_;
};

[[maybe_unused]] const bool registered = [] {
  CORBA::register_policy_maker(Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE,
                               [](CORBA::PolicyType, const CORBA::Any& value) -> CORBA::Policy* {
                                 TimeBase::TimeT expiry = 0;
                                 return (value >>= expiry) ? new TimeoutPolicy(expiry) : nullptr;
                               });
  return true;
}();

}  // namespace

RelativeRoundtripTimeoutPolicy* RelativeRoundtripTimeoutPolicy::_duplicate(
    RelativeRoundtripTimeoutPolicy* p) {
  return p ? new TimeoutPolicy(p->relative_expiry()) : nullptr;
}

RelativeRoundtripTimeoutPolicy* RelativeRoundtripTimeoutPolicy::_narrow(CORBA::Object* object) {
  return _duplicate(dynamic_cast<RelativeRoundtripTimeoutPolicy*>(object));
}
