// Skeletons of the module's interfaces: what serves requests for them once an interface is registered.
// Nothing registers itself.
#pragma once

#include "corba/detail/stubs.h"
#include "corba/orb.h"
#include "mapping/poa_operations.h"

namespace PortableServer::skeletons {

/// What the skeleton of X goes by: its repository id, its implementation class, and, where it has one, the
/// base interface that an object can be seen as, with that one's id.
template <interface X>
struct row;
template <>
struct row<POA> {
  static constexpr const char* id = "IDL:org.omg/PortableServer/POA:1.0";
  using Implementation = PortableServer_POA_impl;
};
template <>
struct row<POAManager> {
  static constexpr const char* id = "IDL:omg.org/PortableServer/POAManager:1.0";
  using Implementation = PortableServer_POAManager_impl;
};
template <policy_interface Kind>
struct row<Kind> {
  static constexpr const char* id = Kind::repository_id.value;
  using Implementation = PortableServer_Policy_impl<Kind>;
  using Base = CORBA::Policy;
  static constexpr const char* base_id = "IDL:CORBA/Policy:1.0";
};
template <>
struct row<AdapterActivator> {
  static constexpr const char* id = "IDL:omg.org/PortableServer/AdapterActivator:2.3";
  using Implementation = PortableServer_AdapterActivator_impl;
};
template <>
struct row<ServantManager> {
  static constexpr const char* id = "IDL:omg.org/PortableServer/ServantManager:1.0";
  using Implementation = PortableServer_ServantManager_impl;
};
template <>
struct row<ServantActivator> {
  static constexpr const char* id = "IDL:omg.org/PortableServer/ServantActivator:2.3";
  using Implementation = PortableServer_ServantActivator_impl;
  using Base = ServantManager;
  static constexpr const char* base_id = row<ServantManager>::id;
};
template <>
struct row<ServantLocator> {
  static constexpr const char* id = "IDL:omg.org/PortableServer/ServantLocator:2.3";
  using Implementation = PortableServer_ServantLocator_impl;
  using Base = ServantManager;
  static constexpr const char* base_id = row<ServantManager>::id;
};
template <>
struct row<Current> {
  static constexpr const char* id = "IDL:org.omg/PortableServer/Current:1.0";
  using Implementation = PortableServer_Current_impl;
  using Base = CORBA::Current;
  static constexpr const char* base_id = "IDL:CORBA/Current:1.0";
};

/// The object that serves one request; disposed of with this.
template <interface X>
class served_object {
 public:
  served_object() = default;
  served_object(const served_object&) = delete;
  served_object& operator=(const served_object&) = delete;
  ~served_object() {
    if (object_) OM_IDL_release_object2(object_, row<X>::id);
  }
  X* find(void* target, void* request) {
    return OM_IDL_get_object2(object_, target, request, row<X>::id) ? static_cast<X*>(object_) : nullptr;
  }

 private:
  void* object_ = nullptr;
};

/// The CDR skeleton of an operation of X. 0: arguments or reply did not fit; 1: done, without a reply when no
/// object was found.
template <interface X, const auto& Row>
unsigned char skeleton(void* request, void* target, std::uint32_t /*type*/, unsigned char response_expected,
                       void* /*table*/) {
  struct Call {
    void *request, *target;
    served_object<X> object;
  } call{request, target, {}};
  const auto find = [](void* context) -> void* {
    auto& of = *static_cast<Call*>(context);
    return of.object.find(of.target, of.request);
  };
  return CORBA::idl::ServerCall(request, response_expected != 0, find, &call).serve(Row);
}

}  // namespace PortableServer::skeletons

/// The interfaces by name.
// clang-format off
#define POA_EACH_INTERFACE(DO)                                                                       \
  DO(POA) DO(POAManager) DO(ThreadPolicy) DO(LifespanPolicy) DO(IdUniquenessPolicy)                   \
  DO(IdAssignmentPolicy) DO(ImplicitActivationPolicy) DO(ServantRetentionPolicy)                      \
  DO(RequestProcessingPolicy) DO(AdapterActivator) DO(ServantManager) DO(ServantActivator)            \
  DO(ServantLocator) DO(Current)
// clang-format on

// For each interface:
//   register_methods: hands the operation table of the interface that `impl_def` describes to the ORB core,
//     and the three functions below to the runtime. `boa` may be null.
//   _ct_: a new object that serves requests, as the interface's class (untyped); null without memory.
//   _dt_: disposes of it; null is ignored.
//   _pt_: the object as another class: as CORBA::Object for a null id, as itself for the interface's own id,
//     as its base interface for that one's id; null for any other id.
#define POA_DECLARE_SKELETONS(Interface)                                                      \
  void PortableServer_##Interface##_register_methods(CORBA::BOA* boa, CORBA::Environment& ev, \
                                                     CORBA::InterfaceDef* impl_def);          \
  void* _ct_PortableServer_##Interface();                                                     \
  void _dt_PortableServer_##Interface(void* p);                                               \
  void* _pt_PortableServer_##Interface(void* in, const char* repid);
POA_EACH_INTERFACE(POA_DECLARE_SKELETONS)
#undef POA_DECLARE_SKELETONS
