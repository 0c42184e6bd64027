// A server in a process of its own: this very program, started anew.
#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "poa.h"

/// What the server offers, by name. Called in the server's process, once its ORB is there.
std::map<std::string, CORBA::Object_var> offers(CORBA::ORB* orb, PortableServer::POA* root, bool registered);

/// Runs a server, registered for remote use or not, until it is destroyed, which expects the server to end in
/// good order.
class ServerProcess {
 public:
  explicit ServerProcess(bool registered);
  ~ServerProcess();

  /// A new handle to what the server offers under that name.
  void* handle(const std::string& name) const;

 private:
  std::FILE* lines_;                            // of the server, which goes on until this is closed
  std::map<std::string, std::string> offered_;  // stringified references
};

/// A stub over `handle`, which it takes over, or over one more handle of `object`.
template <class Stub>
struct Remote : Stub {
  explicit Remote(void* handle) { this->set_ref(handle); }
  explicit Remote(const CORBA::Object* object) : Remote(CORBA_object_duplicate(object->get_ref(), nullptr)) {}
};
