#include "mapping/poa_cdr.h"

namespace CORBA::idl {

using PortableServer::ForwardRequest;
using PortableServer::POA;
using PortableServer::POAList;

bool Wire<POAList>::move(CDR* cdr, POAList& list) {
  constexpr ULong shortest_reference = 8;  // two length words
  const bool decode = cdr->direction == CDR_DECODE;
  ULong count = list.length();
  if (!OM_cdr_unsigned_long(cdr, &count)) return false;
  if (decode) {
    if (count > OM_cdr_remaining(cdr) / shortest_reference) return false;
    list.length(count);
  }
  for (ULong i = 0; i < count; ++i) {
    POA* element = decode ? nullptr : list[i].in();
    if (!Wire<POA*>::move(cdr, element)) return false;
    if (decode) list[i] = element;
  }
  return true;
}

bool Wire<ForwardRequest>::move(CDR* cdr, ForwardRequest& e) {
  Object* reference = e.forward_reference();
  if (cdr->direction == CDR_ENCODE) return OM_cdr_object(cdr, reference);
  if (!OM_cdr_object(cdr, reference)) return false;
  const Object_var decoded(reference);
  e.forward_reference(decoded);
  return true;
}

bool Wire<POA::InvalidPolicy>::move(CDR* cdr, POA::InvalidPolicy& e) {
  UShort index = e.index();
  if (!OM_cdr_unsigned_short(cdr, &index)) return false;
  e.index(index);
  return true;
}

}  // namespace CORBA::idl

namespace {

template <class V>
unsigned char move(CDR* cdr, V& value) {
  return CORBA::idl::Wire<V>::move(cdr, value);
}

template <class V>
unsigned char move_or_pass(CDR* cdr, V* value) {
  return cdr->direction > CDR_DECODE || move(cdr, *value);
}

}  // namespace

using namespace PortableServer;

unsigned char cdr_PortableServer_POA(CDR* cdr, POA*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_POAManager(CDR* cdr, POAManager*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_ThreadPolicy(CDR* cdr, ThreadPolicy*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_LifespanPolicy(CDR* cdr, LifespanPolicy*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_IdUniquenessPolicy(CDR* cdr, IdUniquenessPolicy*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_IdAssignmentPolicy(CDR* cdr, IdAssignmentPolicy*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_ImplicitActivationPolicy(CDR* cdr, ImplicitActivationPolicy*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_ServantRetentionPolicy(CDR* cdr, ServantRetentionPolicy*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_RequestProcessingPolicy(CDR* cdr, RequestProcessingPolicy*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_AdapterActivator(CDR* cdr, AdapterActivator*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_ServantManager(CDR* cdr, ServantManager*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_ServantActivator(CDR* cdr, ServantActivator*& value) {
  return move(cdr, value);
}
unsigned char cdr_PortableServer_ServantLocator(CDR* cdr, ServantLocator*& value) { return move(cdr, value); }
unsigned char cdr_PortableServer_Current(CDR* cdr, Current*& value) { return move(cdr, value); }

unsigned char cdr_PortableServer_POAManager_State(CDR* cdr, POAManager::State* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_ThreadPolicyValue(CDR* cdr, ThreadPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_LifespanPolicyValue(CDR* cdr, LifespanPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_IdUniquenessPolicyValue(CDR* cdr, IdUniquenessPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_IdAssignmentPolicyValue(CDR* cdr, IdAssignmentPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_ImplicitActivationPolicyValue(CDR* cdr,
                                                               ImplicitActivationPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_ServantRetentionPolicyValue(CDR* cdr, ServantRetentionPolicyValue* value) {
  return move(cdr, *value);
}
unsigned char cdr_PortableServer_RequestProcessingPolicyValue(CDR* cdr, RequestProcessingPolicyValue* value) {
  return move(cdr, *value);
}

unsigned char cdr_PortableServer_ObjectId(CDR* cdr, ObjectId* value) {
  // Octets that belong to somebody else are not written to.
  if (cdr->direction == CDR_DECODE && !value->release()) *value = ObjectId();
  return move_or_pass(cdr, value);
}
unsigned char cdr_PortableServer_POAList(CDR* cdr, POAList* value) { return move_or_pass(cdr, value); }
unsigned char cdr_PortableServer_ForwardRequest(CDR* cdr, ForwardRequest* value) {
  return move_or_pass(cdr, value);
}
unsigned char cdr_PortableServer_POA_InvalidPolicy(CDR* cdr, POA::InvalidPolicy* value) {
  return move_or_pass(cdr, value);
}

unsigned char cdr_PortableServer_Servant(CDR* cdr, ServantBase** value) { return move(cdr, *value); }
