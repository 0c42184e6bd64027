// IDL operations as types. An operation is described once: its name, the member function that declares it,
// its exceptions. From that one description come the CDR skeleton, the in-process skeleton and the stub:
//
//   using find_POA = CORBA::idl::by_member::operation<"find_POA", &POA::find_POA,
//   CORBA::idl::by_member::raises<POA::AdapterNonExistent>>;
//
// The member function's parameters are the IDL operation's, in wire order, with CORBA::Environment& last. How
// a C++ type travels is the template Wire<T>: one function that encodes or decodes by the stream's direction.
// Parameters by value or const& are `in`, parameters T& are `out`.
#pragma once

#include <concepts>
#include <memory>
#include <new>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "corba/object.h"
#include "corba/sequence.h"
#include "zrsv/cdr_value.h"

namespace CORBA::idl {

// ---- Values on the wire ----

/// `static bool move(CDR*, V&)`: encodes or decodes one V by the stream's direction; true on success.
template <class V>
struct Wire;

template <class V, class... Of>
concept OneOf = (std::same_as<V, Of> || ...);
/// Travels as its octets.
template <class V>
concept Number = OneOf<V, Char, Short, UShort, Long, ULong, LongLong, ULongLong, Float, Double>;

template <Number V>
struct Wire<V> {
  static bool move(CDR* cdr, V& value) { return zrsv::move_value(cdr, &value); }
};
template <>
struct Wire<Boolean> {
  static bool move(CDR* cdr, Boolean& value) {
    Octet octet = value;
    if (!zrsv::move_value(cdr, &octet) || octet > 1) return false;
    value = octet != 0;
    return true;
  }
};
template <>
struct Wire<Octet> {
  static bool move(CDR* cdr, Octet& value) { return zrsv::move_value(cdr, &value); }
};
template <>
struct Wire<char*> {
  static bool move(CDR* cdr, char*& text) { return cdr_CORBA_string_cpp(cdr, &text); }
};

/// A string `in` parameter: decoded in place, it lives as long as the request.
template <>
struct Wire<const char*> {
  static bool move(CDR* cdr, const char*& text) {
    if (cdr->direction == CDR_DECODE) return OM_cdr_string_view(cdr, &text);
    char* plain = const_cast<char*>(text);
    return cdr_CORBA_string_cpp(cdr, &plain);
  }
};

template <class V>
requires std::is_enum_v<V>
struct Wire<V> {
  static bool move(CDR* cdr, V& value) {
    auto number = static_cast<ULong>(value);
    if (!zrsv::move_value(cdr, &number)) return false;
    value = static_cast<V>(number);
    return true;
  }
};

template <>
struct Wire<Object*> {
  static bool move(CDR* cdr, Object*& object) { return OM_cdr_object(cdr, object); }
};

template <>
struct Wire<InterfaceDef*> {
  static bool move(CDR* cdr, InterfaceDef*& object) { return cdr_CORBA_InterfaceDef(cdr, object); }
};

/// A sequence of octets: its length, then the octets in one piece. The target is replaced only when all
/// octets are there.
template <class S>
requires std::derived_from<S, OctetSeq>
struct Wire<S> {
  static bool move(CDR* cdr, S& octets) {
    ULong length = octets.length();
    if (!zrsv::move_value(cdr, &length)) return false;
    if (cdr->direction == CDR_ENCODE) return length == 0 || cdr_bytes(cdr, octets.get_buffer(), length);
    const unsigned char* view = nullptr;
    if (!OM_cdr_bytes_view(cdr, &view, length)) return false;
    octets.length(length);
    if (length != 0) std::memcpy(octets.get_buffer(), view, length);
    return true;
  }
};

// ---- Who owns a value while a call is made ----

/// Holds a decoded or returned value of C++ type V and frees it: references are released, strings and heap
/// values freed.
template <class V>
struct Slot {
  V value{};
};
template <>
struct Slot<char*> {
  char* value = nullptr;
  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() { string_free(value); }
};
template <class X>
requires std::derived_from<X, Object>
struct Slot<X*> {
  X* value = nullptr;
  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() { CORBA::release(value); }
};

/// One parameter of C++ type P.
template <class P>
struct Parameter {  // by value: in
  using Value = P;
  static constexpr bool in = true;
  static P pass(Value& v) { return v; }
};
template <class V>
struct Parameter<const V&> {  // in
  using Value = V;
  static constexpr bool in = true;
  static const V& pass(Value& v) { return v; }
};
template <class V>
struct Parameter<V&> {  // out
  using Value = V;
  static constexpr bool in = false;
  static V& pass(Value& v) { return v; }
};

/// A value returned through the heap (sequences, structs): V*.
template <class V>
inline constexpr bool is_heap_value =
    std::is_pointer_v<V> && !std::same_as<V, char*> && !std::same_as<V, const char*> &&
    !std::derived_from<std::remove_pointer_t<V>, Object>;

/// One result of C++ type R.
template <class R>
struct Result {
  Slot<R> slot;
  bool move(CDR* cdr) { return Wire<R>::move(cdr, slot.value); }
  template <class Call>
  void take(Call&& call) {
    slot.value = call();
  }
  R give() { return std::exchange(slot.value, R{}); }
};
template <class R>
requires is_heap_value<R>
struct Result<R> {
  std::unique_ptr<std::remove_pointer_t<R>> value;
  bool move(CDR* cdr) {
    if (!value) value.reset(new std::remove_pointer_t<R>);
    return Wire<std::remove_pointer_t<R>>::move(cdr, *value);
  }
  template <class Call>
  void take(Call&& call) {
    value.reset(call());
  }
  R give() { return value.release(); }
};
template <>
struct Result<void> {
  bool move(CDR*) { return true; }
  template <class Call>
  void take(Call&& call) {
    call();
  }
  void give() {}
};

namespace by_member {

// ---- Operations ----

/// User exceptions of an operation. An exception with members has a Wire of its own.
template <class... E>
struct raises {
  /// Hands a heap copy of `e` to `env` when it is one of these.
  static bool store(const Exception& e, Environment& env) { return (store_if<E>(e, env) || ...); }
  /// Encodes the members of the exception that `env` holds.
  static bool encode([[maybe_unused]] CDR* cdr, Environment& env) { return (encode_if<E>(cdr, env) && ...); }
  /// Reads the members of the exception whose id `env` holds, stores it and throws it. True: none of these;
  /// false: bad octets.
  static bool decode_and_throw([[maybe_unused]] CDR* cdr, Environment& env) {
    return (decode_if<E>(cdr, env) && ...);
  }

