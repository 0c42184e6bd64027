// Servant managers and adapter activators as programs of the standard mapping write them: as servants. The other
// way, deriving from PortableServer::ServantActivator and CORBA::LocalObject, needs nothing from here.
#pragma once

#include "poa/servant.h"

namespace POA_PortableServer {

/// Base of both kinds. `_this` gives a new reference that leads to this servant and holds a count of it; nothing is
/// activated.
class POA_API ServantManager : public virtual PortableServer::ServantBase {};

class POA_API ServantActivator : public virtual ServantManager {
 public:
  PortableServer::ServantActivator* _this(CORBA_ENV);
  /// As in PortableServer::ServantActivator's form without an environment.
  virtual PortableServer::Servant incarnate(const PortableServer::ObjectId& oid,
                                            PortableServer::POA* adapter) = 0;
  virtual void etherealize(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                           PortableServer::Servant serv, CORBA::Boolean cleanup_in_progress,
                           CORBA::Boolean remaining_activations) = 0;
};

class POA_API ServantLocator : public virtual ServantManager {
 public:
  using Cookie = void*;

  PortableServer::ServantLocator* _this(CORBA_ENV);
  /// As in PortableServer::ServantLocator's form with a pointer.
  virtual PortableServer::Servant preinvoke(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                                            const char* operation, Cookie& the_cookie) = 0;
  virtual void postinvoke(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                          const char* operation, Cookie the_cookie, PortableServer::Servant the_servant) = 0;
};

class POA_API AdapterActivator : public virtual PortableServer::ServantBase {
 public:
  PortableServer::AdapterActivator* _this(CORBA_ENV);
  /// As in PortableServer::AdapterActivator's form without an environment.
  virtual CORBA::Boolean unknown_adapter(PortableServer::POA* parent, const char* name) = 0;
};

}  // namespace POA_PortableServer
