// What stubs and skeletons of every interface share.
#pragma once

#include <memory>

#include "poa.h"

namespace mapping_help {

/// A new stub of class Stub over one more handle of what `object` refers to; nil for nil.
template <class Stub>
Stub* refer(CORBA::Object* object) {
  if (!object) return nullptr;
  auto stub = std::make_unique<Stub>();
  stub->set_ref(CORBA_object_duplicate(object->get_ref(), nullptr));
  return stub.release();
}

/// While one lives, this thread runs a request of that servant.
class Upcall {
 public:
  explicit Upcall(const PortableServer::ServantBase* servant) : outer_(std::exchange(running, servant)) {}
  ~Upcall() { running = outer_; }
  Upcall(const Upcall&) = delete;
  Upcall& operator=(const Upcall&) = delete;

  static bool of(const PortableServer::ServantBase* servant) { return running == servant; }

 private:
  static inline thread_local const PortableServer::ServantBase* running = nullptr;
  const PortableServer::ServantBase* const outer_;
};

/// An initial reference of the running ORB, as interface X.
template <class X>
X* initial_reference(const char* name, CORBA::Environment& env) {
  CORBA::ORB orb;
  orb.set_ref(CORBA::OM_this_ORB);
  const CORBA::Object_var object = orb.resolve_initial_references(name, env);
  return X::_narrow(object);
}

/// The object that this thread's request is for.
inline CORBA::Object* called_object(PortableServer::ServantBase& servant, CORBA::Environment& env) {
  const PortableServer::Current_var current = initial_reference<PortableServer::Current>("POACurrent", env);
  const PortableServer::POA_var poa = current->get_POA(env);
  const PortableServer::ObjectId_var id = current->get_object_id(env);
  try {
    return poa->id_to_reference(id, env);
  } catch (const CORBA::UserException&) {  // served without being active: by a default servant or a locator
    env.clear();
    return poa->create_reference_with_id(id, servant._primary_interface(id, poa, env), env);
  }
}

/// What `_this` of a servant refers to.
inline CORBA::Object* reference_of(PortableServer::ServantBase& servant, CORBA::Environment& env) {
  if (Upcall::of(&servant)) return called_object(servant, env);
  PortableServer::POA_var poa = PortableServer::POA::_duplicate(servant._default_POA());
  if (CORBA::is_nil(poa.in())) poa = initial_reference<PortableServer::POA>("RootPOA", env);
  return poa->servant_to_reference(&servant, env);
}

}  // namespace mapping_help
