// One default servant for any number of objects: who is called, the POA Current tells.
#include <map>
#include <mutex>

#include "classic.h"
#include "sensors.h"

static CORBA::ORB_var orb;

class Sensor_impl : public virtual POA_Sensors::Sensor {
 public:
  explicit Sensor_impl(PortableServer::Current_ptr current)
      : current_(PortableServer::Current::_duplicate(current)) {}

  char* name() override {
    PortableServer::ObjectId_var id = current_->get_object_id();
    return PortableServer::ObjectId_to_string(id);
  }
  CORBA::Double limit() override { return limits_[key()]; }
  void limit(CORBA::Double value) override {
    std::lock_guard<std::mutex> lock(mutex_);
    limits_[key()] = value;
  }
  CORBA::Boolean exceeds(CORBA::Double measured) override {
    std::lock_guard<std::mutex> lock(mutex_);
    return measured > limits_[key()];
  }

 private:
  std::string key() {
    CORBA::String_var text = name();
    return text.in();
  }

  PortableServer::Current_var current_;
  std::mutex mutex_;
  std::map<std::string, double> limits_;
};

class Station_impl : public virtual POA_Sensors::Station {
 public:
  explicit Station_impl(PortableServer::POA_ptr sensors)
      : sensors_(PortableServer::POA::_duplicate(sensors)) {}
  Sensors::Sensor_ptr sensor_of(const char* name) override {
    PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(name);
    CORBA::Object_var object = sensors_->create_reference_with_id(id, "IDL:Sensors/Sensor:1.0");
    return Sensors::Sensor::_narrow(object);
  }
  void shutdown() override { orb->shutdown(false); }

 private:
  PortableServer::POA_var sensors_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    object = orb->resolve_initial_references("POACurrent");
    PortableServer::Current_var current = PortableServer::Current::_narrow(object);

    CORBA::PolicyList policies;
    policies.length(4);
    policies[0] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
    policies[1] = root->create_request_processing_policy(PortableServer::USE_DEFAULT_SERVANT);
    policies[2] = root->create_id_uniqueness_policy(PortableServer::MULTIPLE_ID);
    policies[3] = root->create_id_assignment_policy(PortableServer::USER_ID);
    PortableServer::POAManager_var manager = root->the_POAManager();
    PortableServer::POA_var sensors = root->create_POA("sensors", manager, policies);
    for (CORBA::ULong i = 0; i < policies.length(); ++i) policies[i]->destroy();

    Sensor_impl every(current);
    sensors->set_servant(&every);
    Station_impl station(sensors);
    PortableServer::ObjectId_var id = root->activate_object(&station);
    object = root->id_to_reference(id);
    publish(orb, object, argv[1]);
    manager->activate();
    orb->run();
    orb->destroy();
  });
}
