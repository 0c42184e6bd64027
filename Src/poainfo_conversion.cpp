// Servants, ids and references, each from the other.
#include "activeobjectmap.h"
#include "corehandles.h"
#include "locks.h"
#include "poainfo.h"
#include "raise.h"
#include "referencedata.h"
#include "requesttarget.h"
#include "servantreferences.h"

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantBase;
using PortableServer::ServantUse;

// ---- Implicit activation, and references that are kept and bound --------------------------------

namespace {

/// Activates under `id` and returns that; the id it is active under already (UNIQUE_ID) when another thread was
/// first.
std::unique_ptr<ObjectId> activate_implicitly(POAInfo& poa, std::unique_ptr<ObjectId> id,
                                              ServantBase& servant, const char* ready_trace,
                                              CORBA::Environment& ev) {
  std::unique_ptr<ObjectId> copy(make_oid(oid_view(*id)));
  const ObjectId* own_id = copy.get();
  {
    PoaSemaphoreGuard guard(__LINE__);  // nobody else activates between the look and the entry
    if (poa.destroyed) raise<CORBA::BAD_PARAM>(ev, "POAInfo::activate_object_with_id [POA is destroyed.]");
    ActiveObjectMap* map = poa.map_for_insert();
    if (poa.policies.unique_id())
      if (ObjectId* active = map->copyOidByServant(&servant)) return std::unique_ptr<ObjectId>(active);
    map->insertActiveObjectMap(copy.release(), &servant);
  }
  if (ready_trace) POA_TRACE("%s", ready_trace);
  poa.register_active(*id, servant, own_id, ev);
  return id;
}

const char* interface_of(ServantBase& servant, const ObjectId& oid, POA* poa, CORBA::Environment& ev) {
  const char* intf = servant._primary_interface(oid, poa, ev);
  if (!intf) raise<CORBA::BAD_PARAM>(ev, "POAInfo::POACreateReference [intf is null.]");
  return intf;
}

void bind(CORBA::Object& reference, CORBA::Environment& ev) {
  CORBA::Environment core;
  {
    PoaSemaphoreGuard guard(__LINE__);
    CORBA_ORB_bind_object2(core_handles.orb, reference.get_ref(), nullptr, core._evp);
  }
  if (core._evp->_major == CORBA_NO_EXCEPTION) return;
  const char* id = CORBA_exception_id(core._evp);
  if (id && std::strcmp(id, CORBA::BAD_INV_ORDER::repository_id.value) == 0)
    raise<CORBA::BAD_INV_ORDER>(ev, nullptr, MINOR_MANAGER_SET);
  raise<CORBA::NO_RESOURCES>(ev, nullptr, MINOR_BIND_FAILED);
}

/// A new reference, kept by the servant and bound in the ORB core.
CORBA::Object* make_bound_reference(POAInfo& poa, const ObjectId& oid, ServantBase& servant,
                                    CORBA::Environment& ev) {
  CORBA::Object_var reference(
      poa.POACreateReference(oid, interface_of(servant, oid, poa.poa_object, ev), ev));
  CORBA::Object_var duplicate(CORBA::Object::_duplicate(reference.in()));
  // Keeping and binding are one step, and so is withdrawing. Deactivation leaves the map first: an object
  // that is still there is withdrawn after this.
  MutexGuard guard(poa_svt_objref_mutex);
  if (CORBA::Object* kept = duplicate_reference(servant, poa.poa_object, oid)) return kept;  // made meanwhile
  ActiveObjectMap* map = poa.active_object_map;
  if (poa.destroyed || !map || !map->holds(oid_view(oid), &servant)) raise<POA::ObjectNotActive>(ev, nullptr);
  keep_reference(servant, poa.shared_from_this(), duplicate.in(), 0, oid_view(oid));
  duplicate._retn();  // the servant's now
  try {
    bind(*reference.in(), ev);
  } catch (const CORBA::Exception&) {
    servant.clear_ObjectReference(poa.poa_object, &oid);
    throw;
  }
  return reference._retn();
}

}  // namespace

// ---- From a servant -----------------------------------------------------------------------------

