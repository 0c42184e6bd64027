// Exceptions and the environment (OMG IDL to C++, "Mapping for Exception Types").
//
// Operations fail by throwing: a user exception that their IDL lists, or one of the standard's system exceptions;
// without memory in this process also std::bad_alloc, from what copies. All derive from CORBA::Exception, and from
// std::exception. Catch by reference to constant; what is caught is a copy, and the catcher's for as long as it is
// caught.
//
//   try {
//     balance = account->balance();
//   } catch (const CORBA::TRANSIENT&) {             // nobody took the call: it may be made again
//     balance = account->balance();
//   } catch (const CORBA::SystemException& e) {
//     std::cerr << e << std::endl;                  // id, minor code, and how far the call came
//     throw;
//   }
#pragma once

#include <exception>
#include <iosfwd>

#include "corba/detail/literal.h"
#include "corba/strings.h"
#include "zrsv.h"

namespace CORBA {

/// What an exception says of its type: the id, NUL, the public form where that is another, NUL, the name, NUL.
struct ExceptionTexts {
  const char* texts = nullptr;  // null: the id is empty
  ULong rep_id = 0, name = 0;   // where they start
};

/// Root of all exceptions. A value: copying copies the repository id and, in derived classes, the members; a
/// copy of the base class alone keeps the id of what it was copied from. Belongs to one thread at a time.
///
///   try {
///     account->balance();
///   } catch (const CORBA::Exception& e) {           // whatever it ended with
///     std::cerr << e._name() << std::endl;          // "TRANSIENT", "Overdrawn"
///   }
class ZRSVCPP_API Exception : public Allocated, public std::exception {
 public:
  /// Without an id.
  Exception() = default;
  /// Copies of the texts, but of a standard exception's, which last; std::bad_alloc without memory.
  Exception(const Exception& o);
  Exception& operator=(const Exception& o);
  ~Exception() override;

  /// Repository id in this library's own form ("IDL:CORBA/StExcep/TRANSIENT:1.0"); "" before one is set. All
  /// texts belong to the exception.
  const char* id() const { return of_.texts ? of_.texts : ""; }
  /// Sets it, in either form; null is "". Texts that were got before are good no more.
  void id(const char* text);
  /// The id as the standard writes it and as it travels ("IDL:omg.org/CORBA/TRANSIENT:1.0").
  const char* _rep_id() const { return id() + of_.rep_id; }
  /// The id's last name, without version ("TRANSIENT").
  const char* _name() const { return id() + of_.name; }
  /// As _rep_id.
  const char* what() const noexcept override { return _rep_id(); }

  /// A heap copy of the exception's own type, owned by the caller. std::bad_alloc without memory.
  virtual Exception* _clone() const;
  /// Throws a copy of the exception's own type: to throw what an Environment holds, or what was kept for later.
  [[noreturn]] virtual void _raise() const;

 protected:
  /// Over texts that last as long as the process: neither this nor a copy needs memory for them.
  explicit Exception(const ExceptionTexts& lasting) : of_(lasting) {}

