// The road of a request through the adapter, top to bottom: upcall, POA, manager state, servant, invoke,
// release, and what the client gets when any of it fails.
#include <cstdlib>

#include "base/raise.h"
#include "dispatch/requesttarget.h"
#include "dispatch/servantmanagers.h"
#include "dispatch/servantview.h"
#include "dispatch/serverrequest.h"
#include "dispatch/standard_managers.h"
#include "dispatch/turn.h"
#include "dispatch/upcalls.h"
#include "objects/activeobjectmap.h"
#include "objects/servantreferences.h"
#include "records/currentinfo.h"
#include "records/poamanagerinfo.h"

namespace {

using PortableServer::ServantAccess;
using PortableServer::ServantBase;
using PortableServer::ServantUse;

/// The ORB core's raw handles as mapping objects, for the length of an upcall. The handles stay the core's, so that
/// only what a dynamic servant said is to be let go of: the objects just end.
class UpcallObjects {
 public:
  UpcallObjects(void* raw_target, void* raw_request) : target(), request() {
    target.set_ref(raw_target);
    request.set_ref(raw_request);
  }
  ~UpcallObjects() {
    if (!request.dynamic()) return;
    request.set_ref(nullptr);
    request.~ServerRequest();
  }
  UpcallObjects(const UpcallObjects&) = delete;
  UpcallObjects& operator=(const UpcallObjects&) = delete;

  union {
    CORBA::Object target;
  };
  union {
    CORBA::ServerRequest request;
  };
};

/// The request's target, entered in the servant meanwhile.
class ServantTarget {
 public:
  ServantTarget(ServantBase& servant, CORBA::Object& target) : servant_(servant) {
    ServantAccess::target(servant).store(&target, std::memory_order_release);
  }
  ~ServantTarget() { ServantAccess::target(servant_).store(nullptr, std::memory_order_release); }
  ServantTarget(const ServantTarget&) = delete;
  ServantTarget& operator=(const ServantTarget&) = delete;

