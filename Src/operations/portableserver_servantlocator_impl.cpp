// The default servant locator and the default adapter activator.
#include "poa/implementation.h"

PortableServer::ServantBase* PortableServer_ServantLocator_impl::preinvoke(const PortableServer::ObjectId&,
                                                                           PortableServer::POA*, const char*,
                                                                           Cookie&, CORBA::Environment&) {
  return nullptr;
}

void PortableServer_ServantLocator_impl::postinvoke(const PortableServer::ObjectId&, PortableServer::POA*,
                                                    const char*, Cookie, PortableServer::ServantBase*,
                                                    CORBA::Environment&) {}

CORBA::Boolean PortableServer_AdapterActivator_impl::unknown_adapter(PortableServer::POA*, const char*,
                                                                     CORBA::Environment&) {
  return true;
}