 private:
  ExceptionTexts of_;
  ULong owned_ = 0;  // octets of the texts where they are its own; 0: they last
};

/// "IDL:omg.org/CORBA/TRANSIENT:1.0", and of a system exception " (minor code 0x4f4d0001, completed NO)".
ZRSVCPP_API std::ostream& operator<<(std::ostream& to, const Exception& exception);

/// Base of the exceptions that IDL declares. Generated code has a class for each, with its members and a constructor
/// that takes them; `_downcast` of that class finds out whether an exception is of it.
///
///   const CORBA::Exception* found = new Bank::Overdrawn(20);
///   if (const auto* overdrawn = Bank::Overdrawn::_downcast(found)) std::cout << overdrawn->missing << std::endl;
///   delete found;
class ZRSVCPP_API UserException : public Exception {
 public:
  ~UserException() override;
  /// Without an id; generated classes set theirs.
  UserException() = default;
  UserException(const UserException&) = default;
  UserException& operator=(const UserException&) = default;
  Exception* _clone() const override;
  [[noreturn]] void _raise() const override;
  /// `e` itself when it is a user exception, else null, also for null. Nothing changes hands. _downcast is the
  /// standard's name for it.
  static UserException* _narrow(Exception* e) { return dynamic_cast<UserException*>(e); }
  static UserException* _downcast(Exception* e) { return _narrow(e); }
  static const UserException* _downcast(const Exception* e) { return _narrow(const_cast<Exception*>(e)); }
};

/// The upper 20 bits of the minor codes that the standard gives out; the lower 12 number the reasons of one
/// exception: `e.minor() == (CORBA::OMGVMCID | 14)`.
inline constexpr ULong OMGVMCID = 0x4F4D0000;

/// Whether the operation has run at the other end: YES, to its end; NO, it did not begin, so the call may be made again
/// without harm; MAYBE, nobody knows.
enum CompletionStatus : ULong { COMPLETED_YES = 0, COMPLETED_NO = 1, COMPLETED_MAYBE = 2 };

/// A system exception: minor code and completion status beside the id. What a minor code means is told by its upper 20
/// bits: OMGVMCID is the standard's, 0x4B510000 is this library's (docs/wire.md, docs/orb.md), 0 says nothing. One that
/// is of the other end arrives with the code and the status that it was thrown with there.
///
///   try {
///     account->balance();
///   } catch (const CORBA::SystemException& e) {
///     if (e.completed() == CORBA::COMPLETED_NO) balance = account->balance();  // it did not run: once more
///   }
class ZRSVCPP_API SystemException : public Exception {
 public:
  /// Minor code 0, COMPLETED_NO, and no id: programs make the classes below.
  SystemException() = default;
  SystemException(ULong minor_code, CompletionStatus status) : minor_(minor_code), completed_(status) {}
  SystemException(const SystemException&) = default;
  SystemException& operator=(const SystemException&) = default;
  ~SystemException() override;

  /// Which of the exception's reasons it is; 0 where nobody says.
  ULong minor() const { return minor_; }
  void minor(ULong code) { minor_ = code; }
  /// What is known of the call when this is thrown.
  CompletionStatus completed() const { return completed_; }
  void completed(CompletionStatus status) { completed_ = status; }

  Exception* _clone() const override;
  [[noreturn]] void _raise() const override;
  /// `e` itself when it is a system exception, else null.
  static SystemException* _narrow(Exception* e) { return dynamic_cast<SystemException*>(e); }
  static SystemException* _downcast(Exception* e) { return _narrow(e); }
  static const SystemException* _downcast(const Exception* e) { return _narrow(const_cast<Exception*>(e)); }

 protected:
  SystemException(const ExceptionTexts& lasting, ULong minor_code, CompletionStatus status)
      : Exception(lasting), minor_(minor_code), completed_(status) {}

 private:
  ULong minor_ = 0;
  CompletionStatus completed_ = COMPLETED_NO;
};

/// A standard system exception; `Name` is its name in module CORBA. Servants throw them as well: clients get the
/// minor code and the completion status that they are made with. What a servant throws of other kinds (a
/// std::exception, a user exception that the operation does not list) is UNKNOWN there.
///
///   if (amount < 0) throw CORBA::BAD_PARAM(0, CORBA::COMPLETED_NO);
template <Text Name>
class ZRSVCPP_API StandardException : public SystemException {
 public:
  static constexpr JoinedText repository_id{"IDL:CORBA/StExcep/", Name.value, ":1.0"};

  /// Minor code 0, COMPLETED_NO.
  StandardException() : StandardException(0) {}
  /// `status` says whether the operation has run, as far as the one who throws knows.
  explicit StandardException(ULong minor_code, CompletionStatus status = COMPLETED_NO)
      : SystemException({texts.value, sizeof repository_id.value, sizeof ids.value}, minor_code, status) {}
  Exception* _clone() const override { return new StandardException(*this); }
  [[noreturn]] void _raise() const override { throw StandardException(*this); }
  /// `e` itself when it is of this class, else null, also for null. Nothing changes hands.
  ///
  ///   CORBA::Environment ev;
  ///   if (CORBA::TIMEOUT::_downcast(ev.exception())) std::cerr << "too late" << std::endl;
  static StandardException* _narrow(Exception* e) { return dynamic_cast<StandardException*>(e); }
  static StandardException* _downcast(Exception* e) { return _narrow(e); }
  static const StandardException* _downcast(const Exception* e) { return _narrow(const_cast<Exception*>(e)); }