 private:
  template <class X>
  static bool store_if(const Exception& e, Environment& env) {
    const auto* listed = dynamic_cast<const X*>(&e);
    if (listed) env.exception(new X(*listed));
    return listed != nullptr;
  }
  template <class X>
  static constexpr bool has_members = requires(CDR* cdr, X& x) {
    Wire<X>::move(cdr, x);
  };

  template <class X>
  static bool encode_if(CDR* cdr, Environment& env) {
    if constexpr (has_members<X>) {
      if (X* e = X::_narrow(env.exception())) return Wire<X>::move(cdr, *e);
    }
    return true;
  }
  template <class X>
  static bool decode_if(CDR* cdr, Environment& env) {
    const char* id = CORBA_exception_id(env._evp);
    if (!id || std::strcmp(id, X::repository_id) != 0) return true;
    auto e = std::make_unique<X>();
    if constexpr (has_members<X>) {
      cdr->direction = CDR_DECODE;
      if (!Wire<X>::move(cdr, *e)) return false;
    }
    X copy(*e);
    env.exception(e.release());
    throw copy;
  }
};

template <class Signature>
struct signature;
template <class C, class R, class... A>
struct signature<R (C::*)(A...)> {
  using Class = C;
  using Return = R;
  using Arguments = std::tuple<A...>;  // the environment last
  static constexpr std::size_t count = sizeof...(A) - 1;
};

template <class Op, class... A>
typename Op::Return call_stub(Object* self, Environment& env, A... arguments);
template <class Op, class... A>
typename Op::Return call_iiop(Object* self, void* request, bool response_expected, Environment& env,
                              A&&... arguments);

template <Text Name, auto Member, class Raises = raises<>, bool Oneway = false>
struct operation {
  using Signature = signature<decltype(Member)>;
  using Class = typename Signature::Class;
  using Return = typename Signature::Return;
  using Exceptions = Raises;
  using Indexes = std::make_index_sequence<Signature::count>;
  template <std::size_t I>
  using Param = Parameter<std::tuple_element_t<I, typename Signature::Arguments>>;

  template <std::size_t I>
  using Arg = std::tuple_element_t<I, typename Signature::Arguments>;

