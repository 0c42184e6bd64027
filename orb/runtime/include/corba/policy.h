// CORBA::Policy, CORBA::Current and their implementation bases (CORBA, "Policy Object"). What kinds of policies there
// are for POAs stands in poa/types.h, for calls in corba/messaging.h.
#pragma once

#include "corba/local_object.h"
#include "corba/sequence.h"

namespace CORBA {

/// A choice that is made for a POA (poa/types.h) or for calls (corba/messaging.h). A policy does not change, so any
/// thread may ask it; the one who gets one releases it.
///
///   CORBA::Any limit;
///   limit <<= TimeBase::TimeT(50'000'000);  // 5 s, in units of 100 ns
///   CORBA::PolicyList policies;
///   policies.length(1);
///   policies[0] = orb->create_policy(Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE, limit);
///   CORBA::Object_var hurried = object->_set_policy_overrides(policies, CORBA::ADD_OVERRIDE);
class ZRSVCPP_API Policy : public virtual Object {
 public:
  static Policy* _nil() { return nullptr; }
  /// A copy made by the policy itself; null for null.
  static Policy* _duplicate(Policy* p);
  /// A copy of a policy of this process; of a reference to one elsewhere a stub, which asks it. The caller releases it.
  static Policy* _narrow(Object* object);

  /// The number of its kind: THREAD_POLICY_ID, Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE, ...
  virtual PolicyType policy_type(CORBA_ENV) = 0;
  /// A new policy of the same kind and value; the caller releases it.
  virtual Policy* copy(CORBA_ENV) = 0;
  /// The standard's: does nothing here, as policies are shared; release is enough.
  virtual void destroy(CORBA_ENV) = 0;
  /// This object as the interface of that repository id, as an untyped pointer to that class; null for
  /// another id.
  virtual void* _cast(const char* repository_id) = 0;
};
using Policy_ptr = Policy*;
using Policy_var = ObjectVar<Policy>;

/// Policies, in any order. An element owns its reference: what is assigned as a plain pointer is taken over. For
/// create_POA nil elements say nothing; for calls they are InvalidPolicies.
class PolicyList : public Sequence<Policy_var> {
 public:
  using Sequence::Sequence;
};
using PolicyList_var = SequenceVar<PolicyList>;

/// Numbers of kinds of policies: what to answer for. An empty one asks for all.
class PolicyTypeSeq : public Sequence<PolicyType> {
 public:
  using Sequence::Sequence;
};
using PolicyTypeSeq_var = SequenceVar<PolicyTypeSeq>;

/// Why ORB::create_policy made none: here BAD_POLICY_TYPE for a type that nobody makes, BAD_POLICY_VALUE for an Any
/// that does not hold what the type is made of.
using PolicyErrorCode = Short;
inline constexpr PolicyErrorCode BAD_POLICY = 0, UNSUPPORTED_POLICY = 1, BAD_POLICY_TYPE = 2,
                                 BAD_POLICY_VALUE = 3, UNSUPPORTED_POLICY_VALUE = 4;
/// What ORB::create_policy raises.
///
///   CORBA::Any text;
///   text <<= "soon";
///   try {
///     CORBA::Policy_var policy = orb->create_policy(Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE, text);
///   } catch (const CORBA::PolicyError& e) {
///     if (e.reason == CORBA::BAD_POLICY_VALUE) std::cerr << "a TimeT is wanted" << std::endl;
///   }
class ZRSVCPP_API PolicyError : public UserExceptionOf<PolicyError> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/CORBA/PolicyError:1.0";
  PolicyError() = default;
  explicit PolicyError(PolicyErrorCode why) : reason(why) {}

  PolicyErrorCode reason = BAD_POLICY;
};
/// Overrides that cannot be: their places in the list, from 0. Of nil, and of policies that calls know nothing of.
///
///   try {
///     CORBA::Object_var other = object->_set_policy_overrides(list, CORBA::ADD_OVERRIDE);
///   } catch (const CORBA::InvalidPolicies& e) {
///     for (CORBA::ULong i = 0; i < e.indices.length(); ++i) std::cerr << e.indices[i] << std::endl;
///   }
class ZRSVCPP_API InvalidPolicies : public UserExceptionOf<InvalidPolicies> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/CORBA/InvalidPolicies:1.0";
  InvalidPolicies() = default;
  explicit InvalidPolicies(Sequence<UShort> places) : indices(std::move(places)) {}

  Sequence<UShort> indices;
};

