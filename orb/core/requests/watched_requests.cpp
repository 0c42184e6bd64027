#include "requests/watched_requests.h"

#include <algorithm>

#include "references/environment.h"
#include "requests/server_request.h"
#include "wire/cdr_chain.h"

namespace zrsv {

std::atomic<bool> requests_watched{false};

namespace {

std::atomic<WatchOutgoing> watch_outgoing{nullptr};
std::atomic<WatchIncoming> watch_incoming{nullptr};

// ---- Outcomes and replies -----------------------------------------------------------------------------------------

std::shared_ptr<void> owned(void* handle) { return {handle, CORBA_object_release}; }

/// What the body of a reply of that status says. `body` is a copy, which is used up.
RequestOutcome read_outcome(CDR body, uint32_t status) {
  RequestOutcome outcome(static_cast<Ending>(status));
  if (outcome.ending == Ending::Forward) {
    void* forward = nullptr;
    body.direction = CDR_DECODE;
    if (OM_cdr_object(&body, &forward)) outcome.forward = owned(forward);
    return outcome;
  }
  if (outcome.ending == Ending::Result) return outcome;
  Reader in(&body);
  outcome.exception = in.text();
  if (outcome.ending != Ending::SystemException) return outcome;
  outcome.minor = in.u32();
  outcome.completed = std::min<uint32_t>(in.u32(), CORBA_COMPLETED_MAYBE);
  return outcome;
}

bool write_outcome(CDR* body, const RequestOutcome& outcome) {
  if (outcome.ending == Ending::Forward) return write_reference(body, as_reference(outcome.forward.get()));
  const PublicId id(outcome.exception.c_str());
  return Writer(body).text(id.text).u32(outcome.minor).u32(outcome.completed).ok();
}

bool begin_reply(CDR* cdr, uint8_t minor, uint32_t id, Ending ending, const ServiceContexts& contexts = {}) {
  return giop::begin_reply_with(cdr, minor, id, static_cast<uint32_t>(ending), contexts);
}

// ---- Clients --------------------------------------------------------------------------------------------------------

bool fail(const RequestOutcome& why) {
  set_last_failure(why.exception.c_str(), why.minor, static_cast<int>(why.completed));
  return false;
}

bool fail_no_memory() {
  set_last_failure(fault::no_memory.name, fault::no_memory.minor);
  return false;
}

/// The end, which comes once. True when the watch changed it.
bool tell(ClientRequest* request, const ContextViews& contexts, RequestOutcome* outcome) {
  const std::unique_ptr<ClientWatch> watch = std::move(request->watched->watch);
  return watch && watch->end(contexts, outcome);
}

/// Makes the outcome the request's reply, as if it had come.
bool put_reply(ClientRequest* request, const RequestOutcome& outcome) {
  ClientCall& call = request->call;
  CDR made{};
  const bool written = begin_reply(&made, call.minor, call.id, outcome.ending) &&
                       giop::align_body(&made, call.minor) && write_outcome(&made, outcome);
  if (written) giop::end_message(&made);
  call.reply.message = Buffer::take(&made);
  giop::Header header;
  if (!written || giop::read_header(call.reply.message.data(), UINT32_MAX, &header) ||
      call.reply.open(header))
    return fail_no_memory();
  call.fault = fault::none;
  return true;
}

bool forward_target(ClientRequest* request, const RequestOutcome& outcome) {
  return OM_req_lib_set_locate_object(request->object, outcome.forward.get());
}

}  // namespace

Start start_watch(ClientRequest* request) {
  const WatchOutgoing make = watch_outgoing.load();
  auto watched = std::make_unique<Watched>();
  if (make) watched->watch = make(request->object);
  if (!watched->watch) return Start::Goes;
  const OutgoingRequest seen{request->call.id, request->operation.c_str(), request->response_expected,
                             request->object, &request->target()};
  RequestOutcome outcome;
  if (watched->watch->start(seen, &watched->contexts, &outcome)) {
    request->one_off |= !watched->contexts.empty();
    request->watched = std::move(watched);
    return Start::Goes;
  }
  if (outcome.ending != Ending::Forward) return fail(outcome), Start::Failed;
  return forward_target(request, outcome) ? Start::Forwarded : Start::Failed;
}

namespace {

/// A step on this side failed. True when the request has a reply all the same.
bool end_failed(ClientRequest* request, uint32_t completed) {
  CORBA_Environment ev{};
  SetStdExReqLib(completed, &ev);
  const RequestOutcome failure(PublicId(ev._id).text, ev._minor, ev._completed);
  RequestOutcome outcome = failure;
  if (!tell(request, {}, &outcome)) return fail(failure);
  if (outcome.ending != Ending::Forward) return fail(outcome);
  if (!request->response_expected) return forward_target(request, outcome), fail(failure);
  return put_reply(request, outcome);
}

bool end_without_reply(ClientRequest* request) {
  RequestOutcome outcome(Ending::NoReply);
  if (!tell(request, {}, &outcome)) return true;
  return outcome.ending == Ending::Forward ? forward_target(request, outcome) : fail(outcome);
}

}  // namespace

bool end_sending(ClientRequest* request, bool sent) {
  if (sent) return request->response_expected || end_without_reply(request);
  if (!end_failed(request, CORBA_COMPLETED_NO)) return false;
  request->phase = ClientRequest::Phase::Sent;  // so that the reply is asked for, and found
  return true;
}

bool end_receiving(ClientRequest* request) {
  if (!end_failed(request, CORBA_COMPLETED_MAYBE)) return false;
  request->phase = ClientRequest::Phase::Answered;
  return true;
}

bool end_answered(ClientRequest* request, uint32_t* status) noexcept try {
  const Reply& reply = request->call.reply;
  RequestOutcome outcome = read_outcome(reply.body, *status);
  if (!tell(request, giop::reply_contexts(reply.message), &outcome)) return true;
  *status = static_cast<uint32_t>(outcome.ending);
  return put_reply(request, outcome);
} catch (const std::bad_alloc&) {
  return fail_no_memory();
}

void end_watch(ClientRequest* request) noexcept {
  try {
    RequestOutcome outcome;
    if (request->phase == ClientRequest::Phase::Created) {  // its arguments could not be written
      CORBA_Environment ev{};
      SetStdExCDR(&request->cdr, CORBA_COMPLETED_NO, &ev);
      outcome = {PublicId(ev._id).text, ev._minor, ev._completed};
    }
    tell(request, {}, &outcome);
  } catch (const std::bad_alloc&) {
    OM_log("out of memory: nobody heard of the end of %s", request->operation.c_str());
  }
  request->watched.reset();
}

// ---- Servers --------------------------------------------------------------------------------------------------------

namespace {

/// What the reply that stands in the stream says.
RequestOutcome outcome_of(const ServerRequest& request) {
  if (!request.replied) {
    if (!request.head.response_expected) return RequestOutcome(Ending::NoReply);
    return {PublicId("INTERNAL").text, 0, CORBA_COMPLETED_MAYBE};
  }
  CDR body{};
  const auto size = static_cast<uint32_t>(request.cdr.out_next - request.cdr.out_base);
  OM_cdr_open_decode(&body, request.cdr.out_base, size, false);
  body.minor_version = request.minor;
  body.in_next += giop::reply_body;
  RequestOutcome outcome = read_outcome(body, giop::status_of(request.cdr.out_base, request.minor));
  if (!request.head.response_expected && outcome.ending == Ending::Result)
    return RequestOutcome(Ending::NoReply);
  return outcome;
}

void answer(ServerRequest& request, const RequestOutcome& outcome) {
  if (outcome.ending == Ending::Forward) return answer_forward(request, *as_reference(outcome.forward.get()));
  answer_exception(request, outcome.exception.c_str(), outcome.completed, outcome.minor);
}

/// The same reply with contexts in its header.
void add_contexts(ServerRequest& request, const ServiceContexts& contexts) {
  if (contexts.empty() || !request.replied || !request.head.response_expected) return;
  CDR& old = request.cdr;
  CDR fresh{};
  const auto body = as_view(old.out_base + giop::reply_body,
                            static_cast<std::size_t>(old.out_next - old.out_base) - giop::reply_body);
  const auto status = static_cast<Ending>(giop::status_of(old.out_base, request.minor));
  const bool made = begin_reply(&fresh, request.minor, request.head.id, status, contexts) &&
                    (body.empty() || giop::align_body(&fresh, request.minor)) && put_octets(&fresh, body);
  std::swap(fresh.out_base, old.out_base);
  std::swap(fresh.out_next, old.out_next);
  std::swap(fresh.out_limit, old.out_limit);
  OM_cdr_close(&fresh);
  if (!made) answer_exception(request, "NO_MEMORY", CORBA_COMPLETED_YES);
}

/// False: the request has its reply.
bool arrives(ServerRequest& request) {
  const IncomingRequest seen{request.head.id, request.head.operation, request.head.response_expected,
                             giop::request_contexts(request.cdr, request.head)};
  RequestOutcome outcome;
  ServiceContexts contexts;
  if (request.watch->arrive(seen, &contexts, &outcome)) return true;
  request.watch.reset();
  answer(request, outcome);
  add_contexts(request, contexts);
  return false;
}

void ends(ServerRequest& request) {
  const std::unique_ptr<ServerWatch> watch = std::move(request.watch);
  if (!ZR_cdr_put_together(&request.cdr)) answer_exception(request, "NO_MEMORY", CORBA_COMPLETED_YES);
  RequestOutcome outcome = outcome_of(request);
  ServiceContexts contexts;
  if (watch->end(&contexts, &outcome)) answer(request, outcome);
  add_contexts(request, contexts);
}

/// Has the object adapter run the request, with its watch around it.
[[gnu::cold]] void run_with_watch(ServerRequest& request, void (*run)(ServerRequest&)) {
  const WatchIncoming make = watch_incoming.load();
  if (!request.watch && make && !request.bare) {  // else it comes back from where it waited, or was under way
    request.watch = make();
    if (request.watch && !arrives(request)) return;
  }
  run(request);
  if (request.watch && !request.waits.wanted) ends(request);
}

}  // namespace

void watch_requests(WatchOutgoing outgoing, WatchIncoming incoming) {
  if (outgoing) watch_outgoing = outgoing;
  if (incoming) watch_incoming = incoming;
  requests_watched = true;
  run_watched = run_with_watch;
}

bool servant_is_ready(void* handle, const ServantView& servant) {
  ServerRequest& request = static_cast<ServerRequest&>(*static_cast<RequestBase*>(handle));
  RequestOutcome outcome;
  if (!request.watch || request.watch->ready(servant, &outcome)) return true;
  answer(request, outcome);
  return false;
}

}  // namespace zrsv
