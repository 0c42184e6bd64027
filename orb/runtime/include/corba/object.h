// Object references (OMG IDL to C++, "Mapping for Object References").
//
// X_ptr is a plain pointer to a reference of interface X, which somebody has to release; X_var owns one and does.
// Operations take references as arguments without taking them over, and give new ones, which the caller releases;
// null is nil.
//
//   Bank::Account_var mine = Bank::Account::_narrow(object.in());  // a new reference, nil when it is no Account
//   Bank::Account_ptr lent = mine.in();                            // mine releases it
//   Bank::Account_var two = Bank::Account::_duplicate(lent);       // one of its own
//   if (CORBA::is_nil(mine.in())) std::cerr << "no account" << std::endl;
#pragma once

#include "corba/exception.h"

namespace CORBA {

class Any;
class Context;
class ContextList;
class ExceptionList;
class InterfaceDef;
class NamedValue;
class NVList;
class ORB;
class Policy;
class PolicyList;
class PolicyTypeSeq;
class Request;

using PolicyType = ULong;
/// A text that whoever gets it frees with string_free.
using RepositoryId = char*;
/// Whether new overrides take the place of the old ones, or come beside them. One of a type that is overridden already
/// takes its place either way.
enum SetOverrideType : ULong { SET_OVERRIDE = 0, ADD_OVERRIDE = 1 };

/// An object reference as programs hold it: a wrapper that owns one handle of the ORB core. Virtual base of every
/// interface. A wrapper belongs to one thread at a time, so each thread has a _duplicate of its own; a handle may be
/// shared.
///
/// Operations that ask the object make a call, and end with whatever calls end with: TRANSIENT, COMM_FAILURE, TIMEOUT,
/// OBJECT_NOT_EXIST, and INV_OBJREF for a wrapper without a handle.
class ZRSVCPP_API Object : public Allocated {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  /// Gives the handle back, if there is one.
  virtual ~Object();

  // For the library and for stubs; programs of the mapping have no use for handles.

  /// Stores the handle, which the wrapper owns from then on; the one stored before is neither released nor
  /// returned.
  void set_ref(void* handle) { _ptr = handle; }
  /// The handle, still the wrapper's; null when there is none.
  void* get_ref() const { return _ptr; }

  static Object* _nil() { return nullptr; }
  /// A new wrapper over one more handle, which the caller releases; null for null. An object that counts (LocalObject)
  /// is counted up and given itself.
  static Object* _duplicate(Object* object);
  /// Every object is an Object: as _duplicate. That of interface X gives nil when the object is none, and asks it for
  /// its interface only where the reference does not tell; `X::_unchecked_narrow` never asks.
  static Object* _narrow(Object* object) { return _duplicate(object); }

  /// Ask the object itself, by a call; the first compares the reference's type id before it calls. Whether it is of
  /// that interface or of one that inherits from it (BAD_PARAM for null); whether it is sure that there is no such
  /// object, which an answer of OBJECT_NOT_EXIST says as well. False does not say that it is there for good; a server
  /// that cannot be reached is an exception.
  Boolean _is_a(const char* repository_id, CORBA_ENV);
  Boolean _non_existent(CORBA_ENV);
  /// The interface definition, by a call, nil when its server knows none. The caller releases it.
  InterfaceDef* _get_interface(CORBA_ENV);
  /// Without a call: same object by key and end point. False does not say that they are two objects.
  Boolean _is_equivalent(Object* other, CORBA_ENV);
  /// A number from 0 to `maximum`, the same for equivalent references in this process: for hash tables of references.
  /// Without a call.
  ULong _hash(ULong maximum, CORBA_ENV);

  /// The ORB that the reference came from, as a new reference that the caller releases. BAD_INV_ORDER (OMGVMCID | 4)
  /// when that one is destroyed.
  ORB* _get_orb(CORBA_ENV);
  /// The id of the object's interface: that of the reference, or, where it has none, the object is asked. The
  /// caller frees it.
  char* _repository_id(CORBA_ENV);
  /// The component that the object belongs to, as a new reference, nil when it belongs to none. The object is asked.
  Object* _get_component(CORBA_ENV);
  /// Opens the connection to the object's server where there is none: true when it answers under the policies in force,
  /// whether it has such an object or not; a failure to reach it is raised. `inconsistent` gets a new list, the
  /// caller's, of the policies that forbid it, which is empty.
  Boolean _validate_connection(PolicyList*& inconsistent, CORBA_ENV);

  /// A new reference to the same object whose calls are made under these policies; this one stays as it is.
  /// Only policies of clients count (Messaging::RelativeRoundtripTimeoutPolicy). InvalidPolicies for others and for
  /// nil, BAD_PARAM (OMGVMCID | 30) for two of one type.
  Object* _set_policy_overrides(const PolicyList& policies, SetOverrideType how, CORBA_ENV);
  /// The overrides of this reference of those types, of all types for an empty list. The caller frees the list, which
  /// is empty where there are none.
  PolicyList* _get_policy_overrides(const PolicyTypeSeq& types, CORBA_ENV);
  /// What is in force for calls of this reference on this thread: the reference's override, the thread's, or
  /// the ORB's; nil when none speaks of the type. The caller releases it.
  Policy* _get_policy(PolicyType type, CORBA_ENV);
  Policy* _get_client_policy(PolicyType type, CORBA_ENV) { return _get_policy(type, ev); }

