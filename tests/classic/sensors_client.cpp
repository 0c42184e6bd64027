#include "classic.h"
#include "sensors.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Sensors::Station_var station = Sensors::Station::_narrow(object);
    Sensors::Sensor_var roof = station->sensor_of("roof");
    Sensors::Sensor_var cellar = station->sensor_of("cellar");
    roof->limit(30.5);
    cellar->limit(12.25);
    CORBA::String_var name = roof->name();
    CHECK(std::string(name) == "roof");
    CHECK(roof->limit() == 30.5);
    CHECK(cellar->exceeds(12.5));
    CHECK(!roof->exceeds(12.5));
    CHECK(!roof->_is_equivalent(cellar));
    station->shutdown();
    orb->destroy();
  });
}
