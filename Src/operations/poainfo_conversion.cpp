// Servants, ids and references, each from the other.
#include "base/corehandles.h"
#include "base/locks.h"
#include "base/raise.h"
#include "dispatch/requesttarget.h"
#include "objects/activeobjectmap.h"
#include "objects/referencedata.h"
#include "objects/servantreferences.h"
#include "records/poainfo.h"

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantBase;
using PortableServer::ServantUse;

// ---- References that are kept and bound ----------------------------------------------------------

namespace {

const char* interface_of(ServantBase& servant, const ObjectId& oid, POA* poa, CORBA::Environment& ev) {
  const char* intf = servant._primary_interface(oid, poa, ev);
  if (!intf) raise<CORBA::BAD_PARAM>(ev, "POAInfo::POACreateReference [intf is null.]");
  return intf;
}

/// The semaphore is held.
void bind(CORBA::Object& reference, CORBA::Environment& ev) {
  CORBA::Environment core;
  CORBA_ORB_bind_object2(core_handles.orb, reference.get_ref(), nullptr, core._evp);
  if (core._evp->_major == CORBA_NO_EXCEPTION) return;
  const char* id = CORBA_exception_id(core._evp);
  if (id && std::strcmp(id, CORBA::BAD_INV_ORDER::repository_id.value) == 0)
    raise<CORBA::BAD_INV_ORDER>(ev, nullptr, MINOR_MANAGER_SET);
  raise<CORBA::NO_RESOURCES>(ev, nullptr, MINOR_BIND_FAILED);
}

/// A new reference, kept by the servant and bound in the ORB core.
CORBA::Object* make_bound_reference(POAInfo& poa, const ObjectId& oid, const ActiveObjectMap::Ticket& entry,
                                    ServantBase& servant, CORBA::Environment& ev) {
  CORBA::Object_var reference(
      poa.POACreateReference(oid, interface_of(servant, oid, poa.poa_object, ev), ev));
  CORBA::Object_var duplicate(CORBA::Object::_duplicate(reference.in()));
  // Keeping and binding are one step, and so is withdrawing. Deactivation leaves the map first: an object
  // that is still there is withdrawn after this.
  MutexGuard references(poa_svt_objref_mutex);
  PoaSemaphoreGuard guard(__LINE__);
  if (poa.destroyed || !poa.active_object_map.load()->at(guard, entry))
    raise<POA::ObjectNotActive>(ev, nullptr);
  if (!keep_reference(servant, poa.shared_from_this(), duplicate.in(), 0, oid_view(oid)))
    return duplicate_reference(servant, poa.poa_object, oid);  // made meanwhile
  duplicate._retn();                                           // the servant's now
  try {
    bind(*reference.in(), ev);
  } catch (const CORBA::Exception&) {
    servant.clear_ObjectReference(poa.poa_object, &oid);
    throw;
  }
  return reference._retn();
}

// ---- Where a servant is active -------------------------------------------------------------------

/// A servant's activation.
struct Active {
  std::unique_ptr<ObjectId> oid;  // null: none
  ActiveObjectMap::Ticket entry;
  bool made = false;  // by implicit activation, just now
};

/// Trace texts of the two operations that activate implicitly.
struct ImplicitTexts {
  void (*searched)(const ObjectId* found);
  const char* no_id_reason;
  const char* no_id;
  void (*inserting)(const ActiveObjectMap* map, const ServantBase& servant, const POAInfo& poa);
  const char* registering;
  bool looks_before_entering;  // whatever the look-up of UNIQUE_ID has told
};
constexpr ImplicitTexts TO_ID = {
    [](const ObjectId*) {},
    "system_id create failed. throw CORBA::StExcep::BAD_PARAM",
    "POAInfo::servant_to_id [systemId is null.]",
    [](const ActiveObjectMap*, const ServantBase& servant, const POAInfo& poa) {
      POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call [insert servant = 0x%lx ,this = 0x%lx]",
                trace_address(&servant), trace_address(&poa));
    },
    "  POA_impl_is_ready call",
    true};
constexpr ImplicitTexts TO_REFERENCE = {
    [](const ObjectId* found) { POA_TRACE("oid = 0x%lx", trace_address(found)); },
    "oid create failed. throw CORBA::StExcep::BAD_PARAM",
    "POAInfo::servant_to_reference [systemId is null.]",
    [](const ActiveObjectMap* map, const ServantBase& servant, const POAInfo& poa) {
      POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call [aom = 0x%lx, serv = 0x%lx, this = 0x%lx]",
                trace_address(map), trace_address(&servant), trace_address(&poa));
    },
    nullptr,
    false};

/// The servant's one activation under UNIQUE_ID.
Active find_active(const POAInfo& poa, ServantBase& servant, const ImplicitTexts& texts,
                   const PoaSemaphoreGuard& held) ZR_REQUIRES(poa_semaphore) {
  ActiveObjectMap* map = poa.active_object_map;
  Active active;
  if (!map || !poa.policies.retains() || !poa.policies.unique_id()) return active;
  active.entry = map->findByServant(held, &servant);
  if (const _ActiveObjectEntry* entry = map->at(held, active.entry))
    active.oid.reset(make_oid(entry->oid.octets()));
  texts.searched(active.oid.get());
  return active;
}

