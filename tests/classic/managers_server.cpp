// POA managers: one POA's requests discarded or held while another POA goes on serving.
#include <chrono>
#include <thread>

#include "classic.h"
#include "managers.h"

class Worker_impl : public virtual POA_Managers::Worker {
 public:
  CORBA::Long work(CORBA::Long amount) override { return done_ += amount; }

 private:
  CORBA::Long done_ = 0;
};

class Foreman_impl : public virtual POA_Managers::Foreman {
 public:
  Foreman_impl(CORBA::ORB_ptr orb, PortableServer::POA_ptr workers)
      : orb_(CORBA::ORB::_duplicate(orb)),
        workers_(PortableServer::POA::_duplicate(workers)),
        manager_(workers->the_POAManager()) {
    PortableServer::ObjectId_var id = workers_->activate_object(&worker_);
    reference_ = workers_->id_to_reference(id);
  }
  ~Foreman_impl() override {
    if (later_.joinable()) later_.join();
  }
  Managers::Worker_ptr hire() override { return Managers::Worker::_narrow(reference_); }
  void discard() override { manager_->discard_requests(false); }
  void activate() override { manager_->activate(); }
  void hold_for(CORBA::ULong milliseconds) override {
    manager_->hold_requests(false);
    later_ = std::thread([this, milliseconds] {
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      manager_->activate();
    });
  }
  CORBA::Short state() override { return static_cast<CORBA::Short>(manager_->get_state()); }
  void shutdown() override { orb_->shutdown(false); }

 private:
  CORBA::ORB_var orb_;
  PortableServer::POA_var workers_;
  PortableServer::POAManager_var manager_;
  Worker_impl worker_;
  CORBA::Object_var reference_;
  std::thread later_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    CORBA::PolicyList none;
    PortableServer::POAManagerFactory_var factory = root->the_POAManagerFactory();
    PortableServer::POAManager_var own = factory->create_POAManager("workers", none);
    PortableServer::POA_var workers = root->create_POA("workers", own, none);
    own->activate();
    Foreman_impl foreman(orb, workers);
    Managers::Foreman_var reference = foreman._this();
    publish(orb, reference, argv[1]);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
