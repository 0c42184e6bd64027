// Asynchronous calls by the rows of operations (corba/detail/row.h): what stands behind the functions sendc_f and
// async_f that `poaidl --async` makes. A call is sent and goes on without a thread; it belongs to itself until a thread
// of the library has taken its reply.
#pragma once

#include <array>
#include <future>
#include <memory>
#include <tuple>

#include "corba/async.h"
#include "zrsv/deferred.h"

namespace CORBA {
class CoreRequest;
}  // namespace CORBA

namespace CORBA::idl {

/// The holder of an operation that raises those exceptions.
template <class... E>
struct exception_holder {};
/// An in parameter of f_excep: decoded with the exceptions that f may end with.
template <class... E>
struct Type<exception_holder<E...>> {
  using Holder = Messaging::ExceptionHolder;
  struct Own {
    static void free(Holder* holder) { release(holder); }
    static bool move(CDR* cdr, Holder*& holder) {
      if (cdr->direction == CDR_ENCODE) return holder && holder->_move(cdr);
      Messaging::ExceptionHolder_var fresh(new Holder(raises<E...>));
      if (!fresh->_move(cdr)) return false;
      release(std::exchange(holder, fresh._retn()));
      return true;
    }
  };
  using InArg = PointerArg<Holder*, Own, Holder*>;
};

/// Stands in a call for an out parameter.
struct Nothing {};
inline constexpr Nothing nothing;

/// The TypeCode of a type, built when it is asked for.
using TypeCodeAt = TypeCode* const* (*)();

/// A call under way. It belongs to itself once it is sent, and ends on a thread of the library, once: `end` takes the
/// reply, whatever it is, and the call is deleted then.
class ZRSVCPP_API AsyncCall : private zrsv::ReplyListener {
 public:
  AsyncCall(const AsyncCall&) = delete;
  AsyncCall& operator=(const AsyncCall&) = delete;
  virtual ~AsyncCall();
  /// Sends the call, with the in and inout arguments of the slots, which are read before this returns. What keeps it
  /// from being sent becomes `refused`.
  static void send(std::unique_ptr<AsyncCall> call, void* const* slots);

 protected:
  /// Keeps a duplicate of `self`.
  AsyncCall(Object* self, const OperationInfo& operation_called);
  /// Its end: takes the reply.
  virtual void end() noexcept = 0;
  /// The call could not be sent, for the exception that is being handled, on the thread that called.
  virtual void refused() = 0;
  /// The stream at the results. Throws what the call ended with; TRANSIENT (0x4B510408, completed NO) for a forward, as
  /// nobody has the arguments any more: the next call of the reference goes to the new place.
  CDR* results();
  /// Reads the results. Throws the same.
  void read(void* const* slots);

  const OperationInfo& called;

 private:
  void start(void* const* slots);
  void reply_is_there() noexcept final;

  Object_var self_;
  std::unique_ptr<CoreRequest> request_;
};

/// Sends a call whose reply becomes a call of `handler`, which may be nil: then nobody hears of it. The handler is
/// duplicated, and called without waiting for it; a handler that cannot be told is a line in the log.
ZRSVCPP_API void send_to_handler(Object* self, const OperationInfo& operation, void* const* slots,
                                 Object* handler, const TypeCodeAt* results, std::size_t count);

// ---- What the rows of operations add --------------------------------------------------------------------------

/// The slot of an argument on its way in.
template <class A, class P>
void* slot_of(P& argument) {
  if constexpr (A::is_in)
    return in<typename A::Descriptor>::address(argument);
  else
    return nullptr;
}

/// The TypeCodes of what an operation gives, in wire order.
template <class... A>
constexpr auto result_types = [] {
  std::array<TypeCodeAt, (std::size_t{A::is_out} + ... + 0)> list{};
  [[maybe_unused]] std::size_t used = 0;
  const auto add = [&]<class One>(One*) {
    if constexpr (One::is_out) list[used++] = &Type<typename One::Descriptor>::typecode_at;
  };
  (add(static_cast<A*>(nullptr)), ...);
  return list;
}();

/// What sendc_f does: sends, and has the reply become a call of the handler.
/// The arguments are those that travel to the object; where an out one would stand, `nothing` does.
template <class Class, class R, class... A, class... P>
void sendc(Object* self, const operation<Class, R(A...)>& row, Object* handler, P&&... argument) {
  void* const slots[] = {nullptr, slot_of<A>(argument)...};
  constexpr const auto& results = result_types<result<R>, A...>;
  send_to_handler(self, row, slots, handler, results.data(), results.size());
}

/// What a holder has, as the variable type V that owns it.
template <class V, class Holder>
V owned(Holder& holder) {
  using Given = decltype(holder.give());
  if constexpr (std::is_constructible_v<V, Given>)
    return V(holder.give());
  else
    return V(new Given(holder.give()));
}

/// A call whose results become the value of a future: one, or a tuple of them.
template <class Value, class R, class... A>
class FutureCall final : public AsyncCall {
 public:
  FutureCall(Object* self, const OperationInfo& operation_called) : AsyncCall(self, operation_called) {}
  /// Once, before the call is sent.
  std::future<Value> future() { return promise_.get_future(); }

 private:
  void end() noexcept override {
    try {
      if constexpr (std::is_void_v<Value>)
        take(typename result<R>::Holder(), typename A::Holder()...), promise_.set_value();
      else
        promise_.set_value(take(typename result<R>::Holder(), typename A::Holder()...));
    } catch (...) {
      refused();
    }
  }
  void refused() override { promise_.set_exception(std::current_exception()); }

  /// The holder of what travels back, as a tuple of one, or none.
  template <class One>
  static auto given(typename One::Holder& holder) {
    if constexpr (One::is_out)
      return std::tuple<typename One::Holder*>(&holder);
    else
      return std::tuple<>();
  }
  /// Reads the results into the holders, and makes the value of those.
  Value take(typename result<R>::Holder&& result_holder, typename A::Holder&&... holder) {
    void* const slots[] = {result_holder.slot(), holder.slot()...};
    read(slots);
    const auto all = std::tuple_cat(given<result<R>>(result_holder), given<A>(holder)...);
    return made(all, std::make_index_sequence<std::tuple_size_v<decltype(all)>>());
  }
  template <class All, std::size_t... I>
  static Value made(const All& all, std::index_sequence<I...>) {
    if constexpr (sizeof...(I) == 1)
      return owned<Value>(*std::get<0>(all));
    else if constexpr (sizeof...(I) > 1)
      return Value(owned<std::tuple_element_t<I, Value>>(*std::get<I>(all))...);
  }

  std::promise<Value> promise_;
};

/// What async_f does: sends, and gives the future. Never throws but std::bad_alloc.
template <class Value, class Class, class R, class... A, class... P>
std::future<Value> future(Object* self, const operation<Class, R(A...)>& row, P&&... argument) {
  auto call = std::make_unique<FutureCall<Value, R, A...>>(self, row);
  std::future<Value> future = call->future();
  void* const slots[] = {nullptr, slot_of<A>(argument)...};
  AsyncCall::send(std::move(call), slots);
  return future;
}

}  // namespace CORBA::idl