  static constexpr bool oneway = Oneway;
  static constexpr const char* name = Name.value;
  static constexpr std::string_view name_view{Name.value, sizeof(Name.value) - 1};

  /// The arguments and the result of one call on the skeleton's side.
  template <class I>
  struct CallOf;
  template <std::size_t... I>
  struct CallOf<std::index_sequence<I...>> {
    std::tuple<Slot<typename Param<I>::Value>...> slots;
    Result<Return> result;

    bool decode([[maybe_unused]] CDR* cdr) { return (move_if<I>(cdr, true) && ...); }
    bool encode(CDR* cdr) { return result.move(cdr) && (move_if<I>(cdr, false) && ...); }
    template <class Target>
    void run(Target& target, Environment& env) {
      result.take(
          [&]() -> Return { return (target.*Member)(Param<I>::pass(std::get<I>(slots).value)..., env); });
    }

   private:
    template <std::size_t K>
    bool move_if([[maybe_unused]] CDR* cdr, bool in) {
      if (Param<K>::in != in) return true;
      return Wire<typename Param<K>::Value>::move(cdr, std::get<K>(slots).value);
    }
  };
  using Call = CallOf<Indexes>;

  /// The other two roads, with the operation's own parameters.
  template <class I>
  struct RoadsOf;
  template <std::size_t... I>
  struct RoadsOf<std::index_sequence<I...>> {
    /// A call through the ORB core on `self`.
    static Return stub(Object* self, Arg<I>... arguments, Environment& env) {
      return call_stub<operation, Arg<I>...>(self, env, static_cast<Arg<I>&&>(arguments)...);
    }
    /// The IIOP part of such a call: the caller made `request` and completes it.
    static Return iiop(Object* self, void* request, bool response_expected, Arg<I>... arguments,
                       Environment& env) {
      return call_iiop<operation, Arg<I>...>(self, request, response_expected, env,
                                             static_cast<Arg<I>&&>(arguments)...);
    }
    /// The in-process skeleton: the operation of a fresh, unattached implementation object.
    template <class Impl>
    static Return in_process(Arg<I>... arguments, Environment& env) {
      Impl implementation;
      return (implementation.*Member)(static_cast<Arg<I>&&>(arguments)..., env);
    }
  };
  using Roads = RoadsOf<Indexes>;
};

// ---- Skeletons ----

/// What became of a request that a skeleton served.
enum class Served { yes, bad_arguments, bad_reply };

/// Records in `env` that a value did not fit the stream.
ZRSVCPP_API void set_marshal(CDR* cdr, std::uint32_t completed, Environment& env);

/// Writes the body of the reply to a call that ended with `env`: result and out arguments, user exception or
/// system exception.
template <class Op>
bool encode_outcome(typename Op::Call& call, void* request, CDR* cdr, Environment& env) {
  switch (env._evp->_major) {
    case CORBA_NO_EXCEPTION:
      cdr->direction = CDR_ENCODE;
      return call.encode(cdr);
    case CORBA_USER_EXCEPTION:
      if (!OM_req_lib_UNO_IIOP_encode_user_excep_hdr(request, env._evp)) return false;
      cdr->direction = CDR_ENCODE;
      return Op::Exceptions::encode(cdr, env);
    case CORBA_SYSTEM_EXCEPTION:
      return OM_req_lib_UNO_IIOP_encode_standard_excep(request, env._evp);
    default:
      return false;
  }
}

/// Writes the reply when the client expects one. What is no outcome of a call (a location forward) is a bad
/// reply in any case.
template <class Op>
Served reply(typename Op::Call& call, void* request, bool response_expected, CDR* cdr, Environment& env) {
  const std::uint32_t status = env._evp->_major;
  if (!response_expected) return status > CORBA_SYSTEM_EXCEPTION ? Served::bad_reply : Served::yes;
  if (!OM_req_lib_UNO_IIOP_encode_reply_header(request, status)) return Served::bad_reply;
  if (encode_outcome<Op>(call, request, cdr, env)) return Served::yes;
  set_marshal(cdr, CORBA_COMPLETED_YES, env);
  return Served::bad_reply;
}

/// The CDR skeleton of `Op`: decodes the arguments, finds the target, runs the operation, writes the reply.
/// `find` returns the target, or null when there is none; it is asked after the arguments were read. A
/// failure that the operation left in its environment counts like one that it threw. Exceptions that the
/// operation does not list pass through.
template <class Op, class Find>
Served serve(void* request, bool response_expected, Find&& find) {
  Environment env;
  CDR* cdr = nullptr;
  if (!OM_req_lib_UNO_IIOP_get_cdr(request, &cdr)) return Served::bad_arguments;
  typename Op::Call call;
  cdr->direction = CDR_DECODE;
  if (!call.decode(cdr)) {
    set_marshal(cdr, CORBA_COMPLETED_NO, env);
    return Served::bad_arguments;
  }
  auto* target = find();
  if (!target) return Served::yes;
  try {
    call.run(*target, env);
  } catch (const UserException& e) {
    if (!Op::Exceptions::store(e, env)) throw;
  } catch (const SystemException& e) {
    env.exception(e._clone());
  }
  return reply<Op>(call, request, response_expected, cdr, env);
}

/// One servant operation: what a servant's `invoke` finds by name.
template <class Servant>
struct servant_entry {
  std::string_view name;
  Served (*run)(Servant& servant, void* request, bool response_expected);
};

template <class Servant, class... Op>
inline constexpr servant_entry<Servant> servant_table[] = {
    {Op::name_view, [](Servant& servant, void* request, bool response_expected) {
       return serve<Op>(request, response_expected, [&] { return &servant; });
     }}...};

/// The heart of a servant class's `invoke`: runs the operation that the request names. False when the class
/// has no such operation. MARSHAL is thrown when the arguments do not decode (completed NO) or the reply does
/// not encode (completed YES).
template <class Servant, class... Op>
bool invoke(Servant& servant, const char* operation_name, void* request, bool response_expected) {
  const std::string_view wanted(operation_name);
  for (const auto& entry : servant_table<Servant, Op...>) {
    if (entry.name != wanted) continue;
    switch (entry.run(servant, request, response_expected)) {
      case Served::bad_arguments:
        throw MARSHAL(0, COMPLETED_NO);
      case Served::bad_reply:
        throw MARSHAL(0, COMPLETED_YES);
      case Served::yes:
        return true;
    }
  }
  return false;
}

// ---- Stubs ----

/// Ways out of a failed call: fill the environment from the ORB core's reason, and throw.
[[noreturn]] ZRSVCPP_API void fail_request(std::uint32_t completed, Environment& env);
[[noreturn]] ZRSVCPP_API void fail_marshal(CDR* cdr, std::uint32_t completed, Environment& env);
/// No memory for what the reply holds.
[[noreturn]] ZRSVCPP_API void fail_memory(Environment& env);
/// The reply holds a system exception: reads it into `env` and throws it.
[[noreturn]] ZRSVCPP_API void throw_reply_exception(void* request, Environment& env);
/// The reply forwards: records the new location for `self`; `env` then has _major 3.
ZRSVCPP_API void follow_forward(Object* self, void* request, CDR* cdr, Environment& env);

/// One argument on the stub's side.
template <class P>
bool send_argument(CDR* cdr, P&& value) {
  using V = typename Parameter<P>::Value;
  if constexpr (Parameter<P>::in) {
    return Wire<V>::move(cdr, const_cast<V&>(value));
  } else {
    return true;
  }
}
template <class P>
bool receive_argument(CDR* cdr, P&& value) {
  if constexpr (Parameter<P>::in) {
    return true;
  } else {
    return Wire<typename Parameter<P>::Value>::move(cdr, value);
  }
}

/// Reads the result, then the out arguments.
template <class R, class... A>
void read_results(CDR* cdr, Result<R>& result, Environment& env, A&&... arguments) {
  bool read = false;
  try {
    read = result.move(cdr) && (receive_argument<A>(cdr, static_cast<A>(arguments)) && ...);
  } catch (const std::bad_alloc&) {
    fail_memory(env);
  }
  if (!read) fail_marshal(cdr, CORBA_COMPLETED_YES, env);
}

/// Throws the user exception of the reply; one that the operation does not list stays in `env`.
template <class Op>
void read_user_exception(void* request, CDR* cdr, Environment& env) {
  CORBA_Environment filled{};
  const bool read = OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request, &filled);
  env.set_ref(&filled);
  if (!read || !Op::Exceptions::decode_and_throw(cdr, env)) fail_marshal(cdr, CORBA_COMPLETED_YES, env);
}

/// Marshals, sends, receives and unmarshals one IIOP request.
template <class Op, class... A>
typename Op::Return call_iiop(Object* self, void* request, bool response_expected, Environment& env,
                              A&&... arguments) {
  CDR* cdr = nullptr;
  if (!OM_req_lib_UNO_IIOP_get_cdr(request, &cdr)) fail_marshal(cdr, CORBA_COMPLETED_NO, env);
  cdr->direction = CDR_ENCODE;
  if (!(send_argument<A>(cdr, static_cast<A>(arguments)) && ...)) fail_marshal(cdr, CORBA_COMPLETED_NO, env);
  if (!OM_req_lib_UNO_IIOP_send_request(request)) fail_request(CORBA_COMPLETED_NO, env);
  Result<typename Op::Return> result;
  if (!response_expected) return result.give();
  std::uint32_t status = 0;
  if (!OM_req_lib_UNO_IIOP_recv_reply(request) || !OM_req_lib_UNO_IIOP_decode_reply_header(request, &status))
    fail_request(CORBA_COMPLETED_MAYBE, env);
  cdr->direction = CDR_DECODE;
  switch (status) {
    case ZR_REPLY_NO_EXCEPTION:
      read_results<typename Op::Return, A...>(cdr, result, env, static_cast<A>(arguments)...);
      break;
    case ZR_REPLY_USER_EXCEPTION:
      read_user_exception<Op>(request, cdr, env);
      break;
    case ZR_REPLY_SYSTEM_EXCEPTION:
      throw_reply_exception(request, env);
    case ZR_REPLY_LOCATION_FORWARD:
      follow_forward(self, request, cdr, env);
      break;
    default:
      break;
  }
  return result.give();
}

/// A request, completed on every way out.
class request_guard {
 public:
  request_guard(void* request, void (*complete)(void*)) : request_(request), complete_(complete) {}
  ~request_guard() { complete_(request_); }
  request_guard(const request_guard&) = delete;
  request_guard& operator=(const request_guard&) = delete;

