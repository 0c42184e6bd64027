#include "adapters.h"
#include "classic.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Adapters::Map_var map = Adapters::Map::_narrow(object);
    Adapters::Place_var place = map->locate("Rome", "Corso");
    CORBA::String_var path = place->path();
    CHECK(std::string(path) == "Rome/Corso");
    place = map->locate("Rome", "Appia");
    path = place->path();
    CHECK(std::string(path) == "Rome/Appia");
    place = map->locate("Oslo", "Karl Johan");
    CHECK(map->made() == 2);
    place = map->locate("Atlantis", "any");
    CHECK(CORBA::is_nil(place));
    map->shutdown();
    orb->destroy();
  });
}
