#include "server_managers.h"

#include <memory>
#include <string_view>

#include "servants_of_requests.h"
#include "server_adapters.h"

namespace ps = PortableServer;

ps::Servant Activator::incarnate(const ps::ObjectId&, ps::POA_ptr, CORBA::Environment&) {
  asked.again();
  return new EchoServant(shared_);
}

// A request may still be in the servant, so that the library deletes it, when the last one has left.
void Activator::etherealize(const ps::ObjectId&, ps::POA_ptr, ps::Servant servant, CORBA::Boolean,
                            CORBA::Boolean, CORBA::Environment&) {
  servant->servant_delete();
}

ps::Servant Locator::preinvoke(const ps::ObjectId&, ps::POA_ptr, const char*, Cookie& cookie,
                               CORBA::Environment&) {
  asked.again();
  cookie = 0;
  return ServantsOfRequests::keep(std::make_unique<EchoServant>(shared_));
}

void Locator::postinvoke(const ps::ObjectId&, ps::POA_ptr, const char*, Cookie, ps::Servant,
                         CORBA::Environment&) {
  ServantsOfRequests::drop_ended();
}

CORBA::Boolean LazyAdapter::unknown_adapter(ps::POA_ptr parent, const char* name, CORBA::Environment&) {
  if (std::string_view(name) != "Lazy") return 0;
  try {
    const ps::POA_var poa = make_poa(
        parent, name,
        {parent->create_lifespan_policy(ps::PERSISTENT), parent->create_id_assignment_policy(ps::USER_ID)});
    poa->activate_object_with_id(id_of("sleeper"), new EchoServant(shared_));
  } catch (const ps::POA::AdapterAlreadyExists&) {  // another request was first
  }
  return 1;
}

CORBA::Boolean EndOfSession::release_instance(ps::POA* poa, ps::ServantBase*, ps::ObjectId& id,
                                              CORBA::Environment&) {
  const CORBA::String_var name = poa->the_name();
  if (std::string_view(name.in()) != "session") return 0;
  shared_.forget(object_name(poa, id));
  return 1;
}
