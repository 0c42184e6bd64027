#include "poa/implementation.h"

PortableServer::ServantBase* PortableServer_ServantActivator_impl::incarnate(const PortableServer::ObjectId&,
                                                                             PortableServer::POA*,
                                                                             CORBA::Environment&) {
  return nullptr;
}

void PortableServer_ServantActivator_impl::etherealize(const PortableServer::ObjectId&, PortableServer::POA*,
                                                       PortableServer::ServantBase*, CORBA::Boolean,
                                                       CORBA::Boolean, CORBA::Environment&) {}
