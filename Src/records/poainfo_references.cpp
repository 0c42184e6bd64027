// References that a POA makes.
#include <cstdlib>

#include "base/raise.h"
#include "objects/common_poa.h"
#include "objects/referencedata.h"
#include "records/poainfo.h"

using PortableServer::ObjectId;
using PortableServer::POA;

namespace {

/// A new handle of the ORB core, or null.
void* create_handle(const CORBA_sequence_octet& data, const char* impl_name, const char* intf) {
  CORBA::Environment core;
  return create_reference_handle(&data, impl_name, intf, core._evp);
}

/// Under the name of ZR_IMPLID where that is set and taken, else under the POA's own.
void* create_handle(const CORBA_sequence_octet& data, const POAInfo& poa, const char* intf) {
  if (const char* impl = std::getenv("ZR_IMPLID")) {
    POA_TRACE("createObject by getenv(ZR_IMPLID)=%s", impl);
    if (void* handle = create_handle(data, impl, intf)) return handle;
  }
  POA_TRACE("createObject by adapter_name=%s", poa.adapter_name);
  return create_handle(data, poa.adapter_name, intf);
}

CORBA::Object* create_reference_of(const POAInfo& poa, const ObjectId& oid, const char* intf,
                                   CORBA::Environment& ev) {
  unsigned char qualified_name[NAME_PART_MAXIMUM];
  CORBA_sequence_octet name{sizeof qualified_name, 0, qualified_name};
  if (!poa.createNameReferenceData(&name))
    raise<CORBA::BAD_PARAM>(ev, "createNameReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [createNameReferenceData.]");
  POA_TRACE("%s", reinterpret_cast<const char*>(qualified_name));
  unsigned char ref_data[REFERENCE_DATA_MAXIMUM];
  CORBA_sequence_octet data{sizeof ref_data, 0, ref_data};
  if (!createPOAReferenceData(&data, &name, poa.policies.id_assignment, oid))
    raise<CORBA::BAD_PARAM>(ev, "createPOAReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [createPOAReferenceData.]");
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(create_handle(data, poa, intf));
  if (!object->get_ref())
    raise<CORBA::BAD_PARAM>(ev, "obj = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [obj is nil.]");
  return object._retn();
}

}  // namespace

CORBA::Object* POAInfo::POACreateReference(const ObjectId& oid, const char* intf, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::POACreateReference called...[intf = %s]", intf ? intf : "");
  return replacing<CORBA::BAD_PARAM>(ev, nullptr, "POAInfo::POACreateReference [other exception.]", [&] {
    CORBA::Object* object = create_reference_of(*this, oid, intf, ev);
    POA_TRACE("POAInfo::POACreateReference end...");
    return object;
  });
}

// ---- References without an active object --------------------------------------------------------

CORBA::Object* POAInfo::create_reference(const char* intf, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::create_reference called...");
  if (!intf)
    raise<CORBA::BAD_PARAM>(ev, "intf == NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference [intf is null.]");
  if (!policies.system_id_assigned())
    raise<POA::WrongPolicy>(ev, "not system_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::create_reference [wrong policy.]");
  const std::unique_ptr<ObjectId> oid(genSystemId());
  if (!oid)
    raise<CORBA::BAD_PARAM>(ev, "system_id create failed. throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference [systemId is null.]");
  CORBA::Object* reference = POACreateReference(*oid, intf, ev);
  POA_TRACE("POAInfo::create_reference end...");
  return reference;
}

CORBA::Object* POAInfo::create_reference_with_id(const ObjectId& oid, const char* intf,
                                                 CORBA::Environment& ev) {
  POA_TRACE("POAInfo::create_reference_with_id called...");
  if (!intf)
    raise<CORBA::BAD_PARAM>(ev, "intf=NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference_with_id [intf is null.]");
  if (oid.length() < 1)
    raise<CORBA::BAD_PARAM>(ev, "oid.length() < 1,throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::create_reference_with_id [oid is invalid.]");
  if (policies.system_id_assigned())
    raise<POA::WrongPolicy>(ev, "system_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::create_reference_with_id [wrong policy.]");
  POA_TRACE("POAInfo::create_reference_with_id end...");
  return POACreateReference(oid, intf, ev);
}
