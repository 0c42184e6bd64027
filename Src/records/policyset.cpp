#include "records/policyset.h"

#include <algorithm>
#include <iterator>

#include "base/raise.h"
#include "objects/ownobject.h"
#include "zrsv/thread_safety.h"

namespace {

/// Trace texts of the shared objects when they are made, by tag.
constexpr const char* made_texts[POLICY_TAGS] = {
    "POAInfo::create_thread_policy end...[threadPolicy_ORB_CTRL_MODEL]",
    "POAInfo::create_thread_policy end...[threadPolicy_SINGLE_THREAD_MODEL]",
    "POAInfo::create_lifespan_policy end...[lifespanPolicy_TRANSIENT]",
    "POAInfo::create_lifespan_policy end...[lifespanPolicy_PERSISTENT]",
    "POAInfo::create_id_uniqueness_policy end...[idUniquenessPolicy_UNIQUE_ID]",
    "POAInfo::create_id_uniqueness_policy end...[idUniquenessPolicy_MULTIPLE_ID]",
    "POAInfo::create_id_assignment_policy end...[idAssignmentPolicy_USER_ID]",
    "POAInfo::create_id_assignment_policy end...[idAssignmentPolicy_SYSTEM_ID]",
    "POAInfo::create_implicit_activation_policy end...[implicitActivationPolicy_IMPLICIT_ACTIVATION]",
    "POAInfo::create_implicit_activation_policy end...[implicitActivationPolicy_NO_IMPLICIT_ACTIVATION]",
    "POAInfo::create_servant_retention_policy end...[servantRetentionPolicy_RETAIN]",
    "POAInfo::create_servant_retention_policy end...[servantRetentionPolicy_NON_RETAIN]",
    "POAInfo::create_request_processing_policy end...[requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY]",
    "POAInfo::create_request_processing_policy end...[requestProcessingPolicy_USE_DEFAULT_SERVANT]",
    "POAInfo::create_request_processing_policy end...[requestProcessingPolicy_USE_SERVANT_MANAGER]",
};

zrsv::Mutex shared_mutex;
CORBA::Policy* shared_objects[POLICY_TAGS] ZR_GUARDED_BY(shared_mutex);  // each made once, never destroyed

template <class Kind>
CORBA::Policy* make_shared_object(PolicyTag tag, CORBA::Environment& ev) {
  constexpr const PolicyKind& kind = policy_kind<Kind>;
  auto* made = own_object<PortableServer_Policy_impl<Kind>>(tag, Kind::repository_id.value);
  if (!made) raise<CORBA::BAD_PARAM>(ev, "obj=NULL, throw CORBA::StExcep::BAD_PARAM", kind.obj_is_nil);
  made->__value = static_cast<typename Kind::value_type>(tag - kind.first);
  POA_TRACE("%s", made_texts[tag]);
  return made;
}

/// The number in the reference data of a list's element: any reference is taken for a policy. -1 when the ORB
/// core cannot tell.
CORBA::Long findPolicyTag(CORBA::Object* _this) {
  POA_TRACE("findPolicyTag called...");
  PolicyTag tag = 0;
  switch (read_reference_data(_this, &tag, sizeof tag)) {
    case DataRead::failed:
      return -1;
    case DataRead::too_short:
      return 0;
    case DataRead::whole:
      break;
  }
  POA_TRACE("policy_tag end...[ret = %d]", static_cast<int>(tag));
  return static_cast<CORBA::Long>(tag);
}

/// A combination that no POA can have: all of `tags`.
struct Rule {
  PolicyTag tags[3];  // the last one again where there are two
  const char* first_trace;
  const char* second_trace;
};

constexpr Rule rules[] = {
    {{servantRetentionPolicy_NON_RETAIN_tag, requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag,
      requestProcessingPolicy_USE_ACTIVE_OBJECT_MAP_ONLY_tag},
     "ERROR InvaridPolicy! NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY",
     "POAInfo::POAInfo [ERROR InvaridPolicy! NON_RETAIN,USE_ACTIVE_OBJECT_MAP_ONLY.]"},
    {{requestProcessingPolicy_USE_DEFAULT_SERVANT_tag, idUniquenessPolicy_UNIQUE_ID_tag,
      idUniquenessPolicy_UNIQUE_ID_tag},
     "ERROR InvaridPolicy! USE_DEFAULT_SERVANT,UNIQUE_ID",
     "POAInfo::POAInfo [ERROR InvaridPolicy! USE_DEFAULT_SERVANT,UNIQUE_ID.]"},
    {{implicitActivationPolicy_IMPLICIT_ACTIVATION_tag, idAssignmentPolicy_SYSTEM_ID_tag,
      servantRetentionPolicy_NON_RETAIN_tag},
     "ERROR InvaridPolicy! IMPLICIT_ACTIVATION,SYSTEM_ID,NON_RETAIN",
     "POAInfo::POAInfo [ERROR InvaridPolicy! IMPLICIT_ACTIVATION,SYSTEM_ID,NON_RETAIN.]"},
    {{implicitActivationPolicy_IMPLICIT_ACTIVATION_tag, idAssignmentPolicy_USER_ID_tag,
      idAssignmentPolicy_USER_ID_tag},
     "ERROR InvaridPolicy! IMPLICIT_ACTIVATION,USER_ID",
     "POAInfo::POAInfo [ERROR InvaridPolicy! IMPLICIT_ACTIVATION,USER_ID.]"},
};

/// The row of policy_kinds that a tag belongs to; the number of rows when it belongs to none.
std::size_t kind_index(PolicyTag tag) {
  const auto row = std::find_if(std::begin(policy_kinds), std::end(policy_kinds),
                                [tag](const PolicyKind& kind) { return kind.has(tag); });
  return static_cast<std::size_t>(row - std::begin(policy_kinds));
}

[[noreturn]] void raise_invalid(const Rule& rule, CORBA::ULong index, CORBA::Environment& ev) {
  POA_TRACE("%s", rule.first_trace);
  auto* exception =
      new PortableServer::POA::InvalidPolicy(static_cast<CORBA::UShort>(std::min(index, 0xFFFFu)));
  const PortableServer::POA::InvalidPolicy copy(*exception);
  POA_TRACE("%s", rule.second_trace);
  ev.exception(exception);
  throw copy;
}

}  // namespace

