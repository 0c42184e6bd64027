#include "calls/client_calls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <optional>

#include "base/options.h"
#include "base/process_life.h"
#include "calls/in_process.h"
#include "references/call_scope.h"
#include "references/environment.h"
#include "references/method_table.h"
#include "requests/request_message.h"
#include "requests/server_request.h"
#include "requests/upcall.h"
#include "requests/watched_requests.h"
#include "wire/cdr_chain.h"
#include "zrsv/of_thread.h"

namespace zrsv {
namespace {

using Phase = ClientRequest::Phase;

// Requests that a thread keeps: one call may be made while another is under way.
constexpr std::size_t max_kept = 8;
// Memory that a kept request holds on to, each way.
constexpr std::size_t max_kept_octets = large_from;

// Minor codes of what is wrong with a call itself rather than with its way.
constexpr Fault no_object{"INV_OBJREF", 1};       // null object
constexpr Fault no_way{"INV_OBJREF", 2};          // the reference has no address of a protocol known here
constexpr Fault other_address{"INV_OBJREF", 3};   // the server wants to be addressed in another form
constexpr Fault bad_argument{"BAD_PARAM", 1};     // null where something is needed
constexpr Fault wrong_order{"BAD_INV_ORDER", 1};  // a step of a call out of its turn
constexpr Fault destroyed{"BAD_INV_ORDER", 2};    // the ORB is destroyed
constexpr Fault forked{"BAD_INV_ORDER", 3};       // the ORB is that of the parent process
constexpr Fault orb_gone{"BAD_INV_ORDER", 0x4F4D0004};  // the reference's ORB is destroyed
constexpr Fault too_long{"IMP_LIMIT", 1};               // over -ORBMaxMessage
constexpr Fault no_operation{"BAD_OPERATION", 1};
constexpr Fault malformed{"MARSHAL", 1};
constexpr Fault too_many_forwards{"TRANSIENT", 5};

}  // namespace

bool fail(Fault why) {
  set_last_failure(why.name, why.minor);
  return false;
}

namespace {

/// Why this process can make no calls.
[[gnu::cold]] bool fail_unusable() {
  if (!in_forked_child()) return fail(destroyed);
  log_forked_child();
  return fail(forked);
}

bool is(Fault why, const char* name) { return why && std::strcmp(why.name, name) == 0; }

// ---- Requests that a thread keeps -----------------------------------------------------------------------

struct Kept {
  std::array<std::unique_ptr<ClientRequest>, max_kept> free;
  std::size_t count = 0;
};

}  // namespace

std::unique_ptr<ClientRequest> take_kept() {
  Kept* const kept = of_thread<Kept>();
  if (!kept || kept->count == 0) return std::make_unique<ClientRequest>();
  return std::move(kept->free[--kept->count]);
}

void keep_for_later(ClientRequest* done) {
  if (done->connection) done->connection.reset();
  if (done->forward) done->forward = {};
  if (done->cdr.out_limit - done->cdr.out_base > static_cast<std::ptrdiff_t>(max_kept_octets))
    OM_cdr_close(&done->cdr);
  done->cdr.apart = {};
  done->cdr.in_block = nullptr;
  done->call.reply.message.clear();
  done->call.reply.message.shrink(max_kept_octets);
  Kept* const kept = of_thread<Kept>();
  if (kept && kept->count < max_kept) {
    kept->free[kept->count++].reset(done);
  } else {
    delete done;
  }
}

namespace {

// ---- The way to the object ------------------------------------------------------------------------------

/// Runs the call in this process. A time limit that passes is told by recv: the call may be running.
Fault run_here(ClientRequest* request, Reference& target) {
  const Fault why = call_in_process(*request, target, request->operation.c_str());
  const bool late = is(why, "TIMEOUT");
  request->call.fault = late ? why : fault::none;
  return late && request->response_expected ? fault::none : why;
}

/// Has a thread of the engine run it. The message stays here: a forward may need it.
[[gnu::cold]] Fault run_elsewhere(ClientRequest* request, Reference& target) {
  if (request->bare && !put_head(request, request->key)) return fault::no_memory;
  Buffer message;
  if (!message.append(request->cdr.out_base, encoded(request->cdr))) return fault::no_memory;
  const auto call = std::make_shared<LocalCall>(false);
  if (request->deferral) request->deferral->attempt(call);
  return call_in_process_later(*request, target, std::move(message), call);
}

Fault send_over(ClientRequest* request, ClientPool::Connection connection, bool* dead) {
  if (request->deferral) [[unlikely]]
    request->deferral->attempt();
  const auto sent =
      connection->send(&request->cdr, &request->call, request->response_expected, request->deadline);
  *dead = sent == ClientConnection::Sent::Dead;
  if (sent == ClientConnection::Sent::Yes) {
    request->connection = std::move(connection);
    return fault::none;
  }
  if (!*dead) return fault::time_limit;
  client_pool().discard(connection);
  return fault::no_connection;
}

/// Sends to one address. A connection that turns out dead is made anew, once.
Fault send_to_address(ClientRequest* request, EndpointView to, Deadline connect_by) {
  bool dead = true;
  Fault why = fault::no_connection;
  for (int attempt = 0; attempt < 2 && dead; ++attempt) {
    ClientPool::Connection connection = client_pool().get(to, connect_by, &request->call.now, &why);
    if (!connection) return why;
    why = send_over(request, std::move(connection), &dead);
  }
  return why;
}

/// Sends to the first address of the target that takes the call; those whose connection is open come first.
Fault send_to_any(ClientRequest* request, const Reference& target) {
  const std::vector<IiopProfile>& addresses = target.iiop();
  for (const IiopProfile& a : addresses) {
    ClientPool::Connection open =
        client_pool().find({a.host, a.port}, request->call.now, &request->last_connection);
    if (!open) continue;
    if (!address_anew(request, a.key)) return fault::no_memory;
    bool dead = false;
    const Fault why = send_over(request, std::move(open), &dead);
    if (!dead) return why;
  }
  Fault why = no_way;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    const bool last = i + 1 == addresses.size();
    if (!address_anew(request, addresses[i].key)) return fault::no_memory;
    why = send_to_address(request, {addresses[i].host, addresses[i].port},
                          last ? request->deadline : half_way(request->deadline));
    if (!is(why, "TRANSIENT")) return why;
  }
  return why;
}

Fault send_to(ClientRequest* request, Reference& target) {
  if (!target.is_local()) return send_to_any(request, target);
  if (!address_anew(request, target.key())) return fault::no_memory;
  if (options().in_process)
    return request->elsewhere ? run_elsewhere(request, target) : run_here(request, target);
  const std::vector<Endpoint>& own = published_endpoints();
  if (own.empty()) return fault::not_serving;
  return send_to_address(request, {own.front().host, own.front().port}, request->deadline);
}

}  // namespace

