#include "corba/async.h"

#include "base/encoded_stream.h"
#include "base/raise.h"
#include "calls/core_request.h"
#include "calls/row_steps.h"
#include "corba/detail/async_row.h"
#include "corba/request.h"

namespace CORBA::idl {
namespace {

constexpr ULong minor_encode_anew = 0x4B510408;

}  // namespace

// ---- A call -----------------------------------------------------------------------------------------------

AsyncCall::AsyncCall(Object* self, const OperationInfo& operation_called)
    : called(operation_called), self_(Object::_duplicate(self)) {}

AsyncCall::~AsyncCall() = default;

void AsyncCall::send(std::unique_ptr<AsyncCall> call, void* const* slots) {
  try {
    call->start(slots);
    static_cast<void>(call.release());  // it may be gone already
  } catch (...) {
    call->refused();
  }
}

void AsyncCall::start(void* const* slots) {
  Environment ev;
  request_ = std::make_unique<CoreRequest>(self_->get_ref(), called.name, true, ev);
  CDR* const cdr = request_->arguments(ev);
  if (!encode_in(cdr, called, slots)) fail_marshal(cdr, CORBA_COMPLETED_NO, ev);
  if (!zrsv::send_deferred(request_->get(), this)) fail_request(CORBA_COMPLETED_NO, ev);
}

void AsyncCall::reply_is_there() noexcept {
  const std::unique_ptr<AsyncCall> own(this);
  end();
}

CDR* AsyncCall::results() {
  Environment ev;
  const std::uint32_t status = request_->reply(ev);
  CDR* const cdr = request_->stream();
  if (status == ZR_REPLY_USER_EXCEPTION) throw_listed(request_->get(), cdr, called, ev);
  if (status == ZR_REPLY_SYSTEM_EXCEPTION) throw_reply_exception(request_->get(), ev);
  if (status != ZR_REPLY_LOCATION_FORWARD) return cdr;
  follow_forward(self_.in(), cdr, ev);  // the next call goes there; this one would have to be encoded anew
  throw TRANSIENT(minor_encode_anew, COMPLETED_NO);
}

void AsyncCall::read(void* const* slots) {
  Environment ev;
  read_out(results(), called, slots, ev);
}

// ---- Reply handlers ---------------------------------------------------------------------------------------

namespace {

/// A call whose results, or the exception that it ended with, become a call of the handler. That is not waited for.
class HandlerCall final : public AsyncCall {
 public:
  HandlerCall(Object* self, const OperationInfo& operation, Object* handler, const TypeCodeAt* results,
              std::size_t count)
      : AsyncCall(self, operation), handler_(Object::_duplicate(handler)), types_(results), count_(count) {}

 private:
  /// A call of the handler.
  class Telling : public CoreRequest {
   public:
    Telling(Object* handler, const std::string& name, Environment& ev)
        : CoreRequest(handler->get_ref(), name.c_str(), false, ev) {}
    void send(Environment& ev) {
      if (!zrsv::send_elsewhere(get())) fail_request(CORBA_COMPLETED_NO, ev);
    }
  };

  bool may_block() const override { return !is_nil(handler_) && !zrsv::is_here(handler_->get_ref()); }
  void refused() override { throw; }
  void end() noexcept override;
  void tell_results();
  void tell(const Exception& exception);
  std::string name() const { return called.name + (called.name[0] == '_'); }

  const Object_var handler_;
  const TypeCodeAt* const types_;
  const std::size_t count_;
};

void HandlerCall::end() noexcept try {
  if (is_nil(handler_)) return;
  try {
    tell_results();
  } catch (const Exception& exception) {
    tell(exception);
  } catch (const std::bad_alloc&) {
    tell(NO_MEMORY(0, COMPLETED_MAYBE));
  }
} catch (const Exception& exception) {
  OM_log("the handler of %s cannot be told: %s", called.name, exception._name());
} catch (const std::bad_alloc&) {
  OM_log("the handler of %s cannot be told: no memory", called.name);
}

// What an operation gives is what its handler takes, value by value.
void HandlerCall::tell_results() {
  CDR* const from = results();
  Environment ev;
  Telling telling(handler_, name(), ev);
  CDR* const to = telling.arguments(ev);
  for (std::size_t i = 0; i < count_; ++i)
    if (!copy_value(*types_[i](), from, to)) fail_marshal(from, CORBA_COMPLETED_YES, ev);
  telling.send(ev);
}

void HandlerCall::tell(const Exception& exception) {
  Environment ev;
  Telling telling(handler_, name() + "_excep", ev);
  CDR* const to = telling.arguments(ev);
  const Messaging::ExceptionHolder_var holder(new Messaging::ExceptionHolder(exception, called.exceptions));
  if (!holder->_move(to)) fail_marshal(to, CORBA_COMPLETED_NO, ev);
  telling.send(ev);
}

}  // namespace

void send_to_handler(Object* self, const OperationInfo& operation, void* const* slots, Object* handler,
                     const TypeCodeAt* results, std::size_t count) {
  AsyncCall::send(std::make_unique<HandlerCall>(self, operation, handler, results, count), slots);
}

}  // namespace CORBA::idl

