// A servant activator: objects come to life when they are called first, and are stored when they go.
#include <atomic>
#include <map>

#include "archive.h"
#include "classic.h"

static CORBA::ORB_var orb;
static PortableServer::POA_var documents;
static std::map<std::string, std::string> disk;
static std::atomic<int> loads(0), stores(0);

class Document_impl : public virtual POA_Archive::Document,
                      public virtual PortableServer::RefCountServantBase {
 public:
  explicit Document_impl(const std::string& text) : text_(CORBA::string_dup(text.c_str())) {}
  char* text() override { return CORBA::string_dup(text_); }
  void text(const char* value) override { text_ = CORBA::string_dup(value); }
  void forget() override {
    PortableServer::ObjectId_var id = documents->servant_to_id(this);
    documents->deactivate_object(id);
  }

 private:
  CORBA::String_var text_;
};

class Loader : public POA_PortableServer::ServantActivator {
 public:
  PortableServer::Servant incarnate(const PortableServer::ObjectId& oid, PortableServer::POA_ptr) override {
    CORBA::String_var title = PortableServer::ObjectId_to_string(oid);
    ++loads;
    return new Document_impl(disk[title.in()]);
  }
  void etherealize(const PortableServer::ObjectId& oid, PortableServer::POA_ptr,
                   PortableServer::Servant servant, CORBA::Boolean, CORBA::Boolean remaining) override {
    Document_impl* document = dynamic_cast<Document_impl*>(servant);
    CORBA::String_var title = PortableServer::ObjectId_to_string(oid);
    CORBA::String_var text = document->text();
    disk[title.in()] = text.in();
    ++stores;
    if (!remaining) servant->_remove_ref();
  }
};

class Shelf_impl : public virtual POA_Archive::Shelf {
 public:
  Archive::Document_ptr open(const char* title) override {
    PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(title);
    CORBA::Object_var object = documents->create_reference_with_id(id.in(), "IDL:Archive/Document:1.0");
    return Archive::Document::_narrow(object.in());
  }
  CORBA::Long loaded() override { return loads; }
  CORBA::Long stored() override { return stores; }
  void shutdown() override { orb->shutdown(false); }
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object.in());
    PortableServer::POAManager_var manager = root->the_POAManager();

    CORBA::PolicyList policies;
    policies.length(3);
    PortableServer::LifespanPolicy_var lifespan = root->create_lifespan_policy(PortableServer::PERSISTENT);
    PortableServer::IdAssignmentPolicy_var assignment =
        root->create_id_assignment_policy(PortableServer::USER_ID);
    PortableServer::RequestProcessingPolicy_var processing =
        root->create_request_processing_policy(PortableServer::USE_SERVANT_MANAGER);
    policies[0] = PortableServer::LifespanPolicy::_duplicate(lifespan.in());
    policies[1] = PortableServer::IdAssignmentPolicy::_duplicate(assignment.in());
    policies[2] = PortableServer::RequestProcessingPolicy::_duplicate(processing.in());
    documents = root->create_POA("documents", manager.in(), policies);

    Loader loader;
    PortableServer::ServantManager_var loading = loader._this();
    documents->set_servant_manager(loading.in());

    Shelf_impl shelf;
    Archive::Shelf_var reference = shelf._this();
    publish(orb.in(), reference.in(), argv[1]);
    manager->activate();
    orb->run();
    documents->destroy(true, true);
    CHECK(loads == stores);
    CHECK(disk["plan"] == "second draft");
    documents = PortableServer::POA::_nil();
    orb->destroy();
  });
}
