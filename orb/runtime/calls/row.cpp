#include "corba/detail/row.h"

#include <new>
#include <span>

#include "base/call_failures.h"
#include "base/raise.h"
#include "calls/row_steps.h"
#include "corba/detail/own_row.h"

namespace CORBA::idl {
namespace {

template <std::size_t N>
bool write_plain(CDR* cdr, const void* slot) {
  unsigned char* at = zrsv::claim<N>(cdr);
  if (at) std::memcpy(at, slot, N);
  return at != nullptr;
}
template <std::size_t N>
bool read_plain(CDR* cdr, void* slot) {
  const unsigned char* at = zrsv::take<N>(cdr);
  if (!at) return false;
  zrsv::Bits<N> bits;
  std::memcpy(&bits, at, N);
  if (cdr->swap) bits = zrsv::reversed(bits);
  std::memcpy(slot, &bits, N);
  return true;
}

[[gnu::always_inline]] inline bool encode_arguments(CDR* cdr, const Arguments& arguments,
                                                    void* const* slots) {
  for (const Argument *at = arguments.first, *end = at + arguments.count; at != end; ++at) {
    void* slot = slots[at->slot];
    if (!(at->size == 4   ? write_plain<4>(cdr, slot)
          : at->size == 8 ? write_plain<8>(cdr, slot)
                          : at->move(cdr, slot)))
      return false;
  }
  return true;
}

[[gnu::always_inline]] inline bool decode_arguments(CDR* cdr, const Arguments& arguments,
                                                    void* const* slots) {
  for (const Argument *at = arguments.first, *end = at + arguments.count; at != end; ++at) {
    void* slot = slots[at->slot];
    if (!(at->size == 4   ? read_plain<4>(cdr, slot)
          : at->size == 8 ? read_plain<8>(cdr, slot)
                          : at->move(cdr, slot)))
      return false;
  }
  return true;
}

}  // namespace

const ListedException* find_listed(const ExceptionList& list, const char* id) {
  for (unsigned i = 0; id && i < list.count; ++i)
    if (std::strcmp(list.first[i].id, id) == 0) return &list.first[i];
  return nullptr;
}

namespace {

// ---- Stubs ------------------------------------------------------------------------------------------------

/// A request, completed on every way out.
class Request {
 public:
  Request(Object* self, const OperationInfo& operation, Environment& ev) {
    std::uint32_t kind = 0;
    if (!OM_req_lib_initiator_request_create(self->get_ref(), operation.name, !operation.oneway, &request_,
                                             &kind))
      fail_request(CORBA_COMPLETED_NO, ev);
    complete_ = kind == ZR_REQUEST_DIRECT ? OM_req_lib_INTRA_PROCESS_initiator_request_complete
                                          : OM_req_lib_UNO_IIOP_initiator_request_complete;
  }
  /// One that was sent already.
  explicit Request(void* sent) : request_(sent), complete_(OM_req_lib_UNO_IIOP_initiator_request_complete) {}
  ~Request() { complete_(request_); }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  void* get() const { return request_; }

