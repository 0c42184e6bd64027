// The objects of the tour: one for each way of serving an object.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "server_managers.h"

/// Where the object of a reference lives.
struct Place {
  std::string name;               // of the reference
  std::vector<const char*> path;  // of its POA, below the root POA
  PortableServer::ObjectId id;
  const Asked* asked = nullptr;  // of its servant manager; null when it has none
};

class Tour {
 public:
  /// Resolves the root POA of `orb`, which outlives the tour.
  Tour(CORBA::ORB_ptr orb, const std::filesystem::path& dir);
  /// Deletes the servants. Not while the ORB runs.
  ~Tour() { shared_.delete_idle(); }
  Tour(const Tour&) = delete;
  Tour& operator=(const Tour&) = delete;

  /// Makes the POAs and the Echo objects, and writes the reference of each to the directory.
  void open();
  /// The same for the object "control", which is no place. The servant stays the caller's.
  void add_control(PortableServer::Servant servant);

  PortableServer::POA_ptr root() const { return root_; }
  Shared& shared() { return shared_; }

  /// BAD_PARAM when there is none of that name.
  const Place& place(const std::string& name) const;
  /// The servant in charge of the object; OBJECT_NOT_EXIST when it has none between requests.
  PortableServer::Servant servant_of(const Place& place) const;
  /// Takes the object out of its POA, which forgets the servant; OBJECT_NOT_EXIST when it is not active.
  void deactivate(const Place& place) const;
  /// Destroys the object's POA. BAD_PARAM for the root POA; OBJECT_NOT_EXIST when it is not there.
  void destroy_poa(const Place& place) const;

 private:
  using Policies = std::vector<CORBA::Policy_ptr>;
  PortableServer::POA_ptr poa_of(const Place& place) const;
  /// The servant when the program has to see to its deletion; else, where a servant manager does, null.
  PortableServer::Servant own_servant_of(const Place& place) const;
  PortableServer::POA_ptr user_id_poa(const char* name, Policies policies) const;
  void publish(const std::string& name, CORBA::Object_ptr reference) const;
  CORBA::Object_ptr activate(PortableServer::POA_ptr poa, const PortableServer::ObjectId& id,
                             PortableServer::Servant servant) const;

  void add_root();
  void add_deep();
  void add_managed();
  void add_default();
  void add_lazy();
  void add_dynamic();

  const CORBA::ORB_ptr orb_;
  const PortableServer::POA_var root_;
  const std::filesystem::path dir_;
  Shared shared_;
  Activator activator_{shared_};
  Locator locator_{shared_};
  Activator sessions_{shared_};
  LazyAdapter lazy_{shared_};
  EndOfSession end_of_session_{shared_};
  std::vector<Place> places_;  // complete before the first request
};
