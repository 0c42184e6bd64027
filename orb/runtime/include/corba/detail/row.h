// IDL operations as rows. An operation is described once: its name, the member function of the servant's
// class, its parameters, its exceptions. Stub and skeleton come from that one row:
//
//   constexpr operation<POA_Bank::Account, CORBA::Long(in<CORBA::Long>, out<string<>>)>
//       deposit{"deposit", &POA_Bank::Account::deposit, raises<Bank::Refused>};
//
// The parameters stand in wire order, each as in<D>, inout<D> or out<D>, the result in front as its own
// descriptor. What C++ types that makes is idl::Type's affair; a member function that does not fit is an
// error. It may or may not take a CORBA::Environment& last.
//
// At run time a row is a small constant table that the functions of this library interpret; what is compiled
// for it is shared by all operations of the interface with the same parameters.
//
// A value on its way stands in a slot: an untyped pointer to where the C++ code has it. The result has slot 0, the
// parameters those from 1 on in the order of the IDL. `Argument::move` knows what is there and moves it between the
// slot and the stream, whichever way the stream goes:
//
//   client: address of the caller's argument -> in slots -> request ... reply -> out slots -> Holder::give
//   server: request -> in slots of Holders -> Holder::pass to the member function -> out slots -> reply
#pragma once

#include <array>
#include <bit>

#include "corba/detail/describe.h"

namespace CORBA::idl {

// ---- The table behind a row -------------------------------------------------------------------------------

/// What of a parameter, or of the result, is moved between the stream and its slot on the way in or out.
struct Argument {
  /// By the stream's direction; false when it does not fit, or is not there.
  bool (*move)(CDR* cdr, void* slot);
  unsigned short slot;  // its number
  unsigned short size;  // of a plain number, which needs no call: 4 or 8; else 0
};
/// The arguments of one way, in wire order.
struct Arguments {
  const Argument* first = nullptr;
  std::size_t count = 0;
};

/// One user exception of an operation.
struct ListedException {
  const char* id;            // repository id, as it travels
  UserException* (*make)();  // a default one, the caller's, to be decoded into
  /// Null when the exception has no members. False also when `e` is another exception of that id.
  bool (*move)(CDR* cdr, Exception* e);
};
/// Those of an operation, in any order; empty when it raises none.
struct ExceptionList {
  const ListedException* first = nullptr;
  unsigned count = 0;
};

/// The row of a generated exception class.
template <class E>
constexpr ListedException listed_exception{E::repository_id, []() -> UserException* { return new E; },
                                           [](CDR* cdr, Exception* e) {
                                             E* exact = E::_narrow(e);
                                             return exact && move_members(cdr, *exact);
                                           }};
template <class... E>
constexpr ListedException listed_exceptions[] = {listed_exception<E>...};
/// The user exceptions that an operation raises.
template <class... E>
constexpr ExceptionList raises{listed_exceptions<E...>, sizeof...(E)};
template <>
inline constexpr ExceptionList raises<>{};

class ServerCall;

/// A row without its C++ types: all that a call needs to know at run time.
struct OperationInfo {
  const char* name;            // as it travels: "_get_NAME" of an attribute
  unsigned short name_length;  // without the NUL
  bool oneway;                 // nobody waits for a reply
  Arguments in;                // in and inout
  Arguments out;               // the result, inout and out
  ExceptionList exceptions;
  /// The skeleton: reads the arguments of `call`, runs the member function on its target and writes the reply.
  void (*run)(const OperationInfo& operation, ServerCall& call);
};

// ---- Rows -------------------------------------------------------------------------------------------------

/// The parameters and the result of a row, by the descriptor of their type. Each is the form that Type<D> has for that
/// direction, and says which way it travels.
template <class D>
struct in : Type<D>::InArg {
  static constexpr bool is_in = true, is_out = false;
  using Descriptor = D;
};
template <class D>
struct inout : Type<D>::InoutArg {
  static constexpr bool is_in = true, is_out = true;
  using Descriptor = D;
};
template <class D>
struct out : Type<D>::OutArg {
  static constexpr bool is_in = false, is_out = true;
  using Descriptor = D;
};
template <class D>
struct result : Type<D>::ResultArg {
  static constexpr bool is_in = false, is_out = true;
  using Descriptor = D;
};
/// No result: nothing is moved, and its slot is null.
template <>
struct result<void> {
  using type = void;
  static constexpr bool is_in = false, is_out = false;
  using Descriptor = void;
  static bool move(CDR*, void*) { return true; }
  struct Holder {
    void* slot() { return nullptr; }
    void give() {}
  };
};

/// Octets of a plain number of 4 or 8, which is copied without a call of its move; 0 for all else.
template <class D>
constexpr unsigned short plain_size = 0;
template <Flat D>
requires(sizeof(D) >= 4) constexpr unsigned short plain_size<D> = sizeof(D);

/// The arguments of one way out of a result and parameters A, whose slots have that order.
template <bool In, class... A>
constexpr auto arguments_of = [] {
  std::array<Argument, sizeof...(A)> list{};
  unsigned short slot = 0;
  std::size_t used = 0;
  ((((In && A::is_in) || (!In && A::is_out)
         ? void(list[used++] = {A::move, slot, plain_size<typename A::Descriptor>})
         : void()),
    ++slot),
   ...);
  return list;
}();
/// The same list, as a row names it.
template <bool In, class... A>
constexpr Arguments arguments{arguments_of<In, A...>.data(),
                              (std::size_t{In ? A::is_in : A::is_out} + ... + 0)};

/// An operation that the client does not wait for.
enum class Oneway : bool { no, yes };
constexpr Oneway oneway = Oneway::yes;

/// Makes a call through the ORB core, follows forwards, and fills the result and out slots; throws what the
/// call ends with. `slots` are those of the result and of all parameters.
ZRSVCPP_API void call(Object* self, const OperationInfo& operation, void* const* slots, Environment& ev);
/// The same without an environment that anybody looks at.
ZRSVCPP_API void call(Object* self, const OperationInfo& operation, void* const* slots);

/// A request while a skeleton runs it, on the stack of the thread that does.
class ZRSVCPP_API ServerCall {
 public:
  /// Of the ORB core's `request`, for `target`, a servant as the class that the row names.
  ServerCall(void* request, bool response_expected, void* target)
      : target_(target), request_(request), response_expected_(response_expected) {}
  /// A target that `find` gives for `context` once the arguments were read; null: nobody is there.
  ServerCall(void* request, bool response_expected, void* (*find)(void* context), void* context)
      : target_(context), request_(request), find_(find), response_expected_(response_expected) {}