 private:
  void* request_ = nullptr;
  void (*complete_)(void*);
};

void read_results(CDR* cdr, const OperationInfo& operation, void* const* slots, Environment& ev) {
  bool read = false;
  try {
    read = decode_arguments(cdr, operation.out, slots);
  } catch (const std::bad_alloc&) {
    fail_memory(ev);
  }
  if (!read) fail_marshal(cdr, CORBA_COMPLETED_YES, ev);
}

constexpr ULong minor_unlisted_exception = OMGVMCID | 1;

/// What becomes of a user exception that the operation does not list.
enum class Unlisted { thrown_as_unknown, left_in_environment };

/// Throws the user exception of the reply.
void throw_user_exception(void* request, CDR* cdr, const OperationInfo& operation, Unlisted unlisted,
                          Environment& ev) {
  CORBA_Environment filled{};
  const bool read = OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request, &filled);
  ev.set_ref(&filled);
  if (!read) fail_marshal(cdr, CORBA_COMPLETED_YES, ev);
  const ListedException* listed = find_listed(operation.exceptions, CORBA_exception_id(ev._evp));
  if (!listed && unlisted == Unlisted::left_in_environment) return;
  if (!listed) raise<UNKNOWN>(ev, minor_unlisted_exception, COMPLETED_MAYBE);
  std::unique_ptr<UserException> made(listed->make());
  cdr->direction = CDR_DECODE;
  if (!listed->move(cdr, made.get())) fail_marshal(cdr, CORBA_COMPLETED_YES, ev);
  ev.exception(made.release());
  raise_environment(ev);
}

CDR* stream_of(void* request, Environment& ev) {
  CDR* cdr = nullptr;
  if (!OM_req_lib_UNO_IIOP_get_cdr(request, &cdr)) fail_marshal(cdr, CORBA_COMPLETED_NO, ev);
  return cdr;
}

/// Takes the reply of a request that was sent. False: it was forwarded.
[[gnu::always_inline]] inline bool take_reply(Object* self, void* request, CDR* cdr,
                                              const OperationInfo& operation, void* const* slots,
                                              Unlisted unlisted, Environment& ev) {
  std::uint32_t status = 0;
  if (!OM_req_lib_UNO_IIOP_recv_reply(request) || !OM_req_lib_UNO_IIOP_decode_reply_header(request, &status))
    fail_request(CORBA_COMPLETED_MAYBE, ev);
  cdr->direction = CDR_DECODE;
  switch (status) {
    case ZR_REPLY_USER_EXCEPTION:
      throw_user_exception(request, cdr, operation, unlisted, ev);
      return true;
    case ZR_REPLY_SYSTEM_EXCEPTION:
      throw_reply_exception(request, ev);
    case ZR_REPLY_LOCATION_FORWARD:
      follow_forward(self, cdr, ev);
      return false;
    default:
      read_results(cdr, operation, slots, ev);
      return true;
  }
}

/// Sends a request and takes its reply. False: it was forwarded.
[[gnu::always_inline]] inline bool exchange(Object* self, void* request, bool response_expected,
                                            const OperationInfo& operation, void* const* slots,
                                            Unlisted unlisted, Environment& ev) {
  CDR* const cdr = stream_of(request, ev);
  cdr->direction = CDR_ENCODE;
  cdr->leaves_apart = 1;  // the arguments stay until the call returns
  if (!encode_arguments(cdr, operation.in, slots)) fail_marshal(cdr, CORBA_COMPLETED_NO, ev);
  if (!OM_req_lib_UNO_IIOP_send_request(request)) fail_request(CORBA_COMPLETED_NO, ev);
  return !response_expected || take_reply(self, request, cdr, operation, slots, unlisted, ev);
}

/// What a call moves, for the ORB core.
struct Moved {
  const OperationInfo& operation;
  void* const* slots;
  Environment& ev;

  static unsigned char arguments(CDR* cdr, void* of) {
    const Moved& moved = *static_cast<Moved*>(of);
    return encode_arguments(cdr, moved.operation.in, moved.slots);
  }
  static void results(CDR* cdr, void* of) {
    const Moved& moved = *static_cast<Moved*>(of);
    read_results(cdr, moved.operation, moved.slots, moved.ev);
  }
};
constexpr ZR_call_moves moves{Moved::arguments, Moved::results};

bool call_once(Object* self, const OperationInfo& operation, void* const* slots, Environment& ev) {
  Moved moved{operation, slots, ev};
  void* sent = nullptr;
  switch (ZR_call_at_hand(self->get_ref(), operation.name, !operation.oneway, &moves, &moved, &sent)) {
    case ZR_CALL_DONE:
      return true;
    case ZR_CALL_SENT: {
      const Request request(sent);
      return take_reply(self, sent, stream_of(sent, ev), operation, slots, Unlisted::thrown_as_unknown, ev);
    }
    case ZR_CALL_FAILED:
      fail_request(CORBA_COMPLETED_NO, ev);
    default:
      break;
  }
  const Request request(self, operation, ev);
  return exchange(self, request.get(), !operation.oneway, operation, slots, Unlisted::thrown_as_unknown, ev);
}

}  // namespace

