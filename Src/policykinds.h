// The seven policies as rows of one table.
#pragma once

#include "poainfo.h"

struct PolicyKind {
  PolicyTag first;            // tag of the kind's value 0; those of its other values follow
  PolicyTag count;            // how many values
  PolicyTag standard;         // the tag of a POA that asks for none
  PolicyTag POAInfo::*field;  // where a record keeps the kind's tag
  const char* factory;

  constexpr bool has(PolicyTag tag) const { return tag - first < count; }
};

/// In the order of the policy type ids, and of the tags.
inline constexpr PolicyKind policy_kinds[] = {
    {threadPolicy_ORB_CTRL_MODEL_tag, 2, threadPolicy_ORB_CTRL_MODEL_tag, &POAInfo::thread_policy,
     "create_thread_policy"},
    {lifespanPolicy_TRANSIENT_tag, 2, lifespanPolicy_TRANSIENT_tag, &POAInfo::lifespan_policy,
     "create_lifespan_policy"},
    {idUniquenessPolicy_UNIQUE_ID_tag, 2, idUniquenessPolicy_UNIQUE_ID_tag,
     &POAInfo::object_id_uniqeness_policy, "create_id_uniqueness_policy"},
    {idAssignmentPolicy_USER_ID_tag, 2, idAssignmentPolicy_SYSTEM_ID_tag, &POAInfo::id_assignment_policy,
     "create_id_assignment_policy"},
    {implicitActivationPolicy_IMPLICIT_ACTIVATION_tag, 2, implicitActivationPolicy_NO_IMPLICIT_ACTIVATION_tag,
     &POAInfo::implicit_activation_policy, "create_implicit_activation_policy"},
    {servantRetentionPolicy_RETAIN_tag, 2, servantRetentionPolicy_RETAIN_tag,
     &POAInfo::servant_retention_policy, "create_servant_retention_policy"},
    {requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, 3,
     requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag, &POAInfo::request_processing_policy,
     "create_request_processing_policy"},
};

/// The row of an interface, PortableServer::ThreadPolicy and so on.
template <class Kind>
inline constexpr const PolicyKind& policy_kind =
    policy_kinds[Kind::type_id - PortableServer::THREAD_POLICY_ID];

inline constexpr PolicyTag POLICY_TAGS = 15;
