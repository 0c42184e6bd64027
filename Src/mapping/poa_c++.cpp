#include <memory>

#include "poa.h"

namespace PortableServer {
namespace {

/// A new object of interface X's implementation class over one more handle of what `object` refers to; nil
/// for nil, and when the handle cannot be duplicated. The type of the object is not asked: any reference
/// narrows.
template <class X, class Implementation>
X* reference_to(CORBA::Object* object) {
  if (!object) return X::_nil();
  if (CORBA::Object* const counted = object->_share_reference()) {  // of this process: its class tells
    if (X* const found = dynamic_cast<X*>(counted)) return found;
    CORBA::release(counted);
    return X::_nil();
  }
  auto made = std::make_unique<Implementation>();
  if (void* handle = object->get_ref()) {
    made->set_ref(server_CORBA_object_duplicate(handle, nullptr));
    if (!made->get_ref()) return X::_nil();
  }
  return made.release();
}

}  // namespace

POA* POA::_duplicate(POA* p) { return reference_to<POA, PortableServer_POA_impl>(p); }
POA* POA::_narrow(CORBA::Object* object) { return reference_to<POA, PortableServer_POA_impl>(object); }

POAManager* POAManager::_duplicate(POAManager* p) {
  return reference_to<POAManager, PortableServer_POAManager_impl>(p);
}
POAManager* POAManager::_narrow(CORBA::Object* object) {
  return reference_to<POAManager, PortableServer_POAManager_impl>(object);
}

AdapterActivator* AdapterActivator::_duplicate(AdapterActivator* p) {
  return reference_to<AdapterActivator, PortableServer_AdapterActivator_impl>(p);
}
AdapterActivator* AdapterActivator::_narrow(CORBA::Object* object) {
  return reference_to<AdapterActivator, PortableServer_AdapterActivator_impl>(object);
}

ServantManager::~ServantManager() = default;

ServantManager* ServantManager::_duplicate(ServantManager* p) {
  return reference_to<ServantManager, PortableServer_ServantManager_impl>(p);
}
ServantManager* ServantManager::_narrow(CORBA::Object* object) {
  return reference_to<ServantManager, PortableServer_ServantManager_impl>(object);
}

ServantActivator* ServantActivator::_duplicate(ServantActivator* p) {
  return reference_to<ServantActivator, PortableServer_ServantActivator_impl>(p);
}
ServantActivator* ServantActivator::_narrow(CORBA::Object* object) {
  return reference_to<ServantActivator, PortableServer_ServantActivator_impl>(object);
}

ServantLocator* ServantLocator::_duplicate(ServantLocator* p) {
  return reference_to<ServantLocator, PortableServer_ServantLocator_impl>(p);
}
ServantLocator* ServantLocator::_narrow(CORBA::Object* object) {
  return reference_to<ServantLocator, PortableServer_ServantLocator_impl>(object);
}

Current* Current::_duplicate(Current* p) { return reference_to<Current, PortableServer_Current_impl>(p); }
Current* Current::_narrow(CORBA::Object* object) {
  return reference_to<Current, PortableServer_Current_impl>(object);
}

}  // namespace PortableServer