  /// Runs the operation and writes the reply. False when the arguments or the reply did not fit; `ev` then says
  /// so, and nothing whole was written. Exceptions that the operation does not list pass through.
  bool serve(const OperationInfo& operation);
  /// Reads the in and inout arguments; false when the operation is not to run.
  bool decode(const OperationInfo& operation, void* const* slots);
  /// Writes the reply: the result and the inout and out arguments, or what the operation left in the
  /// environment.
  void encode(const OperationInfo& operation, void* const* slots);
  /// The servant, once the arguments were read.
  template <class Class>
  Class& target() const {
    return *static_cast<Class*>(target_);
  }

  /// What the operation is given, and what a failure is said in.
  Environment ev;

 private:
  void* target_;  // or the context to find it by
  void* request_;
  CDR* cdr_ = nullptr;
  void* (*find_)(void* context) = nullptr;
  bool response_expected_;
  bool fits_ = true;
};

/// The row of an operation of Class: an OperationInfo with the member function beside it. `Signature` is the result's
/// descriptor and the parameters, each an in, inout or out. A constant; as a function object it is the stub.
template <class Class, class Signature>
struct operation;
template <class Class, class R, class... A>
struct operation<Class, R(A...)> : OperationInfo {
  using Result = result<R>;
  using Return = typename Result::type;
  using Plain = Return (Class::*)(typename A::type...);
  using WithEnvironment = Return (Class::*)(typename A::type..., Environment&);

