// The references made for a servant, one a POA and id.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "objects/common_poa.h"
#include "objects/objecthome.h"
#include "objects/servants.h"

namespace PortableServer {

/// A servant's list of the references made for it. All of it is guarded by poa_svt_objref_mutex.
class ObjectRefList {
 public:
  ObjectRefList() = default;
  /// Frees the rest of the chain, nothing else.
  ~ObjectRefList();
  ObjectRefList(const ObjectRefList&) = delete;
  ObjectRefList& operator=(const ObjectRefList&) = delete;
  /// A thread keeps the memory of one that it freed: the servant of a locator has one for the length of a request.
  static void* operator new(std::size_t size);
  static void operator delete(void* block);

  POA* get_poa() const { return _m_poa; }
  void set_poa(POA* poa) { _m_poa = poa; }
  /// Null when there is none.
  const StoredObjectId* get_oid() const { return _m_oid ? &*_m_oid : nullptr; }
  void set_oid(StoredObjectId&& oid) { _m_oid = std::move(oid); }
  /// Leaves none. An empty one when there was none.
  StoredObjectId take_oid() {
    StoredObjectId taken;
    if (_m_oid) taken = std::move(*_m_oid);
    _m_oid.reset();
    return taken;
  }
  /// Null also of a node whose reference can be made again: it is, when somebody asks for it.
  CORBA::Object* get_object_ref() const { return _m_object_ref; }
  void set_object_ref(CORBA::Object* ref) { _m_object_ref = ref; }
  ObjectRefList* get_next() const { return next; }
  void set_next(ObjectRefList* n) { next = n; }
  /// The POA's record; null once the POA is gone, when get_poa() must not be followed.
  ObjectHomePtr get_record() const { return _m_record.lock(); }
  /// Makes the node one of that record's POA; null: of none.
  void set_record(const ObjectHomePtr& record);
  /// A node of that POA for that id.
  bool holds(Identity poa, std::string_view oid) const {
    return _m_oid && _m_identity == poa && _m_oid->view() == oid;
  }

 private:
  POA* _m_poa = nullptr;  // lives as long as _m_record does
  std::optional<StoredObjectId> _m_oid;
  CORBA::Object* _m_object_ref = nullptr;
  ObjectRefList* next = nullptr;
  std::weak_ptr<ObjectHome> _m_record;
  Identity _m_identity = 0;  // of the record; unlike an address it is no other POA's afterwards
};

/// A POA and an id that a servant has a reference for. The home keeps the POA's object alive.
struct ServantReference {
  ObjectHomePtr record;
  ObjectId oid;
};

/// Keeps that a request for (POA, id) came to the servant: its target, unless one is kept already. Only the id, where
/// the POA makes the same reference again. A thread that has seen it kept just now does not look again.
void keep_target(ServantBase& s, ObjectHome& home, CORBA::Object* target, std::string_view oid);
/// Keeps `ior` (with flag 1 a duplicate) as the servant's reference for (POA, id); gives the object kept, or null
/// when there is one already.
CORBA::Object* keep_reference(ServantBase& s, const ObjectHomePtr& home, CORBA::Object* ior, int flag,
                              std::string_view oid);
/// The same without its trace line.
CORBA::Object* enter_reference(ServantBase& s, const ObjectHomePtr& home, CORBA::Object* ior, int flag,
                               std::string_view oid);
/// Whether one is kept for (POA, id), traced.
bool reference_recorded(const ServantBase& s, Identity poa, std::string_view oid);
void trace_keep_called(const POA* poa, const CORBA::Object* ior);
/// As withdraw_reference, without a trace line.
void forget_reference(ServantBase& s, const ObjectHome& home, std::string_view oid);

/// The references of live POAs, as they are now.
std::vector<ServantReference> list_references(const ServantBase& s);
/// A duplicate of the reference kept for (poa, oid), or null.
CORBA::Object* duplicate_reference(ServantBase& s, POA* poa, const ObjectId& oid);

/// Takes the reference kept for (poa, oid), if there is one, out of the ORB core's table and out of the servant.
void withdraw_reference(ServantBase& s, POA* poa, std::string_view oid);
/// What a servant's reference was for.
struct WithdrawnReference {
  ObjectHomePtr home;  // null when the POA is gone
  StoredObjectId oid;
  CORBA::Object_var object;
};
/// Takes all references out of both, or none of them (std::bad_alloc). None when the servant never had one.
std::optional<std::vector<WithdrawnReference>> withdraw_references(ServantBase& s);
/// The same for a servant that is being destroyed, the list included.
void discard_references(ServantBase& s);

}  // namespace PortableServer
