#include "server_adapters.h"

PortableServer::POA_ptr make_poa(PortableServer::POA_ptr parent, const char* name,
                                 const std::vector<CORBA::Policy_ptr>& policies) {
  CORBA::PolicyList list(static_cast<CORBA::ULong>(policies.size()));
  list.length(list.maximum());
  for (CORBA::ULong i = 0; i < list.length(); ++i) list[i] = policies[i];
  return parent->create_POA(name, nullptr, list);
}

PortableServer::ObjectId id_of(const std::string& text) {
  const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(text.c_str());
  return id.in();
}
