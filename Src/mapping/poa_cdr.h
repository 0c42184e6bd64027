// CDR marshalling of the module's types. One function a type moves a value by the stream's direction;
// non-zero on success. The operations of poa_operations.h marshal through the same Wire templates.
//
//   reference          as the ORB core writes the handle; nil as the null handle
//   enum               unsigned long
//   ObjectId           unsigned long length, octets
//   POAList            unsigned long count, references
//   ForwardRequest     the reference            (an exception's repository id is the request layer's)
//   InvalidPolicy      unsigned short index
//   Servant            cannot travel: always fails
#pragma once

#include "corba/detail/wire.h"
#include "poa.h"

namespace PortableServer {

template <class X, class... Of>
concept one_of = (std::same_as<X, Of> || ...);

template <class X>
concept policy_interface = one_of<X, ThreadPolicy, LifespanPolicy, IdUniquenessPolicy, IdAssignmentPolicy,
                                  ImplicitActivationPolicy, ServantRetentionPolicy, RequestProcessingPolicy>;

/// The interfaces of the module.
template <class X>
concept interface = policy_interface<X> ||
    one_of<X, POA, POAManager, AdapterActivator, ServantManager, ServantActivator, ServantLocator, Current>;

/// The enumerations of the module, and how many enumerators each has.
template <class E>
inline constexpr CORBA::ULong enumerators = 0;
template <class E>
requires one_of<E, ThreadPolicyValue, LifespanPolicyValue, IdUniquenessPolicyValue, IdAssignmentPolicyValue,
                ImplicitActivationPolicyValue, ServantRetentionPolicyValue>
inline constexpr CORBA::ULong enumerators<E> = 2;
template <>
inline constexpr CORBA::ULong enumerators<RequestProcessingPolicyValue> = 3;
template <>
inline constexpr CORBA::ULong enumerators<POAManager::State> = 4;
template <class E>
concept enumeration = enumerators<E>
!= 0;

}  // namespace PortableServer

namespace CORBA::idl {

/// A number; one that is no enumerator is refused.
template <PortableServer::enumeration E>
struct Wire<E> {
  static bool move(CDR* cdr, E& value) {
    auto number = static_cast<ULong>(value);
    if (!zrsv::move_value(cdr, &number) || number >= PortableServer::enumerators<E>) return false;
    value = static_cast<E>(number);
    return true;
  }
};

/// A reference: the handle travels. Decoding makes an object of the interface's implementation class with a
/// handle of its own.
template <PortableServer::interface X>
struct Wire<X*> {
  static bool move(CDR* cdr, X*& reference) {
    if (cdr->direction == CDR_DECODE) return decode(cdr, reference);
    void* handle = reference ? reference->get_ref() : nullptr;
    return OM_cdr_object(cdr, &handle);  // refuses any other direction
  }

 private:
  static bool decode(CDR* cdr, X*& reference) {
    Object decoded;
    void* handle = nullptr;
    if (!OM_cdr_object(cdr, &handle)) return false;
    decoded.set_ref(handle);
    reference = handle ? X::_narrow(&decoded) : X::_nil();
    return reference || !handle;
  }
};

/// A servant has no form outside its process.
template <>
struct Wire<PortableServer::ServantBase*> {
  static bool move(CDR*, PortableServer::ServantBase*&) { return false; }
};

template <>
struct Wire<PortableServer::POAList> {
  /// Decoding: what was read before a failure stays in the list.
  static bool move(CDR* cdr, PortableServer::POAList& list);
};
template <>
struct Wire<PortableServer::ForwardRequest> {
  static bool move(CDR* cdr, PortableServer::ForwardRequest& e);
};
template <>
struct Wire<PortableServer::POA::InvalidPolicy> {
  static bool move(CDR* cdr, PortableServer::POA::InvalidPolicy& e);
};
template <>
struct Wire<PolicyList> {
  static bool move(CDR* cdr, PolicyList& list) { return cdr_CORBA_PolicyList(cdr, &list); }
};

}  // namespace CORBA::idl

