// Servant managers at dispatch: servants made on demand (activator) and found for one request (locator).
#include <memory>

#include "dispatch.h"

namespace {

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantAccess;
using PortableServer::ServantActivator;
using PortableServer::ServantBase;
using PortableServer::ServantLocator;
using PortableServer::ServantManager;

/// The target's id: a view of the reference data, or what reference_to_id raises when there is none.
std::string_view object_id_of(POAInfo& poa, const RequestTarget& target, CORBA::Environment& ev) {
  POA_TRACE("  POAInfo::reference_to_id call");
  if (!target.has_data || target.poa.get() != &poa) delete poa.reference_to_id(target.object, ev);
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

/// Gives back a servant's hold.
struct HeldServant {
  HeldServant() = default;
  ~HeldServant() {
    if (servant) ServantAccess::release(*servant);
  }
  HeldServant(const HeldServant&) = delete;
  HeldServant& operator=(const HeldServant&) = delete;
  ServantBase* servant = nullptr;
};

}  // namespace

ServantBase* POAInfo::incarnate(CORBA::Object* target, CORBA::Environment& ev) {
  ServantBase* servant = incarnate_held(RequestTarget::find(target, ev), ev);
  PortableServer::ServantAccess::release(*servant);
  return servant;
}

ServantBase* POAInfo::incarnate_held(const RequestTarget& target, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::incarnate called...");
  if (!policies.retains()) {
    POA_TRACE("non_retain. throw PortableServer::POA::WrongPolicy");
    raise<POA::WrongPolicy>(ev, "POAInfo::incarnate [wrong policy.]");
  }
  if (!policies.uses_servant_manager()) {
    POA_TRACE("not use_servant_manager,throw PortableServer::POA::WrongPolicy");
    raise<POA::WrongPolicy>(ev, "POAInfo::incarnate [wrong policy.]");
  }
  const BorrowedObjectId oid(object_id_of(*this, target, ev));
  ServantActivator& activator = activator_of(*this, ev);
  POA_TRACE("  ServantActivator->incarnate call");
  ServantBase* servant = activator.incarnate(oid.get(), poa_object, ev);
  if (!servant) {
    POA_TRACE("servant=NULL,throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [servant is nil.]", MINOR_NO_MANAGER);
  }
  const PortableServer::ServantInCall call(servant);
  ServantBase* winner = nullptr;
  try {
    winner = enter_incarnated(oid.get(), *servant, ev);
  } catch (const CORBA::Exception&) {
    // The POA went while the servant was made: nobody but the activator can take it back.
    if (destroyed) activator.etherealize(oid.get(), poa_object, servant, 1, 0, ev);
    throw;
  }
  // Another request for the id was first: its servant serves, this one goes back to the activator.
  if (winner != servant) activator.etherealize(oid.get(), poa_object, servant, 0, 0, ev);
  POA_TRACE("POAInfo::incarnate end...");
  return winner;
}

ServantBase* POAInfo::enter_incarnated(const ObjectId& oid, ServantBase& servant, CORBA::Environment& ev) {
  HeldServant dying;  // released after the semaphore
  PoaSemaphoreGuard guard(__LINE__);
  if (destroyed) raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [POA is destroyed.]", MINOR_NO_MANAGER);
  if (ActiveObjectMap* map = active_object_map) {
    ServantBase* active = map->findServantById(oid, /*hold=*/true);
    if (active && !active->get_to_be_deleted() && !active->get_deleted()) return active;
    if (active) {  // its entry must not stand in front of the new one
      dying.servant = active;
      map->removeById(oid, active);
    }
    if (policies.unique_id() && map->findOidByServant(&servant)) {
      POA_TRACE("unique_id,throw CORBA::StExcep::OBJ_ADAPTER");
      raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::incarnate [oid is nil.]", MINOR_NO_MANAGER);
    }
  }
  std::unique_ptr<ObjectId> copy(duplicate_oid(&oid));
  ActiveObjectMap* map = map_for_insert();
  POA_TRACE("  ActiveObjectMap::insertActiveObjectMap call");
  map->insertActiveObjectMap(copy.release(), &servant);
  ServantAccess::hold(servant);
  return &servant;
}

ServantBase* POAInfo::preinvoke(CORBA::Object* target, const char* operation, CORBA::ULong& cookie,
                                CORBA::Environment& ev) {
  return preinvoke(RequestTarget::find(target, ev), operation, cookie, ev);
}

ServantBase* POAInfo::preinvoke(const RequestTarget& target, const char* operation, CORBA::ULong& cookie,
                                CORBA::Environment& ev) {
  POA_TRACE("POAInfo::preinvoke called...");
  check_locator_policies(*this, PREINVOKE, ev);
  const BorrowedObjectId oid(object_id_of(*this, target, ev));
  ServantLocator& locator = locator_of(*this, PREINVOKE, ev);
  POA_TRACE("  ServantLocator->preinvoke call");
  ServantBase* servant = locator.preinvoke(oid.get(), poa_object, const_cast<char*>(operation), cookie, ev);
  if (!servant) {
    POA_TRACE("servant=NULL,throw CORBA::StExcep::OBJ_ADAPTER");
    raise<CORBA::OBJ_ADAPTER>(ev, "POAInfo::preinvoke [servant is nil.]", MINOR_NO_MANAGER);
  }
  POA_TRACE("POAInfo::preinvoke end...");
  return servant;
}

void POAInfo::postinvoke(CORBA::Object* target, const char* operation, CORBA::ULong cookie,
                         ServantBase* servant, CORBA::Environment& ev) {
  postinvoke(RequestTarget::find(target, ev), operation, cookie, servant, ev);
}

void POAInfo::postinvoke(const RequestTarget& target, const char* operation, CORBA::ULong cookie,
                         ServantBase* servant, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::postinvoke called...");
  check_locator_policies(*this, POSTINVOKE, ev);
  const BorrowedObjectId oid(object_id_of(*this, target, ev));
  ServantLocator& locator = locator_of(*this, POSTINVOKE, ev);
  POA_TRACE("  ServantLocator->postinvoke call");
  locator.postinvoke(oid.get(), poa_object, const_cast<char*>(operation), cookie, servant, ev);
  POA_TRACE("POAInfo::postinvoke end...");
}
