// Activating and deactivating objects, servant manager and default servant.
#include <new>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "objects/servantreferences.h"
#include "records/poainfo.h"
#include "records/registration.h"

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantBase;
using PortableServer::ServantInCall;
using PortableServer::ServantManager;
using PortableServer::ServantUse;

// ---- activate_object ----------------------------------------------------------------------------

namespace {

/// A system id of the unique form, or, for its key alone, the one that is made after so many more at once.
SearchedId searched(const SystemId& made, CORBA::ULong more) {
  const auto& [seconds, millisecond] = made.time();
  return {made.octets(), PackedOctets::of_unique(made.process(), seconds, millisecond + more)};
}

}  // namespace

ObjectId* POAInfo::activate_object(ServantBase* p_servant, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::activate_object called...");
  if (!p_servant)
    raise<CORBA::BAD_PARAM>(ev, "throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object [servant is null.]");
  if (!policies.retains())
    raise<POA::WrongPolicy>(ev, "non_retain.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object [wrong policy.]");
  if (!policies.system_id_assigned())
    raise<POA::WrongPolicy>(ev, "user_id.. throw PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object [wrong policy.]");
  SystemId made;
  SearchedId id = searched(made, 0);
  if (const ActiveObjectMap* map = active_object_map) {
    map->expect(id.key);
    map->expect(searched(made, SearchedId::TOGETHER).key);  // who makes many objects soon comes to that one
  }
  std::unique_ptr<ObjectId> oid(made.make());
  if (!oid)
    raise<CORBA::BAD_PARAM>(ev, "system_id=NULL.. throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object [systemId is null.]");
  if (!made.is_unique()) id = SearchedId(oid_view(*oid));
  trace_oid(oid_view(*oid));
  POA_TRACE("  POAInfo::activate_object_with_id call");
  replacing<POA::ServantAlreadyActive, POA::WrongPolicy>(
      ev, "throw PortableServer::POA::ServantAlreadyActive", "POAInfo::activate_object [already activate.]",
      [&] { activate_under(*oid, id, p_servant, ev); });
  POA_TRACE("POAInfo::activate_object end...");
  return oid.release();
}

namespace {

/// Enters the servant under `id`, under one hold of the semaphore: nobody else activates between the checks and
/// the entry.
ActiveObjectMap::Ticket enter_active(POAInfo& poa, const SearchedId& id, ServantBase& servant,
                                     CORBA::Environment& ev) {
  PoaSemaphoreGuard guard(__LINE__);
  if (poa.destroyed) raise<CORBA::BAD_PARAM>(ev, "POAInfo::activate_object_with_id [POA is destroyed.]");
  if (ActiveObjectMap* map = poa.active_object_map; map && poa.policies.unique_id()) {
    if (map->findByServant(guard, &servant))
      raise<POA::ServantAlreadyActive>(ev, "POAInfo::activate_object_with_id [already activate.]");
    if (map->findById(guard, id))
      raise<POA::ObjectAlreadyActive>(ev, "already activated. throw PortableServer::POA::ObjectAlreadyActive",
                                      "POAInfo::activate_object_with_id [already activate.]");
  }
  trace_oid_duplicate();
  ActiveObjectMap* map = poa.map_for_insert(guard);
  POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call [servant = 0x%lx this = 0x%lx into AOM]",
            trace_address(&servant), trace_address(&poa));
  return map->insertActiveObjectMap(guard, id, &servant);
}

}  // namespace

void POAInfo::activate_object_with_id(const ObjectId& id, ServantBase* p_servant, CORBA::Environment& ev) {
  activate_under(id, oid_view(id), p_servant, ev);
}

