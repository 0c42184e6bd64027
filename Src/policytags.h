// Policy tags: one number a policy value. POA records hold and test tags, and a tag is the whole reference
// data of a policy object.
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