void drop_forward(ClientRequest* request) {
  if (!request->forward || request->object->forward().get() != request->forward.get()) return;
  request->object->clear_forward();
}

Fault dispatch(ClientRequest* request) {
  const Fault why = send_to(request, request->target());
  if (!request->forward || !is(why, "TRANSIENT")) return why;
  drop_forward(request);
  if (request->bare || !request->cdr.out_base) return why;  // it went to an object of this process
  const CodeSets sets = code_sets_for(*request, *request->object);
  if (sets.narrow != request->code_sets.narrow || sets.wide != request->code_sets.wide) return why;
  if (sets.said && !request->code_sets.said) {  // it takes another header
    request->code_sets = sets;
    request->key = {};
  }
  const Ref<Reference> last_key = std::move(request->forward);  // the message still has its key
  return send_to(request, *request->object);
}

Fault or_time_limit(const ClientRequest& request, Fault why) {
  return is(why, "TRANSIENT") && Clock::now() >= request.deadline ? fault::time_limit : why;
}

bool redirect(ClientRequest* request) {
  request->forward = request->object->forward();
  const Reference& target = request->target();
  const CodeSets sets = code_sets_for(*request, target);
  const CodeSets now = request->code_sets;
  if (sets.narrow != now.narrow || sets.wide != now.wide || target.least_minor() < request->call.minor)
    return false;
  if (sets.said && !now.said) {  // it takes another header
    request->code_sets = sets;
    request->key = {};
  }
  return true;
}

