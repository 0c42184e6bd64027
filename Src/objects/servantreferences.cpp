#include "objects/servantreferences.h"

// A list that was in use stays non-empty: clearing frees the cleared nodes, but for the last node of all,
// which stays behind cleared. So the list is never longer than its references and one, however often objects
// come and go.
#include <array>
#include <cstring>

#include "base/corehandles.h"
#include "base/locks.h"
#include "base/trace.h"
#include "objects/referencedata.h"
#include "zrsv/of_thread.h"

namespace PortableServer {

namespace {

/// Memory of a node, or none.
struct SpareNode {
  void* block = nullptr;
  ~SpareNode() { ::operator delete(block); }
};

}  // namespace

void* ObjectRefList::operator new(std::size_t size) {
  SpareNode* const spare = zrsv::of_thread<SpareNode>();
  return spare && spare->block ? std::exchange(spare->block, nullptr) : ::operator new(size);
}

void ObjectRefList::operator delete(void* block) {
  SpareNode* const spare = zrsv::of_thread<SpareNode>();
  ::operator delete(spare ? std::exchange(spare->block, block) : block);
}

ObjectRefList::~ObjectRefList() {
  while (ObjectRefList* node = next) {  // one by one: a long chain is no deep recursion
    next = std::exchange(node->next, nullptr);
    delete node;
  }
}

void ObjectRefList::set_record(const ObjectHomePtr& record) {
  _m_record = record;
  _m_poa = record ? record->poa_object : nullptr;
  _m_identity = record ? record->identity : 0;
}

namespace {

ObjectRefList* find_node(ObjectRefList* list, Identity poa, std::string_view oid) {
  while (list && !list->holds(poa, oid)) list = list->get_next();
  return list;
}

/// `poa` is any reference object of the POA.
ObjectRefList* find_node(ObjectRefList* list, POA* poa, std::string_view oid) {
  return find_node(list, read_identity(poa), oid);
}

/// Counts the references taken out of servants' lists. While it stands, what was seen in one is there.
std::atomic<std::uint64_t> removals{1};

/// References that a thread saw in servants' lists, so that a request for an object that was there just now
/// need not look again under the lock.
class RecentlySeen {
 public:
  struct One {
    const ServantBase* servant = nullptr;
    Identity poa = 0;
    std::string oid;
    std::uint64_t at = 0;  // `removals` before it was seen
  };
  One& of(const ServantBase& servant) {
    return ones_[reinterpret_cast<std::uintptr_t>(&servant) / sizeof(ServantBase) % ones_.size()];
  }

