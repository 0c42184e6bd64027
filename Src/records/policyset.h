// The policies of a POA: one number, a tag, a policy value. A tag is also the whole reference data of a policy
// object.
#pragma once

#include "poa.h"

using PolicyTag = CORBA::ULong;

inline constexpr PolicyTag threadPolicy_ORB_CTRL_MODEL_tag = 0;
inline constexpr PolicyTag threadPolicy_SINGLE_THREAD_MODEL_tag = 1;
inline constexpr PolicyTag lifespanPolicy_TRANSIENT_tag = 2;
inline constexpr PolicyTag lifespanPolicy_PERSISTENT_tag = 3;
inline constexpr PolicyTag idUniquenessPolicy_UNIQUE_ID_tag = 4;
inline constexpr PolicyTag idUniquenessPolicy_MULTIPLE_ID_tag = 5;
inline constexpr PolicyTag idAssignmentPolicy_USER_ID_tag = 6;
inline constexpr PolicyTag idAssignmentPolicy_SYSTEM_ID_tag = 7;
inline constexpr PolicyTag implicitActivationPolicy_IMPLICIT_ACTIVATION_tag = 8;
inline constexpr PolicyTag implicitActivationPolicy_NO_IMPLICIT_ACTIVATION_tag = 9;
inline constexpr PolicyTag servantRetentionPolicy_RETAIN_tag = 10;
inline constexpr PolicyTag servantRetentionPolicy_NON_RETAIN_tag = 11;
inline constexpr PolicyTag requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag = 12;
inline constexpr PolicyTag requestProcessingPolicy_USE_DEFAULT_SERVANT_tag = 13;
inline constexpr PolicyTag requestProcessingPolicy_USE_SERVANT_MANAGER_tag = 14;
inline constexpr PolicyTag POLICY_TAGS = 15;

/// One value of each of the seven policies. Starts as the standard's defaults.
struct PolicySet {
  /// The defaults but for what the list says, the later element wins: any reference counts as the policy whose
  /// tag its data is. InvalidPolicy for a combination that no POA can have.
  static PolicySet read(const CORBA::PolicyList& policies, CORBA::Environment& ev);

  bool retains() const { return servant_retention == servantRetentionPolicy_RETAIN_tag; }
  bool unique_id() const { return id_uniqueness == idUniquenessPolicy_UNIQUE_ID_tag; }
  bool system_id_assigned() const { return id_assignment == idAssignmentPolicy_SYSTEM_ID_tag; }
  bool activates_implicitly() const {
    return implicit_activation == implicitActivationPolicy_IMPLICIT_ACTIVATION_tag;
  }
  bool uses_default_servant() const {
    return request_processing == requestProcessingPolicy_USE_DEFAULT_SERVANT_tag;
  }
  bool uses_servant_manager() const {
    return request_processing == requestProcessingPolicy_USE_SERVANT_MANAGER_tag;
  }

  PolicyTag thread = threadPolicy_ORB_CTRL_MODEL_tag;
  PolicyTag lifespan = lifespanPolicy_TRANSIENT_tag;
  PolicyTag id_uniqueness = idUniquenessPolicy_UNIQUE_ID_tag;
  PolicyTag id_assignment = idAssignmentPolicy_SYSTEM_ID_tag;
  PolicyTag implicit_activation = implicitActivationPolicy_NO_IMPLICIT_ACTIVATION_tag;
  PolicyTag servant_retention = servantRetentionPolicy_RETAIN_tag;
  PolicyTag request_processing = requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag;
};

/// The process's object of a policy value, PortableServer::ThreadPolicy and so on: made at the first call, never
/// destroyed, not duplicated for the caller. BAD_PARAM for a number that is no value. Any thread.
template <class Kind>
Kind* shared_policy(typename Kind::value_type value, CORBA::Environment& ev);

/// The seven policies as rows of one table.
struct PolicyKind {
  PolicyTag first;              // tag of the kind's value 0; those of its other values follow
  PolicyTag count;              // how many values
  PolicyTag standard;           // the tag of a POA that asks for none
  PolicyTag PolicySet::*field;  // where a set keeps the kind's tag
  // The factory's trace texts.
  const char* called;
  const char* bad_param;
  const char* obj_is_nil;

  constexpr bool has(PolicyTag tag) const { return tag - first < count; }
};

/// In the order of the policy type ids, and of the tags.
inline constexpr PolicyKind policy_kinds[] = {
    {threadPolicy_ORB_CTRL_MODEL_tag, 2, threadPolicy_ORB_CTRL_MODEL_tag, &PolicySet::thread,
     "POAInfo::create_thread_policy called...", "POAInfo::create_thread_policy [bad param.]",
     "POAInfo::create_thread_policy [obj is nil.]"},
    {lifespanPolicy_TRANSIENT_tag, 2, lifespanPolicy_TRANSIENT_tag, &PolicySet::lifespan,
     "POAInfo::create_lifespan_policy called...", "POAInfo::create_lifespan_policy [bad param.]",
     "POAInfo::create_lifespan_policy [obj is nil.]"},
    {idUniquenessPolicy_UNIQUE_ID_tag, 2, idUniquenessPolicy_UNIQUE_ID_tag, &PolicySet::id_uniqueness,
     "POAInfo::create_id_uniqueness_policy called...", "POAInfo::create_id_uniqueness_policy [bad param.]",
     "POAInfo::create_id_uniqueness_policy [obj is nil.]"},
    {idAssignmentPolicy_USER_ID_tag, 2, idAssignmentPolicy_SYSTEM_ID_tag, &PolicySet::id_assignment,
     "POAInfo::create_id_assignment_policy called...", "POAInfo::create_id_assignment_policy [bad param.]",
     "POAInfo::create_id_assignment_policy [obj is nil.]"},
    {implicitActivationPolicy_IMPLICIT_ACTIVATION_tag, 2, implicitActivationPolicy_NO_IMPLICIT_ACTIVATION_tag,
     &PolicySet::implicit_activation, "POAInfo::create_implicit_activation_policy called...",
     "POAInfo::create_implicit_activation_policy [bad param.]",
     "POAInfo::create_implicit_activation_policy [obj is nil.]"},
    {servantRetentionPolicy_RETAIN_tag, 2, servantRetentionPolicy_RETAIN_tag, &PolicySet::servant_retention,
     "POAInfo::create_servant_retention_policy called...",
     "POAInfo::create_servant_retention_policy [bad param.]",
     "POAInfo::create_servant_retention_policy [obj is nil.]"},
    {requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, 3,
     requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, &PolicySet::request_processing,
     "POAInfo::create_request_processing_policy called...",
     "POAInfo::create_request_processing_policy [bad param.]",
     "POAInfo::create_request_processing_policy [obj is nil.]"},
};

/// The row of an interface, PortableServer::ThreadPolicy and so on.
template <class Kind>
inline constexpr const PolicyKind& policy_kind =
    policy_kinds[Kind::type_id - PortableServer::THREAD_POLICY_ID];
