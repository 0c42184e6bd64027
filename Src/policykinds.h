// The seven policies as rows of one table.
#pragma once

#include "poainfo.h"

struct PolicyKind {
  PolicyTag first;            // tag of the kind's value 0; those of its other values follow
  PolicyTag count;            // how many values
  PolicyTag standard;         // the tag of a POA that asks for none
  PolicyTag POAInfo::*field;  // where a record keeps the kind's tag
  // The factory's trace texts.
  const char* called;
  const char* bad_param;
  const char* obj_is_nil;

  constexpr bool has(PolicyTag tag) const { return tag - first < count; }
};

/// In the order of the policy type ids, and of the tags.
inline constexpr PolicyKind policy_kinds[] = {
    {threadPolicy_ORB_CTRL_MODEL_tag, 2, threadPolicy_ORB_CTRL_MODEL_tag, &POAInfo::thread_policy,
     "POAInfo::create_thread_policy called...", "POAInfo::create_thread_policy [bad param.]",
     "POAInfo::create_thread_policy [obj is nil.]"},
    {lifespanPolicy_TRANSIENT_tag, 2, lifespanPolicy_TRANSIENT_tag, &POAInfo::lifespan_policy,
     "POAInfo::create_lifespan_policy called...", "POAInfo::create_lifespan_policy [bad param.]",
     "POAInfo::create_lifespan_policy [obj is nil.]"},
    {idUniquenessPolicy_UNIQUE_ID_tag, 2, idUniquenessPolicy_UNIQUE_ID_tag,
     &POAInfo::object_id_uniqeness_policy, "POAInfo::create_id_uniqueness_policy called...",
     "POAInfo::create_id_uniqueness_policy [bad param.]",
     "POAInfo::create_id_uniqueness_policy [obj is nil.]"},
    {idAssignmentPolicy_USER_ID_tag, 2, idAssignmentPolicy_SYSTEM_ID_tag, &POAInfo::id_assignment_policy,
     "POAInfo::create_id_assignment_policy called...", "POAInfo::create_id_assignment_policy [bad param.]",
     "POAInfo::create_id_assignment_policy [obj is nil.]"},
    {implicitActivationPolicy_IMPLICIT_ACTIVATION_tag, 2, implicitActivationPolicy_NO_IMPLICIT_ACTIVATION_tag,
     &POAInfo::implicit_activation_policy, "POAInfo::create_implicit_activation_policy called...",
     "POAInfo::create_implicit_activation_policy [bad param.]",
     "POAInfo::create_implicit_activation_policy [obj is nil.]"},
    {servantRetentionPolicy_RETAIN_tag, 2, servantRetentionPolicy_RETAIN_tag,
     &POAInfo::servant_retention_policy, "POAInfo::create_servant_retention_policy called...",
     "POAInfo::create_servant_retention_policy [bad param.]",
     "POAInfo::create_servant_retention_policy [obj is nil.]"},
    {requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, 3,
     requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, &POAInfo::request_processing_policy,
     "POAInfo::create_request_processing_policy called...",
     "POAInfo::create_request_processing_policy [bad param.]",
     "POAInfo::create_request_processing_policy [obj is nil.]"},
};

/// The row of an interface, PortableServer::ThreadPolicy and so on.
template <class Kind>
inline constexpr const PolicyKind& policy_kind =
    policy_kinds[Kind::type_id - PortableServer::THREAD_POLICY_ID];

inline constexpr PolicyTag POLICY_TAGS = 15;
