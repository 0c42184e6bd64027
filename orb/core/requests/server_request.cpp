#include "requests/server_request.h"

#include <cstring>
#include <exception>
#include <new>

#include "base/options.h"
#include "connections/reply_threads.h"
#include "references/environment.h"
#include "references/method_table.h"
#include "wire/cdr_chain.h"

namespace zrsv {

// ---- Requests in a row (requests.h) ----

Requests::~Requests() {
  while (pop_front()) continue;
}

void Requests::push_back(std::unique_ptr<ServerRequest> request) {
  ServerRequest* const last = request.release();
  (first_ ? last_->next : first_) = last;
  last_ = last;
  ++count_;
}

std::unique_ptr<ServerRequest> Requests::pop_front() {
  std::unique_ptr<ServerRequest> request(first_);
  if (!request) return request;
  first_ = std::exchange(request->next, nullptr);
  --count_;
  return request;
}

void Requests::append(Requests more) {
  while (std::unique_ptr<ServerRequest> request = more.pop_front()) push_back(std::move(request));
}

// ---- What every object answers, and whose the rest is ----

std::atomic<RunWatched> run_watched{nullptr};

namespace {

constexpr const char* interface_def = "IDL:CORBA/InterfaceDef:1.0";
constexpr const char* object_id = "IDL:omg.org/CORBA/Object:1.0";

ServerRequest& as_request(void* handle) {
  return static_cast<ServerRequest&>(*static_cast<RequestBase*>(handle));
}
void* as_handle(ServerRequest& request) { return static_cast<RequestBase*>(&request); }

bool begin_reply(ServerRequest& request, uint32_t status) {
  if (request.bare) {
    request.cdr.out_next = request.cdr.out_base;
    request.cdr.direction = CDR_ENCODE;
    request.reply_status = status;
    return request.replied = true;
  }
  request.replied = false;
  if (!giop::begin_reply(&request.cdr, request.minor, request.head.id, status)) return false;
  request.cdr.direction = CDR_ENCODE;
  return request.replied = giop::align_body(&request.cdr, request.minor);
}

/// A repository id, which is the same in every code set.
bool put_text(CDR* cdr, const char* text) { return Writer(cdr).text(text).ok(); }

bool put_exception(ServerRequest& request, const CORBA_Environment& ev) {
  uint32_t minor = ev._minor, completed = ev._completed;
  request.cdr.direction = CDR_ENCODE;
  return put_text(&request.cdr, PublicId(ev._id).text) && OM_cdr_unsigned_long(&request.cdr, &minor) &&
         OM_cdr_unsigned_long(&request.cdr, &completed);
}

/// Each system exception that leaves does so here.
bool reply_exception(ServerRequest& request, const CORBA_Environment& ev) {
  return request.replied = begin_reply(request, ZR_REPLY_SYSTEM_EXCEPTION) && put_exception(request, ev);
}

// ---- Where a request goes ----

void call_adapter(ServerRequest& request) {
  ZR_ServerRequest record{&request.info};
  CORBA_Environment ev{};
  _call_cpp_(request.target.get(), &record, &ev);
  if (ev._owned) CORBA_exception_free(&ev);
}

/// An object of the program.
void call_object(ServerRequest& request) {
  if (!_call_cpp_) return answer_exception(request, "OBJ_ADAPTER");
  if (const RunWatched watched = run_watched.load(std::memory_order_relaxed)) [[unlikely]]
    return watched(request, call_adapter);
  call_adapter(request);
}

void answer_boolean(ServerRequest& request, bool answer) {
  unsigned char value = answer;
  if (!begin_reply(request, ZR_REPLY_NO_EXCEPTION) || !OM_cdr_boolean(&request.cdr, &value))
    answer_exception(request, "NO_MEMORY", CORBA_COMPLETED_YES);
}

/// The two questions that every object answers. False when it was neither.
bool answer_basic(ServerRequest& request, std::string_view intf) {
  const std::string_view operation = request.head.operation;
  if (operation == "_non_existent" || operation == "_not_existent")
    return answer_boolean(request, false), true;
  if (operation != "_is_a") return false;
  const char* id = nullptr;
  request.cdr.direction = CDR_DECODE;
  if (OM_cdr_string_view(&request.cdr, &id)) {
    answer_boolean(request, id == intf || std::string_view(id) == object_id);
  } else {
    answer_exception(request, "MARSHAL");
  }
  return true;
}

/// An object of the broker's own: served by the operation table of its interface.
void call_table(ServerRequest& request) {
  const std::string& intf = request.target->intf_name();
  if (ZR_skeleton skeleton = find_skeleton(intf, request.head.operation)) {
    const bool ok = skeleton(request.info.request, request.target.get(), request.info.request_type,
                             request.info.response_expected, nullptr);
    // True and no reply: there is no such object (any more).
    if (ok && !request.replied) answer_exception(request, "OBJECT_NOT_EXIST");
    if (!ok) answer_exception(request, "MARSHAL", request.replied ? CORBA_COMPLETED_YES : CORBA_COMPLETED_NO);
    return;
  }
  const bool known = has_table(intf), definition = request.target->impl_name() == interface_def;
  if (!known && !definition) return answer_exception(request, "OBJECT_NOT_EXIST");
  if (!answer_basic(request, intf)) answer_exception(request, known ? "BAD_OPERATION" : "NO_IMPLEMENT");
}

void call(ServerRequest& request, SlotLender* slot_of) {
  const Upcall upcall(&request, slot_of);
  try {
    request.target->is_internal() ? call_table(request) : call_object(request);
  } catch (const std::bad_alloc&) {
    OM_log("operation %s: out of memory", request.head.operation);
    answer_exception(request, "NO_MEMORY", CORBA_COMPLETED_MAYBE);
  } catch (const std::exception& e) {
    OM_log("operation %s: exception past the adapter: %s", request.head.operation, e.what());
    answer_exception(request, "UNKNOWN", CORBA_COMPLETED_MAYBE);
  } catch (...) {
    OM_log("operation %s: exception past the adapter", request.head.operation);
    answer_exception(request, "UNKNOWN", CORBA_COMPLETED_MAYBE);
  }
}

/// Sees to it that the stream holds what is to be sent, and nothing else.
void complete_reply(ServerRequest& request, uint32_t max_message) {
  CDR& cdr = request.cdr;
  if (!request.head.response_expected) {
    Apart::take(&cdr);
    cdr.out_next = cdr.out_base;
    return;
  }
  if (!request.replied) {
    OM_log("operation %s: no reply was written", request.head.operation);
    answer_exception(request, "INTERNAL", CORBA_COMPLETED_MAYBE);
  }
  const std::size_t head = request.bare ? 0 : giop::header_size;
  const std::size_t size = static_cast<std::size_t>(cdr.out_next - cdr.out_base) + cdr.apart.size;
  if (size > head + max_message) {
    OM_log("operation %s: the reply has %zu octets, over -ORBMaxMessage %u", request.head.operation,
           size - head, max_message);
    answer_exception(request, "IMP_LIMIT", CORBA_COMPLETED_YES, minor_over_max_message);
  }
  if (!put_together_to_cut(&cdr)) answer_exception(request, "NO_MEMORY", CORBA_COMPLETED_YES);
  if (!request.bare && cdr.out_next != cdr.out_base) giop::end_message(&cdr);
}

}  // namespace

// ---- The record ----

LocalCall::~LocalCall() = default;

void LocalCall::hand_back(std::unique_ptr<ServerRequest> request) {
  const std::shared_ptr<LocalCall> call = std::move(request->waiter);
  const MutexLock lock(call->mutex);
  call->released = std::move(request);
  call->over.notify_one();
}

void LocalCall::finish(Buffer message, const char* why) {
  {
    const MutexLock lock(mutex);
    reply = std::move(message);
    error = why;
    done = true;
    if (deferred) reply_threads().settled(*deferred);
  }
  over.notify_one();
}

SlotLoan::SlotLoan() : lender_(Upcall::slot_of()) {
  if (!lender_) return;
  lent_ = lender_->lend();
  if (const ServerRequest* const request = Upcall::request()) connection_ = request->connection.get();
  if (connection_) connection_->lend();
}
SlotLoan::~SlotLoan() {
  if (connection_) connection_->take_back();
  if (lender_) lender_->take_back(lent_);
}

bool ServerRequest::read_head(const giop::Header& header) {
  minor = header.minor;
  giop::open_message(&cdr, header, message.data());
  return header.type == giop::Type::Request ? giop::read_request(&cdr, minor, &head)
                                            : giop::read_locate_request(&cdr, minor, &head);
}

bool ServerRequest::own(Buffer whole) {
  message = std::move(whole);
  bare = false;
  giop::Header header;
  if (message.size() < giop::header_size || giop::read_header(message.data(), UINT32_MAX, &header) ||
      message.size() != giop::header_size + std::size_t{header.size} || !read_head(header))
    return false;
  CodeSets said;
  use_code_sets(&said);
  return true;
}

void execute(ServerRequest& request, SlotLender* slot_of, uint32_t max_message, Buffer* reply) noexcept {
  reply->lend(&request.cdr);
  request.cdr.may_leave_apart = static_cast<bool>(request.connection);
  request.info.request = as_handle(request);
  request.info.request_type = request.connection ? ZR_REQUEST_IIOP : ZR_REQUEST_DIRECT;
  request.info.sequence = request.head.id;
  request.info.operation = request.head.operation;
  request.info.response_expected = request.head.response_expected;
  call(request, slot_of);
  if (request.waits.wanted) [[unlikely]] {
    *reply = Buffer::take(&request.cdr);
    return;
  }
  complete_reply(request, max_message);
}

void answer_exception(ServerRequest& request, const char* name, uint32_t completed, uint32_t minor) {
  CORBA_Environment ev{};
  raise_standard(&ev, name, minor, completed);
  // Without memory for this little there is nothing to tell the client with.
  if (!reply_exception(request, ev)) {
    request.cdr.out_next = request.cdr.out_base;
    request.reply_status = no_status;
  }
  request.replied = true;
}

void answer_forward(ServerRequest& request, const Reference& to) {
  if (!begin_reply(request, ZR_REPLY_LOCATION_FORWARD) || !write_reference(&request.cdr, &to))
    answer_exception(request, "NO_MEMORY");
}

}  // namespace zrsv

