// The seven policy classes: instances of one template.
#include "base/raise.h"
#include "objects/ownobject.h"
#include "records/policyset.h"

// ---- PortableServer::ThreadPolicy and the others ----

template <class Kind, class Value, CORBA::PolicyType Type, CORBA::Text Name>
Kind* PortableServer::PolicyOf<Kind, Value, Type, Name>::_duplicate(Kind* p) {
  if (!p) return nullptr;
  CORBA::Policy_var copy;
  try {
    copy = p->copy();
  } catch (const CORBA::NO_MEMORY&) {  // as that of every interface
    throw std::bad_alloc();
  }
  if (!copy.in()) return nullptr;
  auto* duplicate = static_cast<Kind*>(copy->_cast(repository_id.value));
  if (duplicate) copy._retn();
  return duplicate;
}

template <class Kind, class Value, CORBA::PolicyType Type, CORBA::Text Name>
Kind* PortableServer::PolicyOf<Kind, Value, Type, Name>::_narrow(CORBA::Object* object) {
  if (!object) return nullptr;
  auto narrowed = std::make_unique<PortableServer_Policy_impl<Kind>>();
  if (void* handle = object->get_ref()) {
    CORBA::Environment ev;
    void* duplicate = server_CORBA_object_duplicate(handle, ev._evp);
    if (!duplicate) return nullptr;
    narrowed->set_ref(duplicate);
    // A policy of this kind that the library made keeps its value.
    constexpr const PolicyKind& kind = policy_kind<Kind>;
    PolicyTag tag = kind.standard;
    if (read_reference_data(object, &tag, sizeof tag) == DataRead::whole && kind.has(tag))
      narrowed->__value = static_cast<Value>(tag - kind.first);
  }
  return narrowed.release();
}

// ---- Their implementation ----

template <class Kind>
PortableServer_Policy_impl<Kind>::PortableServer_Policy_impl()
    : __value(static_cast<Value>(policy_kind<Kind>.standard - policy_kind<Kind>.first)) {
  this->__policy_type = Kind::type_id;
}

template <class Kind>
typename Kind::value_type PortableServer_Policy_impl<Kind>::value(CORBA::Environment&) {
  return __value;
}

template <class Kind>
CORBA::Policy* PortableServer_Policy_impl<Kind>::copy(CORBA::Environment& ev) {
  return with_memory(ev, [&]() -> CORBA::Policy* {
    auto made = std::make_unique<PortableServer_Policy_impl>();
    made->__policy_type = this->__policy_type;
    made->__value = __value;
    if (this->get_ref()) {
      void* duplicate = server_CORBA_object_duplicate(this->get_ref(), ev._evp);
      if (!duplicate) return nullptr;
      made->set_ref(duplicate);
    }
    return made.release();
  });
}

template <class Kind>
void* PortableServer_Policy_impl<Kind>::_cast(const char* id) {
  if (id && std::strcmp(id, Kind::repository_id.value) == 0) return static_cast<Kind*>(this);
  return CORBA_Policy_impl::_cast(id);
}

#define POA_POLICY(Name)                                                                     \
  template class PortableServer::PolicyOf<PortableServer::Name, PortableServer::Name##Value, \
                                          PortableServer::Name::type_id, #Name>;             \
  template class PortableServer_Policy_impl<PortableServer::Name>;

POA_POLICY(ThreadPolicy)
POA_POLICY(LifespanPolicy)
POA_POLICY(IdUniquenessPolicy)
POA_POLICY(IdAssignmentPolicy)
POA_POLICY(ImplicitActivationPolicy)
POA_POLICY(ServantRetentionPolicy)
POA_POLICY(RequestProcessingPolicy)