 private:
  static constexpr JoinedText public_id{"IDL:omg.org/CORBA/", Name.value, ":1.0"};
  static constexpr JoinedText ids{repository_id.value, "\0", public_id.value};
  static constexpr JoinedText texts{ids.value, "\0", Name.value};
};

// g++ hides what is made from a literal as a template argument, unless the literal is first named where
// things are visible.
#pragma GCC visibility push(default)
/// The standard system exceptions. Each also stands in CORBA itself, as the standard has it. Which one means what to a
/// client is told in docs/guide.md.
namespace StExcep {
/// The servant raised something that its operation does not list, or that is no exception of the mapping; its POA
/// could not serve the request (no such POA, no active object, the manager is INACTIVE); or a peer sent an exception
/// that is not known here.
using UNKNOWN = StandardException<"UNKNOWN">;
/// An argument that cannot be; the adapter, for a POA or object that is gone. The operation says which.
using BAD_PARAM = StandardException<"BAD_PARAM">;
/// No memory, here or at the server; then perhaps completed.
using NO_MEMORY = StandardException<"NO_MEMORY">;
/// A message over -ORBMaxMessage: not sent, or, as a reply, not sent back.
using IMP_LIMIT = StandardException<"IMP_LIMIT">;
/// The connection broke; completed() says whether the call may have run.
using COMM_FAILURE = StandardException<"COMM_FAILURE">;
/// A reference that refers to nothing that can be called: no handle, no address.
using INV_OBJREF = StandardException<"INV_OBJREF">;
/// Not raised by this library: for servants that refuse a caller.
using NO_PERMISSION = StandardException<"NO_PERMISSION">;
/// A mistake of this library: a request that nobody answered.
using INTERNAL = StandardException<"INTERNAL">;
/// What came in is not what the types say; or what was to go out cannot travel: a local object, a servant, a null
/// struct.
using MARSHAL = StandardException<"MARSHAL">;
/// ORB_init, or the server side, could not start; a log line says why.
using INITIALIZE = StandardException<"INITIALIZE">;
/// Nobody wrote it: an operation of a servant manager that the program did not override, an implementation name that
/// the repository does not know, a dynamic call of an object of the library.
using NO_IMPLEMENT = StandardException<"NO_IMPLEMENT">;
/// A nil or unfinished TypeCode, or one of the wrong type for what is done with it.
using BAD_TYPECODE = StandardException<"BAD_TYPECODE">;
/// The object has no operation of that name.
using BAD_OPERATION = StandardException<"BAD_OPERATION">;
/// A table of the library is full, or what was asked for is not there at this point of the request.
using NO_RESOURCES = StandardException<"NO_RESOURCES">;
// Two that this library does not raise.
using NO_RESPONSE = StandardException<"NO_RESPONSE">;
using PERSIST_STORE = StandardException<"PERSIST_STORE">;
/// Too late, too early or twice: the ORB is destroyed, a servant manager is set again, an answer is taken that was
/// not asked for.
using BAD_INV_ORDER = StandardException<"BAD_INV_ORDER">;
/// Nobody took the call, and it may be made again: no connection, a server that is too busy or refuses for now. Not
/// completed, where this library raises it.
using TRANSIENT = StandardException<"TRANSIENT">;
// Three that it does not raise.
using FREE_MEM = StandardException<"FREE_MEM">;
using INV_IDENT = StandardException<"INV_IDENT">;
using INV_FLAG = StandardException<"INV_FLAG">;
/// An interface that this process knows nothing of.
using INTF_REPOS = StandardException<"INTF_REPOS">;
/// No property of a context fits (corba/context.h).
using BAD_CONTEXT = StandardException<"BAD_CONTEXT">;
/// A locator gave no servant, a POA with NON_RETAIN has no locator, or nobody serves objects in the process.
using OBJ_ADAPTER = StandardException<"OBJ_ADAPTER">;
/// A text that the peer has no characters for, or that is none; a decimal number that does not fit.
using DATA_CONVERSION = StandardException<"DATA_CONVERSION">;
/// The server does not know the object, and never will: references to it may be thrown away.
using OBJECT_NOT_EXIST = StandardException<"OBJECT_NOT_EXIST">;
/// Not raised here: InvalidPolicies and PolicyError say more.
using INV_POLICY = StandardException<"INV_POLICY">;
/// The peer has no code set that texts could travel in.
using CODESET_INCOMPATIBLE = StandardException<"CODESET_INCOMPATIBLE">;
// The rest, but TIMEOUT, are of services that are not here; they come and go as any other.
using REBIND = StandardException<"REBIND">;
/// No answer in time (corba/messaging.h, -ORBTimeout); perhaps completed.
using TIMEOUT = StandardException<"TIMEOUT">;
using BAD_QOS = StandardException<"BAD_QOS">;
using TRANSACTION_REQUIRED = StandardException<"TRANSACTION_REQUIRED">;
using TRANSACTION_ROLLEDBACK = StandardException<"TRANSACTION_ROLLEDBACK">;
using INVALID_TRANSACTION = StandardException<"INVALID_TRANSACTION">;
using TRANSACTION_UNAVAILABLE = StandardException<"TRANSACTION_UNAVAILABLE">;
using TRANSACTION_MODE = StandardException<"TRANSACTION_MODE">;
using INVALID_ACTIVITY = StandardException<"INVALID_ACTIVITY">;
using ACTIVITY_COMPLETED = StandardException<"ACTIVITY_COMPLETED">;
using ACTIVITY_REQUIRED = StandardException<"ACTIVITY_REQUIRED">;
using THREAD_CANCELLED = StandardException<"THREAD_CANCELLED">;
}  // namespace StExcep
#pragma GCC visibility pop
using namespace StExcep;

/// A user exception without members, of that repository id. Two of one id are one type. Exceptions of the module's own
/// interfaces are such: CORBA::ORB::InvalidName, PortableServer::POA::WrongPolicy.
///
///   try {
///     poa->activate_object_with_id(id, &servant);
///   } catch (const PortableServer::POA::ServantAlreadyActive&) {
///     std::cerr << "active already" << std::endl;
///   }
template <Text Id>
class ZRSVCPP_API PlainUserException : public UserException {
 public:
  static constexpr const char* repository_id = Id.value;