namespace {

/// A copy of the default servant's id.
ObjectId* default_servant_id(POAInfo& poa, CORBA::Environment& ev) {
  if (!poa.get_servant(ev))
    raise<POA::ServantNotActive>(ev, "servant==NULL, throw PortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_id [servant is null.]");
  const auto oid = poa.default_servant.oid();
  if (!oid)
    raise<POA::ServantNotActive>(ev, "oid_default=NULL,throw PortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_id [oid_default is null.]");
  POA_TRACE("POAInfo::servant_to_id end...[return oid : USE_DEFAULT_SERVANT]");
  return duplicate_oid(oid.get());
}

ObjectId* id_of_servant(POAInfo& poa, ServantBase& servant, CORBA::Environment& ev) {
  if (ActiveObjectMap* map = poa.active_object_map;
      map && poa.policies.retains() && poa.policies.unique_id()) {
    if (ObjectId* found = map->copyOidByServant(&servant)) {
      POA_TRACE("POAInfo::servant_to_id end...[return oid : UNIQUE_ID]");
      return found;
    }
  }
  if (poa.policies.retains() && poa.policies.activates_implicitly()) {
    std::unique_ptr<ObjectId> oid(genSystemId());
    if (!oid)
      raise<CORBA::BAD_PARAM>(ev, "system_id create failed. throw CORBA::StExcep::BAD_PARAM",
                              "POAInfo::servant_to_id [systemId is null.]");
    POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call [insert servant = 0x%lx ,this = 0x%lx]",
              trace_address(&servant), trace_address(&poa));
    oid = activate_implicitly(poa, std::move(oid), servant, "  POA_impl_is_ready call", ev);
    POA_TRACE("POAInfo::servant_to_id end...[return oid : MULTIPLE_ID or make oid]");
    return oid.release();
  }
  if (poa.policies.uses_default_servant()) return default_servant_id(poa, ev);
  raise<POA::ServantNotActive>(ev, "failed.  throw PortableServer::POA::ServantNotActive",
                               "POAInfo::servant_to_id [ServantNotActive.]");
}

}  // namespace

ObjectId* POAInfo::servant_to_id(ServantBase* p_servant, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::servant_to_id called...");
  if (!p_servant)
    raise<CORBA::BAD_PARAM>(ev, "p_servant = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::servant_to_id [servant is null.]");
  if (!policies.uses_default_servant() && !policies.retains())
    raise<POA::WrongPolicy>(ev, "non_retain,no use_def_servant, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_id [wrong policy.]");
  if (!policies.uses_default_servant() && !policies.unique_id() && !policies.activates_implicitly())
    raise<POA::WrongPolicy>(ev,
                            "implicit,multiple_id,no use_def_serv, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::servant_to_id [wrong policy.]");
  return replacing<POA::ServantNotActive, POA::WrongPolicy>(
      ev, "other ex, throw\tPortableServer::POA::ServantNotActive",
      "POAInfo::servant_to_id [ServantNotActive.]", [&] { return id_of_servant(*this, *p_servant, ev); });
}

namespace {

/// The reference of a servant that is active under `oid`.
CORBA::Object* reference_of_active(POAInfo& poa, const ObjectId& oid, ServantBase& servant,
                                   CORBA::Environment& ev) {
  if (CORBA::Object* kept = duplicate_reference(servant, poa.poa_object, oid)) {
    POA_TRACE("POAInfo::servant_to_reference end...[return registerd object reference : UNIQUE_ID]");
    return kept;
  }
  CORBA::Object* reference = make_bound_reference(poa, oid, servant, ev);
  POA_TRACE("POAInfo::servant_to_reference end...[return duplicated object reference : UNIQUE_ID]");
  return reference;
}

CORBA::Object* reference_of_servant(POAInfo& poa, ServantBase& servant, CORBA::Environment& ev) {
  ActiveObjectMap* map = poa.active_object_map;
  if (map && poa.policies.unique_id()) {
    const std::unique_ptr<ObjectId> oid(map->copyOidByServant(&servant));
    POA_TRACE("oid = 0x%lx", trace_address(oid.get()));
    if (oid) return reference_of_active(poa, *oid, servant, ev);
  }
  if (!poa.policies.activates_implicitly())
    raise<POA::ServantNotActive>(ev, "throw PortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_reference [ServantNotActive.]");
  std::unique_ptr<ObjectId> oid(genSystemId());
  if (!oid)
    raise<CORBA::BAD_PARAM>(ev, "oid create failed. throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::servant_to_reference [systemId is null.]");
  map = poa.map_for_insert();
  POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call [aom = 0x%lx, serv = 0x%lx, this = 0x%lx]",
            trace_address(map), trace_address(&servant), trace_address(&poa));
  oid = activate_implicitly(poa, std::move(oid), servant, nullptr, ev);
  CORBA::Object* reference = make_bound_reference(poa, *oid, servant, ev);
  POA_TRACE("POAInfo::servant_to_reference end...[return duplicated object reference : IMPLICIT_ACTIVATION]");
  return reference;
}

}  // namespace