namespace {

/// Waits for the reply; a server that closes in good order before it took the request gets it once more.
Fault await(ClientRequest* request) {
  ClientCall* call = &request->call;
  while (request->connection) {
    std::optional<SlotLoan> loan;
    if (request->nested) loan.emplace();
    if (!request->connection->receive(call, request->deadline)) {
      drop_forward(request);
      return fault::time_limit;
    }
    if (call->state == ClientCall::State::Answered) return fault::none;
    client_pool().discard(request->connection);
    request->connection.reset();
    if (call->state != ClientCall::State::Unheard) {
      drop_forward(request);
      return call->fault;
    }
    if (std::exchange(request->sent_again, true)) return fault::turned_away;
    call->now = Clock::now();
    if (const Fault why = or_time_limit(*request, dispatch(request))) return why;
  }
  return call->fault;
}

// ---- The steps of a call --------------------------------------------------------------------------------

bool runs_directly(const Reference& target) {
  return target.is_local() && target.is_internal() && has_table(target.intf_name());
}

/// Taken in lots: the counter is one for all threads.
uint32_t new_id(ClientRequest& request) {
  static std::atomic<uint32_t> next_lot{0};
  constexpr uint32_t lot = 16;
  if (request.id_in_lot == 0) request.next_id = next_lot.fetch_add(lot, std::memory_order_relaxed);
  request.id_in_lot = (request.id_in_lot + 1) % lot;
  return request.next_id++;
}

}  // namespace

void begin_call(ClientRequest* request, Reference* object, bool response_expected) {
  request->object = object;
  request->forward = object->forward();
  request->response_expected = response_expected;
  request->sent_again = false;
  request->nested = request->one_off = Upcall::request() != nullptr;
  request->deadline = Deadline::max();
  request->phase = Phase::Created;
  request->elsewhere = false;
  request->call.state.store(ClientCall::State::Idle, std::memory_order_relaxed);  // nobody else knows it
  request->call.id = new_id(*request);
  request->call.minor = version_for(*request);
  const Reference& target = request->target();
  request->kind = runs_directly(target) ? ZR_REQUEST_DIRECT : ZR_REQUEST_IIOP;
  request->key = key_for(target, 0);
  request->code_sets = code_sets_for(*request, target);
  request->bare = target.is_local() && options().in_process;
}

