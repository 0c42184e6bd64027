// Servant managers and adapter activators as programs of the standard mapping write them: as servants. The other
// way, deriving from PortableServer::ServantActivator and CORBA::LocalObject, needs nothing from here.
//
// `_this` gives a new local reference that leads to the servant and holds a count of it; nothing is activated, and
// nobody outside the process can call it. A servant that does not count (no RefCountServantBase) is the program's,
// and has to outlive what it was set at. What an operation throws reaches the client: a system exception as it is,
// ForwardRequest as a forward, any other as UNKNOWN. Operations are called with no lock held, by several threads at
// once.
#pragma once

#include "poa/servant.h"

namespace POA_PortableServer {

/// Base of both kinds.
class POA_API ServantManager : public virtual PortableServer::ServantBase {};

/// Makes servants for a POA with RETAIN and USE_SERVANT_MANAGER.
///
///   class Books : public POA_PortableServer::ServantActivator {
///     PortableServer::Servant incarnate(const PortableServer::ObjectId& id, PortableServer::POA_ptr) override {
///       return new Account(load(id));
///     }
///     void etherealize(const PortableServer::ObjectId&, PortableServer::POA_ptr, PortableServer::Servant servant,
///                      CORBA::Boolean, CORBA::Boolean remaining_activations) override {
///       if (!remaining_activations) servant->servant_delete();
///     }
///   };
///   Books books;
///   PortableServer::ServantActivator_var manager = books._this();
///   poa->set_servant_manager(manager);
class POA_API ServantActivator : public virtual ServantManager {
 public:
  /// A new reference for the caller to release.
  PortableServer::ServantActivator* _this(CORBA_ENV);
  /// The servant of `oid`, which stays the program's. Two threads may ask for one id at once: the first servant serves
  /// both, and the second is handed to etherealize. Null gives UNKNOWN.
  virtual PortableServer::Servant incarnate(const PortableServer::ObjectId& oid,
                                            PortableServer::POA* adapter) = 0;
  /// The object is active no more. Requests may still be in the servant: servant_delete, or for one that counts
  /// _remove_ref, is the way to be rid of it. `cleanup_in_progress`: the POA is being destroyed, or its manager is
  /// INACTIVE; the POA tree is locked then, as told at PortableServer::ServantActivator. `remaining_activations`: the
  /// servant is another active object as well.
  virtual void etherealize(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                           PortableServer::Servant serv, CORBA::Boolean cleanup_in_progress,
                           CORBA::Boolean remaining_activations) = 0;
};

/// Finds a servant for each request of a POA with NON_RETAIN and USE_SERVANT_MANAGER.
///
///   class Cache : public POA_PortableServer::ServantLocator {
///     PortableServer::Servant preinvoke(const PortableServer::ObjectId& id, PortableServer::POA_ptr,
///                                       const char*, Cookie& cookie) override {
///       cookie = nullptr;
///       return new Account(load(id));
///     }
///     void postinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*, Cookie,
///                     PortableServer::Servant servant) override {
///       delete servant;
///     }
///   };
class POA_API ServantLocator : public virtual ServantManager {
 public:
  /// What preinvoke leaves for the postinvoke of the same request; null at first.
  using Cookie = void*;

  /// A new reference for the caller to release.
  PortableServer::ServantLocator* _this(CORBA_ENV);
  /// The servant for one request, which stays the program's. Null gives OBJ_ADAPTER.
  virtual PortableServer::Servant preinvoke(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                                            const char* operation, Cookie& the_cookie) = 0;
  /// Follows each preinvoke that gave a servant, whatever became of the request, on the same thread. What it throws
  /// takes the place of the reply, unless the request has failed already.
  virtual void postinvoke(const PortableServer::ObjectId& oid, PortableServer::POA* adapter,
                          const char* operation, Cookie the_cookie, PortableServer::Servant the_servant) = 0;
};

/// Makes missing child POAs.
///
///   class Branches : public POA_PortableServer::AdapterActivator {
///     CORBA::Boolean unknown_adapter(PortableServer::POA_ptr parent, const char* name) override {
///       PortableServer::POA_var made = parent->create_POA(name, nullptr, CORBA::PolicyList());
///       return true;
///     }
///   };
///   Branches branches;
///   PortableServer::AdapterActivator_var activator = branches._this();
///   root->the_activator(activator);
class POA_API AdapterActivator : public virtual PortableServer::ServantBase {
 public:
  /// A new reference for the caller to release.
  PortableServer::AdapterActivator* _this(CORBA_ENV);
  /// True when it has made `name` under `parent`, false when there is to be no such POA: AdapterNonExistent, for
  /// clients UNKNOWN. `parent` and `name` are the library's, and good for the length of the call.
  virtual CORBA::Boolean unknown_adapter(PortableServer::POA* parent, const char* name) = 0;
};

}  // namespace POA_PortableServer
