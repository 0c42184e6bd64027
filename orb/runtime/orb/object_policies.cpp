// What a reference says of itself and of its calls.
#include "base/raise.h"
#include "corba/detail/row.h"
#include "orb/orb_state.h"

namespace CORBA {
namespace {

/// Questions that any object can be asked; programs ask them through Object.
struct Questions {
  virtual char* repository_id(Environment& ev) = 0;
  virtual Object* component(Environment& ev) = 0;

 protected:
  ~Questions() = default;
};
constexpr idl::operation<Questions, idl::string<>()> repository_id{"_repository_id",
                                                                   &Questions::repository_id};
constexpr idl::operation<Questions, idl::ref<Object>()> component{"_component", &Questions::component};

/// The overrides of a reference; none for one without.
const ReferenceScope* own_scope(const std::shared_ptr<zrsv::CallScope>& scope) {
  return dynamic_cast<const ReferenceScope*>(scope.get());
}

}  // namespace

OrbPointer orb_of(void* handle) {
  std::shared_ptr<zrsv::CallScope> scope = zrsv::scope_of(handle);
  if (own_scope(scope)) scope = scope->wider();
  OrbPointer orb = std::dynamic_pointer_cast<OrbState>(scope);
  return orb ? orb : orbs().standard();
}

ORB* Object::_get_orb(Environment& ev) {
  ev.clear();
  OrbPointer orb = orb_of(_ptr);
  if (!orb || !orbs().lives(orb)) raise<BAD_INV_ORDER>(ev, OMGVMCID | 4, COMPLETED_NO);
  return new NamedOrb(std::move(orb), OM_this_ORB);
}

char* Object::_repository_id(Environment& ev) {
  ev.clear();
  const char* const known = ZR_object_type_id(_ptr);
  return *known ? string_dup(known) : repository_id(this, ev);
}

Object* Object::_get_component(Environment& ev) {
  try {
    return component(this, ev);
  } catch (const BAD_OPERATION&) {  // of an object that knows of no components
    ev.clear();
    return nullptr;
  }
}

Boolean Object::_validate_connection(PolicyList*& inconsistent, Environment& ev) {
  auto none = std::make_unique<PolicyList>();
  _non_existent(ev);  // whatever the server says: it was reached
  inconsistent = none.release();
  return 1;
}

Object* Object::_set_policy_overrides(const PolicyList& policies, SetOverrideType how, Environment& ev) {
  ev.clear();
  if (!_ptr) raise<INV_OBJREF>(ev);
  // A reference's scope lies in its ORB's: calls look for the two in this order.
  const auto scope = std::make_shared<ReferenceScope>(orb_of(_ptr));
  const std::shared_ptr<zrsv::CallScope> before = zrsv::scope_of(_ptr);
  if (const ReferenceScope* const own = own_scope(before)) scope->overrides = own->overrides;
  scope->overrides.set(policies, how, ev);
  scope->limit = scope->overrides.time_limit();
  zrsv::use_call_scopes();
  auto made = std::make_unique<Object>();
  made->set_ref(zrsv::object_in_scope(_ptr, scope));
  return made.release();
}

PolicyList* Object::_get_policy_overrides(const PolicyTypeSeq& types, Environment& ev) {
  ev.clear();
  const std::shared_ptr<zrsv::CallScope> scope = zrsv::scope_of(_ptr);
  const ReferenceScope* const own = own_scope(scope);
  return own ? own->overrides.list(types) : new PolicyList;
}

Policy* Object::_get_policy(PolicyType type, Environment& ev) {
  ev.clear();
  const std::shared_ptr<zrsv::CallScope> scope = zrsv::scope_of(_ptr);
  if (const ReferenceScope* const own = own_scope(scope))
    if (Policy* const found = own->overrides.find(type)) return found;
  if (Policy* const found = thread_overrides().find(type)) return found;
  const OrbPointer orb = orb_of(_ptr);
  if (!orb) return nullptr;
  const zrsv::MutexLock lock(orb->mutex);
  return orb->overrides.find(type);
}

}  // namespace CORBA