 private:
  ServantBase& servant_;
};

void check_manager_state(POAInfo& poa, const CORBA::ServerRequest& request, CORBA::Environment& ev) {
  const POAManagerInfo& manager = *poa.poa_managerInfo_ptr;
  switch (manager.get_state()) {
    case PortableServer::POAManager::HOLDING:
      if (const std::shared_ptr<zrsv::Gate>* gate = manager.gate()) {
        zrsv::wait_at(*gate, request.request_handle());
        throw RequestWaits{};
      }
      break;  // it holds requests in the ORB core: one that got here is served
    case PortableServer::POAManager::DISCARDING:
      POA_TRACE("poa is discarging, throw CORBA::StExcep::TRANSIENT");
      raise<CORBA::TRANSIENT>(ev, "dsi_routine_cpp_poa [state is DISCARDING.]", MINOR_DISCARDING);
    case PortableServer::POAManager::INACTIVE:
      raise<PortableServer::POAManager::AdapterInactive>(ev, "dsi_routine_cpp_poa [state is INACTIVE.]");
    default:
      break;
  }
}

void trace_request(void* raw, const char* operation) {
  if (!OM_TRACE_IS_ON) return;
  void* request = server_CORBA_ServerRequest_request(raw, nullptr);
  CDR* cdr = nullptr;
  OM_req_lib_UNO_IIOP_get_cdr(request, &cdr);
  POA_TRACE("  _response_expected : %d", server_CORBA_ServerRequest_response_expected(raw, nullptr));
  POA_TRACE("  _request_type      : %u", server_CORBA_ServerRequest_request_type(raw, nullptr));
  POA_TRACE("  _operation         : %s", operation);
  POA_TRACE("  _request           : 0x%lx", trace_address(request));
  POA_TRACE("  __cdr              : 0x%lx", trace_address(cdr));
}

/// Where the servant of a request came from, and what has to be done with it afterwards.
struct Located {
  ServantUse use;
  bool by_locator = false;
  bool always_postinvoke = false;  // also when the request has failed
  CORBA::ULong cookie = 0;
};

/// The trace lines of a search that found no active servant.
void trace_no_active_servant(const POAInfo& poa) {
  if (!poa.policies.retains() && !poa.policies.uses_default_servant()) {
    POA_TRACE("not use_default_servant_policy,throw PortableServer::POA::WrongPolicy");
    POA_TRACE("POAInfo::reference_to_servant [wrong policy.]");
  } else {
    POA_TRACE("throw PortableServer::POA::ObjectNotActive");
    POA_TRACE("POAInfo::reference_to_servant [PortableServer::POA::ObjectNotActive.]");
  }
}

/// The trace lines of an activator that the POA's policies do not let one ask.
void trace_no_activator(const POAInfo& poa) {
  POA_TRACE("  POAInfo::incarnate call");
  POA_TRACE("POAInfo::incarnate called...");
  if (!poa.policies.retains()) {
    POA_TRACE("non_retain. throw PortableServer::POA::WrongPolicy");
  } else {
    POA_TRACE("not use_servant_manager,throw PortableServer::POA::WrongPolicy");
  }
  POA_TRACE("POAInfo::incarnate [wrong policy.]");
}

/// The trace lines of `reference_to_servant` before it looks into the map: of what the target knows.
[[gnu::cold]] void trace_reference_to_servant(const RequestTarget& target, const ActiveObjectMap* map) {
  POA_TRACE("POAInfo::reference_to_servant");
  target.trace_look_up();
  POA_TRACE("POAInfo::reference_to_servant poa_info=0x%lx aom=0x%lx", trace_address(target.poa.get()),
            trace_address(map));
  if (!target.poa->policies.retains()) return;
  checkEmptyReferenceData(target.object);
  if (map) target.trace_reference_to_id();
}

/// The active servant or the default servant; none when there is neither.
ServantUse search(const RequestTarget& target) {
  POAInfo& poa = *target.poa;
  ActiveObjectMap* map = poa.active_object_map;
  if (OM_TRACE_IS_ON) trace_reference_to_servant(target, map);
  if (poa.policies.retains() && target.has_data && map) {
    if (ServantUse found = map->useServantById(target.data.object_id)) return found;
  }
  if (!poa.policies.uses_default_servant()) return {};
  trace_of(
      [&poa] { const PortableServer::ServantBase_var found = poa.get_servant(CORBA::Environment().self()); });
  return poa.default_servant.use();
}

/// The servant in the map or the default servant; none when there is none that may serve. What
/// `reference_to_servant` and the check of the deletion flags would raise is raised nowhere, because the
/// search goes on: only its trace lines are written.
ServantUse find_active(const RequestTarget& target) {
  POA_TRACE("  POAInfo::reference_to_servant call");
  ServantUse found = search(target);
  if (!found) {
    trace_no_active_servant(*target.poa);
    return found;
  }
  POA_TRACE("  POAInfo::reference_to_servant done");
  if (!found->get_to_be_deleted() && !found->get_deleted()) return found;
  POA_TRACE("dsi_routine_cpp_poa : throw OBJECT_NOT_EXIST");
  return {};
}

/// Asks the servant activator. What it raises, but WrongPolicy, reaches the client as a plain exception,
/// whatever its type.
ServantUse ask_activator(const RequestTarget& target, CORBA::Environment& ev) {
  try {
    POA_TRACE("  POAInfo::incarnate call");
    ServantUse made = incarnate(target, ev);
    POA_TRACE("  POAInfo::incarnate done");
    return made;
  } catch (const PortableServer::POA::WrongPolicy&) {
    throw;
  } catch (const CORBA::Exception& e) {
    throw CORBA::Exception(e);
  }
}

Located locate_servant(const RequestTarget& target, const char* operation, CORBA::Environment& ev) {
  Located found;
  found.use = find_active(target);
  if (found.use) return found;
  if (target.poa->policies.retains() && target.poa->policies.uses_servant_manager()) {
    found.use = ask_activator(target, ev);
    return found;
  }
  trace_no_activator(*target.poa);
  POA_TRACE("  POAInfo::preinvoke call");
  found.by_locator = true;
  const std::size_t cookies = PortableServer::PendingCookies::depth();
  found.use = ServantUse(preinvoke(target, operation, found.cookie, ev));
  found.always_postinvoke = PortableServer::PendingCookies::any_since(cookies);
  POA_TRACE("  POAInfo::preinvoke done [servant = 0x%lx]", trace_address(found.use.get()));
  return found;
}

/// The target among the servant's references. That of a servant found for one request goes with the request:
/// each id that clients make up would leave an entry behind.
class TargetReference {
 public:
  TargetReference(const RequestTarget& target, ServantBase& servant, bool for_one_request)
      : target_(target), servant_(for_one_request && target.has_data ? &servant : nullptr) {
    if (!target.has_data) return;
    const auto default_oid =
        &servant == target.poa->default_servant.get() ? target.poa->default_servant.oid() : nullptr;
    PortableServer::keep_target(servant, *target.poa, target.object,
                                default_oid ? oid_view(*default_oid) : target.data.object_id);
  }
  ~TargetReference() {
    if (servant_) PortableServer::forget_reference(*servant_, *target_.poa, target_.data.object_id);
  }
  TargetReference(const TargetReference&) = delete;
  TargetReference& operator=(const TargetReference&) = delete;

