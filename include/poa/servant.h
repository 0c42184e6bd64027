// Base classes of servants (OMG IDL to C++, "Mapping of PortableServer").
//
// A servant is a C++ object of the program that does the work of one or more CORBA objects. This header has what all
// servants share: the standard's operations, counts, deletion that waits for requests, and lifespans.
#pragma once

#include <atomic>

#include "poa/interfaces.h"

namespace PortableServer {

class ObjectRefList;  // of the library

/// Base of every servant. Programs derive from the skeleton classes generated for their interfaces, which
/// derive from this.
///
///   class Account : public POA_Bank::Account {
///     CORBA::Long balance() override { return balance_; }
///     std::atomic<CORBA::Long> balance_{0};
///   };
///   Account account;                      // outlives its activation
///   Bank::Account_var reference = account._this();
///
/// Operations run on the threads of the ORB core, many at once, also on one servant. A servant belongs to the
/// program. The library deletes one only after it was marked for deletion (`servant_delete`, a lifespan, a lost
/// client) and no request is in it; such a servant must have been made with `new`. A program that deletes a
/// servant itself deactivates it first and lets its requests end; one that it deletes while it is active is taken
/// out of the maps, and its references are withdrawn.
class POA_API ServantBase : public CORBA::Allocated {
 public:
  ServantBase();
  /// Copies no bookkeeping: the copy starts like a new servant. Assignment changes nothing.
  ServantBase(const ServantBase&);
  ServantBase& operator=(const ServantBase&);
  virtual ~ServantBase();

  // ---- The standard's operations ----

  /// The POA that `_this` activates in, as a new reference that the caller releases; programs override it. Null here:
  /// the servant has no POA of its own choice. Skeletons give the root POA.
  ///
  ///   PortableServer::POA_ptr _default_POA() override { return PortableServer::POA::_duplicate(poa); }
  virtual POA* _default_POA();
  /// The interface definition of the servant's repository id, as a new reference; nil, with a line on standard error,
  /// when none is known.
  virtual CORBA::InterfaceDef* _get_interface(CORBA_ENV);
  /// True for the servant's own repository id exactly; false for null. Skeletons know base interfaces, too.
  virtual CORBA::Boolean _is_a(const char* logical_type_id, CORBA_ENV);
  /// False here: whoever can be asked is there. A program that overrides it answers for the object that is called.
  virtual CORBA::Boolean _non_existent(CORBA_ENV);
  /// Nothing here: the program owns the servant. A class that counts overrides both (RefCountServantBase): then the
  /// adapter holds one count of a servant for each object that it is, and as a default servant, from the activation
  /// to the end of the last request. Of a class whose _add_ref calls the one here nothing is held. Called by several
  /// threads at once.
  virtual void _add_ref();
  virtual void _remove_ref();
  /// Serves one request: finds the operation, decodes, runs it, writes the reply. False when there is no such
  /// operation: the client gets BAD_OPERATION (0x4B510306). `request` and `ev` are the library's and good for the
  /// length of the call.
  virtual CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev);
  /// The repository id of the object `oid`; the text lives until the process ends (a literal), for the
  /// library keeps it. `poa` may be nil: the library asks for the class of objects then. Null where there is no
  /// skeleton, and no reference can be made then.
  virtual const char* _primary_interface(const ObjectId& oid, POA* poa, CORBA_ENV);
  /// The skeletons of the three operations that every object has: `request` is the ORB core's request, the other
  /// pointers are not looked at. True when the request has been served.
  virtual unsigned char _skel__get_interface_(void* request, void* unused, CORBA::ULong type,
                                              unsigned char response_expected, void* table);
  virtual unsigned char _skel_is_a(void* request, void* unused, CORBA::ULong type,
                                   unsigned char response_expected, void* table);
  virtual unsigned char _skel_non_exitent(void* request, void* unused, CORBA::ULong type,
                                          unsigned char response_expected, void* table);
  /// The count, for diagnosis; 1 for a servant that does not count.
  virtual CORBA::ULong _refcount_value();

  // ---- Who is in it, and its end ----

  /// Requests now in the servant. A program that works with it outside of requests may raise the count, so that
  /// the library does not delete it meanwhile, and lower it again, as often as it raised it; lowering lists nothing for
  /// deletion. Any thread, while the servant is sure to be there.
  void add_ref_counter();
  void remove_ref_counter();
  CORBA::ULong get_ref_counter() const { return _counter & ~_last_looks; }