  PlainUserException() { id(repository_id); }
  Exception* _clone() const override { return new PlainUserException(*this); }
  [[noreturn]] void _raise() const override { throw PlainUserException(*this); }
  static PlainUserException* _nil() { return nullptr; }
  /// `e` when its repository id is this one, else null.
  static PlainUserException* _narrow(Exception* e) {
    return e && std::strcmp(e->id(), repository_id) == 0 ? dynamic_cast<PlainUserException*>(e) : nullptr;
  }
  static PlainUserException* _downcast(Exception* e) { return _narrow(e); }
  static const PlainUserException* _downcast(const Exception* e) {
    return _narrow(const_cast<Exception*>(e));
  }
};

/// Base of a user exception with members: E has `repository_id` and is copyable. For generated code. What is told of
/// UserException and PlainUserException holds for E, too: `E::_downcast(e)` is the exception as E, or null.
template <class E>
class ZRSVCPP_API UserExceptionOf : public UserException {
 public:
  UserExceptionOf() { id(E::repository_id); }
  Exception* _clone() const override { return new E(static_cast<const E&>(*this)); }
  [[noreturn]] void _raise() const override { throw E(static_cast<const E&>(*this)); }
  static E* _nil() { return nullptr; }
  static E* _narrow(Exception* e) {
    return e && std::strcmp(e->id(), E::repository_id) == 0 ? dynamic_cast<E*>(e) : nullptr;
  }
  static E* _downcast(Exception* e) { return _narrow(e); }
  static const E* _downcast(const Exception* e) { return _narrow(const_cast<Exception*>(e)); }
};

/// A member of an exception, as the mapping has it (`e.index`), that is also an accessor: `e.index()` reads, and
/// `e.index(3)` writes.
template <class T>
class ExceptionMember {
 public:
  /// A default value: 0.
  ExceptionMember() = default;
  ExceptionMember(T value) : value_(value) {}
  operator T() const { return value_; }
  T operator()() const { return value_; }
  void operator()(T value) { value_ = value; }