void call(Object* self, const OperationInfo& operation, void* const* slots, Environment& ev) {
  if (ev.exception() || ev._evp->_major != CORBA_NO_EXCEPTION) ev.clear();
  while (!call_once(self, operation, slots, ev)) ev.clear();
}

void call(Object* self, const OperationInfo& operation, void* const* slots) {
  Environment ev;
  call(self, operation, slots, ev);
}

bool encode_in(CDR* cdr, const OperationInfo& operation, void* const* slots) {
  return encode_arguments(cdr, operation.in, slots);
}

void read_out(CDR* cdr, const OperationInfo& operation, void* const* slots, Environment& ev) {
  read_results(cdr, operation, slots, ev);
}

void throw_listed(void* request, CDR* cdr, const OperationInfo& operation, Environment& ev) {
  throw_user_exception(request, cdr, operation, Unlisted::thrown_as_unknown, ev);
  __builtin_unreachable();
}

bool call_iiop(Object* self, void* request, bool response_expected, const OperationInfo& operation,
               void* const* slots, Environment& ev) {
  return exchange(self, request, response_expected, operation, slots, Unlisted::left_in_environment, ev);
}

// ---- Skeletons --------------------------------------------------------------------------------------------

bool ServerCall::decode(const OperationInfo& operation, void* const* slots) {
  cdr_->direction = CDR_DECODE;
  cdr_->in_place = 1;  // the request's message lasts as long as the operation
  const bool decoded = decode_arguments(cdr_, operation.in, slots);
  cdr_->in_place = 0;
  if (!decoded) {
    set_marshal(cdr_, CORBA_COMPLETED_NO, ev);
    fits_ = false;
    return false;
  }
  if (find_) target_ = find_(target_);
  return target_ != nullptr;
}

namespace {

/// Writes the body of a reply that is an exception.
bool encode_exception(void* request, CDR* cdr, const OperationInfo& operation, Environment& ev) {
  if (ev._evp->_major == CORBA_SYSTEM_EXCEPTION)
    return OM_req_lib_UNO_IIOP_encode_standard_excep(request, ev._evp);
  if (ev._evp->_major != CORBA_USER_EXCEPTION) return false;
  if (!OM_req_lib_UNO_IIOP_encode_user_excep_hdr(request, ev._evp)) return false;
  const ListedException* listed = find_listed(operation.exceptions, CORBA_exception_id(ev._evp));
  if (!listed) return true;  // its id alone: left in the environment by an operation that does not list it
  cdr->direction = CDR_ENCODE;
  return listed->move(cdr, ev.exception());
}

}  // namespace

void ServerCall::encode(const OperationInfo& operation, void* const* slots) {
  const std::uint32_t status = ev._evp->_major;
  if (!response_expected_ && status <= CORBA_SYSTEM_EXCEPTION) return;
  bool written =
      status <= CORBA_SYSTEM_EXCEPTION && OM_req_lib_UNO_IIOP_encode_reply_header(request_, status);
  if (written && status == CORBA_NO_EXCEPTION) {
    cdr_->direction = CDR_ENCODE;
    cdr_->leaves_apart = 1;
    written = encode_arguments(cdr_, operation.out, slots);
    // The servant's results go now, but for a buffer that was given to the stream, or that came with the request.
    if (cdr_->apart.octets && !cdr_->apart.release && !ZR_cdr_apart_is_of_message(cdr_))
      written = ZR_cdr_put_together(cdr_) && written;
    cdr_->leaves_apart = 0;
  } else if (written) {
    written = encode_exception(request_, cdr_, operation, ev);
  }
  if (written) return;
  set_marshal(cdr_, CORBA_COMPLETED_YES, ev);
  fits_ = false;
}