  /// A new dynamic call of the object (corba/request.h), which is not made yet; the caller releases it. BAD_PARAM for a
  /// null or empty operation.
  Request* _request(const char* operation, CORBA_ENV);
  /// The same with arguments and a result of the program's, each null or counted once more and used in place. There
  /// are no contexts (null), and no flags that change anything.
  void _create_request(Context* context, const char* operation, NVList* arguments, NamedValue* result,
                       Request*& request, ULong flags, CORBA_ENV);
  /// The same with the user exceptions that the call may end with.
  void _create_request(Context* context, const char* operation, NVList* arguments, NamedValue* result,
                       ExceptionList* exceptions, ContextList* contexts, Request*& request, ULong flags,
                       CORBA_ENV);

  /// What Object::_duplicate does with it: null for a new wrapper. Counted objects count up and give themselves.
  virtual Object* _share_reference() { return nullptr; }
  /// What CORBA::release does with it: destroys the wrapper. Counted objects count down instead.
  virtual void _release_reference() { delete this; }

 protected:
  void* _ptr = nullptr;
};
using Object_ptr = Object*;

/// True exactly for a null pointer: a wrapper whose handle is null is not nil.
inline Boolean is_nil(const Object* object) { return object == nullptr; }
/// Destroys the wrapper, which lets go of its handle. Null is allowed.
inline void release(Object* object) {
  if (object) object->_release_reference();
}

/// Base of the interface _var types, as the standard has it: a class that a template can ask for.
class _var {};

/// Owns one reference of interface X, nil at first. A plain pointer that is assigned is taken over, another X_var
/// duplicated; what was held is released. As an argument it chooses by itself between in(), inout() and out().
///
///   CORBA::Object_var made = orb->string_to_object("corbaloc:iiop:localhost:2809/Bank");  // taken over
///   Bank::Account_var found = Bank::Account::_narrow(made.in());
///   if (!CORBA::is_nil(found.in())) balance = found->balance();
template <class X>
class ObjectVar : public _var {
 public:
  /// Nil.
  ObjectVar() = default;
  /// Takes over a reference that is the caller's, such as the result of an operation; nil is allowed.
  ObjectVar(X* p) : _ptr(p) {}
  /// A duplicate: for references over the wire no call, and std::bad_alloc without memory.
  ObjectVar(const ObjectVar& o) : _ptr(X::_duplicate(o._ptr)) {}
  ObjectVar(ObjectVar&& o) noexcept : _ptr(o._retn()) {}
  ~ObjectVar() { _free(); }
  ObjectVar& operator=(X* p) {
    if (p != _ptr) reset(p);
    return *this;
  }
  ObjectVar& operator=(const ObjectVar& o) {
    if (this != &o) reset(X::_duplicate(o._ptr));
    return *this;
  }
  ObjectVar& operator=(ObjectVar&& o) noexcept {
    if (this != &o) reset(o._retn());
    return *this;
  }

  /// Takes `p` over, also where it is the pointer that is held: then that has to be counted twice.
  void reset(X* p) {
    _free();
    _ptr = p;
  }
  /// Releases it, and holds nil.
  void _free() { release(std::exchange(_ptr, nullptr)); }

  operator X* const&() const { return _ptr; }  // a reference too: else g++ -Wconversion warns at every use
  operator X*&() { return _ptr; }
  /// A nil reference has no operations: the program looks before it calls.
  X* operator->() const { return _ptr; }
  /// Lends the reference, good until this changes or ends; to be exchanged by an operation that releases the old one.
  X* in() const { return _ptr; }
  X*& inout() { return _ptr; }
  /// Releases it; the place for another one, which is taken over.
  X*& out() {
    _free();
    return _ptr;
  }
  /// Hands it over: the caller releases it.
  X* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  X* _ptr = nullptr;
};

using Object_var = ObjectVar<Object>;

/// What the interface repository knows of an interface: that it exists, under which id. It answers what every object
/// answers, and nothing else.
class ZRSVCPP_API InterfaceDef : public virtual Object {
 public:
  static InterfaceDef* _nil() { return nullptr; }
  static InterfaceDef* _duplicate(InterfaceDef* p);
  static InterfaceDef* _narrow(Object* object);
};
using InterfaceDef_ptr = InterfaceDef*;
using InterfaceDef_var = ObjectVar<InterfaceDef>;

}  // namespace CORBA

/// Marshalling by the stream's direction; true on success. Decoding hands out new values.
ZRSVCPP_API unsigned char OM_cdr_object(CDR* cdr, CORBA::Object*& object);
ZRSVCPP_API unsigned char cdr_CORBA_InterfaceDef(CDR* cdr, CORBA::InterfaceDef*& object);
/// A string of CORBA::string_alloc; null encodes as the empty string.
ZRSVCPP_API unsigned char cdr_CORBA_string_cpp(CDR* cdr, char** text);
