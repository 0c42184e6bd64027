// What the servers and clients here share: reference files and checks that count.
#pragma once

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "poa.h"

/// Writes the reference to the file: under another name first, so that whoever finds the file finds it whole.
inline void publish(CORBA::ORB_ptr orb, CORBA::Object_ptr object, const std::string& file) {
  CORBA::String_var text = orb->object_to_string(object);
  std::ofstream(file + ".new") << text.in() << std::endl;
  if (std::rename((file + ".new").c_str(), file.c_str()) != 0) std::perror(file.c_str());
}

/// The reference that the file holds; the caller releases it.
inline CORBA::Object_ptr fetch(CORBA::ORB_ptr orb, const std::string& file) {
  std::string text;
  std::getline(std::ifstream(file), text);
  return orb->string_to_object(text.c_str());
}

inline int failures = 0;

#define CHECK(condition)                                                                \
  do {                                                                                  \
    if (!(condition)) {                                                                 \
      ++failures;                                                                       \
      std::cerr << __FILE__ << ':' << __LINE__ << ": not so: " #condition << std::endl; \
    }                                                                                   \
  } while (0)

/// The body must throw that exception.
#define CHECK_THROWS(exception, ...)                                               \
  do {                                                                             \
    try {                                                                          \
      __VA_ARGS__;                                                                 \
      ++failures;                                                                  \
      std::cerr << __FILE__ << ':' << __LINE__ << ": no " #exception << std::endl; \
    } catch (const exception&) {                                                   \
    }                                                                              \
  } while (0)

/// What each program ends with, as it has destroyed its ORB.
inline bool nothing_left() {
  const ZR_Leftovers left = ZR_leftovers();
  return left.threads + left.descriptors + left.connections + left.requests + left.objects == 0;
}

/// main() of a server or a client: runs `body`, tells of what escapes it.
template <class Body>
int guarded(Body body) {
  try {
    body();
  } catch (const CORBA::Exception& e) {
    std::cerr << "uncaught: " << e._rep_id() << std::endl;
    return 2;
  }
  CHECK(nothing_left());
  return failures == 0 ? 0 : 1;
}

/// Whether the object is no more: its server says so, or refuses every request to it.
inline bool gone(CORBA::Object_ptr object) {
  try {
    return object->_non_existent();
  } catch (const CORBA::SystemException&) {
    return true;
  }
}

/// The root POA; the caller releases it.
inline PortableServer::POA_ptr root_poa(CORBA::ORB_ptr orb) {
  CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
  return PortableServer::POA::_narrow(object);
}

/// Publishes the reference, lets requests in, and serves them until a client ends it.
inline void run(CORBA::ORB_ptr orb, CORBA::Object_ptr reference, const std::string& file) {
  PortableServer::POA_var root = root_poa(orb);
  PortableServer::POAManager_var manager = root->the_POAManager();
  manager->activate();
  publish(orb, reference, file);
  orb->run();
}

/// A skeleton whose shutdown() ends the server.
template <class Skeleton>
class Closing : public virtual Skeleton {
 public:
  explicit Closing(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}
  void shutdown() override { orb_->shutdown(false); }

 protected:
  CORBA::ORB_var orb_;
};

/// main() of most servers: one servant, activated implicitly in the root POA, until a client ends it.
template <class Servant>
int serve(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    Servant servant(orb);
    CORBA::Object_var reference = servant._this();
    run(orb, reference, argv[1]);
    orb->destroy();
  });
}

/// main() of most clients: `body` is given the ORB and the server's object; then the server is ended.
template <class Interface, class Body>
int visit(int argc, char* argv[], Body body) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    typename Interface::_var_type served = Interface::_narrow(object);
    CHECK(!CORBA::is_nil(served));
    body(orb.in(), served.in());
    served->shutdown();
    orb->destroy();
  });
}