  /// Deletion: marked while requests are in progress, then listed, then deleted on a lifespan tick (one a second).
  /// A marked servant serves no new requests: for its clients the object is not active. These are the marks themselves;
  /// use servant_delete.
  CORBA::Boolean get_to_be_deleted() const { return _to_be_deleted; }
  void set_to_be_deleted(CORBA::Boolean flag) {
    _to_be_deleted = flag;
    if (flag) _counter |= _last_looks;
  }
  CORBA::Boolean get_deleted() const { return _deleted; }
  void set_deleted(CORBA::Boolean flag) { _deleted = flag; }
  void add_delete_list();
  /// Asks for deletion: at the next tick, or when the last request has left it and no call of the program
  /// (etherealize, postinvoke, release_instance) has it. Asked again changes nothing. A POA's default servant is left
  /// alone, and nothing happens. The servant leaves the maps of its POAs when it is deleted, and no activator is
  /// told. To be called from within an operation of the servant, or by an activator's etherealize; the servant is not
  /// to be touched afterwards, but for the rest of that operation. Clears the timer. Raises nothing. Any thread.
  ///
  ///   void close() override { servant_delete(); }  // an operation by which a client ends a session
  void servant_delete();

  /// How many POAs have it as their default servant: POA::set_servant counts, and programs have no call for it.
  void add_default_servant_ref();
  void rem_default_servant_ref();

  /// Lifespan: expiry in seconds since 1970, 0 when there is none. Any thread.
  CORBA::ULong get_timer() const { return _timer; }
  /// The servant is deactivated and deleted `seconds` from now, or up to two ticks later; set again, the time starts
  /// anew; 0 clears the timer. A request that is in it then is waited for. BAD_PARAM (0x4B510007) below 0. The
  /// servant must have been made with new, and not be touched by the program once the time is over. A default servant
  /// is not deleted. Any thread.
  ///
  ///   session->set_timer(600);  // in each operation: gone when it was not called for ten minutes
  void set_timer(int seconds, CORBA_ENV);

  // ---- References made for the servant, one a POA and id: the library keeps them here ----

  /// The one that is kept, not duplicated: good until it is cleared. Null when there is none, and for null
  /// arguments. `poa` is any reference of the POA.
  CORBA::Object* get_ObjectReference(POA* poa, const ObjectId* oid);
  /// Keeps `ior` itself (flag 0: it becomes the servant's) or a duplicate (flag 1), for the id in it, or for `oid`
  /// where the servant is a default servant. Gives what is kept; null, and nothing kept, for null arguments, a POA
  /// that is gone, and when one is kept already. `boa` is not looked at.
  CORBA::Object* set_ObjectReference(POA* poa, CORBA::Object* ior, int flag, void* boa, const ObjectId* oid);
  /// Lets go of the one that is kept; it stays bound in the ORB core.
  void clear_ObjectReference(POA* poa, const ObjectId* oid);
  /// Takes all of them out of the ORB core and out of the servant, and their objects out of their POAs' maps.
  void deactivate_ObjectReference();

 protected:
  std::atomic<CORBA::Object*> _obj_ref{
      nullptr};  ///< target of a request being served, the last one begun; for the library
  ObjectRefList* _object_ref = nullptr;  ///< head of the reference list; guarded by poa_svt_objref_mutex
  const char* _intf = nullptr;           ///< the servant's repository id, a literal; skeleton classes set it
  /// Requests in progress. Raised under poa_svt_ref_counter_mutex, or under the POA semaphore by a map lookup. With
  /// _last_looks, the last one that leaves has something to do, and it is lowered under the mutex.
  std::atomic<CORBA::ULong> _counter{0};
  static constexpr CORBA::ULong _last_looks = 0x80000000;
  std::atomic<CORBA::Boolean> _to_be_deleted{0};
  std::atomic<CORBA::Boolean> _deleted{0};
  std::atomic<CORBA::ULong> _timer{0};            ///< changed under poa_svt_lifespan_mutex
  std::atomic<CORBA::ULong> _default_servant{0};  ///< changed under poa_default_servant_ref_mutex
  std::atomic<CORBA::ULong> _active_entries{
      0};  ///< at least its active-object-map entries; changed under the POA semaphore
  std::atomic<CORBA::Boolean> _counts{0};  ///< the class counts; learnt when the adapter takes a count
  CORBA::ULong _to_release{
      0};                  ///< counts to give back with the last request; under poa_svt_ref_counter_mutex
  CORBA::ULong _home = 0;  ///< its first active-object-map entry, see there; under the POA semaphore
  ServantBase* _next_deleted = nullptr;  ///< behind it on the delete list; under poa_svt_delete_mutex

  friend struct ServantAccess;  // the library's own view of the fields
};