 private:
  const RequestTarget& target_;
  ServantBase* const servant_;
};

/// The postinvoke of a request that has failed. What it raises is not the client's affair.
void postinvoke_failed(const RequestTarget& target, const char* operation, const Located& found,
                       ServantBase* servant) {
  if (!found.always_postinvoke) return;
  CORBA::Environment ev;
  try {
    postinvoke(target, operation, found.cookie, servant, ev);
  } catch (const std::exception& e) {
    OM_log("postinvoke of a request that failed raised %s", e.what());
  }
}

/// Whether there is a client that waits and no reply has been begun.
bool unanswered(const CORBA::ServerRequest& request) {
  CDR* cdr = nullptr;
  return request.response_expected() && OM_req_lib_UNO_IIOP_get_cdr(request.request_handle(), &cdr) &&
         cdr->direction == CDR_DECODE;
}

/// Completes the reply of a dynamic servant; of one that said nothing it is a void result. Nothing that goes
/// wrong here stops the request's end.
void complete_dynamic(ServantBase& servant, CORBA::ServerRequest& request) {
  // The type is asked only where there is something to complete.
  const bool said_nothing = !request.dynamic();
  if (said_nothing && !unanswered(request) && !OM_TRACE_IS_ON) return;
  if (!dynamic_cast<PortableServer::DynamicImplementation*>(&servant)) return;
  POA_TRACE("  using DSI...");
  if (said_nothing && unanswered(request))
    OM_req_lib_UNO_IIOP_encode_reply_header(request.request_handle(), ZR_REPLY_NO_EXCEPTION);
  try {
    OM_CORBA_ServerRequest_dsi_complete_cpp(request.get_ref());
  } catch (const std::exception& e) {
    OM_log("the reply of a dynamic servant could not be completed: %s", e.what());
  }
}

/// Runs the operation on the servant: the POA Current is set meanwhile, and the target is entered among the
/// servant's references. The use ends with the operation.
void invoke_servant(const RequestTarget& target, ServantUse use, bool by_locator,
                    CORBA::ServerRequest& request, CORBA::Environment& ev) {
  ServantBase& servant = *use;
  const CurrentContext context(target.poa->poa_object, target.data.object_id, target.has_data, target.object,
                               &servant);
  const ServantTarget entered(servant, *target.object);
  const TargetReference reference(target, servant, by_locator);
  if (zrsv::requests_watched.load(std::memory_order_relaxed)) [[unlikely]] {
    if (!zrsv::servant_is_ready(request.request_handle(), InterceptedServant(target, servant))) return;
  }
  POA_TRACE("  servant->invoke call [servant=0x%lx]", trace_address(&servant));
  if (!servant.invoke(&request, ev))
    raise<CORBA::BAD_OPERATION>(ev, "servant invoke faild.  throw BAD_OPERATION.", MINOR_NO_OPERATION);
  complete_dynamic(servant, request);
}

void dsi_routine_cpp_poa(CORBA::Object& object, CORBA::ServerRequest& request, CORBA::Environment& ev) {
  POA_TRACE("dsi_routine_cpp_poa called...");
  const RequestTarget target = RequestTarget::find(&object, ev);
  POA_TRACE("  find poa.. poa_info=0x%lx", trace_address(target.poa.get()));
  if (!target.poa) {
    POA_TRACE("poa_info == NULL,throw PortableServer::POA::AdapterNonExistent");
    raise<PortableServer::POA::AdapterNonExistent>(ev, "dsi_routine_cpp_poa [poa_info is null.]");
  }
  check_manager_state(*target.poa, request, ev);
  const Turn turn(target.poa->one_at_a_time, request.request_handle());
  const char* operation = request.operation();
  trace_request(request.get_ref(), operation);
  Located found = locate_servant(target, operation, ev);
  ServantBase* const servant = found.use.get();
  // A locator's servant that asks for its deletion in the operation is there until postinvoke has ended.
  const PortableServer::ServantInCall call(found.by_locator ? servant : nullptr);
  try {
    invoke_servant(target, std::move(found.use), found.by_locator, request, ev);
    if (ev.exception()) POA_TRACE("exception-id %s", ev.exception()->id());
    if (found.by_locator) {
      found.always_postinvoke = false;  // it follows now, and not again when it throws
      POA_TRACE("  POAInfo::postinvoke call");
      postinvoke(target, operation, found.cookie, servant, ev);
      POA_TRACE("  POAInfo::postinvoke done");
    }
  } catch (const CORBA::SystemException& e) {
    POA_TRACE("dsi_routine_cpp_poa [throw SystemException : id = %s]", e.id());
    postinvoke_failed(target, operation, found, servant);
    throw;
  } catch (const CORBA::Exception& e) {
    POA_TRACE("dsi_routine_cpp_poa [throw Exception : id = %s]", e.id());
    postinvoke_failed(target, operation, found, servant);
    throw;
  } catch (...) {
    postinvoke_failed(target, operation, found, servant);
    throw;
  }
  POA_TRACE("dsi_routine_cpp_poa end...");
}

/// Sends the client elsewhere.
void reply_forward(void* request, CORBA::Object* to) {
  void* handle = server_CORBA_ServerRequest_request(request, nullptr);
  CDR* cdr = nullptr;
  if (!server_CORBA_ServerRequest_response_expected(request, nullptr)) return;
  if (!OM_req_lib_UNO_IIOP_encode_reply_header(handle, ZR_REPLY_LOCATION_FORWARD)) return;
  if (!OM_req_lib_UNO_IIOP_get_cdr(handle, &cdr)) return;
  cdr->direction = CDR_ENCODE;
  OM_cdr_object(cdr, to);
}

/// Replies with a system exception.
void reply_exception(void* request, const CORBA::SystemException& exception) {
  CORBA::Environment ev;
  ev.exception(exception._clone());
  ZR_reply_system_exception(server_CORBA_ServerRequest_request(request, nullptr), ev._evp);
}

/// What a servant manager with the standard's signatures raised: where to go, or what to tell the client.
void reply_refusal(void* request, const PortableServer::ManagerRefusal& refusal) {
  if (const auto* forward = dynamic_cast<const PortableServer::ForwardRequest*>(refusal.reason.get())) {
    if (CORBA::is_nil(forward->forward_reference.in())) return reply_exception(request, CORBA::OBJ_ADAPTER());
    return reply_forward(request, forward->forward_reference.in());
  }
  const auto* system = dynamic_cast<const CORBA::SystemException*>(refusal.reason.get());
  reply_exception(request, system ? *system : CORBA::UNKNOWN());
}

}  // namespace

