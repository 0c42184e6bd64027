// What the server gives its POAs so that they find servants and child POAs when a request comes.
#pragma once

#include <atomic>

#include "server_echo.h"

/// Counts how often a servant was asked for.
class Asked {
 public:
  void again() { ++times_; }
  CORBA::Long times() const { return times_; }

 private:
  std::atomic<CORBA::Long> times_{0};
};

/// Makes the servant of an object when the first request for it comes; the POA keeps it then.
class Activator : public PortableServer_ServantActivator_impl {
 public:
  explicit Activator(Shared& shared) : shared_(shared) {}
  PortableServer::Servant incarnate(const PortableServer::ObjectId& id, PortableServer::POA_ptr poa,
                                    CORBA_ENV) override;
  void etherealize(const PortableServer::ObjectId& id, PortableServer::POA_ptr poa,
                   PortableServer::Servant servant, CORBA::Boolean cleanup_in_progress,
                   CORBA::Boolean remaining_activations, CORBA_ENV) override;

  Asked asked;

 private:
  Shared& shared_;
};

/// Makes a servant for each request and deletes it afterwards.
class Locator : public PortableServer_ServantLocator_impl {
 public:
  explicit Locator(Shared& shared) : shared_(shared) {}
  PortableServer::Servant preinvoke(const PortableServer::ObjectId& id, PortableServer::POA_ptr poa,
                                    const char* operation, Cookie& cookie, CORBA_ENV) override;
  void postinvoke(const PortableServer::ObjectId& id, PortableServer::POA_ptr poa, const char* operation,
                  Cookie cookie, PortableServer::Servant servant, CORBA_ENV) override;

  Asked asked;

 private:
  Shared& shared_;
};

/// Makes the POA "Lazy", with one object in it, when a request or the program asks the root POA for it.
class LazyAdapter : public PortableServer_AdapterActivator_impl {
 public:
  explicit LazyAdapter(Shared& shared) : shared_(shared) {}
  CORBA::Boolean unknown_adapter(PortableServer::POA_ptr parent, const char* name, CORBA_ENV) override;

 private:
  Shared& shared_;
};

/// Releases what a lost client used in the POA "session". Registered while it lives.
class EndOfSession : public PortableServer::POAdisconnect {
 public:
  explicit EndOfSession(Shared& shared) : shared_(shared) { setDisconnect(this); }
  ~EndOfSession() override { setDisconnect(nullptr); }
  CORBA::Boolean release_instance(PortableServer::POA* poa, PortableServer::ServantBase* servant,
                                  PortableServer::ObjectId& id, CORBA::Environment& ev) override;

 private:
  Shared& shared_;
};
