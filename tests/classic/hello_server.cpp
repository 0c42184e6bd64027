// The smallest server: one servant, activated implicitly in the root POA.
#include "classic.h"
#include "hello.h"

class Hello_impl : public POA_Hello {
 public:
  explicit Hello_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}
  char* greet(const char* name) override {
    return CORBA::string_dup((std::string("Hello, ") + name + "!").c_str());
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    Hello_impl servant(orb);
    Hello_var hello = servant._this();
    publish(orb, hello, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