void call_cpp_handler(void* target, void* request, CORBA_Environment* core) {
  POA_TRACE("call_cpp_handler called...");
  core->_major = CORBA_NO_EXCEPTION;
  try {
    CORBA::Environment ev;
    UpcallObjects objects(target, request);
    POA_TRACE("  dsi_routine_cpp_poa call");
    dsi_routine_cpp_poa(objects.target, objects.request, ev);
  } catch (const RequestWaits&) {
    POA_TRACE("the request waits");
  } catch (const PortableServer::ManagerRefusal& refusal) {
    reply_refusal(request, refusal);
  } catch (const CORBA::SystemException& e) {
    POA_TRACE("system-exception-id: %s", e.id());
    reply_exception(request, e);
  } catch (const CORBA::Exception& e) {
    POA_TRACE("system-exception-id: %s", e.id());
    reply_exception(request, CORBA::UNKNOWN());
  } catch (const std::bad_alloc&) {
    reply_exception(request, CORBA::NO_MEMORY(0, CORBA::COMPLETED_MAYBE));
  } catch (const std::exception& e) {
    OM_log("a servant let a C++ exception pass: %s", e.what());
    reply_exception(request, CORBA::UNKNOWN(0, CORBA::COMPLETED_MAYBE));
  }
  POA_TRACE("call_cpp_handler end...");
}
