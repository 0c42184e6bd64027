// The two upcalls beside requests: a lost client, and the lifespan tick. No exception passes their edge.
#include "dispatch/upcalls.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <memory>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/activeobjectmap.h"
#include "objects/servantreferences.h"

std::atomic<PortableServer::POAdisconnect*> _disc_instance{nullptr};

namespace PortableServer {

POAdisconnect::~POAdisconnect() = default;

void POAdisconnect::setDisconnect(POAdisconnect* ptr, CORBA::Environment&) { _disc_instance = ptr; }

void POAdisconnect::resetDisconnect(POAdisconnect* disconnect, CORBA::Environment& ev) {
  for (POAdisconnect* old = _disc_instance; old;)
    if (_disc_instance.compare_exchange_weak(old, disconnect)) return;
  raise<CORBA::BAD_PARAM>(ev, nullptr);
}

void POAdisconnect::resetDisconnect(CORBA::Environment& ev) { resetDisconnect(nullptr, ev); }

}  // namespace PortableServer

namespace {

using PortableServer::ServantAccess;
using PortableServer::ServantBase;
using PortableServer::ServantUse;

/// Runs a piece of program code; what it throws is logged and goes no further. False when it threw.
template <class Call>
bool contained(const char* what, Call&& call) {
  try {
    call();
    return true;
  } catch (const CORBA::Exception& e) {
    OM_log("%s raised %s", what, e.id());
  } catch (const std::exception& e) {
    OM_log("%s threw: %s", what, e.what());
  } catch (...) {
    OM_log("%s threw something that is no exception class", what);
  }
  return false;
}

/// The servants of a lost client, one after the other. The program is asked about each while no lock is held;
/// what it deactivates meanwhile is its own.
class LostClient {
 public:
  explicit LostClient(const ClientData& client) : client_(client) {}

  /// A servant in the program's hands.
  struct Found {
    ServantBase* servant = nullptr;
    std::vector<PortableServer::ServantReference> references;
    PortableServer::ServantInCall call;
  };
  /// Finds the next one; false when there is none. It is recorded for the client no more, unless a request is
  /// in it: the program is asked about it again when that has ended.
  bool next(Found& found) {
    MutexGuard references(poa_svt_objref_mutex);
    PoaSemaphoreGuard guard(__LINE__);
    do {
      found.servant = ActiveObjectMap::next_of_client(guard, place_, client_);
    } while (std::find(busy_.begin(), busy_.end(), found.servant) != busy_.end());
    if (!found.servant) return false;
    found.references = PortableServer::list_references(*found.servant);
    if (found.servant->get_ref_counter() != 0) {
      busy_.push_back(found.servant);
    } else {
      ActiveObjectMap::forget_client(guard, *found.servant, client_);
    }
    found.call.enter(found.servant);
    return true;
  }

  /// Takes the servant out of its POAs, in use; none when it is not the library's any more.
  ServantUse withdraw(const Found& found) const {
    ServantUse use;  // where this fails, it ends after the locks
    MutexGuard references(poa_svt_objref_mutex);
    PoaSemaphoreGuard guard(__LINE__);
    const bool active = ActiveObjectMap::is_at(guard, place_, found.servant) ||
                        std::any_of(found.references.begin(), found.references.end(),
                                    [&](const auto& each) ZR_REQUIRES(poa_semaphore) {
                                      ActiveObjectMap* map = each.record->active_object_map;
                                      return map && map->holds(guard, oid_view(each.oid), found.servant);
                                    });
    if (!active) return use;
    use = ServantUse(found.servant);
    found.servant->deactivate_ObjectReference();
    return use;
  }