  /// `text` is the name, a literal. The member function takes the parameters, and an Environment& last or not.
  constexpr operation(const char* text, Plain member, ExceptionList raised = {}, Oneway one_way = Oneway::no)
      : operation(text, raised, one_way, run_plain) {
    plain = member;
  }
  constexpr operation(const char* text, WithEnvironment member, ExceptionList raised = {},
                      Oneway one_way = Oneway::no)
      : operation(text, raised, one_way, run_with_environment) {
    with_environment = member;
  }
  constexpr operation(const char* text, Plain member, Oneway one_way)
      : operation(text, member, ExceptionList{}, one_way) {}
  constexpr operation(const char* text, WithEnvironment member, Oneway one_way)
      : operation(text, member, ExceptionList{}, one_way) {}

  /// The stub: calls the operation of what `self` refers to, and gives the result, which is the caller's. Throws what
  /// the call ends with; with an environment that holds it as well.
  Return operator()(Object* self, typename A::type... argument) const {
    typename Result::Holder result;
    void* const slots[] = {result.slot(), A::address(argument)...};
    call(self, *this, slots);
    return result.give();
  }
  Return operator()(Object* self, typename A::type... argument, Environment& ev) const {
    typename Result::Holder result;
    void* const slots[] = {result.slot(), A::address(argument)...};
    call(self, *this, slots, ev);
    return result.give();
  }

 protected:
  union {
    Plain plain;
    WithEnvironment with_environment;
  };

 private:
  static constexpr bool is_void = std::is_void_v<R>;

  constexpr operation(const char* text, ExceptionList raised, Oneway one_way,
                      void (*run_it)(const OperationInfo&, ServerCall&))
      : OperationInfo{text,
                      static_cast<unsigned short>(std::char_traits<char>::length(text)),
                      one_way == Oneway::yes,
                      arguments<true, Result, A...>,
                      arguments<false, Result, A...>,
                      raised,
                      run_it},
        plain(nullptr) {}

  // What `run` is, for the two forms of member functions.
  static void run_plain(const OperationInfo& info, ServerCall& call) {
    const auto& self = static_cast<const operation&>(info);
    serve_with(
        self, call,
        [&](auto&... holder) -> Return { return (call.target<Class>().*self.plain)(holder.pass()...); },
        typename Result::Holder(), typename A::Holder()...);
  }
  static void run_with_environment(const OperationInfo& info, ServerCall& call) {
    const auto& self = static_cast<const operation&>(info);
    serve_with(
        self, call,
        [&](auto&... holder) -> Return {
          return (call.target<Class>().*self.with_environment)(holder.pass()..., call.ev);
        },
        typename Result::Holder(), typename A::Holder()...);
  }
  /// Decodes into the holders, calls, and encodes out of them: they free what is theirs on every way out.
  template <class Call>
  static void serve_with(const operation& self, ServerCall& call, Call&& run,
                         typename Result::Holder&& result, typename A::Holder&&... holder) {
    void* const slots[] = {result.slot(), holder.slot()...};
    if (!call.decode(self, slots)) return;
    if constexpr (is_void)
      run(holder...);
    else
      result.take(run(holder...));
    call.encode(self, slots);
  }
};

// ---- Interfaces -------------------------------------------------------------------------------------------

/// The operations of one interface by name: a hash table that the compiler makes.
struct OperationTable {
  const OperationInfo* const* rows;  // in the order that they were named in
  const unsigned short* index;       // of row + 1, by hash; 0: none
  unsigned mask;                     // of the index
};

/// The octets of a W as a number, the same for the compiler and at run time.
template <class W>
constexpr std::uint64_t octets_at(const char* at) {
  W word = 0;
  if (std::is_constant_evaluated()) {
    for (unsigned i = 0; i < sizeof(W); ++i) {
      const unsigned place = std::endian::native == std::endian::little ? i : sizeof(W) - 1 - i;
      word |= static_cast<W>(W{static_cast<unsigned char>(at[i])} << 8 * place);
    }
  } else {
    std::memcpy(&word, at, sizeof word);
  }
  return word;
}
/// The name of an operation, as it is looked up: its hash is of the length and of the first and last eight octets,
/// as names in one interface differ there as a rule.
struct OperationName {
  constexpr OperationName(const char* name, std::size_t octets)
      : text(name), length(octets), hash(static_cast<unsigned>(mixed() >> 40)) {}

