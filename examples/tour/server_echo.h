// The servant behind most objects of the tour, and what all of them share.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "echo.h"

/// An object's name, as Demo::Echo::who answers it: "A/B/C:deep".
std::string object_name(PortableServer::POA_ptr poa, const PortableServer::ObjectId& id);
/// The name of the object that this thread's request is for. The POA Current knows it, so it tells the
/// objects of one servant apart.
std::string called_object();

/// What the objects of the tour know and how many servants they have. Any thread.
class Shared {
 public:
  void add_note(const std::string& object);
  CORBA::Long notes(const std::string& object);
  /// The object starts anew.
  void forget(const std::string& object);

  void born(PortableServer::ServantBase* servant);
  void gone(PortableServer::ServantBase* servant);
  CORBA::Long alive();
  /// Deletes the servants that live and have no request in them.
  void delete_idle();

 private:
  std::mutex mutex_;  // guards all below
  std::map<std::string, CORBA::Long> notes_;
  std::set<PortableServer::ServantBase*> servants_;
};

/// Made with new: the library deletes it when it was told to (servant_delete, a lifespan, a lost client),
/// else delete_idle does.
class EchoServant : public POA_Demo::Echo {
 public:
  explicit EchoServant(Shared& shared) : shared_(shared) { shared_.born(this); }
  ~EchoServant() override { shared_.gone(this); }

  char* echo_string(const char* s) override;
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override;
  Demo::Octets* echo_octets(const Demo::Octets& data) override;
  void refuse(const char* why, CORBA::Long code) override;
  void note(const char* s) override;
  CORBA::Long notes() override;
  char* who() override;
  void sleep_ms(CORBA::ULong ms) override;

 private:
  Shared& shared_;
};