 private:
  const ClientData client_;
  ActiveObjectMap::Place place_;
  std::vector<const ServantBase*> busy_;  // asked about, and still recorded
};

/// Asks the program about each reference of the servant, until it wants the servant released.
bool wants_release(PortableServer::POAdisconnect& callback, LostClient::Found& found) {
  CORBA::Environment ev;
  bool released = false;
  for (PortableServer::ServantReference& reference : found.references) {
    contained("release_instance", [&] {
      released = callback.release_instance(reference.record->poa_object, found.servant, reference.oid, ev);
    });
    if (released) return true;
  }
  return false;
}

/// As servant_delete of somebody who is not in the servant: it is listed at once, unless others are.
void end_in_deletion(ServantUse use) {
  MutexGuard guard(poa_svt_ref_counter_mutex);
  ServantBase& servant = *use;
  use.forget();
  servant.remove_ref_counter();
  servant.servant_delete();
  if (!servant.get_to_be_deleted()) use = ServantUse(&servant);  // a default servant: it is left alone
}

void ask_about_servants(PortableServer::POAdisconnect& callback, LostClient client) {
  for (;;) {
    LostClient::Found found;
    if (!client.next(found)) return;
    contained("releasing a servant", [&] {
      if (!wants_release(callback, found)) return;
      if (ServantUse servant = client.withdraw(found)) {
        end_in_deletion(std::move(servant));
        POA_TRACE("  servant is deleted by POAdisconnect...");
      }
    });
  }
}

POA_ServantList take_delete_list() {
  MutexGuard guard(poa_svt_delete_mutex);
  return std::exchange(servant_delete_list, {});
}

/// Whether somebody can still come upon a servant that has left the maps.
bool is_held(const ServantBase& servant) {
  return servant.get_ref_counter() != 0 || ServantAccess::default_count(servant) != 0 ||
         PortableServer::ServantInCall::has(&servant);
}

/// Deletes a listed servant, unless a request got into it before it left the maps, a call of the program has it, or it
/// was made a default servant meanwhile: then the next tick tries again.
void delete_servant(ServantBase* servant) {
  const bool withdrawn = contained("withdrawing a servant", [&] {
    servant->deactivate_ObjectReference();
    ActiveObjectMap::forget_servant(servant);
  });
  {
    MutexGuard count_guard(poa_svt_ref_counter_mutex);
    if (!withdrawn || is_held(*servant)) {
      MutexGuard list_guard(poa_svt_delete_mutex);
      servant_delete_list.add(servant);
      return;
    }
  }
  contained("a servant's destructor", [&] { delete servant; });
}

/// The servants whose time is over, in use and off the lifespan list; without memory for all of them, those that come
/// first.
std::vector<ServantUse> take_expired() {
  std::vector<ServantUse> expired;
  MutexGuard guard(poa_svt_lifespan_mutex);
  try {
    servant_lifespan_list().take_over(static_cast<CORBA::ULong>(std::time(nullptr)),
                                      [&](ServantBase* servant) { expired.emplace_back(servant); });
  } catch (const std::bad_alloc&) {
    OM_log("no memory for all servants whose time is over");
  }
  return expired;
}

void end_lifespan(ServantUse servant) {
  contained("ending a servant's lifespan", [&] {
    servant->deactivate_ObjectReference();
    end_in_deletion(std::move(servant));
  });
}

}  // namespace

void call_disconnect_cpp_handler(long fd, void* host_addr, unsigned char is_ipv6) {
  POA_TRACE("call_disconnect_cpp_handler called...");
  PortableServer::POAdisconnect* callback = _disc_instance;
  if (!callback) return;
  const ClientData client = ClientData::at(static_cast<CORBA::Long>(fd), host_addr, is_ipv6);
  client.trace();
  contained("asking about a lost client's servants",
            [&] { ask_about_servants(*callback, LostClient(client)); });
}

void call_poa_inst_lifespan() {
  POA_TRACE("call_poa_inst_lifespan called...");
  for (POA_ServantList list = take_delete_list(); !list.empty();) delete_servant(list.pop());
  POA_TRACE("  Servant is deleted...");
  for (ServantUse& servant : take_expired()) end_lifespan(std::move(servant));
  POA_TRACE("call_poa_inst_lifespan end...");
}