 private:
  void* request_;
  void (*complete_)(void*);
};

/// A call of the in-process skeleton; completes the request.
template <class Op, class... A>
typename Op::Return call_in_process(void* request, Environment& env, A&&... arguments) {
  request_guard guard(request, OM_req_lib_INTRA_PROCESS_initiator_request_complete);
  ZR_method method = nullptr;
  if (!OM_req_lib_INTRA_PROCESS_get_method(request, &method)) fail_request(CORBA_COMPLETED_NO, env);
  return reinterpret_cast<typename Op::Return (*)(A..., Environment&)>(method)(static_cast<A>(arguments)...,
                                                                               env);
}

/// A call over IIOP; completes the request.
template <class Op, class... A>
typename Op::Return call_iiop_once(Object* self, void* request, Environment& env, A&&... arguments) {
  request_guard guard(request, OM_req_lib_UNO_IIOP_initiator_request_complete);
  return call_iiop<Op, A...>(self, request, !Op::oneway, env, static_cast<A>(arguments)...);
}

/// The stub of `Op`: a call of `self` over IIOP, or of its in-process skeleton; location forwards are
/// followed. `A` are the operation's own parameter types. Of any other kind of request comes nothing: nil,
/// zero.
template <class Op, class... A>
typename Op::Return call_stub(Object* self, Environment& env, A... arguments) {
  using Return = typename Op::Return;
  env.clear();
  for (;;) {
    void* request = nullptr;
    std::uint32_t kind = 0;
    if (!OM_req_lib_initiator_request_create(self->get_ref(), Op::name, !Op::oneway, &request, &kind))
      fail_request(CORBA_COMPLETED_NO, env);
    if (kind == ZR_REQUEST_IN_PROCESS)
      return call_in_process<Op, A...>(request, env, static_cast<A>(arguments)...);
    if (kind != ZR_REQUEST_IIOP) return Result<Return>().give();
    if constexpr (std::is_void_v<Return>) {
      call_iiop_once<Op, A...>(self, request, env, static_cast<A>(arguments)...);
      if (env._evp->_major != CORBA_LOCATION_FORWARD) return;
    } else {
      Return result = call_iiop_once<Op, A...>(self, request, env, static_cast<A>(arguments)...);
      if (env._evp->_major != CORBA_LOCATION_FORWARD) return result;
    }
    env.clear();
  }
}

}  // namespace by_member
}  // namespace CORBA::idl