// References: decoding stores a new object, or nil.
unsigned char cdr_PortableServer_POA(CDR* cdr, PortableServer::POA*& value);
unsigned char cdr_PortableServer_POAManager(CDR* cdr, PortableServer::POAManager*& value);
unsigned char cdr_PortableServer_ThreadPolicy(CDR* cdr, PortableServer::ThreadPolicy*& value);
unsigned char cdr_PortableServer_LifespanPolicy(CDR* cdr, PortableServer::LifespanPolicy*& value);
unsigned char cdr_PortableServer_IdUniquenessPolicy(CDR* cdr, PortableServer::IdUniquenessPolicy*& value);
unsigned char cdr_PortableServer_IdAssignmentPolicy(CDR* cdr, PortableServer::IdAssignmentPolicy*& value);
unsigned char cdr_PortableServer_ImplicitActivationPolicy(CDR* cdr,
                                                          PortableServer::ImplicitActivationPolicy*& value);
unsigned char cdr_PortableServer_ServantRetentionPolicy(CDR* cdr,
                                                        PortableServer::ServantRetentionPolicy*& value);
unsigned char cdr_PortableServer_RequestProcessingPolicy(CDR* cdr,
                                                         PortableServer::RequestProcessingPolicy*& value);
unsigned char cdr_PortableServer_AdapterActivator(CDR* cdr, PortableServer::AdapterActivator*& value);
unsigned char cdr_PortableServer_ServantManager(CDR* cdr, PortableServer::ServantManager*& value);
unsigned char cdr_PortableServer_ServantActivator(CDR* cdr, PortableServer::ServantActivator*& value);
unsigned char cdr_PortableServer_ServantLocator(CDR* cdr, PortableServer::ServantLocator*& value);
unsigned char cdr_PortableServer_Current(CDR* cdr, PortableServer::Current*& value);

// Enumerations.
unsigned char cdr_PortableServer_POAManager_State(CDR* cdr, PortableServer::POAManager::State* value);
unsigned char cdr_PortableServer_ThreadPolicyValue(CDR* cdr, PortableServer::ThreadPolicyValue* value);
unsigned char cdr_PortableServer_LifespanPolicyValue(CDR* cdr, PortableServer::LifespanPolicyValue* value);
unsigned char cdr_PortableServer_IdUniquenessPolicyValue(CDR* cdr,
                                                         PortableServer::IdUniquenessPolicyValue* value);
unsigned char cdr_PortableServer_IdAssignmentPolicyValue(CDR* cdr,
                                                         PortableServer::IdAssignmentPolicyValue* value);
unsigned char cdr_PortableServer_ImplicitActivationPolicyValue(
    CDR* cdr, PortableServer::ImplicitActivationPolicyValue* value);
unsigned char cdr_PortableServer_ServantRetentionPolicyValue(
    CDR* cdr, PortableServer::ServantRetentionPolicyValue* value);
unsigned char cdr_PortableServer_RequestProcessingPolicyValue(
    CDR* cdr, PortableServer::RequestProcessingPolicyValue* value);

// Sequences and exceptions with members. A direction that is neither encoding nor decoding succeeds without
// work.
unsigned char cdr_PortableServer_ObjectId(CDR* cdr, PortableServer::ObjectId* value);
unsigned char cdr_PortableServer_POAList(CDR* cdr, PortableServer::POAList* value);
unsigned char cdr_PortableServer_ForwardRequest(CDR* cdr, PortableServer::ForwardRequest* value);
unsigned char cdr_PortableServer_POA_InvalidPolicy(CDR* cdr, PortableServer::POA::InvalidPolicy* value);

/// Fails always, in both directions.
unsigned char cdr_PortableServer_Servant(CDR* cdr, PortableServer::ServantBase** value);