PolicySet PolicySet::read(const CORBA::PolicyList& policies, CORBA::Environment& ev) {
  PolicySet set;
  CORBA::ULong set_by[std::size(policy_kinds)] = {};  // the element that set each field last
  for (CORBA::ULong i = 0; i < policies.length(); ++i) {
    CORBA::Policy* element = policies[i].in();
    if (CORBA::is_nil(element)) continue;
    const auto tag = static_cast<PolicyTag>(findPolicyTag(element));
    const std::size_t kind = kind_index(tag);
    if (kind == std::size(policy_kinds)) continue;
    set.*policy_kinds[kind].field = tag;
    set_by[kind] = i;
  }
  for (const Rule& rule : rules) {
    CORBA::ULong completed_by = 0;
    const bool broken = std::all_of(std::begin(rule.tags), std::end(rule.tags), [&](PolicyTag tag) {
      const std::size_t kind = kind_index(tag);
      completed_by = std::max(completed_by, set_by[kind]);
      return set.*policy_kinds[kind].field == tag;
    });
    if (broken) raise_invalid(rule, completed_by, ev);
  }
  return set;
}

// ---- The shared objects ----

template <class Kind>
Kind* shared_policy(typename Kind::value_type value, CORBA::Environment& ev) {
  constexpr const PolicyKind& kind = policy_kind<Kind>;
  POA_TRACE("%s", kind.called);
  if (value >= kind.count)
    raise<CORBA::BAD_PARAM>(ev, "bad param, throw CORBA::StExcep::BAD_PARAM", kind.bad_param);
  const PolicyTag tag = kind.first + value;
  const zrsv::MutexLock lock(shared_mutex);
  if (!shared_objects[tag]) shared_objects[tag] = make_shared_object<Kind>(tag, ev);
  return static_cast<Kind*>(shared_objects[tag]->_cast(Kind::repository_id.value));
}

#define POA_POLICY(Name) \
  template PortableServer::Name* shared_policy(PortableServer::Name##Value, CORBA::Environment&);
POA_POLICY(ThreadPolicy)
POA_POLICY(LifespanPolicy)
POA_POLICY(IdUniquenessPolicy)
POA_POLICY(IdAssignmentPolicy)
POA_POLICY(ImplicitActivationPolicy)
POA_POLICY(ServantRetentionPolicy)
POA_POLICY(RequestProcessingPolicy)
#undef POA_POLICY
