// Interfaces that inherit a base on two ways, and servants that share its implementation.
#include "classic.h"
#include "diamond.h"

class Device_impl : public virtual POA_Machines::Device {
 public:
  explicit Device_impl(const char* model = "plain") : model_(CORBA::string_dup(model)) {}
  char* model() override { return CORBA::string_dup(model_); }
  char* describe() override { return CORBA::string_dup((std::string("a ") + model_.in()).c_str()); }

 private:
  CORBA::String_var model_;
};

class Printer_impl : public virtual POA_Machines::Printer, public virtual Device_impl {
 public:
  Printer_impl() : Device_impl("printer") {}
  CORBA::ULong print(const char* text) override {
    return pages_ += static_cast<CORBA::ULong>(std::string(text).size());
  }

 protected:
  CORBA::ULong pages_ = 0;
};

class Copier_impl : public virtual POA_Machines::Copier, public virtual Printer_impl {
 public:
  Copier_impl() : Device_impl("copier") {}
  char* scan() override { return CORBA::string_dup("1234567"); }
  CORBA::ULong copy(CORBA::ULong times) override {
    for (; times > 0; --times) {
      CORBA::String_var page = scan();
      print(page);
    }
    return pages_;
  }
};

class Office_impl : public virtual POA_Machines::Office {
 public:
  explicit Office_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}
  Machines::Device_ptr nearest(const char* kind) override {
    const std::string wanted = kind;
    if (wanted == "copier") return copier_.POA_Machines::Copier::_this();
    if (wanted == "printer") return printer_.POA_Machines::Printer::_this();
    return Machines::Device::_nil();
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
  Copier_impl copier_;
  Printer_impl printer_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    Office_impl servant(orb);
    Machines::Office_var reference = servant._this();
    publish(orb, reference, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
