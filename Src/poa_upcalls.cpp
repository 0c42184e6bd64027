// The two upcalls beside requests: a lost client, and the lifespan tick. No exception passes their edge.
#include <ctime>
#include <exception>
#include <memory>

#include "poainfo.h"
#include "zrsocket.h"

std::atomic<PortableServer::POAdisconnect*> _disc_instance{nullptr};

namespace PortableServer {

POAdisconnect::~POAdisconnect() = default;

void POAdisconnect::setDisconnect(POAdisconnect* ptr, CORBA::Environment&) { _disc_instance = ptr; }

void POAdisconnect::resetDisconnect(POAdisconnect* disconnect, CORBA::Environment& env) {
  for (POAdisconnect* old = _disc_instance; old;)
    if (_disc_instance.compare_exchange_weak(old, disconnect)) return;
  raise<CORBA::BAD_PARAM>(env, nullptr);
}

void POAdisconnect::resetDisconnect(CORBA::Environment& env) { resetDisconnect(nullptr, env); }

}  // namespace PortableServer

namespace {

using PortableServer::ServantAccess;
using PortableServer::ServantBase;

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

void trace_client(long fd, const void* host_addr, unsigned char is_ipv6) {
  if (!OM_TRACE_IS_ON) return;
  char text[65];
  const char* printed = OM_inet_ntop(is_ipv6 ? ZR_af_inet6 : ZR_af_inet, host_addr, text, is_ipv6 ? 65 : 22);
  if (!printed) printed = "NULL";
  if (is_ipv6) {
    POA_TRACE("  fd = %ld, host_ipv6 = %s", fd, printed);
  } else {
    POA_TRACE("  fd = %ld, host_ipv4 = %s", fd, printed);
  }
}

struct LostClient {
  long fd;
  const void* host_addr;
  unsigned char is_ipv6;
};

/// The first servant of the client in the blocks after number `block`, held; null when there is none. `block`
/// becomes the number of its block. So the program is asked block after block while no lock is held, and
/// blocks may come and go meanwhile.
ServantBase* next_servant(const LostClient& client, std::uint64_t& block) {
  PoaSemaphoreGuard guard(__LINE__);
  for (ActiveObjectMap* at = _root_aom; at; at = at->_next_aom) {
    if (at->number <= block) continue;
    block = at->number;
    ServantBase* servant = at->searchServantByClientData(static_cast<CORBA::Long>(client.fd),
                                                         client.host_addr, client.is_ipv6, /*hold=*/true);
    if (servant) return servant;
  }
  return nullptr;
}

/// Asks the program about each reference of the servant, until it wants the servant released.
bool wants_release(PortableServer::POAdisconnect& callback, ServantBase& servant) {
  CORBA::Environment environment;
  bool released = false;
  for (PortableServer::ServantReference& reference : ServantAccess::list_references(servant)) {
    contained("release_instance", [&] {
      released =
          callback.release_instance(reference.record->poa_object, &servant, reference.oid, environment);
    });
    if (released) return true;
  }
  return false;
}

void release_if_wanted(PortableServer::POAdisconnect& callback, ServantBase& servant) {
  contained("releasing a servant", [&] {
    if (!wants_release(callback, servant)) return;
    servant.deactivate_ObjectReference();
    servant.servant_delete();
    POA_TRACE("  servant is deleted by POAdisconnect...");
  });
}

POA_ServantList* take_delete_list() {
  MutexGuard guard(poa_svt_delete_mutex);
  return std::exchange(servant_delete_list, nullptr);
}

/// Takes the first node off a list that nobody else sees.
ServantBase* pop(POA_ServantList*& list) {
  const std::unique_ptr<POA_ServantList> node(list);
  list = node->get_next();
  return node->get_servant();
}

/// Deletes a listed servant, unless a request got into it before it left the maps: then the next tick tries
/// again.
void delete_servant(ServantBase* servant) {
  const bool withdrawn = contained("withdrawing a servant", [&] {
    servant->deactivate_ObjectReference();
    ActiveObjectMap::forget_servant(servant);
  });
  {
    MutexGuard count_guard(poa_svt_ref_counter_mutex);
    if (!withdrawn || servant->get_ref_counter() != 0) {
      MutexGuard list_guard(poa_svt_delete_mutex);
      POA_ServantList::add_servant(servant_delete_list, servant);
      return;
    }
  }
  contained("a servant's destructor", [&] { delete servant; });
}

/// The next servant whose time is over, held and off the lifespan list; null when there is none.
ServantBase* take_expired() {
  MutexGuard guard(poa_svt_lifespan_mutex);
  for (POA_ServantList* node = servant_lifespan_list; node; node = node->get_next()) {
    ServantBase* servant = node->get_servant();
    if (servant->get_timer() > static_cast<CORBA::ULong>(std::time(nullptr))) continue;
    ServantAccess::hold(*servant);
    POA_ServantList::remove_servant(servant_lifespan_list, servant);
    return servant;
  }
  return nullptr;
}

void end_lifespan(ServantBase& servant) {
  contained("ending a servant's lifespan", [&] {
    servant.deactivate_ObjectReference();
    servant.servant_delete();
  });
  ServantAccess::release(servant);
}

}  // namespace

void call_disconnect_cpp_handler(long fd, void* host_addr, unsigned char is_ipv6) {
  POA_TRACE("call_disconnect_cpp_handler called...");
  PortableServer::POAdisconnect* callback = _disc_instance;
  if (!callback) return;
  trace_client(fd, host_addr, is_ipv6);
  const LostClient client{fd, host_addr, is_ipv6};
  for (std::uint64_t block = 0; ServantBase* servant = next_servant(client, block);) {
    release_if_wanted(*callback, *servant);
    ServantAccess::release(*servant);
  }
}

void call_poa_inst_lifespan() {
  POA_TRACE("call_poa_inst_lifespan called...");
  for (POA_ServantList* list = take_delete_list(); list;) delete_servant(pop(list));
  POA_TRACE("  Servant is deleted...");
  while (ServantBase* servant = take_expired()) end_lifespan(*servant);
  POA_TRACE("call_poa_inst_lifespan end...");
}
