#include "dispatch/servantmanagers.h"

#include <memory>
#include <new>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "objects/common_poa.h"
#include "records/poainfo.h"

namespace {

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantActivator;
using PortableServer::ServantBase;
using PortableServer::ServantLocator;
using PortableServer::ServantManager;
using PortableServer::ServantUse;

/// The target's id: a view of the reference data, or what reference_to_id raises when there is none.
std::string_view object_id_of(const RequestTarget& target, CORBA::Environment& ev) {
  POA_TRACE("  POAInfo::reference_to_id call");
  target.trace_reference_to_id();
  if (!target.has_data) delete target.poa->reference_to_id(target.object, ev);
  return target.data.object_id;
}

/// Trace texts of one locator operation.
struct LocatorTexts {
  const char* wrong_policy;
  const char* not_manager;
  const char* no_manager;
  const char* manager_nil;
  const char* locator_nil;
};

constexpr LocatorTexts PREINVOKE = {
    "POAInfo::preinvoke [wrong policy.]", "not use_servant_manager.. throw PortableServer::POA::WrongPolicy",
    "servantManager_ptr = NULL, throw CORBA::StExcep::OBJ_ADAPTER",
    "POAInfo::preinvoke [servant manager is nil.]", "POAInfo::preinvoke [servant manager is nil.]"};
constexpr LocatorTexts POSTINVOKE = {"POAInfo::postinvoke [wrong policy.]",
                                     "not use_servernt_manager.. throw PortableServer::POA::WrongPolicy",
                                     "servantManager_ptr=NULL, throw CORBA::StExcep::OBJ_ADAPTER",
                                     "POAInfo::postinvoke [servant manager is nil.]",
                                     "POAInfo::postinvoke [servant locator is null.]"};

void check_locator_policies(const POAInfo& poa, const LocatorTexts& texts, CORBA::Environment& ev) {
  if (poa.policies.retains()) {
    POA_TRACE("retain.. throw PortableServer::POA::WrongPolicy");
    raise<POA::WrongPolicy>(ev, texts.wrong_policy);
  }
  if (!poa.policies.uses_servant_manager()) {
    POA_TRACE("%s", texts.not_manager);
    raise<POA::WrongPolicy>(ev, texts.wrong_policy);
  }
}

ServantLocator& locator_of(POAInfo& poa, const LocatorTexts& texts, CORBA::Environment& ev) {
  ServantManager* manager = poa.get_servant_manager(ev);
  if (CORBA::is_nil(manager)) {
    POA_TRACE("%s", texts.no_manager);
    raise<CORBA::OBJ_ADAPTER>(ev, texts.manager_nil, MINOR_NO_MANAGER);
  }
  auto* locator = static_cast<ServantLocator*>(manager->get_servant_locator());
  if (!locator) {
    POA_TRACE("servantlocator=NULL, throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, texts.locator_nil, MINOR_NO_MANAGER);
  }
  return *locator;
}

ServantActivator& activator_of(POAInfo& poa, CORBA::Environment& ev) {
  ServantManager* manager = poa.get_servant_manager(ev);
  if (CORBA::is_nil(manager)) {
    POA_TRACE("servantManager_ptr=NULL, throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [servant manager is nil.]", MINOR_NO_MANAGER);
  }
  auto* activator = static_cast<ServantActivator*>(manager->get_servant_activator());
  if (!activator) {
    POA_TRACE("servantActivator=NULL,throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [servant activator is nil.]", MINOR_NO_MANAGER);
  }
  return *activator;
}

/// Enters the servant into the map, in use; gives the one that is active already instead.
ServantUse enter_incarnated(POAInfo& poa, const ObjectId& oid, ServantBase& servant, CORBA::Environment& ev) {
  PortableServer::ServantCount count(&servant);
  ServantUse dying;  // ends after the semaphore
  PoaSemaphoreGuard guard(__LINE__);
  if (poa.destroyed)
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [POA is destroyed.]", MINOR_NO_MANAGER);
  if (ActiveObjectMap* map = poa.active_object_map) {
    ServantUse active;
    if (map->has(guard, oid_view(oid))) active = map->useServantById(guard, oid_view(oid));
    if (active && !active->get_to_be_deleted() && !active->get_deleted()) return active;
    if (active) {  // its entry must not stand in front of the new one
      dying = std::move(active);
      map->removeById(guard, oid_view(oid), dying.get());
    }
    if (map->findByServant(guard, &servant) && poa.policies.unique_id()) {
      POA_TRACE("unique_id,throw CORBA::StExcep::OBJ_ADAPTER");
      raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [oid is nil.]", MINOR_NO_MANAGER);
    }
  }
  trace_oid_duplicate();
  ActiveObjectMap* map = poa.map_for_insert(guard);
  POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call");
  map->insertIncarnated(guard, oid_view(oid), &servant);
  count.keep();
  return ServantUse(&servant);
}

void check_activator_policies(const POAInfo& poa, CORBA::Environment& ev) {
  if (!poa.policies.retains()) {
    POA_TRACE("non_retain. throw PortableServer::POA::WrongPolicy");
    raise<POA::WrongPolicy>(ev, "POAInfo::incarnate [wrong policy.]");
  }
  if (!poa.policies.uses_servant_manager()) {
    POA_TRACE("not use_servant_manager,throw PortableServer::POA::WrongPolicy");
    raise<POA::WrongPolicy>(ev, "POAInfo::incarnate [wrong policy.]");
  }
}

}  // namespace

ServantUse incarnate(const RequestTarget& target, CORBA::Environment& ev) {
  POAInfo& poa = *target.poa;
  POA_TRACE("POAInfo::incarnate called...");
  check_activator_policies(poa, ev);
  const BorrowedObjectId oid(object_id_of(target, ev));
  ServantActivator& activator = activator_of(poa, ev);
  POA_TRACE("  ServantActivator->incarnate call");
  ServantBase* servant = activator.incarnate(oid.get(), poa.poa_object, ev);
  if (!servant) {
    POA_TRACE("servant=NULL,throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [servant is nil.]", MINOR_NO_MANAGER);
  }
  const PortableServer::ServantInCall call(servant);
  ServantUse winner;
  try {
    winner = enter_incarnated(poa, oid.get(), *servant, ev);
  } catch (const CORBA::Exception&) {
    // The POA went while the servant was made: nobody but the activator can take it back.
    if (poa.destroyed) activator.etherealize(oid.get(), poa.poa_object, servant, 1, 0, ev);
    throw;
  } catch (const std::bad_alloc&) {  // it cannot be entered
    activator.etherealize(oid.get(), poa.poa_object, servant, 0, 0, ev);
    throw;
  }
  // Another request for the id was first: its servant serves, this one goes back to the activator.
  if (winner.get() != servant) activator.etherealize(oid.get(), poa.poa_object, servant, 0, 0, ev);
  poa.evict_unused();
  POA_TRACE("POAInfo::incarnate end...");
  return winner;
}

ServantBase* preinvoke(const RequestTarget& target, const char* operation, CORBA::ULong& cookie,
                       CORBA::Environment& ev) {
  POAInfo& poa = *target.poa;
  POA_TRACE("POAInfo::preinvoke called...");
  check_locator_policies(poa, PREINVOKE, ev);
  const BorrowedObjectId oid(object_id_of(target, ev));
  ServantLocator& locator = locator_of(poa, PREINVOKE, ev);
  POA_TRACE("  ServantLocator->preinvoke call");
  ServantBase* servant =
      locator.preinvoke(oid.get(), poa.poa_object, const_cast<char*>(operation), cookie, ev);
  if (!servant) {
    POA_TRACE("servant=NULL,throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::preinvoke [servant is nil.]", MINOR_NO_MANAGER);
  }
  POA_TRACE("POAInfo::preinvoke end...");
  return servant;
}

void postinvoke(const RequestTarget& target, const char* operation, CORBA::ULong cookie, ServantBase* servant,
                CORBA::Environment& ev) {
  POAInfo& poa = *target.poa;
  POA_TRACE("POAInfo::postinvoke called...");
  check_locator_policies(poa, POSTINVOKE, ev);
  const BorrowedObjectId oid(object_id_of(target, ev));
  ServantLocator& locator = locator_of(poa, POSTINVOKE, ev);
  POA_TRACE("  ServantLocator->postinvoke call");
  locator.postinvoke(oid.get(), poa.poa_object, const_cast<char*>(operation), cookie, servant, ev);
  POA_TRACE("POAInfo::postinvoke end...");
}