 private:
  std::array<One, 64> ones_;
};

/// What a node owns.
struct Content {
  StoredObjectId oid;
  CORBA::Object_var object;
};

/// Takes it out of the node, which is left cleared.
Content take(ObjectRefList& node) {
  ++removals;
  Content content{node.take_oid(), node.get_object_ref()};
  node.set_record(nullptr);
  node.set_object_ref(nullptr);
  return content;
}

void drop_cleared(ObjectRefList*& list) {
  ObjectRefList* kept = nullptr;
  for (ObjectRefList *node = list, *following; node; node = following) {
    following = node->get_next();
    const bool cleared = !node->get_poa() && !node->get_oid() && !node->get_object_ref();
    const bool only_one_left = !kept && !following;
    if (!cleared || only_one_left) {
      kept = node;
      continue;
    }
    if (kept) {
      kept->set_next(following);
    } else {
      list = following;
    }
    node->set_next(nullptr);
    delete node;
  }
}

/// Clears and drops what was kept for POAs that are gone.
void drop_dead(ObjectRefList*& list) {
  for (ObjectRefList* node = list; node; node = node->get_next())
    if (node->get_poa() && !node->get_record()) take(*node);
  drop_cleared(list);
}

void append(ObjectRefList*& list, std::unique_ptr<ObjectRefList> node) {
  if (!list) {
    list = node.release();
    POA_TRACE("ServantBase::set_ObjectReference end...[ior added in or_list top]");
    return;
  }
  ObjectRefList* last = list;
  while (last->get_next()) last = last->get_next();
  last->set_next(node.release());
  POA_TRACE("ServantBase::set_ObjectReference end...[ior added in or_list]");
}

CORBA::Object* duplicate_of(CORBA::Object* reference) {
  auto object = std::make_unique<CORBA::Object>();
  CORBA::Environment core;
  object->set_ref(CORBA_object_duplicate(reference->get_ref(), core._evp));
  return object.release();
}

bool recorded(ObjectRefList* list, Identity poa, std::string_view oid) ZR_REQUIRES(poa_svt_objref_mutex) {
  if (!find_node(list, poa, oid)) return false;
  POA_TRACE("ServantBase::set_ObjectReference end...[ior is changed. ]");
  return true;
}

/// What a node keeps of an object.
enum class Keep { itself, duplicate, nothing };

/// Adds a node, unless there is one for (POA, id). Gives what is kept of the object.
CORBA::Object* keep(ObjectRefList*& list, const ObjectHomePtr& record, CORBA::Object* ior, Keep what,
                    std::string_view oid) ZR_REQUIRES(poa_svt_objref_mutex) {
  if (recorded(list, record->identity, oid)) return nullptr;
  auto node = std::make_unique<ObjectRefList>();
  node->set_oid(StoredObjectId(oid));
  CORBA::Object* object = what == Keep::nothing ? nullptr : what == Keep::duplicate ? duplicate_of(ior) : ior;
  node->set_record(record);
  node->set_object_ref(object);
  drop_dead(list);
  append(list, std::move(node));
  return object;
}

/// Whether the POA makes the same reference for the id again, so that the id alone is enough to keep.
bool can_be_made_again(const ServantBase& s, CORBA::Object* reference, std::string_view oid) {
  ReferenceDataView data;
  if (!data.read(reference) || data.object_id != oid) return false;  // a default servant's
  const char* const intf = ServantAccess::intf(s);
  const char* const said = ZR_object_get_IntfID(reference->get_ref(), 0, nullptr);
  return intf && said && std::strcmp(intf, said) == 0;
}

/// Makes the reference of a node where only its id was kept. None when the POA is gone.
void make_object(ObjectRefList& node, const ServantBase& s) {
  if (node.get_object_ref() || !node.get_oid()) return;
  const ObjectHomePtr record = node.get_record();
  if (!record) return;
  CORBA::Environment ev;
  const BorrowedObjectId oid(node.get_oid()->view());
  node.set_object_ref(record->POACreateReference(oid.get(), ServantAccess::intf(s), ev));
}

/// The node of a reference of the POA, with the trace lines of get_ObjectReference. `maker`: the servant whose reference
/// is wanted, made where only its id was kept; null: none is.
ObjectRefList* find_traced(ObjectRefList* list, POA* poa, const ObjectId* oid, const ServantBase* maker) {
  POA_TRACE("ServantBase::get_ObjectReference called...[poa = 0x%lx]", trace_address(poa));
  if (!poa || !oid || !list) {
    POA_TRACE("ServantBase::get_ObjectReference end...[poa or oid or _object_ref is NULL]");
    return nullptr;
  }
  ObjectRefList* const node = find_node(list, poa, oid_view(*oid));
  if (!node) {
    POA_TRACE("ServantBase::get_ObjectReference end...[return NULL]");
    return nullptr;
  }
  if (maker) make_object(*node, *maker);
  POA_TRACE("ServantBase::get_ObjectReference end...[return obj_ref : obj_ref = 0x%lx]",
            trace_address(node->get_object_ref()));
  return node;
}

void unbind(CORBA::Object& reference) {
  PoaSemaphoreGuard guard(__LINE__);
  CORBA::Environment core;
  CORBA_ORB_unbind_object2(core_handles.orb, reference.get_ref(), nullptr, core._evp);
}

}  // namespace

// ---- One reference ------------------------------------------------------------------------------

CORBA::Object* ServantBase::get_ObjectReference(POA* poa, const ObjectId* oid) {
  MutexGuard guard(poa_svt_objref_mutex);
  const ObjectRefList* const node = find_traced(_object_ref, poa, oid, this);
  return node ? node->get_object_ref() : nullptr;
}

void trace_keep_called(const POA* poa, const CORBA::Object* ior) {
  POA_TRACE("ServantBase::set_ObjectReference called...[poa = 0x%lx, ior = 0x%lx]", trace_address(poa),
            trace_address(ior));
}

bool reference_recorded(const ServantBase& s, Identity poa, std::string_view oid) {
  MutexGuard guard(poa_svt_objref_mutex);
  return recorded(ServantAccess::references(s), poa, oid);
}

CORBA::Object* enter_reference(ServantBase& s, const ObjectHomePtr& home, CORBA::Object* ior, int flag,
                               std::string_view oid) {
  MutexGuard guard(poa_svt_objref_mutex);
  return keep(ServantAccess::references(s), home, ior, flag == 1 ? Keep::duplicate : Keep::itself, oid);
}

namespace {

/// With the lines of reading the id in the reference, which is not done: that of a default servant is told.
[[gnu::cold]] void trace_keep(const ServantBase& s, const ObjectHome& home, const CORBA::Object* ior,
                              std::string_view oid) {
  trace_keep_called(home.poa_object, ior);
  if (ServantAccess::default_count(s) == 0) trace_get_oid(oid);
}

}  // namespace

CORBA::Object* keep_reference(ServantBase& s, const ObjectHomePtr& home, CORBA::Object* ior, int flag,
                              std::string_view oid) {
  if (OM_TRACE_IS_ON) trace_keep(s, *home, ior, oid);
  return enter_reference(s, home, ior, flag, oid);
}

void keep_target(ServantBase& s, ObjectHome& home, CORBA::Object* target, std::string_view oid) {
  const bool traced = OM_TRACE_IS_ON;
  const auto keep_it = [&] {
    MutexGuard guard(poa_svt_objref_mutex);
    if (recorded(ServantAccess::references(s), home.identity, oid)) return;
    // Making it again has trace lines where nobody expects them.
    const Keep what = !traced && can_be_made_again(s, target, oid) ? Keep::nothing : Keep::duplicate;
    keep(ServantAccess::references(s), home.share(), target, what, oid);
  };
  if (traced) trace_keep(s, home, target, oid);
  RecentlySeen* seen = traced ? nullptr : zrsv::of_thread<RecentlySeen>();
  if (!seen) return keep_it();
  RecentlySeen::One& one = seen->of(s);
  const std::uint64_t now = removals;
  if (one.at == now && one.servant == &s && one.poa == home.identity && one.oid == oid) return;
  one.at = 0;  // memory may run out below, but not any more when the reference is kept
  one.servant = &s;
  one.poa = home.identity;
  one.oid = oid;
  keep_it();
  one.at = now;
}

void ServantBase::clear_ObjectReference(POA* poa, const ObjectId* oid) {
  POA_TRACE("ServantBase::clear_ObjectReference called...[poa = 0x%lx]", trace_address(poa));
  Content content;  // freed after the lock
  MutexGuard guard(poa_svt_objref_mutex);
  if (!poa || !oid || !_object_ref) {
    POA_TRACE("ServantBase::clear_ObjectReference end...[poa or oid or ior or _object_ref = NULL]");
    return;
  }
  ObjectRefList* node = find_node(_object_ref, poa, oid_view(*oid));
  if (!node) {
    POA_TRACE("ServantBase::clear_ObjectReference end...[ior is not found in _object_ref]");
    return;
  }
  content = take(*node);
  drop_cleared(_object_ref);
  POA_TRACE("ServantBase::clear_ObjectReference end...[poa_info is cleard and obj_ref is deleted]");
}

void forget_reference(ServantBase& s, const ObjectHome& home, std::string_view oid) {
  Content content;  // freed after the lock
  MutexGuard guard(poa_svt_objref_mutex);
  ObjectRefList*& list = ServantAccess::references(s);
  ObjectRefList* const node = find_node(list, home.identity, oid);
  if (!node) return;
  content = take(*node);
  drop_cleared(list);
  if (content.object.in()) unbind(*content.object.in());
}

CORBA::Object* duplicate_reference(ServantBase& s, POA* poa, const ObjectId& oid) {
  MutexGuard guard(poa_svt_objref_mutex);
  return CORBA::Object::_duplicate(s.get_ObjectReference(poa, &oid));
}

void withdraw_reference(ServantBase& s, POA* poa, std::string_view oid) {
  MutexGuard guard(poa_svt_objref_mutex);
  const BorrowedObjectId id(oid);
  const ObjectRefList* const node = find_traced(ServantAccess::references(s), poa, &id.get(), nullptr);
  if (!node) return;
  if (CORBA::Object* const reference = node->get_object_ref()) unbind(*reference);
  s.clear_ObjectReference(poa, &id.get());
}

// ---- All references -----------------------------------------------------------------------------

std::vector<ServantReference> list_references(const ServantBase& s) {
  std::vector<ServantReference> list;
  MutexGuard guard(poa_svt_objref_mutex);
  for (const ObjectRefList* node = ServantAccess::references(s); node; node = node->get_next())
    if (ObjectHomePtr record = node->get_record(); record && node->get_oid())
      list.push_back({std::move(record), BorrowedObjectId(node->get_oid()->view()).get()});
  return list;
}

namespace {

std::size_t length_of(const ObjectRefList* list) {
  std::size_t length = 0;
  for (; list; list = list->get_next()) ++length;
  return length;
}

/// Takes and unbinds: whoever finds a reference in no list must not find it bound either.
std::vector<WithdrawnReference> take_all(ObjectRefList*& list) {
  std::vector<WithdrawnReference> taken;
  taken.reserve(length_of(list));
  for (ObjectRefList* node = list; node; node = node->get_next()) {
    if (!node->get_poa() || !node->get_oid()) continue;
    if (!node->get_oid()->view().empty()) {
      WithdrawnReference& one = taken.emplace_back(WithdrawnReference{node->get_record(), {}, {}});
      Content content = take(*node);
      one.oid = std::move(content.oid);
      one.object = content.object._retn();
      if (one.object.in()) unbind(*one.object.in());
    } else {
      ++removals;
      node->take_oid();
    }
  }
  drop_cleared(list);
  return taken;
}

}  // namespace

std::optional<std::vector<WithdrawnReference>> withdraw_references(ServantBase& s) {
  MutexGuard guard(poa_svt_objref_mutex);
  if (!ServantAccess::references(s)) return std::nullopt;
  return take_all(ServantAccess::references(s));
}

// Nobody else has the servant any more.
void discard_references(ServantBase& s) ZR_NOT_CHECKED {
  ObjectRefList*& list = ServantAccess::references(s);
  for (ObjectRefList* node = list; node; node = node->get_next()) {
    const Content content = take(*node);
    if (content.object.in()) unbind(*content.object.in());
  }
  delete std::exchange(list, nullptr);
}

}  // namespace PortableServer
