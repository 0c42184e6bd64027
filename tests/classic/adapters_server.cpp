// An adapter activator makes POAs when they are first asked for.
#include <atomic>

#include "adapters.h"
#include "classic.h"

static std::atomic<int> made(0);

class Place_impl : public virtual POA_Adapters::Place {
 public:
  explicit Place_impl(PortableServer::Current_ptr current)
      : current_(PortableServer::Current::_duplicate(current)) {}
  char* path() override {
    PortableServer::POA_var poa = current_->get_POA();
    PortableServer::ObjectId_var id = current_->get_object_id();
    CORBA::String_var text = PortableServer::ObjectId_to_string(id);
    CORBA::String_var name = poa->the_name();
    return CORBA::string_dup((std::string(name) + "/" + text.in()).c_str());
  }

 private:
  PortableServer::Current_var current_;
};

class Maker : public virtual POA_PortableServer::AdapterActivator {
 public:
  explicit Maker(Place_impl& place) : place_(place) {}
  CORBA::Boolean unknown_adapter(PortableServer::POA_ptr parent, const char* name) override {
    if (std::string(name) == "Atlantis") return false;
    CORBA::PolicyList policies;
    policies.length(4);
    policies[0] = parent->create_lifespan_policy(PortableServer::PERSISTENT);
    policies[1] = parent->create_id_assignment_policy(PortableServer::USER_ID);
    policies[2] = parent->create_id_uniqueness_policy(PortableServer::MULTIPLE_ID);
    policies[3] = parent->create_request_processing_policy(PortableServer::USE_DEFAULT_SERVANT);
    PortableServer::POAManager_var manager = parent->the_POAManager();
    PortableServer::POA_var child = parent->create_POA(name, manager, policies);
    for (CORBA::ULong i = 0; i < 4; ++i) policies[i]->destroy();
    child->set_servant(&place_);
    ++made;
    return true;
  }

 private:
  Place_impl& place_;
};

class Map_impl : public virtual POA_Adapters::Map {
 public:
  Map_impl(CORBA::ORB_ptr orb, PortableServer::POA_ptr root)
      : orb_(CORBA::ORB::_duplicate(orb)), root_(PortableServer::POA::_duplicate(root)) {}
  Adapters::Place_ptr locate(const char* town, const char* street) override {
    PortableServer::POA_var poa;
    try {
      poa = root_->find_POA(town, true);
    } catch (const PortableServer::POA::AdapterNonExistent&) {
      return Adapters::Place::_nil();
    }
    PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(street);
    CORBA::Object_var object = poa->create_reference_with_id(id, "IDL:Adapters/Place:1.0");
    return Adapters::Place::_narrow(object);
  }
  CORBA::Long made() override { return ::made; }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
  PortableServer::POA_var root_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    object = orb->resolve_initial_references("POACurrent");
    PortableServer::Current_var current = PortableServer::Current::_narrow(object);
    Place_impl place(current);
    Maker maker(place);
    PortableServer::AdapterActivator_var activator = maker._this();
    root->the_activator(activator);
    Map_impl map(orb, root);
    Adapters::Map_var reference = map._this();
    publish(orb, reference, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    PortableServer::POAList_var children = root->the_children();
    CHECK(children->length() == 2);
    orb->destroy();
  });
}
