#include "poa/skeleton.h"

#include "base/raise.h"
#include "corba/orb.h"
#include "corba/server_request.h"
#include "zrsv/initial_references.h"
#include "zrsv/of_thread.h"

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
X* initial_reference(const char* name, CORBA::Environment& ev) {
  CORBA::ORB orb;
  orb.set_ref(CORBA::OM_this_ORB);
  const CORBA::Object_var object = orb.resolve_initial_references(name, ev);
  return X::_narrow(object);
}

/// The root POA that a thread resolved last.
struct KnownRoot {
  POA_var poa;
  std::uint64_t changes = 0;  // of initial references, before that
};

POA* root_poa(CORBA::Environment& ev) {
  KnownRoot* const known = zrsv::of_thread<KnownRoot>();
  const std::uint64_t changes = zrsv::initial_reference_changes();
  if (!known || known->changes != changes) {
    POA_var found = initial_reference<POA>("RootPOA", ev);
    if (!known) return found._retn();
    known->changes = changes;
    known->poa = found;
  }
  return POA::_duplicate(known->poa.in());
}

/// The object that this thread's request is for.
CORBA::Object* called_object(CORBA::Environment& ev) {
  const Current_var current = initial_reference<Current>("POACurrent", ev);
  const POA_var poa = current->get_POA(ev);
  const ObjectId_var id = current->get_object_id(ev);
  try {
    return poa->id_to_reference(id, ev);
  } catch (const CORBA::UserException&) {  // served without being active: by a default servant or a locator
    return current->get_reference(ev);
  }
}

}  // namespace

CORBA::Boolean Skeleton::invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) {
  const Upcall upcall(this);
  void* self = nullptr;
  const CORBA::idl::InterfaceInfo& interface = _interface(self);
  return CORBA::idl::invoke(interface, self, request->operation(), request->request_handle(),
                            request->response_expected()) ||
         ServantBase::invoke(request, ev);
}

CORBA::Boolean Skeleton::_is_a(const char* repository_id, CORBA::Environment&) {
  void* self = nullptr;
  return repository_id && CORBA::idl::is_a(_interface(self), repository_id);
}

POA* Skeleton::_default_POA() {
  CORBA::Environment ev;
  return root_poa(ev);
}

CORBA::Object* Skeleton::_reference(CORBA::Environment& ev) {
  if (Upcall::of(this)) return called_object(ev);
  POA_var poa = _default_POA();
  if (CORBA::is_nil(poa.in())) poa = root_poa(ev);
  try {
    return poa->servant_to_reference(this, ev);
  } catch (const POA::WrongPolicy&) {  // with ids of the program's choice it may be active all the same
    ev.clear();
    const ObjectId_var id = poa->servant_to_id(this, ev);
    return poa->id_to_reference(id, ev);
  }
}

void Skeleton::_no_memory(CORBA::Environment& ev) { raise<CORBA::NO_MEMORY>(ev, nullptr); }

}  // namespace PortableServer
