// Policy lists out of values: policies(root, PortableServer::NON_RETAIN,
// PortableServer::USE_SERVANT_MANAGER).
#pragma once

#include "poa.h"

inline CORBA::Policy* make_policy(PortableServer::POA* poa, PortableServer::ThreadPolicyValue value) {
  return poa->create_thread_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa, PortableServer::LifespanPolicyValue value) {
  return poa->create_lifespan_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa, PortableServer::IdUniquenessPolicyValue value) {
  return poa->create_id_uniqueness_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa, PortableServer::IdAssignmentPolicyValue value) {
  return poa->create_id_assignment_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa,
                                  PortableServer::ImplicitActivationPolicyValue value) {
  return poa->create_implicit_activation_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa,
                                  PortableServer::ServantRetentionPolicyValue value) {
  return poa->create_servant_retention_policy(value);
}
inline CORBA::Policy* make_policy(PortableServer::POA* poa,
                                  PortableServer::RequestProcessingPolicyValue value) {
  return poa->create_request_processing_policy(value);
}

template <class... Value>
CORBA::PolicyList policies(PortableServer::POA* poa, Value... values) {
  CORBA::PolicyList list;
  list.length(sizeof...(values));
  CORBA::ULong at = 0;
  ((list[at++] = make_policy(poa, values)), ...);
  return list;
}