namespace {

/// Nothing is made, and true returned, when who watches it sent it elsewhere: it is to be made anew.
bool create(Reference* object, const char* operation, bool response_expected,
            std::unique_ptr<ClientRequest>* made) {
  std::unique_ptr<ClientRequest> request = take_kept();
  begin_call(request.get(), object, response_expected);
  request->operation = operation;
  if (request->kind == ZR_REQUEST_IIOP) {
    if (!request->target().can_be_called()) return fail(no_way);
    if (requests_watched.load(std::memory_order_relaxed)) [[unlikely]] {
      request->bare = false;  // contexts need a message
      const Start start = start_watch(request.get());
      if (start != Start::Goes) return start == Start::Forwarded;
    }
    if (!begin_message(request.get())) return fail(fault::no_memory);
  }
  *made = std::move(request);
  return true;
}

[[gnu::cold]] bool fail_too_long(const ClientRequest& request) {
  OM_log("request %s not sent: %zu octets, over -ORBMaxMessage %u", request.operation.c_str(),
         body_size(request), options().max_message);
  return fail(too_long);
}

[[gnu::always_inline]] inline bool prepare(ClientRequest* request) {
  if (request->kind != ZR_REQUEST_IIOP || request->phase != Phase::Created) return fail(wrong_order);
  if (!is_usable()) return fail_unusable();
  request->phase = Phase::Over;
  if (!put_together_to_cut(&request->cdr)) return fail(fault::no_memory);
  end_message(request);
  if (body_size(*request) > options().max_message) return fail_too_long(*request);
  if (!request->bare) start_clock(*request);
  return true;
}

bool send(ClientRequest* request) {
  if (!prepare(request)) return false;
  if (const Fault why = or_time_limit(*request, dispatch(request))) return fail(why);
  if (request->response_expected) {
    request->phase = Phase::Sent;
  } else {
    request->connection.reset();
  }
  return true;
}

bool receive(ClientRequest* request) {
  if (request->phase != Phase::Sent) return fail(wrong_order);
  if (in_forked_child()) return fail_unusable();
  request->phase = Phase::Over;
  if (const Fault why = await(request)) return fail(why);
  request->phase = Phase::Answered;
  return true;
}

[[gnu::cold]] void end_deferral(ClientRequest* request) {
  request->deferral->end();
  request->deferral.reset();
}

}  // namespace

void show_reply(ClientRequest* request) {
  const CDR& body = request->call.reply.body;
  request->cdr.direction = CDR_DECODE;
  request->cdr.swap = body.swap;
  request->cdr.minor_version = body.minor_version;
  request->cdr.in_base = body.in_base;
  request->cdr.in_next = body.in_next;
  request->cdr.in_end = body.in_end;
  request->cdr.in_cuts = body.in_cuts;
  request->cdr.in_block = &request->call.reply.message;
}

namespace {

/// Memory that runs out anywhere in a step is that step's failure.
template <class Step>
unsigned char step(Step&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return fail(fault::no_memory);
  }
}

}  // namespace

bool finish_message(ClientRequest* request) {
  if (!prepare(request)) return false;
  if (request->bare) start_clock(*request);
  return true;
}

}  // namespace zrsv

using namespace zrsv;

unsigned char OM_req_lib_UNO_IIOP_get_cdr(void* request, CDR** cdr) {
  if (!request || !cdr) return 0;
  *cdr = &static_cast<RequestBase*>(request)->cdr;
  return 1;
}

unsigned char OM_req_lib_initiator_request_create(void* object, const char* operation,
                                                  unsigned char response_expected, void** request,
                                                  uint32_t* kind) {
  if (!object) return fail(no_object);
  if (!operation || !request || !kind) return fail(bad_argument);
  if (!is_usable()) return fail_unusable();
  if (call_scopes_used.load(std::memory_order_relaxed) && is_closed(*as_reference(object))) [[unlikely]]
    return fail(orb_gone);
  return step([&] {
    std::unique_ptr<ClientRequest> made;
    if (!create(as_reference(object), operation, response_expected != 0, &made)) return false;
    if (!made) [[unlikely]]
      return OM_req_lib_initiator_request_create(object, operation, response_expected, request, kind) != 0;
    *kind = made->kind;
    *request = static_cast<RequestBase*>(made.release());
    return true;
  });
}

unsigned char ZR_runs_directly(void* handle) {
  if (!handle || !is_usable()) return 0;
  const Reference* const object = as_reference(handle);
  const Ref<Reference> forward = object->forward();
  return runs_directly(forward ? *forward : *object);
}

unsigned char OM_req_lib_INTRA_PROCESS_get_method(void* request, ZR_method* method) {
  if (!request || !method) return fail(bad_argument);
  const ClientRequest* r = client_request(request);
  if (r->kind != ZR_REQUEST_DIRECT) return fail(wrong_order);
  *method = find_direct(r->target().intf_name(), r->operation);
  return *method != nullptr || fail(no_operation);
}