CORBA::Object* POAInfo::servant_to_reference(ServantBase* p_servant, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::servant_to_reference called...");
  if (!p_servant)
    raise<CORBA::BAD_PARAM>(ev, "p_servant==NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::servant_to_reference [servant is null.]");
  const char* refused = nullptr;
  if (!policies.retains()) {
    refused = "non_retain, throw PortableServer::POA::WrongPolicy";
  } else if (!policies.system_id_assigned()) {
    refused = "retain,user_id.. throw PortableServer::POA::WrongPolicy";
  } else if (!policies.unique_id() && !policies.activates_implicitly()) {
    refused = "multiple,no_implicit.. throw PortableServer::POA::WrongPolicy";
  }
  if (refused) raise<POA::WrongPolicy>(ev, refused, "POAInfo::servant_to_reference [wrong policy.]");
  return replacing<POA::ServantNotActive, POA::WrongPolicy>(
      ev, "other ex.. throw PortableServer::POA::ServantNotActive",
      "POAInfo::servant_to_reference [ServantNotActive.]", [&] {
        try {
          return reference_of_servant(*this, *p_servant, ev);
        } catch (const POA::WrongPolicy&) {  // from the program's own _primary_interface
          POA_TRACE("throw PortableServer::POA::WrongPolicy");
          throw;
        }
      });
}

// ---- From a reference ---------------------------------------------------------------------------

ServantBase* POAInfo::reference_to_servant(CORBA::Object* reference, CORBA::Environment& ev) {
  constexpr const char* not_active = "POAInfo::reference_to_servant [PortableServer::POA::ObjectNotActive.]";
  POA_TRACE("POAInfo::reference_to_servant");
  const POAInfoPtr maker = findPOAInfoByReference(reference, ev);
  POA_TRACE("POAInfo::reference_to_servant poa_info=0x%lx aom=0x%lx", trace_address(maker.get()),
            trace_address(maker ? maker->active_object_map.load() : nullptr));
  if (maker.get() != this) raise<POA::WrongAdapter>(ev, "POAInfo::reference_to_servant [wrong adapter.]");
  if (!policies.retains() && !policies.uses_default_servant())
    raise<POA::WrongPolicy>(ev, "not use_default_servant_policy,throw PortableServer::POA::WrongPolicy",
                            "POAInfo::reference_to_servant [wrong policy.]");
  return replacing<POA::ObjectNotActive, POA::WrongAdapter, POA::WrongPolicy, POA::ObjectNotActive>(
      ev, "throw PortableServer::POA::ObjectNotActive", not_active, [&] {
        ActiveObjectMap* map = active_object_map;
        if (policies.retains() && !checkEmptyReferenceData(reference) && map) {
          const std::unique_ptr<ObjectId> oid(reference_to_id(reference, ev));
          if (ServantBase* servant = map->findServantById(*oid)) return servant;
        }
        if (policies.uses_default_servant()) return get_servant(ev);
        raise<POA::ObjectNotActive>(ev, "throw PortableServer::POA::ObjectNotActive", not_active);
      });
}

namespace {

using ReferenceData = std::unique_ptr<CORBA_sequence_octet, decltype(&CORBA_free)>;

ObjectId* id_of_reference(CORBA::Object* reference, CORBA::Environment& ev) {
  CORBA::Environment core;
  const ReferenceData data(CORBA_BOA_get_id(core_handles.boa, reference->get_ref(), core._evp), CORBA_free);
  if (core._evp->_major != CORBA_NO_EXCEPTION)
    raise<POA::WrongAdapter>(ev, "POAInfo::reference_to_id [CORBA_BOA_get_id.]");
  if (!data || data->_length == 0)
    raise<POA::WrongAdapter>(ev, "referenceData is empty,throw PortableServer::POA::WrongAdapter",
                             "POAInfo::reference_to_id [wrong adapter.]");
  ObjectId* oid = nullptr;
  GetOid(data.get(), oid, ev);
  if (!oid) throw CORBA::NO_MEMORY(MINOR_BAD_PARAM);
  POA_TRACE("POAInfo::reference_to_id end...[return oid]");
  return oid;
}

}  // namespace

