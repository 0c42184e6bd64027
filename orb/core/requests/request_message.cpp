#include "requests/request_message.h"

#include <algorithm>
#include <chrono>

#include "base/options.h"
#include "references/call_scope.h"
#include "requests/call_chain.h"
#include "wire/cdr_chain.h"

namespace zrsv {

std::string_view key_for(const Reference& target, std::size_t address) {
  return target.iiop().empty() ? target.key() : target.iiop()[address].key;
}

uint8_t version_for(const ClientRequest& request) {
  uint32_t minor = std::min<uint32_t>(options().giop_minor, request.object->least_minor());
  if (request.forward) minor = std::min<uint32_t>(minor, request.forward->least_minor());
  return static_cast<uint8_t>(minor);
}

CodeSets code_sets_for(const ClientRequest& request, const Reference& target) {
  if (target.is_local() && options().in_process) return {ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, false};
  return request.call.minor == 0 ? unsaid_code_sets : target.code_sets();
}

namespace {

std::span<const ServiceContext> contexts_of(const ClientRequest& request) {
  return request.watched ? request.watched->contexts : std::span<const ServiceContext>();
}

bool begin_head(ClientRequest* request, CDR* cdr) {
  const ClientCall& call = request->call;
  ClientRequest::Head& head = request->head;
  head.whole = false;
  const std::string chain = request->nested ? chain_of_call() : std::string();
  if (!giop::begin_request(cdr, call.minor, call.id, request->response_expected, request->key,
                           request->operation, request->code_sets, chain, contexts_of(*request))) {
    return false;
  }
  head.end = encoded(*cdr);
  if (!giop::align_body(cdr, call.minor)) return false;
  head.body = encoded(*cdr);
  head.key = request->key;
  head.operation = request->operation;
  head.minor = call.minor;
  head.response_expected = request->response_expected;
  head.code_sets = request->code_sets;
  head.whole = !request->one_off;
  return true;
}

/// The header of the last message, which still stands there, but for the id and what the key is: the same call, on an
/// object whose key is as long.
bool has_head(const ClientRequest& request) {
  const ClientRequest::Head& head = request.head;
  return head.whole && request.cdr.out_base && !request.one_off && head.minor == request.call.minor &&
         head.response_expected == request.response_expected && head.operation == request.operation &&
         head.key.size() == request.key.size() && head.code_sets == request.code_sets;
}

}  // namespace

bool begin_message(ClientRequest* request) {
  CDR* cdr = &request->cdr;
  const bool as_before = !request->bare && has_head(*request);
  if (!cdr->out_base) request->call.reply.message.lend(cdr);
  cdr->out_next = cdr->out_base;
  cdr->direction = CDR_ENCODE;
  cdr->minor_version = request->call.minor;
  cdr->no_outcome = cdr->unconvertible = 0;
  cdr->may_leave_apart = !request->bare;
  cdr->leaves_apart = 0;
  cdr->apart = {};
  cdr->narrow = request->code_sets.narrow;
  cdr->wide = request->code_sets.wide;
  cdr->in_base = cdr->in_next = cdr->in_end = nullptr;
  if (request->bare) {
    request->head.whole = false;
    request->head.end = request->head.body = 0;
    return true;
  }
  if (!as_before) return begin_head(request, cdr);
  const uint8_t minor = request->call.minor;
  const bool said = request->code_sets.said;
  giop::set_request_id(cdr->out_base, minor, said, request->call.id);
  if (request->head.key != request->key) {
    giop::set_request_key(cdr->out_base, minor, said, request->key);
    request->head.key = request->key;
  }
  cdr->out_next += request->head.body;
  return true;
}

void end_message(ClientRequest* request) {
  CDR* cdr = &request->cdr;
  if (request->bare) return;
  // No body, no padding in front of it.
  if (encoded(*cdr) == request->head.body) cdr->out_next = cdr->out_base + request->head.end;
  giop::end_message(cdr);
}

namespace {

/// Lets the body of a message before 1.2 stand as it stood in the message that it comes from.
bool align_as_before(ClientRequest* request, CDR* cdr, std::size_t old_start) {
  ClientRequest::Head& head = request->head;
  const auto pad = static_cast<uint32_t>((old_start - head.body) & 7);
  if (pad == 0) return true;
  head.whole = false;  // for this message only
  if (!giop::pad_request_1_1(cdr, pad)) return false;
  head.end = head.body = encoded(*cdr);
  return true;
}

}  // namespace

bool put_head(ClientRequest* request, std::string_view key) {
  const std::size_t old_start = request->head.body;
  CDR old = request->cdr;
  CDR fresh{};
  fresh.minor_version = request->call.minor;
  request->key = key;
  bool ok = begin_head(request, &fresh);
  if (ok && request->call.minor < 2) ok = align_as_before(request, &fresh, old_start);
  if (ok && encoded(old) > old_start) {
    ok = put_octets(&fresh, as_view(old.out_base + old_start, encoded(old) - old_start));
  }
  request->cdr.apart.at += static_cast<uint32_t>(request->head.body - old_start);
  std::swap(fresh.out_base, request->cdr.out_base);
  std::swap(fresh.out_next, request->cdr.out_next);
  std::swap(fresh.out_limit, request->cdr.out_limit);
  OM_cdr_close(&fresh);
  request->bare = false;
  if (ok) end_message(request);
  return ok;
}

bool address_anew(ClientRequest* request, std::string_view key) {
  const bool same_octets = request->key.data() == key.data() && request->key.size() == key.size();
  return same_octets || request->key == key || put_head(request, key);
}

std::size_t body_size(const ClientRequest& request) {
  return encoded(request.cdr) + request.cdr.apart.size - (request.bare ? 0 : giop::header_size);
}

Buffer take_message(ClientRequest& request) {
  if (request.bare && !put_head(&request, request.key)) return {};
  return Buffer::take(&request.cdr);
}

void start_clock(ClientRequest& request) {
  std::chrono::nanoseconds limit = std::chrono::milliseconds(options().timeout_ms);
  if (call_scopes_used.load(std::memory_order_relaxed)) [[unlikely]] {
    if (const int64_t said = said_limit(*request.object); said != limit_unsaid)
      limit = std::chrono::nanoseconds(said);
  }
  request.call.now = Clock::now();
  request.deadline = limit.count() ? request.call.now + limit : Deadline::max();
}

}  // namespace zrsv
