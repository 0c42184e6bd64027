// A servant without a skeleton: it takes the request apart itself.
#include "classic.h"
#include "dynamic.h"

class Calculator_dsi : public virtual PortableServer::DynamicImplementation {
 public:
  explicit Calculator_dsi(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}

  void invoke(CORBA::ServerRequest_ptr request) override {
    const std::string operation = request->operation();
    CORBA::NVList_ptr arguments;
    orb_->create_list(0, arguments);
    if (operation == "add") {
      want(arguments, "a", CORBA::_tc_long, CORBA::ARG_IN);
      want(arguments, "b", CORBA::_tc_long, CORBA::ARG_IN);
      request->arguments(arguments);
      CORBA::Long a = 0, b = 0;
      *arguments->item(0)->value() >>= a;
      *arguments->item(1)->value() >>= b;
      CORBA::Any result;
      result <<= static_cast<CORBA::Long>(a + b);
      request->set_result(result);
    } else if (operation == "repeat") {
      want(arguments, "text", CORBA::_tc_string, CORBA::ARG_IN);
      want(arguments, "times", CORBA::_tc_ushort, CORBA::ARG_IN);
      request->arguments(arguments);
      const char* text = nullptr;
      CORBA::UShort times = 0;
      *arguments->item(0)->value() >>= text;
      *arguments->item(1)->value() >>= times;
      CORBA::Any result;
      if (times > 10) {
        result <<= Dynamic::Refused("too often");
        request->set_exception(result);
        return;
      }
      std::string all;
      for (int i = 0; i < times; ++i) all += text;
      result <<= all.c_str();
      request->set_result(result);
    } else if (operation == "divide") {
      want(arguments, "dividend", CORBA::_tc_long, CORBA::ARG_INOUT);
      want(arguments, "divisor", CORBA::_tc_long, CORBA::ARG_IN);
      want(arguments, "remainder", CORBA::_tc_long, CORBA::ARG_OUT);
      request->arguments(arguments);
      CORBA::Long dividend = 0, divisor = 1;
      *arguments->item(0)->value() >>= dividend;
      *arguments->item(1)->value() >>= divisor;
      *arguments->item(0)->value() <<= static_cast<CORBA::Long>(dividend / divisor);
      *arguments->item(2)->value() <<= static_cast<CORBA::Long>(dividend % divisor);
    } else if (operation == "shutdown") {
      request->arguments(arguments);
      orb_->shutdown(false);
    } else {
      throw CORBA::BAD_OPERATION();
    }
  }
  CORBA::RepositoryId _primary_interface(const PortableServer::ObjectId&, PortableServer::POA_ptr) override {
    return CORBA::string_dup("IDL:Dynamic/Calculator:1.0");
  }

 private:
  static void want(CORBA::NVList_ptr list, const char* name, CORBA::TypeCode_ptr type, CORBA::Flags mode) {
    CORBA::Any empty;
    empty.replace(type, nullptr);
    list->add_value(name, empty, mode);
  }

  CORBA::ORB_var orb_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    Calculator_dsi servant(orb);
    PortableServer::ObjectId_var id = root->activate_object(&servant);
    CORBA::Object_var reference = root->id_to_reference(id);
    publish(orb, reference, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
