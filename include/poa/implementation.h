// The classes that programs derive their servant managers and adapter activators from. Everything here stands for what
// its interface in poa/interfaces.h says; only what is added to that is told here.
#pragma once

#include "poa/detail/implementation.h"

/// What a program's adapter activator derives from, to override unknown_adapter. As it is it does nothing and says that
/// it did it: true, and no POA made, so whoever asked gets AdapterNonExistent. The object is the program's.
///
///   class Lazy : public PortableServer_AdapterActivator_impl {
///     CORBA::Boolean unknown_adapter(PortableServer::POA* parent, const char* name, CORBA::Environment&) override {
///       PortableServer::POA_var made = parent->create_POA(name, nullptr, list);
///       return true;
///     }
///   };
///   Lazy lazy;
///   root->the_activator(&lazy);
class POA_API PortableServer_AdapterActivator_impl : public virtual _sk_PortableServer_AdapterActivator {
 public:
  CORBA::Boolean unknown_adapter(PortableServer::POA* parent, const char* name, CORBA_ENV) override;
};

/// Base of the two below. Of no use by itself: it is neither an activator nor a locator.
class POA_API PortableServer_ServantManager_impl : public virtual _sk_PortableServer_ServantManager {};

/// What a program's servant activator derives from, to override both operations; an example stands at
/// PortableServer::ServantActivator. As it is it activates nothing: a null servant, for which the client gets UNKNOWN;
/// and what it is handed in etherealize it leaves alone. The object is the program's, and has to outlive the POAs that
/// it was set at. Called by several threads at once.
class POA_API PortableServer_ServantActivator_impl : public virtual _sk_PortableServer_ServantActivator,
                                                     public virtual PortableServer_ServantManager_impl {
 public:
  PortableServer::ServantBase* incarnate(const PortableServer::ObjectId& objectId,
                                         PortableServer::POA* poa_ptr, CORBA_ENV) override;
  void etherealize(const PortableServer::ObjectId& objectId, PortableServer::POA* poa_ptr,
                   PortableServer::ServantBase* servant, CORBA::Boolean cleanup_in_progress,
                   CORBA::Boolean remaining_activations, CORBA_ENV) override;
};

/// What a program's servant locator derives from, to override both operations; an example stands at
/// PortableServer::ServantLocator. As it is it locates nothing: a null servant, and a cookie not
/// written; the client gets OBJ_ADAPTER (0x4B510302). The object is the program's, and has to outlive the POAs that it
/// was set at. Called by several threads at once.
class POA_API PortableServer_ServantLocator_impl : public virtual _sk_PortableServer_ServantLocator,
                                                   public virtual PortableServer_ServantManager_impl {
 public:
  PortableServer::ServantBase* preinvoke(const PortableServer::ObjectId& objectId,
                                         PortableServer::POA* poa_ptr, const char* operation,
                                         Cookie& the_cookie, CORBA_ENV) override;
  void postinvoke(const PortableServer::ObjectId& objectId, PortableServer::POA* poa_ptr,
                  const char* operation, Cookie the_cookie, PortableServer::ServantBase* servant,
                  CORBA_ENV) override;
};