using namespace zrsv;

// ---- Reply encoders ----

unsigned char OM_req_lib_UNO_IIOP_encode_reply_header(void* request, uint32_t status) {
  return request && status <= ZR_REPLY_LOCATION_FORWARD && begin_reply(as_request(request), status);
}

unsigned char OM_req_lib_UNO_IIOP_encode_standard_excep(void* request, const CORBA_Environment* ev) {
  return request && ev && as_request(request).replied && put_exception(as_request(request), *ev);
}

unsigned char ZR_reply_system_exception(void* request, const CORBA_Environment* ev) {
  return request && ev && reply_exception(as_request(request), *ev);
}

unsigned char OM_req_lib_UNO_IIOP_encode_user_excep_hdr(void* request, const CORBA_Environment* ev) {
  if (!request || !ev || !ev->_id || !as_request(request).replied) return 0;
  as_request(request).cdr.direction = CDR_ENCODE;
  return put_text(&as_request(request).cdr, ev->_id);
}

// ---- Client data ----

int OM_boa_lib_get_iswitch(void) { return options().client_info; }

unsigned char OM_ext_get_client_info_ip6(int32_t* fd, unsigned char* is_ipv6, void* host_addr,
                                         void* /*reserved1*/, void* /*reserved2*/,
                                         CORBA_Environment* /*ev*/) {
  const ServerRequest* request = Upcall::request();
  if (!request || !request->connection) return 0;
  const PeerAddress& peer = request->connection->peer();
  if (fd) *fd = request->connection->number();
  if (is_ipv6) *is_ipv6 = peer.ipv6;
  if (host_addr) std::memcpy(host_addr, peer.octets, peer.ipv6 ? 16 : 4);
  return 1;
}
