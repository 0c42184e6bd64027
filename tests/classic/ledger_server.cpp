// Objects whose references outlive their server: persistent POAs below one another, ids of the program's choice.
#include <cstdlib>

#include "classic.h"
#include "ledger.h"

class Book_impl : public virtual POA_Ledger::Book, public virtual PortableServer::RefCountServantBase {
 public:
  Book_impl(CORBA::ORB_ptr orb, PortableServer::POA_ptr poa, const char* title, CORBA::Long generation)
      : orb_(CORBA::ORB::_duplicate(orb)),
        poa_(PortableServer::POA::_duplicate(poa)),
        title_(CORBA::string_dup(title)),
        generation_(generation) {}
  PortableServer::POA_ptr _default_POA() override { return PortableServer::POA::_duplicate(poa_); }
  char* title() override { return CORBA::string_dup(title_); }
  CORBA::Long generation() override { return generation_; }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
  PortableServer::POA_var poa_;
  CORBA::String_var title_;
  CORBA::Long generation_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    PortableServer::POAManager_var manager = root->the_POAManager();
    const CORBA::Long generation = std::atoi(argv[2]);

    CORBA::PolicyList policies;
    policies.length(2);
    policies[0] = root->create_lifespan_policy(PortableServer::PERSISTENT);
    policies[1] = root->create_id_assignment_policy(PortableServer::USER_ID);
    PortableServer::POA_var shelf = root->create_POA("shelf", manager, policies);
    PortableServer::POA_var books = shelf->create_POA("books", manager, policies);
    policies[0]->destroy();
    policies[1]->destroy();
    CORBA::String_var name = books->the_name();
    CHECK(std::string(name) == "books");
    PortableServer::POA_var parent = books->the_parent();
    name = parent->the_name();
    CHECK(std::string(name) == "shelf");
    CHECK_THROWS(PortableServer::POA::AdapterAlreadyExists, shelf->create_POA("books", manager, policies));

    Book_impl* book = new Book_impl(orb, books, "1904", generation);
    PortableServer::ServantBase_var owned = book;
    PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId("nineteen-four");
    books->activate_object_with_id(id, book);
    CHECK_THROWS(PortableServer::POA::ServantAlreadyActive, books->activate_object_with_id(id, book));
    Ledger::Book_var reference = book->_this();
    publish(orb, reference, argv[1]);
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
