// Policy lists out of values: policies(root, PortableServer::NON_RETAIN,
// PortableServer::USE_SERVANT_MANAGER).
#pragma once

#include "poa.h"

// clang-format off
#define POLICY(Kind, kind)                                                                     \
  inline CORBA::Policy* make_policy(PortableServer::POA* poa, PortableServer::Kind##PolicyValue value) { \
    return poa->create_##kind##_policy(value);                                                 \
  }
POLICY(Thread, thread)
POLICY(Lifespan, lifespan)
POLICY(IdUniqueness, id_uniqueness)
POLICY(IdAssignment, id_assignment)
POLICY(ImplicitActivation, implicit_activation)
POLICY(ServantRetention, servant_retention)
POLICY(RequestProcessing, request_processing)
#undef POLICY
// clang-format on

template <class... Value>
CORBA::PolicyList policies([[maybe_unused]] PortableServer::POA* poa, Value... values) {
  CORBA::PolicyList list;
  list.length(sizeof...(values));
  [[maybe_unused]] CORBA::ULong at = 0;
  ((list[at++] = make_policy(poa, values)), ...);
  return list;
}