void POAInfo::activate_under(const ObjectId& id, const SearchedId& searched, ServantBase* p_servant,
                             CORBA::Environment& ev) {
  POA_TRACE("POAInfo::activate_object_with_id called...");
  if (id.length() < 1)
    raise<CORBA::BAD_PARAM>(ev, "id.length()<1 throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object_with_id [id length is invalid.]");
  if (!p_servant)
    raise<CORBA::BAD_PARAM>(ev, "p_servant=NULL throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::activate_object_with_id [servant is null.]");
  if (!policies.retains())
    raise<POA::WrongPolicy>(ev, "non_retain...  PortableServer::POA::WrongPolicy",
                            "POAInfo::activate_object_with_id [wrong policy.]");
  replacing<POA::ServantAlreadyActive, POA::ServantAlreadyActive, POA::ObjectAlreadyActive, POA::WrongPolicy>(
      ev, "other ex. throw PortableServer::POA::ServantAlreadyActive",
      "POAInfo::activate_object_with_id [already activate.]", [&] {
        PortableServer::ServantCount count(p_servant);
        const ActiveObjectMap::Ticket entry = enter_active(*this, searched, *p_servant, ev);
        POA_TRACE("  POA_impl_is_ready call");
        register_active(id, *p_servant, entry, ev);
        count.keep();
      });
  POA_TRACE("POAInfo::activate_object_with_id end...");
}

ActiveObjectMap* POAInfo::map_for_insert(const PoaSemaphoreGuard&) {
  if (!active_object_map) active_object_map = new ActiveObjectMap;
  return active_object_map;
}

void POAInfo::register_active(const ObjectId& id, ServantBase& servant, const ActiveObjectMap::Ticket& entry,
                              CORBA::Environment& ev) {
  try {
    POA_impl_is_ready(&servant, &id, ev);
  } catch (...) {
    active_object_map.load()->remove(entry);
    throw;
  }
}

// ---- deactivate_object --------------------------------------------------------------------------

namespace {

/// The activator that etherealizes for the POA; null when it has none.
PortableServer::ServantActivator* etherealizer(POAInfo& poa) {
  if (!poa.policies.uses_servant_manager() && !OM_TRACE_IS_ON)
    return nullptr;       // the question would only raise
  CORBA::Environment ev;  // that the policy is another is no failure of the caller's operation
  ServantManager* manager = nullptr;
  try {
    manager = poa.get_servant_manager(ev);
  } catch (const POA::WrongPolicy&) {
    return nullptr;
  }
  if (CORBA::is_nil(manager)) {
    POA_TRACE("  ServantManager_ptr is NULL, return...");
    return nullptr;
  }
  auto* activator = static_cast<PortableServer::ServantActivator*>(manager->get_servant_activator());
  if (!activator) POA_TRACE("  ServantActivator is NULL, return...");
  return activator;
}

/// Takes the object out of the map, under one hold of the semaphore: of two that deactivate it one is told
/// that it is not active. Gives the servant, in use and entered in `call`, or none.
ServantUse take_active(ActiveObjectMap& map, const ObjectId& oid, ServantInCall& call) {
  const SearchedId id(oid_view(oid));
  PoaSemaphoreGuard guard(__LINE__);
  const ActiveObjectMap::Ticket found = map.findById(guard, id);
  const _ActiveObjectEntry* const entry = map.at(guard, found);
  if (!entry) return {};
  ServantUse servant(entry->p_servant);
  call.enter(servant.get());
  map.takeById(guard, id, found);
  return servant;
}

}  // namespace

void POAInfo::deactivate_object(const ObjectId& oid, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::deactivate_object called...");
  if (oid.length() < 1)
    raise<CORBA::BAD_PARAM>(ev, "oid.length() < 1, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::deactivate_object [oid invalid.]");
  if (!policies.retains())
    raise<POA::WrongPolicy>(ev, "non_retain, throw PortableServer::POA::WrongPolicy",
                            "POAInfo::deactivate_object [wrong policy.]");
  ActiveObjectMap* map = active_object_map;
  POA_TRACE("  aom = 0x%lx, this = 0x%lx, oid = 0x%lx", trace_address(map), trace_address(this),
            trace_address(&oid));
  if (!map)
    raise<POA::ObjectNotActive>(ev, "active_object_map = NULL, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::deactivate_object [activate_object_map is null.]");
  ServantInCall call;
  ServantUse use = take_active(*map, oid, call);
  if (!use)
    raise<POA::ObjectNotActive>(ev, "servant == NULL, throw PortableServer::POA::ObjectNotActive",
                                "POAInfo::deactivate_object [servant is null.]");
  hand_back(oid, std::move(use), ev);
}

