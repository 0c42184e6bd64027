// A servant locator: a servant for each request, found with preinvoke and given back with postinvoke.
#include <atomic>

#include "classic.h"
#include "phonebook.h"

static CORBA::ORB_var orb;
static std::atomic<long> lent(0);

class Person_impl : public virtual POA_Phones::Person, public virtual PortableServer::RefCountServantBase {
 public:
  explicit Person_impl(const std::string& name) : name_(name) {}
  char* number() override { return CORBA::string_dup((name_ + ": 555").c_str()); }
  char* boom() override { throw CORBA::NO_IMPLEMENT(); }

 private:
  std::string name_;
};

class Locator_impl : public virtual POA_PortableServer::ServantLocator {
 public:
  PortableServer::Servant preinvoke(const PortableServer::ObjectId& oid, PortableServer::POA_ptr, const char*,
                                    void*& cookie) override {
    CORBA::String_var name = PortableServer::ObjectId_to_string(oid);
    if (std::string(name) == "nobody") throw CORBA::OBJECT_NOT_EXIST();
    Person_impl* person = new Person_impl(name.in());
    cookie = person;
    ++lent;
    return person;
  }
  void postinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*, void* cookie,
                  PortableServer::Servant servant) override {
    if (static_cast<Person_impl*>(cookie) == servant) --lent;
    servant->_remove_ref();
  }
};

class Book_impl : public virtual POA_Phones::Book {
 public:
  explicit Book_impl(PortableServer::POA_ptr people) : people_(PortableServer::POA::_duplicate(people)) {}
  Phones::Person_ptr look_up(const char* name) override {
    PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(name);
    CORBA::Object_var object = people_->create_reference_with_id(id, "IDL:Phones/Person:1.0");
    return Phones::Person::_narrow(object);
  }
  CORBA::Long lent() override { return static_cast<CORBA::Long>(::lent); }
  void shutdown() override { orb->shutdown(false); }

 private:
  PortableServer::POA_var people_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    PortableServer::POAManager_var manager = root->the_POAManager();

    CORBA::PolicyList policies(3);
    policies.length(3);
    policies[0] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
    policies[1] = root->create_request_processing_policy(PortableServer::USE_SERVANT_MANAGER);
    policies[2] = root->create_id_assignment_policy(PortableServer::USER_ID);
    PortableServer::POA_var people = root->create_POA("people", manager, policies);
    for (CORBA::ULong i = 0; i < policies.length(); ++i) policies[i]->destroy();

    Locator_impl* locator = new Locator_impl;
    PortableServer::ServantLocator_var reference = locator->_this();
    people->set_servant_manager(reference);

    Book_impl book(people);
    Phones::Book_var published = book._this();
    publish(orb, published, argv[1]);
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