// ---- Exception holders ------------------------------------------------------------------------------------

namespace Messaging {

using CORBA::idl::ListedException;

namespace {

constexpr CORBA::ULong minor_unlisted_exception = CORBA::OMGVMCID | 1;
// A value type on the wire: what it is of stands in front, as one id.
constexpr CORBA::ULong value_with_id = 0x7fffff02, value_without_id = 0x7fffff00;
constexpr const char* holder_id = "IDL:omg.org/Messaging/ExceptionHolder:1.0";

template <class T>
bool move(CDR* cdr, T& value) {
  return CORBA::idl::Wire<T>::move(cdr, value);
}

[[noreturn]] void raise_unlisted() { throw CORBA::UNKNOWN(minor_unlisted_exception, CORBA::COMPLETED_MAYBE); }

}  // namespace

ExceptionHolder::ExceptionHolder(const CORBA::Exception& exception, const CORBA::idl::ExceptionList& listed)
    : little_endian_(std::endian::native == std::endian::little), listed_(listed) {
  const auto* system = dynamic_cast<const CORBA::SystemException*>(&exception);
  const ListedException* const known =
      system ? nullptr : CORBA::idl::find_listed(listed, exception._rep_id());
  const CORBA::UNKNOWN unknown(minor_unlisted_exception, CORBA::COMPLETED_MAYBE);
  if (!system && !known) system = &unknown;
  is_system_ = system != nullptr;
  CORBA::EncodedStream stream;
  const char* id = system ? system->_rep_id() : known->id;
  bool written = move(stream, id);
  if (system) {
    CORBA::ULong minor = system->minor(), completed = system->completed();
    written = written && move(stream, minor) && move(stream, completed);
  } else {
    written = written && known->move(stream, const_cast<CORBA::Exception*>(&exception));
  }
  if (!written) throw CORBA::MARSHAL(0, CORBA::COMPLETED_YES);
  const std::vector<CORBA::Octet> all = stream.octets();
  octets_.length(static_cast<CORBA::ULong>(all.size()));
  std::memcpy(octets_.get_buffer(), all.data(), all.size());
}

ExceptionHolder::~ExceptionHolder() = default;

bool ExceptionHolder::_move(CDR* cdr) {
  CORBA::ULong tag = value_with_id;
  const char* id = holder_id;
  if (!move(cdr, tag) || (tag != value_with_id && tag != value_without_id)) return false;
  return (tag == value_without_id || move(cdr, id)) && move(cdr, is_system_) && move(cdr, little_endian_) &&
         move(cdr, octets_);
}

CDR ExceptionHolder::reader() const {
  CDR cdr;
  const bool little_endian = std::endian::native == std::endian::little;
  OM_cdr_open_decode(&cdr, octets_.get_buffer(), octets_.length(), little_endian_ != little_endian);
  return cdr;
}

void ExceptionHolder::raise_system(CDR& cdr, const char* id) const {
  CORBA::ULong minor = 0, completed = 0;
  if (!move(&cdr, minor) || !move(&cdr, completed)) throw CORBA::MARSHAL();
  const auto status = static_cast<CORBA::CompletionStatus>(std::min<CORBA::ULong>(completed, 2));
  const auto made = CORBA::make_standard_exception(id, minor, status);
  if (made) made->_raise();
  throw CORBA::UNKNOWN(minor, status);
}

void ExceptionHolder::raise_exception() {
  CDR cdr = reader();
  const char* id = nullptr;
  if (!move(&cdr, id)) throw CORBA::MARSHAL();
  if (is_system_) raise_system(cdr, id);
  const ListedException* const known = CORBA::idl::find_listed(listed_, id);
  if (!known) raise_unlisted();
  const std::unique_ptr<CORBA::UserException> made(known->make());
  if (!known->move(&cdr, made.get())) throw CORBA::MARSHAL();
  made->_raise();
  __builtin_unreachable();  // instrumented virtual calls lose their [[noreturn]]
}

void ExceptionHolder::raise_exception_with_list(CORBA::ExceptionList* exceptions) {
  CDR cdr = reader();
  const char* id = nullptr;
  if (!move(&cdr, id)) throw CORBA::MARSHAL();
  if (is_system_) raise_system(cdr, id);
  for (CORBA::ULong i = 0; exceptions && i < exceptions->count(); ++i) {
    const CORBA::TypeCode_var type(exceptions->item(i));
    if (type->kind() != CORBA::tk_except || std::strcmp(type->id(), id) != 0) continue;
    CORBA::Any value;
    value.replace(type.in(), nullptr);
    cdr = reader();  // in CDR an exception is its id and its members
    if (!value.decode_value(&cdr)) throw CORBA::MARSHAL();
    throw CORBA::UnknownUserException(value);
  }
  raise_unlisted();
}

}  // namespace Messaging