/// Owns one count of a servant of class T (the mapping's ServantBase_var, for any class). Of a servant that does not
/// count it owns nothing, so it is the right holder of what POA::id_to_servant and the like return.
///
///   PortableServer::Servant_var<Account> account = new Account;  // deleted with the last count
///   poa->activate_object(account);                               // the adapter holds another one
///
/// One thread at a time, as any variable.
template <class T>
class Servant_var {
 public:
  Servant_var() = default;
  /// Takes over one count: the first one of a servant just made, or what an operation returned. Copies count up.
  Servant_var(T* p) : _ptr(p) {}
  Servant_var(const Servant_var& o) : _ptr(o._ptr) { add(); }
  template <class Derived>
  Servant_var(const Servant_var<Derived>& o) : _ptr(o.in()) {
    add();
  }
  ~Servant_var() { remove(_ptr); }
  Servant_var& operator=(T* p) {
    remove(std::exchange(_ptr, p));
    return *this;
  }
  Servant_var& operator=(const Servant_var& o) {  // NOLINT(bugprone-unhandled-self-assignment): it is
    if (_ptr == o._ptr) return *this;
    if (o._ptr) o._ptr->_add_ref();
    return *this = o._ptr;
  }
  T* operator->() const { return _ptr; }
  T& operator*() const { return *_ptr; }
  operator T*() const { return _ptr; }
  /// Lends the servant; null when there is none.
  T* in() const { return _ptr; }
  T*& inout() { return _ptr; }
  /// Gives the count back; the place for another servant, whose count is taken over.
  T*& out() {
    *this = static_cast<T*>(nullptr);
    return _ptr;
  }
  /// Hands the count over to the caller, and is null from then on.
  T* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  void add() {
    if (_ptr) _ptr->_add_ref();
  }
  static void remove(T* p) {
    if (p) p->_remove_ref();
  }
  T* _ptr = nullptr;
};
/// The standard's holder of any servant.
POA_VAR_CLASS(ServantBase_var, Servant_var<ServantBase>)

/// Counts references: starts at 1, deletes itself when the last is given back. The adapter holds one for each object
/// that the servant is, so the program may give its own back after activation. Derive from it beside the skeleton, and
/// make servants with new. Any thread.
///
///   class Counted : public virtual POA_Bank::Account, public virtual PortableServer::RefCountServantBase {
///     CORBA::Long balance() override { return 0; }
///   };
///   PortableServer::ServantBase_var own = new Counted;
///   PortableServer::ObjectId_var made = poa->activate_object(own);
///   poa->deactivate_object(made);  // own is the last one now
class POA_API RefCountServantBase : public virtual ServantBase {
 public:
  RefCountServantBase();
  /// The copy has a count of its own, which is 1. Assignment changes no count.
  RefCountServantBase(const RefCountServantBase&);
  RefCountServantBase& operator=(const RefCountServantBase&);
  ~RefCountServantBase() override;
  void _add_ref() override;
  /// Deletes the servant with the last count: it is not to be touched afterwards.
  void _remove_ref() override;
  /// The count at this moment: others may change it at once.
  CORBA::ULong _refcount_value() override;

 protected:
  std::atomic<CORBA::ULong> _ref_count{1};
};

/// A servant without a skeleton: `invoke` works on the request itself (operation, arguments, result,
/// exception), for interfaces that are not known when the program is compiled. Programs override the standard's two
/// functions, or the two of ServantBase.
///
///   class Gateway : public PortableServer::DynamicImplementation {
///     void invoke(CORBA::ServerRequest_ptr request) override {
///       std::cout << request->operation() << std::endl;  // nothing said about a result: the client gets a void one
///     }
///     CORBA::RepositoryId _primary_interface(const PortableServer::ObjectId&, PortableServer::POA_ptr) override {
///       return CORBA::string_dup("IDL:Gateway:1.0");
///     }
///   };
class POA_API DynamicImplementation : public virtual ServantBase {
 public:
  /// The standard's: serves any operation but those that every object has. What it throws is the answer: a system
  /// exception as it is, any other as UNKNOWN; user exceptions go by ServerRequest::set_exception. Called by several
  /// threads at once. NO_IMPLEMENT here.
  virtual void invoke(CORBA::ServerRequest* request);
  /// The standard's: the object's repository id, a text of CORBA::string_dup, which the library frees; one of each is
  /// kept until the process ends. Null here, and no reference can be made then.
  virtual CORBA::RepositoryId _primary_interface(const ObjectId& oid, POA* poa);

  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) override;
  const char* _primary_interface(const ObjectId& oid, POA* poa, CORBA::Environment& ev) override;
  /// True for the id of the object that is called, and for CORBA::Object's.
  CORBA::Boolean _is_a(const char* logical_type_id, CORBA_ENV) override;
  /// Null here: POA::servant_to_reference gives its reference.
  CORBA::Object* _this();
};

}  // namespace PortableServer
