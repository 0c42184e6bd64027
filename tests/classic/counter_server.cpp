// Attributes and a user exception with members; a counted servant that lives on the heap.
#include "classic.h"
#include "counter.h"

class Counter_impl : public virtual POA_Counting::Counter,
                     public virtual PortableServer::RefCountServantBase {
 public:
  explicit Counter_impl(CORBA::ORB_ptr orb)
      : orb_(CORBA::ORB::_duplicate(orb)), label_(CORBA::string_dup("")) {}

  CORBA::ULongLong steps() override { return steps_; }
  CORBA::Long value() override { return value_; }
  void value(CORBA::Long v) override {
    if (v < 0 || v > 100) throw Counting::OutOfRange(0, 100, "no such value");
    value_ = v;
  }
  char* label() override { return CORBA::string_dup(label_); }
  void label(const char* text) override { label_ = text; }
  CORBA::Long add(CORBA::Long amount) override {
    value(value_ + amount);
    ++steps_;
    return value_;
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
  CORBA::String_var label_;
  CORBA::Long value_ = 0;
  CORBA::ULongLong steps_ = 0;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    Counter_impl* servant = new Counter_impl(orb);
    PortableServer::ServantBase_var owner = servant;
    PortableServer::ObjectId_var id = root->activate_object(servant);
    CORBA::Object_var reference = root->id_to_reference(id);
    publish(orb, reference, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
