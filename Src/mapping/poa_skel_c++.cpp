#include <vector>

#include "base/corehandles.h"
#include "mapping/poa_skel_c++.h"
#include "poa/implementation.h"
#include "poa/remote.h"
#include "zrsv/thread_safety.h"

namespace PortableServer::skeletons {
namespace {

// ---- Objects that serve requests --------------------------------------------------------------------------

/// A reference that stays until the process ends, one for each object: a POA keeps the pointer it is given,
/// while what a request brought goes with the request.
template <interface X>
X* lasting(X* reference) {
  struct Kept {
    zrsv::Mutex mutex;
    std::vector<CORBA::ObjectVar<X>> all ZR_GUARDED_BY(mutex);
  };
  static Kept& kept = *new Kept;
  if (!reference) return nullptr;
  const zrsv::MutexLock lock(kept.mutex);
  for (const auto& known : kept.all) {
    if (CORBA_object_is_equivalent(known->get_ref(), reference->get_ref())) return known.in();
  }
  return kept.all.emplace_back(X::_duplicate(reference)).in();
}

/// A servant as a result, which cannot travel: the count for the caller stays here.
ServantBase* uncounted(ServantBase* servant) {
  servant->_remove_ref();
  return servant;
}

/// A POA as requests reach it: references that it keeps must outlive the request, and those that it lends out
/// must be the request's own.
class ServedPOA : public PortableServer_POA_impl {
 public:
  ServantBase* get_servant(CORBA::Environment& ev) override {
    return uncounted(PortableServer_POA_impl::get_servant(ev));
  }
  ServantBase* reference_to_servant(CORBA::Object* reference, CORBA::Environment& ev) override {
    return uncounted(PortableServer_POA_impl::reference_to_servant(reference, ev));
  }
  ServantBase* id_to_servant(const ObjectId& oid, CORBA::Environment& ev) override {
    return uncounted(PortableServer_POA_impl::id_to_servant(oid, ev));
  }
  using PortableServer_POA_impl::the_activator;
  void the_activator(AdapterActivator* activator, CORBA::Environment& ev) override {
    PortableServer_POA_impl::the_activator(lasting(activator), ev);
  }
  void set_servant_manager(ServantManager* manager, CORBA::Environment& ev) override {
    PortableServer_POA_impl::set_servant_manager(lasting(manager), ev);
  }
  ServantManager* get_servant_manager(CORBA::Environment& ev) override {
    ServantManager* const manager = PortableServer_POA_impl::get_servant_manager(ev);
    if (CORBA::Object* const counted = manager->_share_reference()) {  // as it was just now: once is enough
      CORBA::release(counted);
      return manager;
    }
    return ServantManager::_duplicate(manager);
  }
};

/// A policy as requests reach it: its value is what its reference says, which it got after it was made.
template <policy_interface Kind>
class ServedPolicy : public PortableServer_Policy_impl<Kind> {
 public:
  typename Kind::value_type value(CORBA::Environment& ev) override {
    const CORBA::ObjectVar<Kind> exact = Kind::_narrow(this);
    return exact->value(ev);
  }
};

template <interface X>
struct served {
  using type = typename row<X>::Implementation;
};
template <>
struct served<POA> {
  using type = ServedPOA;
};
template <policy_interface Kind>
struct served<Kind> {
  using type = ServedPolicy<Kind>;
};

// ---- Factory and casts ------------------------------------------------------------------------------------

template <interface X>
void* make() {
  try {
    return static_cast<X*>(new typename served<X>::type);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

template <interface X>
void dispose(void* p) {
  delete static_cast<X*>(p);
}

template <interface X>
void* cast(void* in, const char* repid) {
  auto* object = static_cast<X*>(in);
  if (!repid) return static_cast<CORBA::Object*>(object);
  if (std::strcmp(repid, row<X>::id) == 0) return object;
  if constexpr (requires { row<X>::base_id; }) {
    if (std::strcmp(repid, row<X>::base_id) == 0) return static_cast<typename row<X>::Base*>(object);
  }
  return nullptr;
}

// ---- Registration -----------------------------------------------------------------------------------------

/// An operation table: names and both skeletons of each operation, and null entries at the end.
template <std::size_t Count>
struct Table {
  const char* names[Count + 1]{};
  ZR_skeleton skeletons[Count + 1]{};
  ZR_method in_process[Count + 1]{};
  std::size_t used = 0;

  void add(const char* name, ZR_skeleton skeleton, ZR_method method) {
    names[used] = name;
    skeletons[used] = skeleton;
    in_process[used++] = method;
  }
};

template <class Function>
ZR_method as_method(Function* function) {
  return reinterpret_cast<ZR_method>(function);
}

template <interface X, const auto&... Row>
void register_operations(operations::list<Row...>, CORBA::BOA* boa, CORBA::Environment& ev,
                         CORBA::InterfaceDef* impl_def) {
  Table<sizeof...(Row) + (policy_interface<X> ? 3 : 0)> table;
  (table.add(Row.name, skeleton<X, Row>,
             CORBA::idl::in_process_skeleton<Row, typename row<X>::Implementation>()),
   ...);
  if constexpr (policy_interface<X>) {
    table.add("copy", skel_CORBA_Policy_copy, as_method(skel_INTRA_PROCESS_CORBA_Policy_copy));
    table.add("destroy", skel_CORBA_Policy_destroy, as_method(skel_INTRA_PROCESS_CORBA_Policy_destroy));
    table.add("_get_policy_type", skel_CORBA_Policy__get_policy_type,
              as_method(skel_INTRA_PROCESS_CORBA_Policy__get_policy_type));
  }
  CORBA_BOA_set_impl_methods(boa ? boa->get_ref() : nullptr, ev._evp,
                             impl_def ? impl_def->get_ref() : nullptr, table.names, table.skeletons,
                             table.in_process);
}

template <interface X>
void register_methods(CORBA::BOA* boa, CORBA::Environment& ev, CORBA::InterfaceDef* impl_def, OM_IDL_make ct,
                      OM_IDL_dispose dt, OM_IDL_cast pt) {
  OM_IDL_register_class(row<X>::id, ct, dt, pt);
  register_operations<X>(typename operations::of<X>::type(), boa, ev, impl_def);
}

using Register = void (*)(CORBA::BOA*, CORBA::Environment&, CORBA::InterfaceDef*);

/// Makes the interface known to the repository and hands over its table. Throws what the ORB core left in
/// `ev`.
void register_interface(const char* id, Register function, CORBA::Environment& ev) {
  ZR_register_interface(id);
  CORBA_Environment filled{};
  CORBA::InterfaceDef definition;
  definition.set_ref(CORBA_Repository_lookup_id(core_handles.interface_repository, id, &filled));
  if (filled._major == CORBA_NO_EXCEPTION) {
    CORBA::Environment outcome;
    function(nullptr, outcome, &definition);
    filled = std::exchange(*outcome._evp, CORBA_Environment{});
  }
  if (filled._major == CORBA_NO_EXCEPTION) return;
  ev.set_ref(&filled);
  CORBA::raise_environment(ev);
}

}  // namespace
}  // namespace PortableServer::skeletons

using namespace PortableServer;

#define POA_DEFINE_SKELETONS(Interface)                                                                     \
  void PortableServer_##Interface##_register_methods(CORBA::BOA* boa, CORBA::Environment& ev,               \
                                                     CORBA::InterfaceDef* impl_def) {                       \
    skeletons::register_methods<Interface>(boa, ev, impl_def, _ct_PortableServer_##Interface,               \
                                           _dt_PortableServer_##Interface, _pt_PortableServer_##Interface); \
  }                                                                                                         \
  void* _ct_PortableServer_##Interface() { return skeletons::make<Interface>(); }                           \
  void _dt_PortableServer_##Interface(void* p) { skeletons::dispose<Interface>(p); }                        \
  void* _pt_PortableServer_##Interface(void* in, const char* repid) {                                       \
    return skeletons::cast<Interface>(in, repid);                                                           \
  }
POA_EACH_INTERFACE(POA_DEFINE_SKELETONS)
#undef POA_DEFINE_SKELETONS

void PortableServer::register_for_remote_use(CORBA::Environment& ev) {
  ev.clear();
#define POA_REGISTER(Interface)                                \
  skeletons::register_interface(skeletons::row<Interface>::id, \
                                PortableServer_##Interface##_register_methods, ev);
  POA_EACH_INTERFACE(POA_REGISTER)
#undef POA_REGISTER
}
