#include "poa/skeleton.h"

#include "corba/orb.h"
#include "corba/server_request.h"

namespace PortableServer {
namespace {

/// While one lives, this thread runs a request of that servant.
class Upcall {
 public:
  explicit Upcall(const ServantBase* servant) : outer_(std::exchange(running, servant)) {}
  ~Upcall() { running = outer_; }
  Upcall(const Upcall&) = delete;
  Upcall& operator=(const Upcall&) = delete;

  static bool of(const ServantBase* servant) { return running == servant; }

 private:
  static inline thread_local const ServantBase* running = nullptr;
  const ServantBase* const outer_;
};

/// An initial reference of the running ORB, as interface X.
template <class X>
X* initial_reference(const char* name, CORBA::Environment& env) {
  CORBA::ORB orb;
  orb.set_ref(CORBA::OM_this_ORB);
  const CORBA::Object_var object = orb.resolve_initial_references(name, env);
  return X::_narrow(object);
}

POA* root_poa(CORBA::Environment& env) { return initial_reference<POA>("RootPOA", env); }

/// The object that this thread's request is for.
CORBA::Object* called_object(ServantBase& servant, CORBA::Environment& env) {
  const Current_var current = initial_reference<Current>("POACurrent", env);
  const POA_var poa = current->get_POA(env);
  const ObjectId_var id = current->get_object_id(env);
  try {
    return poa->id_to_reference(id, env);
  } catch (const CORBA::UserException&) {  // served without being active: by a default servant or a locator
    env.clear();
    return poa->create_reference_with_id(id, servant._primary_interface(id, poa, env), env);
  }
}

}  // namespace

CORBA::Boolean Skeleton::invoke(CORBA::ServerRequest* request, CORBA::Environment& env) {
  const Upcall upcall(this);
  void* self = nullptr;
  const CORBA::idl::InterfaceInfo& interface = _interface(self);
  return CORBA::idl::invoke(interface, self, request->operation(), request->request_handle(),
                            request->response_expected()) ||
         ServantBase::invoke(request, env);
}

CORBA::Boolean Skeleton::_is_a(const char* repository_id, CORBA::Environment&) {
  void* self = nullptr;
  return repository_id && CORBA::idl::is_a(_interface(self), repository_id);
}

POA* Skeleton::_default_POA() {
  CORBA::Environment env;
  return root_poa(env);
}

CORBA::Object* Skeleton::_reference(CORBA::Environment& env) {
  if (Upcall::of(this)) return called_object(*this, env);
  POA_var poa = _default_POA();
  if (CORBA::is_nil(poa.in())) poa = root_poa(env);
  try {
    return poa->servant_to_reference(this, env);
  } catch (const POA::WrongPolicy&) {  // with ids of the program's choice it may be active all the same
    env.clear();
    const ObjectId_var id = poa->servant_to_id(this, env);
    return poa->id_to_reference(id, env);
  }
}

}  // namespace PortableServer