 private:
  T value_{};
};

/// Owns one exception that was made with new: a fresh one holds a new exception, never null; copies are deep, of null
/// null. A pointer that is assigned is taken over, an exception copied; what was held is deleted. Null only where null
/// was assigned, or after `_retn()`, which hands the exception over. std::bad_alloc without memory. One thread at a
/// time.
///
///   PortableServer::POA::InvalidPolicy_var kept;
///   try {
///     poa = root->create_POA("rows", nullptr, list);
///   } catch (const PortableServer::POA::InvalidPolicy& e) {
///     kept = e;  // for later
///   }
template <class E>
class ExceptionVar {
 public:
  /// A new exception.
  ExceptionVar() : _ptr(new E) {}
  /// Takes over one made with new; null is none.
  ExceptionVar(E* e) : _ptr(e) {}
  /// A copy, of null null.
  ExceptionVar(const E& e) : _ptr(new E(e)) {}
  ExceptionVar(const ExceptionVar& o) : _ptr(o._ptr ? new E(*o._ptr) : nullptr) {}
  ~ExceptionVar() { delete _ptr; }
  ExceptionVar& operator=(E* e) {
    if (e != _ptr) delete std::exchange(_ptr, e);
    return *this;
  }
  ExceptionVar& operator=(const E& e) { return &e == _ptr ? *this : *this = new E(e); }
  ExceptionVar& operator=(const ExceptionVar& o) {
    return this == &o ? *this : *this = (o._ptr ? new E(*o._ptr) : nullptr);
  }
  /// The exception, still owned; null when there is none, and then nobody looks.
  E* operator->() const { return _ptr; }
  E& operator*() const { return *_ptr; }
  operator E*() const { return _ptr; }
  /// Hands it over: the caller deletes it.
  E* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  E* _ptr;
};

/// How an operation reports a failure beside throwing it: every operation takes one last, by default a fresh
/// one that nobody looks at. After a call it holds what that has thrown, or nothing. Belongs to one thread at a time,
/// and may be used for one call after the other: each begins by emptying it.
///
///   CORBA::Environment ev;
///   try {
///     poa->deactivate_object(id, ev);
///   } catch (const CORBA::Exception&) {
///     std::cerr << *ev.exception() << std::endl;  // the environment's, until the next call
///   }
class ZRSVCPP_API Environment {
 public:
  Environment() noexcept : _evp(&record_) {}
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() {
    if (_exp || record_._major) clear();
  }

  /// Takes over an exception made with new; the one held before is deleted. Null empties the environment.
  void exception(Exception* e);
  /// What it holds, still the environment's; null when nothing failed.
  Exception* exception() const { return _exp; }
  /// Takes over a filled record, which is left empty; _exp then holds the matching exception (a plain
  /// UserException with its id for a user exception, none for a location forward).
  void set_ref(CORBA_Environment* filled);
  /// Deletes what it holds.
  void clear();
  /// This environment as an lvalue: lets a temporary be the default of a reference parameter.
  Environment& self() { return *this; }

  CORBA_Environment* _evp;    ///< the ORB core's record: _major 0 none, 1 user, 2 system, 3 location forward
  Exception* _exp = nullptr;  ///< the exception held, or null

 private:
  CORBA_Environment record_{};
};

/// Throws a copy, of its own type, of the exception that `ev` holds; UNKNOWN, stored in `ev` too, when it
/// holds none.
[[noreturn]] ZRSVCPP_API void raise_environment(Environment& ev);

}  // namespace CORBA

/// The last parameter of every operation of the mapping.
#define CORBA_ENV CORBA::Environment& ev = CORBA::Environment().self()