/// Enters the servant under a new system id.
Active enter_implicitly(POAInfo& poa, ServantBase& servant, const ImplicitTexts& texts,
                        const PoaSemaphoreGuard& held, CORBA::Environment& ev) ZR_REQUIRES(poa_semaphore) {
  // Where there was one look-up already, another one finds nothing, either.
  ActiveObjectMap* const before = texts.looks_before_entering ? poa.active_object_map.load() : nullptr;
  if (before && (!poa.policies.unique_id() || OM_TRACE_IS_ON)) before->findByServant(held, &servant);
  Active active;
  active.oid.reset(genSystemId());
  if (!active.oid) raise<CORBA::BAD_PARAM>(ev, texts.no_id_reason, texts.no_id);
  ActiveObjectMap* map = poa.map_for_insert(held);
  texts.inserting(map, servant, poa);
  if (poa.destroyed) raise<CORBA::BAD_PARAM>(ev, "POAInfo::activate_object_with_id [POA is destroyed.]");
  active.entry = map->insertActiveObjectMap(held, oid_view(*active.oid), &servant);
  active.made = true;
  return active;
}

/// The servant's activation, found or made by one hold of the semaphore, one search and one entry. None when the
/// POA's policies allow neither.
Active find_or_activate(POAInfo& poa, ServantBase& servant, const ImplicitTexts& texts,
                        CORBA::Environment& ev) {
  Active active;
  const bool may_activate = poa.policies.retains() && poa.policies.activates_implicitly();
  PortableServer::ServantCount count(may_activate ? &servant : nullptr);
  {
    PoaSemaphoreGuard guard(__LINE__);
    active = find_active(poa, servant, texts, guard);
    if (active.oid || !may_activate) return active;
    active = enter_implicitly(poa, servant, texts, guard, ev);
  }
  if (texts.registering) POA_TRACE("%s", texts.registering);
  poa.register_active(*active.oid, servant, active.entry, ev);
  count.keep();
  return active;
}

}  // namespace

// ---- From a servant -----------------------------------------------------------------------------

namespace {

/// A copy of the default servant's id.
ObjectId* default_servant_id(POAInfo& poa, CORBA::Environment& ev) {
  if (!PortableServer::ServantBase_var(poa.get_servant(ev)).in())
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
  Active active = find_or_activate(poa, servant, TO_ID, ev);
  if (active.made) {
    POA_TRACE("POAInfo::servant_to_id end...[return oid : MULTIPLE_ID or make oid]");
  } else if (active.oid) {
    POA_TRACE("POAInfo::servant_to_id end...[return oid : UNIQUE_ID]");
    trace_oid_duplicate();
  }
  if (active.oid) return active.oid.release();
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

CORBA::Object* reference_of_servant(POAInfo& poa, ServantBase& servant, CORBA::Environment& ev) {
  const Active active = find_or_activate(poa, servant, TO_REFERENCE, ev);
  if (!active.oid)
    raise<POA::ServantNotActive>(ev, "throw PortableServer::POA::ServantNotActive",
                                 "POAInfo::servant_to_reference [ServantNotActive.]");
  if (!active.made) {
    if (CORBA::Object* kept = duplicate_reference(servant, poa.poa_object, *active.oid)) {
      POA_TRACE("POAInfo::servant_to_reference end...[return registerd object reference : UNIQUE_ID]");
      return kept;
    }
  }
  CORBA::Object* reference = make_bound_reference(poa, *active.oid, active.entry, servant, ev);
  if (active.made) {
    POA_TRACE(
        "POAInfo::servant_to_reference end...[return duplicated object reference : IMPLICIT_ACTIVATION]");
  } else {
    POA_TRACE("POAInfo::servant_to_reference end...[return duplicated object reference : UNIQUE_ID]");
  }
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

namespace {

/// The active servant of an id with one count for the caller; null when there is none.
ServantBase* counted_servant(ActiveObjectMap& map, const ObjectId& oid) {
  const PortableServer::ServantUse use = map.useServantById(oid_view(oid));
  if (use) use->_add_ref();
  return use.get();
}

}  // namespace

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
          if (ServantBase* servant = counted_servant(*map, *oid)) return servant;
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
  if (!oid) throw std::bad_alloc();
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
          if (ServantBase* servant = counted_servant(*map, oid)) return servant;
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

CORBA::Object* reference_of_id(POAInfo& poa, const ObjectId& oid, const ActiveObjectMap::Ticket& entry,
                               ServantBase& servant, CORBA::Environment& ev) {
  if (CORBA::Object* kept = duplicate_reference(servant, poa.poa_object, oid)) {
    POA_TRACE("POAInfo::id_to_reference end... [return duplicated object reference]");
    return kept;
  }
  CORBA::Object* reference = make_bound_reference(poa, oid, entry, servant, ev);
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
        ServantUse servant;
        ActiveObjectMap::Ticket found;
        if (map) {
          PoaSemaphoreGuard guard(__LINE__);
          found = map->findById(guard, oid_view(oid));
          if (const _ActiveObjectEntry* entry = map->at(guard, found)) servant = ServantUse(entry->p_servant);
        }
        if (!servant)
          raise<POA::ObjectNotActive>(ev, "no servant, throw PortableServer::POA::ObjectNotActive",
                                      not_active);
        return reference_of_id(*this, oid, found, *servant, ev);
      });
}
