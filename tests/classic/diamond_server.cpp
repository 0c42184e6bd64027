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

class Office_impl : public Closing<POA_Machines::Office> {
 public:
  using Closing::Closing;
  Machines::Device_ptr nearest(const char* kind) override {
    const std::string wanted = kind;
    if (wanted == "copier") return copier_.POA_Machines::Copier::_this();
    if (wanted == "printer") return printer_.POA_Machines::Printer::_this();
    return Machines::Device::_nil();
  }

 private:
  Copier_impl copier_;
  Printer_impl printer_;
};

int main(int argc, char* argv[]) { return serve<Office_impl>(argc, argv); }