void OM_req_lib_INTRA_PROCESS_initiator_request_complete(void* request) {
  OM_req_lib_UNO_IIOP_initiator_request_complete(request);
}

unsigned char OM_req_lib_UNO_IIOP_send_request(void* request) {
  if (!request) return fail(bad_argument);
  return step([&] {
    ClientRequest* const r = client_request(request);
    const bool sent = send(r);
    return r->watched ? end_sending(r, sent) : sent;
  });
}

unsigned char OM_req_lib_UNO_IIOP_recv_reply(void* request) {
  if (!request) return fail(bad_argument);
  return step([&] {
    ClientRequest* const r = client_request(request);
    return receive(r) || (r->watched && end_receiving(r));
  });
}

unsigned char OM_req_lib_UNO_IIOP_decode_reply_header(void* request, uint32_t* status) {
  if (!request || !status) return fail(bad_argument);
  ClientRequest* r = client_request(request);
  if (r->phase != Phase::Answered) return fail(wrong_order);
  constexpr uint32_t forward_for_good = 4, needs_addressing_mode = 5;
  *status = r->call.reply.head.status;
  if (*status == needs_addressing_mode) return fail(other_address);
  if (*status == forward_for_good) *status = ZR_REPLY_LOCATION_FORWARD;
  if (r->watched && !end_answered(r, status)) [[unlikely]]
    return 0;
  if (*status != ZR_REPLY_LOCATION_FORWARD) r->object->answered();
  show_reply(r);
  r->cdr.no_outcome = *status == ZR_REPLY_LOCATION_FORWARD;
  return 1;
}

unsigned char OM_req_lib_UNO_IIOP_decode_user_excep_hdr(void* request, CORBA_Environment* ev) {
  if (!request || !ev) return fail(bad_argument);
  Reader in(&client_request(request)->cdr);
  const std::string_view id = in.text();
  if (in.ok()) {
    ZR_set_user_exception(ev, id.data());
    return 1;
  }
  raise_standard(ev, malformed.name, malformed.minor, CORBA_COMPLETED_YES);
  return fail(malformed);
}

unsigned char OM_req_lib_UNO_IIOP_decode_standard_excep(void* request, CORBA_Environment* ev) {
  if (!request || !ev) return fail(bad_argument);
  Reader in(&client_request(request)->cdr);
  const std::string_view id = in.text();
  const uint32_t minor = in.u32();
  const uint32_t completed = in.u32();
  if (in.ok()) {
    const std::string_view name = internal_id(id);
    for (const char* elsewhere : {"TRANSIENT", "COMM_FAILURE", "OBJECT_NOT_EXIST"}) {
      if (name == internal_id(elsewhere)) drop_forward(client_request(request));
    }
    CORBA_BOA_set_standard_exception(ev, id.data(), minor,
                                     std::min<uint32_t>(completed, CORBA_COMPLETED_MAYBE));
    return 1;
  }
  raise_standard(ev, malformed.name, malformed.minor, CORBA_COMPLETED_MAYBE);
  return fail(malformed);
}

void OM_req_lib_UNO_IIOP_initiator_request_complete(void* request) {
  if (!request || in_forked_child()) return;  // a child's copy is left alone with what it holds
  ClientRequest* const r = client_request(request);
  if (r->deferral) [[unlikely]]
    end_deferral(r);
  if (r->watched) end_watch(r);
  if (r->connection && r->phase != Phase::Answered) r->connection->forget(&r->call);
  step([&] { return keep_for_later(r), true; });
}

unsigned char OM_req_lib_set_locate_object(void* object, void* forward) {
  if (!object || !forward) return fail(no_object);
  return as_reference(object)->set_forward(Ref<Reference>::share(as_reference(forward))) ||
         fail(too_many_forwards);
}
