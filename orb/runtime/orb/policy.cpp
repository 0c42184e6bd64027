#include "corba/policy.h"

#include "base/raise.h"
#include "corba/detail/own_row.h"
#include "corba/detail/stubs.h"
#include "corba/orb.h"

using CORBA::Environment;
using CORBA::Policy;
using CORBA::PolicyList;
using CORBA::ULong;

namespace {

constexpr const char* policy_id = "IDL:CORBA/Policy:1.0";

Policy* as_policy(Policy* policy, const char* repository_id) {
  if (!repository_id) return nullptr;
  const bool known = std::strcmp(repository_id, policy_id) == 0 ||
                     std::strcmp(repository_id, "IDL:omg.org/CORBA/Policy:1.0") == 0;
  return known ? policy : nullptr;
}

/// A new P over one more handle of what `policy` refers to, if anything.
template <class P>
std::unique_ptr<P> duplicate_as(const CORBA::Object& policy) {
  auto made = std::make_unique<P>();
  if (policy.get_ref()) made->set_ref(server_CORBA_object_duplicate(policy.get_ref(), nullptr));
  return made;
}

/// The policy behind a reference: of its own class when this process serves that one, else a stub.
Policy* policy_of(const CORBA::Object& reference) {
  void* served = nullptr;
  if (OM_IDL_get_object2(served, reference.get_ref(), nullptr, policy_id))
    return static_cast<Policy*>(served);
  return duplicate_as<_st_CORBA_Policy>(reference).release();
}

bool move_policy(CDR* cdr, Policy*& policy) {
  CORBA::Object decoded;
  void* handle = cdr->direction == CDR_ENCODE && policy ? policy->get_ref() : nullptr;
  if (!OM_cdr_object(cdr, &handle)) return false;
  if (cdr->direction == CDR_ENCODE) return true;
  decoded.set_ref(handle);
  policy = handle ? policy_of(decoded) : nullptr;
  return true;
}

}  // namespace

namespace CORBA::idl {

template <>
struct ReferenceMoves<Policy> {
  static void free(Policy* policy) { release(policy); }
  static bool move(CDR* cdr, Policy*& policy) {
    Policy* moved = policy;
    if (!move_policy(cdr, moved)) return false;
    if (cdr->direction == CDR_DECODE) release(std::exchange(policy, moved));
    return true;
  }
};

}  // namespace CORBA::idl

namespace {

namespace idl = CORBA::idl;
constexpr idl::own_operation<Policy, idl::ref<Policy>()> copy_operation{"copy", &Policy::copy};
constexpr idl::own_operation<Policy, void()> destroy_operation{"destroy", &Policy::destroy};
constexpr idl::own_operation<Policy, CORBA::PolicyType()> policy_type_operation{"_get_policy_type",
                                                                                &Policy::policy_type};

/// The policy that serves a request, made when the skeleton asks for it.
class ServedPolicy {
 public:
  ServedPolicy() = default;
  ServedPolicy(const ServedPolicy&) = delete;
  ServedPolicy& operator=(const ServedPolicy&) = delete;
  ~ServedPolicy() { OM_IDL_release_object2(object_, policy_id); }

  Policy* find(void* object, void* request) {
    OM_IDL_get_object2(object_, object, request, policy_id);
    return static_cast<Policy*>(object_);
  }

 private:
  void* object_ = nullptr;
};

unsigned char serve(const idl::OperationInfo& operation, void* request, void* object,
                    unsigned char response_expected) {
  struct Call {
    void *object, *request;
    ServedPolicy policy;
  } call{object, request, {}};
  const auto find = [](void* context) -> void* {
    auto& of = *static_cast<Call*>(context);
    return of.policy.find(of.object, of.request);
  };
  return idl::ServerCall(request, response_expected != 0, find, &call).serve(operation);
}

}  // namespace

namespace CORBA {

Policy* Policy::_duplicate(Policy* p) {
  // What a stub refers to may be far away: one more reference to it is enough.
  if (auto* stub = dynamic_cast<_st_CORBA_Policy*>(p))
    return ::duplicate_as<_st_CORBA_Policy>(*stub).release();
  return p ? p->copy() : nullptr;
}

Policy* Policy::_narrow(Object* object) {
  if (auto* policy = dynamic_cast<Policy*>(object)) return _duplicate(policy);
  return object ? policy_of(*object) : nullptr;
}

}  // namespace CORBA

CORBA::PolicyType CORBA_Policy_impl::policy_type(Environment& ev) {
  ev.clear();
  return __policy_type;
}

Policy* CORBA_Policy_impl::copy(Environment& ev) {
  ev.clear();
  auto made = duplicate_as<CORBA_Policy_impl>(*this);
  made->__policy_type = __policy_type;
  return made.release();
}

void CORBA_Policy_impl::destroy(Environment& ev) { ev.clear(); }

void* CORBA_Policy_impl::_cast(const char* repository_id) { return as_policy(this, repository_id); }

CORBA::PolicyType _st_CORBA_Policy::policy_type(Environment& ev) { return policy_type_operation(this, ev); }
Policy* _st_CORBA_Policy::copy(Environment& ev) { return copy_operation(this, ev); }
void _st_CORBA_Policy::destroy(Environment& ev) { destroy_operation(this, ev); }
void* _st_CORBA_Policy::_cast(const char* repository_id) { return as_policy(this, repository_id); }

unsigned char skel_CORBA_Policy_copy(void* request, void* object, ULong /*type*/,
                                     unsigned char response_expected, void* /*table*/) {
  return serve(copy_operation, request, object, response_expected);
}

unsigned char skel_CORBA_Policy_destroy(void* request, void* object, ULong /*type*/,
                                        unsigned char response_expected, void* /*table*/) {
  return serve(destroy_operation, request, object, response_expected);
}

unsigned char skel_CORBA_Policy__get_policy_type(void* request, void* object, ULong /*type*/,
                                                 unsigned char response_expected, void* /*table*/) {
  return serve(policy_type_operation, request, object, response_expected);
}

Policy* skel_INTRA_PROCESS_CORBA_Policy_copy(Environment& ev) {
  return decltype(copy_operation)::in_process<copy_operation, CORBA_Policy_impl>(ev);
}
void skel_INTRA_PROCESS_CORBA_Policy_destroy(Environment& ev) {
  decltype(destroy_operation)::in_process<destroy_operation, CORBA_Policy_impl>(ev);
}
CORBA::PolicyType skel_INTRA_PROCESS_CORBA_Policy__get_policy_type(Environment& ev) {
  return decltype(policy_type_operation)::in_process<policy_type_operation, CORBA_Policy_impl>(ev);
}

unsigned char cdr_CORBA_PolicyList(CDR* cdr, PolicyList* list) {
  constexpr std::uint64_t shortest_reference = 12;  // an empty type id and no profiles
  ULong count = list->length();
  if (!OM_cdr_unsigned_long(cdr, &count)) return 0;
  if (cdr->direction == CDR_DECODE) {
    if (count > (OM_cdr_remaining(cdr) + std::uint64_t{3}) / shortest_reference) return 0;
    list->length(count);
  }
  for (ULong i = 0; i < count; ++i) {
    Policy* policy = cdr->direction == CDR_ENCODE ? (*list)[i].in() : nullptr;
    if (!move_policy(cdr, policy)) return 0;
    if (cdr->direction == CDR_DECODE) (*list)[i] = policy;
  }
  return 1;
}
