#include "classic.h"
#include "managers.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Managers::Foreman_var foreman = Managers::Foreman::_narrow(object);
    Managers::Worker_var worker = foreman->hire();
    CHECK(worker->work(1) == 1);
    CHECK(foreman->state() == PortableServer::POAManager::ACTIVE);
    foreman->discard();
    CHECK(foreman->state() == PortableServer::POAManager::DISCARDING);
    CHECK_THROWS(CORBA::TRANSIENT, worker->work(1));
    foreman->activate();
    CHECK(worker->work(1) == 2);
    foreman->hold_for(50);
    CHECK(worker->work(1) == 3);
    CHECK(foreman->state() == PortableServer::POAManager::ACTIVE);
    foreman->shutdown();
    orb->destroy();
  });
}
