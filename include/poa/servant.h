// Base classes of servants.
#pragma once

#include <atomic>

#include "poa/interfaces.h"

namespace PortableServer {

class ObjectRefList;

/// Base of every servant. Programs derive from the skeleton classes generated for their interfaces, which
/// derive from this. Operations run on the threads of the ORB core, many at once. A servant belongs to the
/// program; the library deletes one only after it was marked for deletion (lifespan timer, lost client) and
/// no request is in it.
class POA_API ServantBase : public CORBA::Allocated {
 public:
  ServantBase();
  /// Copies no bookkeeping: the copy starts like a new servant. Assignment changes nothing.
  ServantBase(const ServantBase&);
  ServantBase& operator=(const ServantBase&);
  virtual ~ServantBase();

  /// Null here: the servant has no POA of its own choice.
  virtual POA* _default_POA();
  /// The interface definition of the servant's repository id; nil, with a line on standard error, when none
  /// is known.
  virtual CORBA::InterfaceDef* _get_interface(CORBA_ENV);
  /// True for the servant's own repository id exactly.
  virtual CORBA::Boolean _is_a(const char* logical_type_id, CORBA_ENV);
  virtual CORBA::Boolean _non_existent(CORBA_ENV);
  virtual void _add_ref();
  virtual void _remove_ref();
  /// Serves one request: finds the operation, decodes, runs it, writes the reply. False when there is no such
  /// operation.
  virtual CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& env);
  /// The repository id of the object `oid`; the text lives until the process ends (a literal), for the
  /// library keeps it.
  virtual const char* _primary_interface(const ObjectId& oid, POA* poa, CORBA_ENV);
  virtual unsigned char _skel__get_interface_(void* request, void* unused, CORBA::ULong type,
                                              unsigned char response_expected, void* table);
  virtual unsigned char _skel_is_a(void* request, void* unused, CORBA::ULong type,
                                   unsigned char response_expected, void* table);
  virtual unsigned char _skel_non_exitent(void* request, void* unused, CORBA::ULong type,
                                          unsigned char response_expected, void* table);

  /// Requests now in the servant.
  void add_ref_counter();
  void remove_ref_counter();
  CORBA::ULong get_ref_counter() const { return _counter; }

  /// Deletion: marked while requests are in progress, then listed, then deleted on a lifespan tick.
  CORBA::Boolean get_to_be_deleted() const { return _to_be_deleted; }
  void set_to_be_deleted(CORBA::Boolean flag) { _to_be_deleted = flag; }
  CORBA::Boolean get_deleted() const { return _deleted; }
  void set_deleted(CORBA::Boolean flag) { _deleted = flag; }
  void add_delete_list();
  /// Asks for deletion; a POA's default servant is left alone.
  void servant_delete();

  /// How many POAs have it as their default servant.
  void add_default_servant_ref();
  void rem_default_servant_ref();

  /// Lifespan: expiry in seconds since 1970, 0 when there is none.
  CORBA::ULong get_timer() const { return _timer; }
  /// The servant is deleted `seconds` from now; 0 clears the timer; BAD_PARAM (0x4B510007) below 0. The
  /// servant must have been made with new, and not be touched by the program once the time is over.
  void set_timer(int seconds, CORBA_ENV);

  /// References made for the servant, one a POA and id. Not duplicated; see the sources for who calls when.
  CORBA::Object* get_ObjectReference(POA* poa, const ObjectId* oid);
  CORBA::Object* set_ObjectReference(POA* poa, CORBA::Object* ior, int flag, void* boa, const ObjectId* oid);
  void clear_ObjectReference(POA* poa, const ObjectId* oid);
  void deactivate_ObjectReference();

 protected:
  std::atomic<CORBA::Object*> _obj_ref{
      nullptr};  ///< target of a request being served, the last one begun; for the library
  ObjectRefList* _object_ref = nullptr;  ///< head of the reference list; guarded by poa_svt_objref_mutex
  const char* _intf = nullptr;           ///< the servant's repository id, a literal; skeleton classes set it
  /// Requests in progress. Lowered under poa_svt_ref_counter_mutex; raised under it, or under the POA
  /// semaphore by a map lookup.
  std::atomic<CORBA::ULong> _counter{0};
  std::atomic<CORBA::Boolean> _to_be_deleted{0};
  std::atomic<CORBA::Boolean> _deleted{0};
  std::atomic<CORBA::ULong> _timer{0};            ///< changed under poa_svt_lifespan_mutex
  std::atomic<CORBA::ULong> _default_servant{0};  ///< changed under poa_default_servant_ref_mutex
  std::atomic<CORBA::ULong> _active_entries{
      0};  ///< at least its active-object-map entries; changed under the POA semaphore

  friend struct ServantAccess;  // the library's own view of the fields
};

/// Owns one count of a servant.
class ServantBase_var {
 public:
  ServantBase_var() = default;
  /// Takes over one count.
  ServantBase_var(ServantBase* p) : _ptr(p) {}
  ServantBase_var(const ServantBase_var& o) : _ptr(o._ptr) {
    if (_ptr) _ptr->_add_ref();
  }
  ~ServantBase_var() {
    if (_ptr) _ptr->_remove_ref();
  }
  ServantBase_var& operator=(ServantBase* p) {
    if (ServantBase* old = std::exchange(_ptr, p)) old->_remove_ref();
    return *this;
  }
  ServantBase_var& operator=(const ServantBase_var& o) {  // NOLINT(bugprone-unhandled-self-assignment): it is
    if (_ptr == o._ptr) return *this;
    if (o._ptr) o._ptr->_add_ref();
    return *this = o._ptr;
  }
  ServantBase* operator->() const { return _ptr; }
  ServantBase* in() const { return _ptr; }
  ServantBase*& inout() { return _ptr; }
  ServantBase*& out() {
    *this = static_cast<ServantBase*>(nullptr);
    return _ptr;
  }
  ServantBase* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  ServantBase* _ptr = nullptr;
};

/// Counts references: starts at 1, deletes itself when the last is given back. Any thread.
class POA_API RefCountServantBase : public virtual ServantBase {
 public:
  RefCountServantBase();
  RefCountServantBase(const RefCountServantBase&);
  RefCountServantBase& operator=(const RefCountServantBase&);
  ~RefCountServantBase() override;
  void _add_ref() override;
  void _remove_ref() override;

 protected:
  std::atomic<CORBA::ULong> _ref_count{1};
};

/// A servant without a skeleton: `invoke` works on the request itself (operation, arguments, result,
/// exception).
class POA_API DynamicImplementation : public virtual ServantBase {
 public:
  /// Null here.
  CORBA::Object* _this();
};

}  // namespace PortableServer
