// Servants: standard operations, counters, deferred deletion, lifespan timers, and the three operations that
// every servant serves.
#include <chrono>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/corehandles.h"
#include "base/locks.h"
#include "base/raise.h"
#include "corba/detail/row.h"
#include "dispatch/serverrequest.h"
#include "objects/activeobjectmap.h"
#include "objects/referencedata.h"
#include "objects/servantreferences.h"
#include "records/poanode.h"

namespace PortableServer {

// ---- Construction -------------------------------------------------------------------------------

ServantBase::ServantBase() = default;
ServantBase::ServantBase(const ServantBase&) : CORBA::Allocated() {}
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is assigned
ServantBase& ServantBase::operator=(const ServantBase&) { return *this; }

// ---- Standard operations ------------------------------------------------------------------------

POA* ServantBase::_default_POA() { return nullptr; }

CORBA::InterfaceDef* ServantBase::_get_interface(CORBA::Environment& ev) {
  CORBA::Environment core;
  void* handle = CORBA_Repository_lookup_id(core_handles.interface_repository, _intf ? _intf : "", core._evp);
  const bool raised =
      core._evp->_major == CORBA_USER_EXCEPTION || core._evp->_major == CORBA_SYSTEM_EXCEPTION;
  if (raised)
    report_core_exception("Src/servantbase", __LINE__, *core._evp, static_cast<int>(core._evp->_minor));
  if (core._evp->_major != CORBA_NO_EXCEPTION || !handle) return CORBA::InterfaceDef::_nil();
  return with_memory(ev, [&] {
    auto* definition = new CORBA::InterfaceDef;
    definition->set_ref(handle);
    return definition;
  });
}

CORBA::Boolean ServantBase::_is_a(const char* logical_type_id, CORBA::Environment&) {
  return logical_type_id && _intf && std::strcmp(logical_type_id, _intf) == 0;
}

CORBA::Boolean ServantBase::_non_existent(CORBA::Environment&) { return 0; }

namespace {
thread_local bool does_not_count = false;
}

void ServantBase::_add_ref() { does_not_count = true; }
void ServantBase::_remove_ref() {}
CORBA::ULong ServantBase::_refcount_value() { return 1; }

void ServantAccess::take_count(ServantBase& s) {
  does_not_count = false;
  s._add_ref();
  if (s._counts == does_not_count) s._counts = !does_not_count;
}

const char* ServantBase::_primary_interface(const ObjectId&, POA*, CORBA::Environment&) { return _intf; }

// ---- Counters -----------------------------------------------------------------------------------

void ServantBase::add_ref_counter() {
  MutexGuard guard(poa_svt_ref_counter_mutex);
  ++_counter;
}

void ServantBase::remove_ref_counter() {
  MutexGuard guard(poa_svt_ref_counter_mutex);
  --_counter;
}

void ServantBase::add_default_servant_ref() {
  MutexGuard guard(poa_default_servant_ref_mutex);
  ++_default_servant;
}

void ServantBase::rem_default_servant_ref() {
  MutexGuard guard(poa_default_servant_ref_mutex);
  if (_default_servant > 0) --_default_servant;
}

// ---- Deferred deletion --------------------------------------------------------------------------

void ServantBase::add_delete_list() {
  POA_TRACE("ServantBase::add_delete_list called...");
  {
    MutexGuard guard(poa_svt_delete_mutex);
    if (_deleted == 1) {
      POA_TRACE("ServantBase::add_delete_list [Servant is already added DeleteList]");
    } else {
      servant_delete_list.add(this);
      _deleted = 1;
      POA_TRACE("ServantBase::add_delete_list [Servant is added on DeleteList]");
    }
  }
  POA_TRACE("ServantBase::add_delete_list end...");
}

void ServantBase::servant_delete() {
  POA_TRACE("ServantBase::servant_delete called...");
  if (_default_servant > 0) return;
  MutexGuard guard(poa_svt_ref_counter_mutex);
  _to_be_deleted = 1;
  if (ServantAccess::tell_last(*this)) {
    POA_TRACE("ServantBase::servant_delete [Servant is to be deleted...]");
  } else {
    add_delete_list();
    POA_TRACE("ServantBase::servant_delete [ServantBase::add_delete_list invoke]");
  }
  if (_timer > 0) {
    CORBA::Environment ev;
    set_timer(0, ev);
    POA_TRACE("ServantBase::servant_delete [timer of Servant is cleared...]");
  }
  POA_TRACE("ServantBase::servant_delete end...");
}

// ---- Lifespan -----------------------------------------------------------------------------------

namespace {

CORBA::ULong seconds_since_1970() {
  using namespace std::chrono;
  return static_cast<CORBA::ULong>(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}

}  // namespace

void ServantBase::set_timer(int seconds, CORBA::Environment& ev) {
  POA_TRACE("ServantBase::set_timer called...[timer = %d]", static_cast<int>(_timer));
  if (seconds < 0) {
    raise<CORBA::BAD_PARAM>(ev, "ServantBase::set_timer",
                            "ServantBase::set_timer [timer is wrong .. throw BAD_PARAM]");
  }
  with_memory(ev, [&] {
    MutexGuard guard(poa_svt_lifespan_mutex);
    const bool listed = servant_lifespan_list().holds(this);
    if (seconds > 0) {
      if (!listed) servant_lifespan_list().add(this);
      _timer = seconds_since_1970() + static_cast<CORBA::ULong>(seconds);
      if (listed) {
        POA_TRACE("ServantBase::set_timer [timer is changed .. timer = %d]", static_cast<int>(_timer));
      } else {
        POA_TRACE("ServantBase::set_timer [timer of Servant = %d]", static_cast<int>(_timer));
      }
    } else if (listed) {
      servant_lifespan_list().remove(this);
      _timer = 0;
      POA_TRACE("ServantBase::set_timer [timer is cleared .. timer = %d]", static_cast<int>(_timer));
    }
  });
  POA_TRACE("ServantBase::set_timer end...");
}

// ---- References and map entries -----------------------------------------------------------------

namespace {

/// The octets of the id that a reference is recorded under; none when that cannot be told.
std::optional<std::string_view> recorded_id(bool is_default_servant, const ObjectId* oid,
                                            CORBA::Object* ior) {
  ReferenceDataView view;
  if (is_default_servant) return oid ? std::optional(oid_view(*oid)) : std::nullopt;
  return view.read(ior) ? std::optional(view.object_id) : std::nullopt;
}

}  // namespace

CORBA::Object* ServantBase::set_ObjectReference(POA* poa, CORBA::Object* ior, int flag, void* /*boa*/,
                                                const ObjectId* oid) {
  trace_keep_called(poa, ior);
  if (!poa || !ior) {
    POA_TRACE("ServantBase::set_ObjectReference end...[poa or ior is NULL]");
    return nullptr;
  }
  const auto id = recorded_id(_default_servant > 0, oid, ior);
  if (!id) return nullptr;
  if (_default_servant == 0) trace_of([&] { trace_get_oid(*id); });
  if (reference_recorded(*this, read_identity(poa), *id)) return nullptr;
  const POANodePtr record = POANode::find_live(poa);
  return record ? enter_reference(*this, record, ior, flag, *id) : nullptr;
}

void ServantBase::deactivate_ObjectReference() {
  POA_TRACE("ServantBase::dectivate_ObjectReference called...");
  const auto taken = withdraw_references(*this);
  if (!taken) {
    POA_TRACE("ServantBase::deactivate_ObjectReference end...[_object_ref = NULL]");
    return;
  }
  for (const WithdrawnReference& reference : *taken) {
    ActiveObjectMap* map = reference.home ? reference.home->active_object_map.load() : nullptr;
    if (!map) continue;
    PoaSemaphoreGuard guard(__LINE__);
    map->deactivateByOid(guard, oid_view(reference.oid));
    map->removeById(guard, oid_view(reference.oid), this);
  }
  POA_TRACE("ServantBase::deactivate_ObjectReference end...[ior is not found in _object_ref]");
}

ServantBase::~ServantBase() {
  if (_timer > 0) {
    MutexGuard guard(poa_svt_lifespan_mutex);
    servant_lifespan_list().remove(this);
  }
  if (_active_entries != 0)
    ActiveObjectMap::forget_servant(this);  // deleted while active: no request may find it
  discard_references(*this);
}

// ---- Requests that every servant serves ---------------------------------------------------------

namespace {

namespace idl = CORBA::idl;
constexpr idl::operation<ServantBase, idl::ref<CORBA::InterfaceDef>()> get_interface{
    "_get_interface", &ServantBase::_get_interface};
constexpr idl::operation<ServantBase, CORBA::Boolean(idl::in<idl::string<>>)> is_a{"_is_a",
                                                                                   &ServantBase::_is_a};
constexpr idl::operation<ServantBase, CORBA::Boolean()> non_existent{"_non_existent",
                                                                     &ServantBase::_non_existent};

template <class Target>
unsigned char serve_own(const idl::OperationInfo& operation, Target& target, void* request,
                        unsigned char response_expected) {
  return idl::ServerCall(request, response_expected != 0, &target).serve(operation);
}

/// The question of references that do not know their object's interface.
struct Questioned {
  char* repository_id(CORBA::Environment&) { return CORBA::string_dup(id ? id : ""); }
  const char* id;
};
constexpr idl::operation<Questioned, idl::string<>()> repository_id{"_repository_id",
                                                                    &Questioned::repository_id};

unsigned char serve_question(const char* id, void* request, unsigned char response_expected) {
  Questioned questioned{id};
  return serve_own(repository_id, questioned, request, response_expected);
}

/// What `invoke` does with an operation name.
struct OwnOperation {
  std::string_view name;
  unsigned char (ServantBase::*skeleton)(void*, void*, CORBA::ULong, unsigned char, void*);
  const char* trace;
};
constexpr OwnOperation OWN_OPERATIONS[] = {
    {get_interface.name, &ServantBase::_skel__get_interface_,
     "ServantBase::invoke end...[_OP_PortableServer_ServantBase__get_interface_]"},
    {is_a.name, &ServantBase::_skel_is_a, "ServantBase::invoke end...[_OP_PortableServer_ServantBase_is_a]"},
    {non_existent.name, &ServantBase::_skel_non_exitent,
     "ServantBase::invoke end...[_OP_PortableServer_ServantBase_non_existent]"},
};

const OwnOperation* own_operation(const char* name) {
  for (const OwnOperation& operation : OWN_OPERATIONS)
    if (name && operation.name == name) return &operation;
  return nullptr;
}

/// Asks one accessor of the request record. False, and the exception handed to `ev`, when it reports one.
template <class Value>
bool ask(Value (*accessor)(void*, CORBA_Environment*), void* record, Value& value, CORBA::Environment& ev,
         const char* before, const char* failed) {
  POA_TRACE("%s", before);
  CORBA_Environment core{};
  value = accessor(record, &core);
  if (core._major == CORBA_NO_EXCEPTION) return true;
  ev.set_ref(&core);
  POA_TRACE("%s", failed);
  return false;
}

}  // namespace

unsigned char ServantBase::_skel__get_interface_(void* request, void*, CORBA::ULong,
                                                 unsigned char response_expected, void*) {
  return serve_own<ServantBase>(get_interface, *this, request, response_expected);
}

unsigned char ServantBase::_skel_is_a(void* request, void*, CORBA::ULong, unsigned char response_expected,
                                      void*) {
  return serve_own<ServantBase>(is_a, *this, request, response_expected);
}

unsigned char ServantBase::_skel_non_exitent(void* request, void*, CORBA::ULong,
                                             unsigned char response_expected, void*) {
  return serve_own<ServantBase>(non_existent, *this, request, response_expected);
}

CORBA::Boolean ServantBase::invoke(CORBA::ServerRequest* server_request, CORBA::Environment& ev) {
  POA_TRACE("ServantBase::invoke called...");
  void* record = server_request->get_ref();
  void* request = nullptr;
  unsigned int type = 0;
  unsigned char response_expected = 0;
  char* name = nullptr;
  constexpr const char* failed = "ServantBase::invoke end...[env._major != CORBA_NO_EXCEPTION]";
  const bool asked =
      ask(server_CORBA_ServerRequest_request, record, request, ev,
          "ServantBase::invoke [server_CORBA_ServerRequest_request invoke]", failed) &&
      ask(server_CORBA_ServerRequest_request_type, record, type, ev,
          "ServantBase::invoke [server_CORBA_ServerRequest_request_type invoke]",
          "ServantBase::invoke end...[env._major != CORBA_NO_ECEPTION]") &&
      ask(server_CORBA_ServerRequest_response_expected, record, response_expected, ev,
          "ServantBase::invoke [server_CORBA_ServerRequest_response_expected invoke]", failed) &&
      ask(server_CORBA_ServerRequest_operation, record, name, ev,
          "ServantBase::invoke [server_CORBA_ServerRequest_operation invoke]", failed);
  if (!asked) return 0;
  const CORBA::String_var owned(name);
  if (name && std::strcmp(repository_id.name, name) == 0)
    return serve_question(_intf, request, response_expected);
  const OwnOperation* operation = own_operation(name);
  POA_TRACE("%s",
            operation ? operation->trace : "PortableServer::ServantBase::invoke end...[return CORBA_FALSE]");
  return operation ? (this->*operation->skeleton)(request, nullptr, type, response_expected, nullptr) : 0;
}

// ---- Derived bases ------------------------------------------------------------------------------

RefCountServantBase::RefCountServantBase() = default;
RefCountServantBase::RefCountServantBase(const RefCountServantBase& other) : ServantBase(other) {}
RefCountServantBase& RefCountServantBase::operator=(const RefCountServantBase&) { return *this; }
RefCountServantBase::~RefCountServantBase() = default;
void RefCountServantBase::_add_ref() { ++_ref_count; }
CORBA::ULong RefCountServantBase::_refcount_value() { return _ref_count; }

void RefCountServantBase::_remove_ref() {
  if (--_ref_count == 0) delete this;
}

}  // namespace PortableServer