  const char* text;
  std::size_t length;
  unsigned hash;

 private:
  constexpr std::uint64_t mixed() const {
    constexpr std::uint64_t first = 0x9E3779B97F4A7C15, last = 0xC2B2AE3D27D4EB4F;
    const std::uint64_t all = ends() * first + length;
    return (all ^ all >> 32) * last;  // what differs in the upper octets alone reaches all bits, too
  }
  constexpr std::uint64_t ends() const {
    const char* const end = text + length;
    if (length >= 8) return octets_at<std::uint64_t>(text) * 3 + octets_at<std::uint64_t>(end - 8);
    if (length >= 4) return octets_at<std::uint32_t>(text) << 32 | octets_at<std::uint32_t>(end - 4);
    if (length == 0) return 0;
    const auto octet = [this](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(text[i])}; };
    return octet(0) << 16 | octet(length / 2) << 8 | octet(length - 1);
  }
};

/// Table of N rows: open addressing, at most half full, so a search ends soon at an empty place.
template <std::size_t N>
struct Operations {
  static constexpr unsigned size = [] {
    unsigned s = 1;
    while (s < 2 * N) s *= 2;
    return s;
  }();
  const OperationInfo* rows[N];
  unsigned short index[size];

  constexpr OperationTable table() const { return {rows, index, size - 1}; }
};
/// The rows of an interface, in any order: `constexpr auto table = operations(deposit, withdraw);`.
template <class... Row>
constexpr Operations<sizeof...(Row)> operations(const Row&... row) {
  Operations<sizeof...(Row)> made{{&row...}, {}};
  for (std::size_t i = 0; i < sizeof...(Row); ++i) {
    unsigned at = OperationName(made.rows[i]->name, made.rows[i]->name_length).hash;
    while (made.index[at & (made.size - 1)] != 0) ++at;
    made.index[at & (made.size - 1)] = static_cast<unsigned short>(i + 1);
  }
  return made;
}
/// Of an interface without operations of its own.
constexpr OperationTable operations() { return {nullptr, nullptr, 0}; }

struct InterfaceInfo;
/// A base interface, and the way from a servant of the derived one to a servant of it.
struct BaseInterface {
  const InterfaceInfo* info;
  void* (*upcast)(void* derived);
};
/// A skeleton class at run time: `_info` of a generated one.
struct InterfaceInfo {
  const char* id;  // repository id
  OperationTable operations;
  const BaseInterface* bases;
  unsigned base_count;
};
/// Makes the interfaces known to the interface repository. Returns true.
ZRSVCPP_API bool announce(std::initializer_list<const InterfaceInfo*> interfaces);

/// The bases of a skeleton class, by its C++ bases.
template <class Derived, class Base>
constexpr BaseInterface base_interface{
    &Base::_info, [](void* p) -> void* { return static_cast<Base*>(static_cast<Derived*>(p)); }};
template <class Derived, class... Base>
constexpr BaseInterface base_interfaces[] = {base_interface<Derived, Base>..., BaseInterface{}};

/// The description of a skeleton class: its repository id, its table, its base skeletons.
template <class Skeleton, class... Base>
constexpr InterfaceInfo interface_info(const char* id, const OperationTable& table) {
  return {id, table, base_interfaces<Skeleton, Base...>, sizeof...(Base)};
}

/// True for the interface's own id, for those of its bases, and for CORBA::Object's.
ZRSVCPP_API bool is_a(const InterfaceInfo& interface, const char* repository_id);
/// Runs the operation that the request names on `target`, a servant of the described class, and writes the
/// reply. False when neither the interface nor a base has it. MARSHAL, or DATA_CONVERSION for a text, is thrown
/// when the arguments do not decode (completed NO) or the reply does not encode (completed YES).
ZRSVCPP_API bool invoke(const InterfaceInfo& interface, void* target, const char* operation_name,
                        void* request, bool response_expected);

}  // namespace CORBA::idl
