#include "server_tour.h"

#include "server_adapters.h"
#include "server_dynamic.h"
#include "server_files.h"

namespace ps = PortableServer;

namespace {

ps::POA_ptr root_of(CORBA::ORB_ptr orb) {
  const CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
  return ps::POA::_narrow(object);
}

}  // namespace

Tour::Tour(CORBA::ORB_ptr orb, const std::filesystem::path& dir)
    : orb_(orb), root_(root_of(orb)), dir_(dir) {}

void Tour::open() {
  add_root();
  add_deep();
  add_managed();
  add_default();
  add_lazy();
  add_dynamic();
}

void Tour::publish(const std::string& name, CORBA::Object_ptr reference) const {
  const CORBA::String_var text = orb_->object_to_string(reference);
  write_reference(dir_, name, text.in());
}

// PERSISTENT: the references stay good when the server comes back at the same end point.
ps::POA_ptr Tour::user_id_poa(const char* name, Policies policies) const {
  policies.push_back(root_->create_id_assignment_policy(ps::USER_ID));
  policies.push_back(root_->create_lifespan_policy(ps::PERSISTENT));
  return make_poa(root_, name, policies);
}

CORBA::Object_ptr Tour::activate(ps::POA_ptr poa, const ps::ObjectId& id, ps::Servant servant) const {
  poa->activate_object_with_id(id, servant);
  return poa->id_to_reference(id);
}

void Tour::add_root() {
  const ps::ObjectId_var id = root_->activate_object(new EchoServant(shared_));
  const CORBA::Object_var reference = root_->id_to_reference(id);
  publish("root", reference);
  places_.push_back({"root", {}, id});
}

void Tour::add_deep() {
  const ps::POA_var a = make_poa(root_, "A", {});
  const ps::POA_var b = make_poa(a, "B", {});
  const ps::POA_var c = make_poa(
      b, "C",
      {root_->create_lifespan_policy(ps::PERSISTENT), root_->create_id_assignment_policy(ps::USER_ID)});
  const ps::ObjectId id = id_of("deep");
  const CORBA::Object_var reference = activate(c, id, new EchoServant(shared_));
  publish("deep", reference);
  places_.push_back({"deep", {"A", "B", "C"}, id});
}

// No servants yet: the references are made for ids that the servant managers will be asked about.
void Tour::add_managed() {
  const struct {
    const char* name;
    const char* id;
    ps::ServantRetentionPolicyValue retention;
    ps::ServantManager* manager;
    const Asked* asked;
  } rows[] = {
      {"activator", "on-demand", ps::RETAIN, &activator_, &activator_.asked},
      {"locator", "each-call", ps::NON_RETAIN, &locator_, &locator_.asked},
      {"session", "visit", ps::RETAIN, &sessions_, &sessions_.asked},
  };
  for (const auto& row : rows) {
    const ps::POA_var poa =
        user_id_poa(row.name, {root_->create_servant_retention_policy(row.retention),
                               root_->create_request_processing_policy(ps::USE_SERVANT_MANAGER)});
    poa->set_servant_manager(row.manager);
    const ps::ObjectId id = id_of(row.id);
    const CORBA::Object_var reference = poa->create_reference_with_id(id, Demo::Echo::repository_id);
    publish(row.name, reference);
    places_.push_back({row.name, {row.name}, id, row.asked});
  }
}

void Tour::add_default() {
  const ps::POA_var poa =
      user_id_poa("default", {root_->create_id_uniqueness_policy(ps::MULTIPLE_ID),
                              root_->create_request_processing_policy(ps::USE_DEFAULT_SERVANT)});
  poa->set_servant(new EchoServant(shared_));
  const ps::ObjectId id = id_of("anyone");
  const CORBA::Object_var reference = poa->create_reference_with_id(id, Demo::Echo::repository_id);
  publish("default", reference);
  places_.push_back({"default", {"default"}, id});
}

// It takes the POA to make the reference, but the object needs none before it is called.
void Tour::add_lazy() {
  const ps::POA_var poa = user_id_poa("Lazy", {});
  const ps::ObjectId id = id_of("sleeper");
  const CORBA::Object_var reference = poa->create_reference_with_id(id, Demo::Echo::repository_id);
  poa->destroy(1, 1);
  root_->the_activator(&lazy_);
  publish("lazy", reference);
  places_.push_back({"lazy", {"Lazy"}, id});
}

void Tour::add_dynamic() {
  const ps::POA_var poa = user_id_poa("dynamic", {});
  const ps::ObjectId id = id_of("interpreter");
  const CORBA::Object_var reference = activate(poa, id, new DynamicEcho(shared_));
  publish("dynamic", reference);
  places_.push_back({"dynamic", {"dynamic"}, id});
}

void Tour::add_control(ps::Servant servant) {
  const ps::POA_var poa = user_id_poa("control", {});
  const CORBA::Object_var reference = activate(poa, id_of("switches"), servant);
  publish("control", reference);
}

const Place& Tour::place(const std::string& name) const {
  for (const Place& place : places_) {
    if (place.name == name) return place;
  }
  throw CORBA::BAD_PARAM();
}

ps::POA_ptr Tour::poa_of(const Place& place) const {
  try {
    ps::POA_var poa = ps::POA::_duplicate(root_);
    for (const char* name : place.path) poa = poa->find_POA(name, 0);
    return poa._retn();
  } catch (const ps::POA::AdapterNonExistent&) {
    throw CORBA::OBJECT_NOT_EXIST();
  }
}

ps::Servant Tour::servant_of(const Place& place) const {
  const ps::POA_var poa = poa_of(place);
  try {
    return poa->id_to_servant(place.id);
  } catch (const CORBA::UserException&) {  // not active, or never between requests
    throw CORBA::OBJECT_NOT_EXIST();
  }
}

ps::Servant Tour::own_servant_of(const Place& place) const {
  try {
    return place.asked ? nullptr : servant_of(place);
  } catch (const CORBA::OBJECT_NOT_EXIST&) {
    return nullptr;
  }
}

void Tour::deactivate(const Place& place) const {
  const ps::POA_var poa = poa_of(place);
  const ps::Servant servant = own_servant_of(place);
  try {
    poa->deactivate_object(place.id);
  } catch (const CORBA::UserException&) {
    throw CORBA::OBJECT_NOT_EXIST();
  }
  if (servant) servant->servant_delete();
}

void Tour::destroy_poa(const Place& place) const {
  const ps::POA_var poa = poa_of(place);
  const ps::Servant servant = own_servant_of(place);
  poa->destroy(1, 0);
  if (servant) servant->servant_delete();
}
