// What the skeletons of IDL interfaces are made of (OMG IDL to C++, "Mapping of the server side"). The
// generated class POA_M::I derives from this, or from the skeletons of its base interfaces.
#pragma once

#include <new>

#include "corba/detail/row.h"
#include "poa/servant.h"

namespace PortableServer {

/// Base of the skeletons. A generated one adds a pure virtual function an operation, a description of the interface,
/// and `_this`; programs override the functions:
///
///   class Hello : public POA_Demo::Hello {
///     char* greet(const char* name) override { return CORBA::string_dup(name); }
///   };
///   Hello hello;
///   Demo::Hello_var reference = hello._this();  // implicitly activated in the root POA
///
/// In arguments are the library's and good for the length of the call; out arguments and results are handed over and
/// freed by the library; what is inout may be exchanged as the mapping says. Exceptions that the operation lists,
/// and system exceptions, reach the client; any other is UNKNOWN there.
class POA_API Skeleton : public virtual ServantBase {
 public:
  /// Runs the operation that the request names, of the interface or one of its bases, or one of those that every
  /// object has. False when there is no such operation: the client gets BAD_OPERATION (0x4B510306). Arguments that do
  /// not decode are answered MARSHAL, and the servant is not called.
  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) override;
  /// True for the interface, its bases and CORBA::Object; false for null.
  CORBA::Boolean _is_a(const char* repository_id, CORBA_ENV) override;
  /// The root POA, as a new reference. Programs override it for servants that are activated elsewhere by `_this`.
  POA* _default_POA() override;

 protected:
  /// The description of the most derived skeleton; `self` gets this servant as that class.
  virtual const CORBA::idl::InterfaceInfo& _interface(void*& self) = 0;
  /// What `_this` of a skeleton refers to, as a new reference. In an operation of this servant the object that was
  /// called; else the object that the servant is, or with implicit activation becomes, in its default POA.
  /// `_default_POA` gives a new reference, which is released; where it gives nil the root POA is taken. WrongPolicy
  /// and ServantNotActive of that POA come out of it: with MULTIPLE_ID and without IMPLICIT_ACTIVATION there is no
  /// one object that the servant is.
  CORBA::Object* _reference(CORBA::Environment& ev);
  /// The same as interface X.
  template <class X>
  X* _this_as(CORBA::Environment& ev) try {
    const CORBA::Object_var object = _reference(ev);
    return CORBA::idl::unchecked_narrow<X>(object.in());
  } catch (const std::bad_alloc&) {
    _no_memory(ev);
  }
  /// Raises NO_MEMORY.
  [[noreturn]] static void _no_memory(CORBA::Environment& ev);
};

/// Base of the tie POA_M::I_tie<T>: a servant of Skeleton whose operations are those of a T, which need not derive
/// from anything.
///
///   Ledger ledger;                           // has the operations of Bank::Account
///   POA_Bank::Account_tie<Ledger> servant(ledger);
///   poa->activate_object(&servant);
///
/// Changing the tied object, and whose it is, is for one thread at a time, and not while requests are served.
template <class T, class Skeleton>
class Tie : public Skeleton {
 public:
  /// Borrowed: `tied` must outlive this. With a POA, which is duplicated, `_this` activates there.
  explicit Tie(T& tied) : tied_(&tied) {}
  Tie(T& tied, POA* poa) : tied_(&tied), poa_(POA::_duplicate(poa)) {}
  /// Owned when `release`: deleted with the tie, or when another object takes its place. Null is not allowed once
  /// requests come.
  explicit Tie(T* tied, CORBA::Boolean release = true) : tied_(tied), release_(release) {}
  Tie(T* tied, POA* poa, CORBA::Boolean release = true)
      : tied_(tied), release_(release), poa_(POA::_duplicate(poa)) {}
  Tie(const Tie&) = delete;
  Tie& operator=(const Tie&) = delete;
  ~Tie() override {
    if (release_) delete tied_;
  }

  /// The object, which stays whose it is.
  T* _tied_object() { return tied_; }
  /// Another one, borrowed.
  void _tied_object(T& tied) { _tied_object(&tied, false); }
  /// The old one is deleted when it was owned.
  void _tied_object(T* tied, CORBA::Boolean release = true) {
    if (release_ && tied != tied_) delete tied_;
    tied_ = tied;
    release_ = release;
  }
  /// Whether the tie deletes the object at its end.
  CORBA::Boolean _is_owner() const { return release_; }
  void _is_owner(CORBA::Boolean release) { release_ = release; }
  /// The POA that the constructor was given, as a new reference; else the skeleton's, which is the root POA.
  POA* _default_POA() override {
    return CORBA::is_nil(poa_.in()) ? Skeleton::_default_POA() : POA::_duplicate(poa_.in());
  }

 private:
  T* tied_;
  CORBA::Boolean release_ = false;
  POA_var poa_;
};

}  // namespace PortableServer