bool ServerCall::serve(const OperationInfo& operation) {
  if (!OM_req_lib_UNO_IIOP_get_cdr(request_, &cdr_))
    return set_marshal(nullptr, CORBA_COMPLETED_NO, ev), false;
  try {
    operation.run(operation, *this);
    return fits_;
  } catch (const UserException& e) {
    if (!find_listed(operation.exceptions, e.id())) throw;
    ev.exception(e._clone());
  } catch (const SystemException& e) {
    ev.exception(e._clone());
  }
  if (fits_) encode(operation, nullptr);
  return fits_;
}

namespace {

[[gnu::always_inline]] inline const OperationInfo* find_operation(const OperationTable& table,
                                                                  const OperationName& name) {
  if (!table.rows) return nullptr;
  for (unsigned at = name.hash;; ++at) {
    const unsigned short row = table.index[at & table.mask];
    if (row == 0) return nullptr;
    const OperationInfo* found = table.rows[row - 1];
    if (found->name == name.text) return found;  // of a call within the process
    if (found->name_length == name.length && std::memcmp(found->name, name.text, name.length) == 0)
      return found;
  }
}

/// The same in the base interfaces, all of which are in the list; `target` becomes the part of the servant that has it.
[[gnu::noinline]] const OperationInfo* find_inherited(const InterfaceInfo& interface,
                                                      const OperationName& name, void*& target) {
  for (const BaseInterface& base : std::span(interface.bases, interface.base_count)) {
    const OperationInfo* const operation = find_operation(base.info->operations, name);
    if (operation) return target = base.upcast(target), operation;
  }
  return nullptr;
}

}  // namespace

bool announce(std::initializer_list<const InterfaceInfo*> interfaces) {
  for (const InterfaceInfo* interface : interfaces) ZR_register_interface(interface->id);
  return true;
}

bool is_a(const InterfaceInfo& interface, const char* repository_id) {
  if (std::strcmp(interface.id, repository_id) == 0) return true;
  for (const BaseInterface& base : std::span(interface.bases, interface.base_count))
    if (std::strcmp(base.info->id, repository_id) == 0) return true;
  return std::strcmp(repository_id, "IDL:omg.org/CORBA/Object:1.0") == 0;
}

bool invoke(const InterfaceInfo& interface, void* target, const char* operation_name, void* request,
            bool response_expected) {
  const OperationName name(operation_name, std::strlen(operation_name));
  const OperationInfo* operation = find_operation(interface.operations, name);
  if (!operation) operation = find_inherited(interface, name, target);
  if (!operation) return false;
  ServerCall call(request, response_expected, target);
  if (!call.serve(*operation)) raise_environment(call.ev);
  return true;
}

// ---- Rows of the libraries' own interfaces ----------------------------------------------------------------

OwnRequest::OwnRequest(Object* self, const OperationInfo& operation, Environment& ev) {
  if (!OM_req_lib_initiator_request_create(self->get_ref(), operation.name, !operation.oneway, &request_,
                                           &kind_))
    fail_request(CORBA_COMPLETED_NO, ev);
}

OwnRequest::~OwnRequest() {
  (kind_ == ZR_REQUEST_DIRECT ? OM_req_lib_INTRA_PROCESS_initiator_request_complete
                              : OM_req_lib_UNO_IIOP_initiator_request_complete)(request_);
}

ZR_method OwnRequest::method(Environment& ev) const {
  ZR_method found = nullptr;
  if (kind_ == ZR_REQUEST_DIRECT && !OM_req_lib_INTRA_PROCESS_get_method(request_, &found))
    fail_request(CORBA_COMPLETED_NO, ev);
  return found;
}

}  // namespace CORBA::idl
