#include "objects/servants.h"

#include <array>
#include <cstddef>
#include <memory>
#include <new>

#include "base/locks.h"
#include "base/trace.h"

using PortableServer::ServantAccess;

POA_ServantList servant_delete_list;

// ---- Lists --------------------------------------------------------------------------------------

void POA_ServantList::add(PortableServer::ServantBase* servant) {
  (first_ ? ServantAccess::next_deleted(*last_) : first_) = servant;
  last_ = servant;
}

PortableServer::ServantBase* POA_ServantList::pop() {
  PortableServer::ServantBase* const first = first_;
  first_ = std::exchange(ServantAccess::next_deleted(*first), nullptr);
  return first;
}

POA_LifespanList& servant_lifespan_list() {
  // Servants may be destroyed until the process ends, and without memory.
  alignas(POA_LifespanList) static std::byte place[sizeof(POA_LifespanList)];
  static auto& one = *new (place) POA_LifespanList;
  return one;
}

void POA_LifespanList::add(PortableServer::ServantBase* servant) {
  const auto last = order_.insert(order_.end(), servant);
  try {
    at_.emplace(servant, last);
  } catch (...) {
    order_.erase(last);
    throw;
  }
}

void POA_LifespanList::remove(PortableServer::ServantBase* servant) {
  const auto found = at_.find(servant);
  if (found == at_.end()) return;
  order_.erase(found->second);
  at_.erase(found);
}

namespace PortableServer {

// ---- Who is in a servant ------------------------------------------------------------------------

void ServantAccess::release_looking(ServantBase& s) {
  CORBA::ULong counts = 0;
  {
    MutexGuard guard(poa_svt_ref_counter_mutex);
    const bool marked = s._to_be_deleted;  // an unmarked servant that nobody is in is the program's at once
    counts = s._to_release;
    CORBA::ULong before = s._counter, after = 0;
    do after = before == (ServantBase::_last_looks | 1) ? 0 : before - 1;
    while (!s._counter.compare_exchange_weak(before, after));
    if (after != 0) return;
    if (counts != 0) s._to_release = 0;
    if (marked) {
      POA_TRACE("  servant is added in delete list...");
      s.add_delete_list();
      return;
    }
  }
  for (; counts > 0; --counts) s._remove_ref();
}

void ServantAccess::give_count_back(ServantBase& s) {
  {
    MutexGuard guard(poa_svt_ref_counter_mutex);
    if (s._to_be_deleted || s._deleted) return;
    if (tell_last(s)) {
      ++s._to_release;
      return;
    }
  }
  s._remove_ref();
}

// ---- Whose hands it is in -----------------------------------------------------------------------

/// The calls whose servants' addresses fall on it: several shelves, so that the requests of locators do not
/// meet at one mutex.
struct ServantInCall::Shelf {
  zrsv::Mutex mutex;  // a leaf: nothing is locked under it
  ServantInCall* first ZR_GUARDED_BY(mutex) = nullptr;

  static Shelf& of(const ServantBase* servant) {
    static constinit std::array<Shelf, 16> shelves;  // nothing to make or destroy, whatever runs at the end
    return shelves[reinterpret_cast<std::uintptr_t>(servant) / sizeof(ServantBase) % shelves.size()];
  }
};

void ServantInCall::enter(const ServantBase* servant) {
  if (!servant) return;
  Shelf& shelf = Shelf::of(servant);
  const zrsv::MutexLock lock(shelf.mutex);
  servant_ = servant;
  next_ = std::exchange(shelf.first, this);
}

ServantInCall::~ServantInCall() {
  if (!servant_) return;
  Shelf& shelf = Shelf::of(servant_);
  const zrsv::MutexLock lock(shelf.mutex);
  ServantInCall** link = &shelf.first;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

bool ServantInCall::has(const ServantBase* servant) {
  Shelf& shelf = Shelf::of(servant);
  const zrsv::MutexLock lock(shelf.mutex);
  const ServantInCall* call = shelf.first;
  while (call && call->servant_ != servant) call = call->next_;
  return call != nullptr;
}

}  // namespace PortableServer