void POAInfo::hand_back(const ObjectId& oid, ServantUse use, CORBA::Environment& ev) {
  ServantBase* const servant = use.get();
  const PortableServer::LeavingServant leaving(servant);
  withdraw_reference(*servant, poa_object, oid_view(oid));
  use = ServantUse();  // the activator may delete it
  if (auto* activator = etherealizer(*this)) {
    POA_TRACE("  ServantActivator->etherealiize call [servant = 0x%lx]", trace_address(servant));
    activator->etherealize(oid, poa_object, servant, 1, 1, ev);
  }
}

// ---- Objects that an activator made -------------------------------------------------------------

void POAInfo::set_incarnation_limit(CORBA::ULong most, CORBA::Environment& ev) {
  if (!policies.retains() || !policies.uses_servant_manager())
    raise<POA::WrongPolicy>(ev, "POAInfo::set_incarnation_limit [wrong policy.]");
  PoaSemaphoreGuard guard(__LINE__);
  if (destroyed) raise<CORBA::BAD_PARAM>(ev, "POAInfo::set_incarnation_limit [POA is destroyed.]");
  map_for_insert(guard)->limit_incarnated(guard, most);
}

namespace {

/// Takes one out of the map, in use and entered in `call`, with its id; none when there are not too many.
ServantUse take_unused(ActiveObjectMap* map, std::unique_ptr<ObjectId>& oid, ServantInCall& call) {
  PoaSemaphoreGuard guard(__LINE__);
  const ActiveObjectMap::Ticket ticket = map ? map->unused_over_limit(guard) : ActiveObjectMap::Ticket();
  const _ActiveObjectEntry* const entry = map ? map->at(guard, ticket) : nullptr;
  if (!entry) return {};
  oid.reset(make_oid(entry->oid.octets()));
  ServantUse servant(entry->p_servant);
  call.enter(servant.get());
  map->remove(ticket);
  return servant;
}

}  // namespace

void POAInfo::evict_unused() {
  for (bool more = true; more;) try {
      std::unique_ptr<ObjectId> oid;
      ServantInCall call;
      ServantUse servant = take_unused(active_object_map, oid, call);
      more = static_cast<bool>(servant);
      CORBA::Environment ev;
      if (more) hand_back(*oid, std::move(servant), ev);
    } catch (const std::exception& e) {
      OM_log("etherealizing an unused object raised %s", e.what());
      more = false;
    }
}

// ---- Servant manager ----------------------------------------------------------------------------

ServantManager* POAInfo::get_servant_manager(CORBA::Environment& ev) {
  POA_TRACE("POAInfo::get_servant_manager called...");
  if (!policies.uses_servant_manager())
    raise<POA::WrongPolicy>(ev, "throw PortableServer::POA::WrongPolicy",
                            "POAInfo::get_servant_manager [wrong policy.]");
  if (!policies.retains() && policies.servant_retention != servantRetentionPolicy_NON_RETAIN_tag)
    raise<CORBA::OBJ_ADAPTER>(ev, "throw CORBA::StExcep::OBJ_ADAPTER",
                              "POAInfo::get_servant_manager [OBJ_ADAPTER.]", MINOR_NO_MANAGER);
  POA_TRACE("POAInfo::get_servant_manager end...[return ServantManager");
  return servantManager_ptr;
}