ObjectId* POAInfo::reference_to_id(CORBA::Object* reference, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::reference_to_id called...[aom = 0x%lx, this = 0x%lx]",
            trace_address(active_object_map.load()), trace_address(this));
  if (findPOAInfoByReference(reference, ev).get() != this)
    raise<POA::WrongAdapter>(ev, "poa_info != this,throw PortableServer::POA::WrongAdapter",
                             "POAInfo::reference_to_id [wrong adapter.]");
  return replacing<POA::WrongAdapter, POA::WrongAdapter, POA::WrongPolicy>(
      ev, "other excep. throw PortableServer::POA::WrongAdapter", "POAInfo::reference_to_id [wrong adapter.]",
      [&] { return id_of_reference(reference, ev); });
}

// ---- From an id ---------------------------------------------------------------------------------

ServantBase* POAInfo::id_to_servant(const ObjectId& oid, CORBA::Environment& ev) {
  constexpr const char* not_active = "POAInfo::id_to_servant [PortableServer::POA::ObjectNotActive.]";
  POA_TRACE("POAInfo::id_to_servant called...");
  if (oid.length() < 1)
    raise<CORBA::BAD_PARAM>(ev, "oid is empty, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::id_to_servant [oid is invalid.]");
  if (!policies.retains() && !policies.uses_default_servant())
    raise<POA::WrongPolicy>(ev, "non_retain, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::id_to_servant [wrong policy.]");
  return replacing<POA::ObjectNotActive, POA::WrongPolicy, POA::ObjectNotActive>(
      ev, "other ex, throw PortableServer::POA::ObjectNotActive", not_active, [&] {
        if (ActiveObjectMap* map = active_object_map; map && policies.retains())
          if (ServantBase* servant = map->findServantById(oid)) return servant;
        if (policies.uses_default_servant()) {
          ServantBase* servant = get_servant(ev);
          POA_TRACE("POAInfo::id_to_servant end...[return servant]");
          return servant;
        }
        raise<POA::ObjectNotActive>(
            ev, "not use_default_servant_policy,throw PortableServer::POA::ObjectNotActive", not_active);
      });
}

namespace {

CORBA::Object* reference_of_id(POAInfo& poa, const ObjectId& oid, ServantBase& servant,
                               CORBA::Environment& ev) {
  if (CORBA::Object* kept = duplicate_reference(servant, poa.poa_object, oid)) {
    POA_TRACE("POAInfo::id_to_reference end... [return duplicated object reference]");
    return kept;
  }
  CORBA::Object* reference = make_bound_reference(poa, oid, servant, ev);
  POA_TRACE("POAInfo::id_to_reference end... [return registerd object reference]");
  return reference;
}

}  // namespace

CORBA::Object* POAInfo::id_to_reference(const ObjectId& oid, CORBA::Environment& ev) {
  constexpr const char* not_active = "POAInfo::id_to_reference [PortableServer::POA::ObjectNotActive.]";
  POA_TRACE("POAInfo::id_to_reference called...");
  if (oid.length() < 1)
    raise<CORBA::BAD_PARAM>(ev, "oid is empty, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::id_to_reference [oid is invalid.]");
  if (!policies.retains())
    raise<POA::WrongPolicy>(ev, "non_retain.., throw PortableServer::POA::WrongPolicy",
                            "POAInfo::id_to_reference [wrong policy.]");
  return replacing<POA::ObjectNotActive, POA::WrongPolicy, POA::ObjectNotActive>(
      ev, "other ex, throw PortableServer::POA::ObjectNotActive", not_active, [&] {
        ActiveObjectMap* map = active_object_map;
        const ServantUse servant = map ? map->useServantById(oid_view(oid)) : ServantUse();
        if (!servant)
          raise<POA::ObjectNotActive>(ev, "no servant, throw PortableServer::POA::ObjectNotActive",
                                      not_active);
        return reference_of_id(*this, oid, *servant, ev);
      });
}