/// The policies of the calls of one ORB (initial reference "ORBPolicyManager"). May be used by several threads. What a
/// reference or a thread says of a type counts before what is said here.
///
///   CORBA::Object_var found = orb->resolve_initial_references("ORBPolicyManager");
///   CORBA::PolicyManager_var all = CORBA::PolicyManager::_narrow(found.in());
///   all->set_policy_overrides(list, CORBA::SET_OVERRIDE);
class ZRSVCPP_API PolicyManager : public LocalObject {
 public:
  static PolicyManager* _nil() { return nullptr; }
  static PolicyManager* _duplicate(PolicyManager* p) { return idl::narrow_local<PolicyManager>(p); }
  static PolicyManager* _narrow(Object* object) { return idl::narrow_local<PolicyManager>(object); }

  /// The overrides of those types, of all types for an empty list, as copies; the caller frees the list.
  virtual PolicyList* get_policy_overrides(const PolicyTypeSeq& types, CORBA_ENV) = 0;
  /// As Object::_set_policy_overrides, for all references, from the next call on; the policies are copied.
  /// InvalidPolicies, BAD_PARAM (OMGVMCID | 30) for two of one type; nothing changes then.
  virtual void set_policy_overrides(const PolicyList& policies, SetOverrideType how, CORBA_ENV) = 0;
};
using PolicyManager_ptr = PolicyManager*;
using PolicyManager_var = ObjectVar<PolicyManager>;

/// The policies of the calls of the thread that asks (initial reference "PolicyCurrent"), of whatever ORB. One object
/// answers all threads, each for itself. They stay until the thread ends or takes them back, which an empty list does:
///
///   CORBA::Object_var found = orb->resolve_initial_references("PolicyCurrent");
///   CORBA::PolicyCurrent_var mine = CORBA::PolicyCurrent::_narrow(found.in());
///   mine->set_policy_overrides(list, CORBA::SET_OVERRIDE);                 // for the calls that follow
///   mine->set_policy_overrides(CORBA::PolicyList(), CORBA::SET_OVERRIDE);  // as before
class ZRSVCPP_API PolicyCurrent : public PolicyManager {
 public:
  static PolicyCurrent* _nil() { return nullptr; }
  static PolicyCurrent* _duplicate(PolicyCurrent* p) { return idl::narrow_local<PolicyCurrent>(p); }
  static PolicyCurrent* _narrow(Object* object) { return idl::narrow_local<PolicyCurrent>(object); }
};
using PolicyCurrent_ptr = PolicyCurrent*;
using PolicyCurrent_var = ObjectVar<PolicyCurrent>;

/// Base of the objects that answer each thread for itself: PortableServer::Current, PortableInterceptor::Current.
class ZRSVCPP_API Current : public virtual Object {
 public:
  static Current* _nil() { return nullptr; }
};
using Current_ptr = Current*;
using Current_var = ObjectVar<Current>;

}  // namespace CORBA

class ZRSVCPP_API _sk_CORBA_Policy : public virtual CORBA::Policy {};

/// Base of the policy implementations: holds the type, answers policy_type, and destroys nothing on destroy
/// (policies are shared).
class ZRSVCPP_API CORBA_Policy_impl : public virtual _sk_CORBA_Policy {
 public:
  CORBA::PolicyType policy_type(CORBA_ENV) override;
  CORBA::Policy* copy(CORBA_ENV) override;
  void destroy(CORBA_ENV) override;
  /// Answers "IDL:CORBA/Policy:1.0" and "IDL:omg.org/CORBA/Policy:1.0" as CORBA::Policy.
  void* _cast(const char* repository_id) override;

 protected:
  CORBA::ULong __policy_type = 0;
};

class ZRSVCPP_API _sk_CORBA_Current : public virtual CORBA::Current {};
class ZRSVCPP_API CORBA_Current_impl : public virtual _sk_CORBA_Current {};

/// A policy list: a count, then each policy as an object reference.
ZRSVCPP_API unsigned char cdr_CORBA_PolicyList(CDR* cdr, CORBA::PolicyList* list);