void POAInfo::set_servant_manager(ServantManager* imgr, CORBA::Environment& ev) {
  constexpr const char* set_already = "POAInfo::set_servant_manager [BAD_INV_ORDER.]";
  POA_TRACE("POAInfo::set_servant_manager called...");
  if (!policies.uses_servant_manager())
    raise<POA::WrongPolicy>(ev, "throw PortableServer::POA::WrongPolicy",
                            "POAInfo::set_servant_manager [wrong policy.]");
  if (!CORBA::is_nil(servantManager_ptr)) raise<CORBA::BAD_INV_ORDER>(ev, set_already, MINOR_MANAGER_SET);
  if (imgr && policies.retains() != static_cast<bool>(imgr->is_activator()))
    raise<CORBA::BAD_PARAM>(ev,
                            policies.retains() ? "retain. throw CORBA::StExcep::BAD_PARAM"
                                               : "non_retain. throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::set_servant_manager [BAD_PARAM.]");
  const CORBA::Object_var count(imgr ? imgr->_share_reference() : nullptr);
  ServantManager* none = nullptr;
  MutexGuard guard(poa_mutex);
  counted.reserve(counted.size() + 1);
  if (!servantManager_ptr.compare_exchange_strong(none, imgr))  // by another thread, just now
    raise<CORBA::BAD_INV_ORDER>(ev, set_already, MINOR_MANAGER_SET);
  if (count.in()) counted.push_back(count);
  POA_TRACE("POAInfo::set_servant_manager end...");
}

// ---- Default servant ----------------------------------------------------------------------------

ServantBase* POAInfo::get_servant(CORBA::Environment& ev) {
  POA_TRACE("POAInfo::get_servant called...");
  if (!policies.uses_default_servant())
    raise<POA::WrongPolicy>(ev, "non_retain.\tPortableServer::POA::WrongPolicy",
                            "POAInfo::get_servant [wrong policy.]");
  const ServantUse servant = default_servant.use();
  if (!servant)
    raise<POA::NoServant>(ev, "non_retain.\tPortableServer::POA::NoServant",
                          "POAInfo::get_servant [default servant is null.]");
  servant->_add_ref();
  POA_TRACE("POAInfo::get_servant end...");
  return servant.get();
}

void POAInfo::exchange_default(ServantBase* servant, DefaultServant::Oid oid,
                               PortableServer::LeavingServant& leaving) {
  // Under poa_default_servant_ref_mutex: once somebody else has taken the old one away, it is not touched here.
  ServantBase* old = default_servant.exchange(servant, oid);
  if (!old) return;
  if (oid) {  // only a teardown has trace lines for it
    destroyed ? withdraw_reference(*old, poa_object, oid_view(*oid))
              : forget_reference(*old, *this, oid_view(*oid));
  }
  old->rem_default_servant_ref();
  leaving.leave(old);
}

void POAInfo::set_servant(ServantBase* p_servant, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::set_servant called...[POAInfo = 0x%lx, servant = 0x%lx]", trace_address(this),
            trace_address(p_servant));
  if (!policies.uses_default_servant())
    raise<POA::WrongPolicy>(ev, "throw PortableServer::POA::WrongPolicy",
                            "POAInfo::set_servant [wrong policy.]");
  if (default_servant.get() == p_servant) return;
  DefaultServant::Oid oid(p_servant ? genSystemId() : nullptr);
  if (p_servant && !oid)  // the old one stays installed
    raise<CORBA::BAD_PARAM>(ev, "throw CORBA::StExcep::BAD_PARAM", "POAInfo::set_servant [BAD_PARAM.]");
  PortableServer::ServantCount count(p_servant);
  PortableServer::LeavingServant leaving;
  MutexGuard counts(poa_default_servant_ref_mutex);  // see exchange_default
  if (destroyed) raise<CORBA::BAD_PARAM>(ev, "POAInfo::set_servant [POA is destroyed.]");
  if (p_servant) p_servant->add_default_servant_ref();
  exchange_default(p_servant, std::move(oid), leaving);
  count.keep();
  POA_TRACE("POAInfo::set_servant end...");
}
