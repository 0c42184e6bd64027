// Servants as the library handles them: who is in one, whose hands it is in, and the lists it stands on.
#pragma once

#include <list>
#include <unordered_map>
#include <utility>

#include "base/locks.h"
#include "poa/servant.h"

/// Servants in order. Each has the place for the one behind it, so adding one needs no memory, and it is on one list at
/// a time, once. Takes no lock; its users do.
class POA_ServantList {
 public:
  bool empty() const { return !first_; }
  /// Behind the others.
  void add(PortableServer::ServantBase* servant);
  /// Takes the first servant off a list that is not empty.
  PortableServer::ServantBase* pop();

 private:
  PortableServer::ServantBase* first_ = nullptr;
  PortableServer::ServantBase* last_ = nullptr;  // while there is a first one
};

/// The servants with a lifespan, in the order in which they got one. Each is found at once.
class POA_LifespanList {
 public:
  bool holds(PortableServer::ServantBase* servant) const { return at_.contains(servant); }
  /// One that is not held yet.
  void add(PortableServer::ServantBase* servant);
  void remove(PortableServer::ServantBase* servant);
  std::size_t size() const { return at_.size(); }
  /// Takes out those whose timer is not after `now`, and gives each to `take` before that.
  template <class Take>
  void take_over(CORBA::ULong now, Take take) {
    for (auto each = order_.begin(); each != order_.end();) {
      PortableServer::ServantBase* const servant = *each++;
      if (servant->get_timer() > now) continue;
      take(servant);
      remove(servant);
    }
  }

 private:
  using Order = std::list<PortableServer::ServantBase*>;
  Order order_;
  std::unordered_map<PortableServer::ServantBase*, Order::iterator> at_;
};

extern POA_ServantList servant_delete_list ZR_GUARDED_BY(poa_svt_delete_mutex);
POA_LifespanList& servant_lifespan_list() ZR_REQUIRES(poa_svt_lifespan_mutex);

namespace PortableServer {

/// What the library may see and do of a servant beyond its public members.
struct ServantAccess {
  static ObjectRefList* references(const ServantBase& s) ZR_REQUIRES(poa_svt_objref_mutex) {
    return s._object_ref;
  }
  static ObjectRefList*& references(ServantBase& s) ZR_REQUIRES(poa_svt_objref_mutex) {
    return s._object_ref;
  }
  static const char* intf(const ServantBase& s) { return s._intf; }
  static std::atomic<CORBA::Object*>& target(ServantBase& s) { return s._obj_ref; }
  static CORBA::ULong default_count(const ServantBase& s) { return s._default_servant; }
  static std::atomic<CORBA::ULong>& active_entries(ServantBase& s) { return s._active_entries; }
  /// With the POA semaphore held, under which alone it changes.
  static void count_entry(ServantBase& s, int more) {
    const CORBA::ULong count = s._active_entries.load(std::memory_order_relaxed);
    s._active_entries.store(count + static_cast<CORBA::ULong>(more), std::memory_order_relaxed);
  }
  static CORBA::ULong& home(ServantBase& s) { return s._home; }
  static ServantBase*& next_deleted(ServantBase& s) { return s._next_deleted; }

  /// One more request in the servant, for a caller that may not take poa_svt_ref_counter_mutex (it holds the
  /// POA semaphore).
  static void hold(ServantBase& s) { ++s._counter; }
  /// One request less; a servant marked for deletion that nobody holds any more goes onto the delete list. Of another
  /// one nothing is touched afterwards: it is the program's.
  static void release(ServantBase& s) {
    CORBA::ULong count = s._counter.load(std::memory_order_relaxed);
    while (!(count & ServantBase::_last_looks))
      if (s._counter.compare_exchange_weak(count, count - 1)) return;
    release_looking(s);
  }
  /// Has the last request that leaves look at the marks; false when nobody is in the servant. With
  /// poa_svt_ref_counter_mutex held.
  static bool tell_last(ServantBase& s) {
    return (s._counter.fetch_or(ServantBase::_last_looks) & ~ServantBase::_last_looks) != 0;
  }

  /// Takes one count of a servant, for an object that it is to be.
  static void take_count(ServantBase& s);
  static bool counts(const ServantBase& s) { return s._counts; }
  /// Gives one back, now or with the end of the last request in the servant: only of a servant that counts, and
  /// without a servant mutex or the POA semaphore. One that the library is to delete is not counted any more.
  static void give_count_back(ServantBase& s);

 private:
  [[gnu::cold]] static void release_looking(ServantBase& s);
};

/// One count of a servant that becomes an object: given back at the end of the scope unless it did.
class ServantCount {
 public:
  /// Null: of none.
  explicit ServantCount(ServantBase* servant) : servant_(servant) {
    if (servant) ServantAccess::take_count(*servant);
  }
  ~ServantCount() {
    if (servant_) servant_->_remove_ref();
  }
  ServantCount(const ServantCount&) = delete;
  ServantCount& operator=(const ServantCount&) = delete;
  void keep() { servant_ = nullptr; }

 private:
  ServantBase* servant_;
};

/// Gives the count of a servant back, at the end of the scope, that is an object no more. Whether it counts is seen at
/// once: one that does not may be gone when the program has had it.
class LeavingServant {
 public:
  LeavingServant() = default;
  explicit LeavingServant(ServantBase* servant) { leave(servant); }
  ~LeavingServant() {
    if (servant_) ServantAccess::give_count_back(*servant_);
  }
  LeavingServant(const LeavingServant&) = delete;
  LeavingServant& operator=(const LeavingServant&) = delete;
  /// Once.
  void leave(ServantBase* servant) {
    if (servant && ServantAccess::counts(*servant)) servant_ = servant;
  }

 private:
  ServantBase* servant_ = nullptr;
};

/// Somebody is in the servant: it is not deleted while one of these lives. Ends with no lock of the adapter
/// held but those that stand before poa_svt_ref_counter_mutex, and the servant is not to be touched afterwards.
class ServantUse {
 public:
  /// Of none.
  ServantUse() = default;
  /// Null: of none. A servant out of a map is taken into use before the POA semaphore is given back.
  explicit ServantUse(ServantBase* servant) : servant_(servant) {
    if (servant) ServantAccess::hold(*servant);
  }
  ServantUse(ServantUse&& other) noexcept : servant_(std::exchange(other.servant_, nullptr)) {}
  ServantUse& operator=(ServantUse&& other) noexcept {
    const ServantUse old(std::move(*this));
    servant_ = std::exchange(other.servant_, nullptr);
    return *this;
  }
  ~ServantUse() {
    if (servant_) ServantAccess::release(*servant_);
  }

  ServantBase* get() const { return servant_; }
  /// Of none from now on; the servant's counter stays raised.
  void forget() { servant_ = nullptr; }
  ServantBase& operator*() const { return *servant_; }
  ServantBase* operator->() const { return servant_; }
  explicit operator bool() const { return servant_ != nullptr; }

 private:
  ServantBase* servant_ = nullptr;
};

/// While one lives, a call of the program has the servant (an activator's etherealize, a locator's postinvoke,
/// the callback for lost clients): the tick passes over it. Only the address is looked at, because the call
/// may delete the servant.
class ServantInCall {
 public:
  ServantInCall() = default;
  /// Null: of none.
  explicit ServantInCall(const ServantBase* servant) { enter(servant); }
  ~ServantInCall();
  ServantInCall(const ServantInCall&) = delete;
  ServantInCall& operator=(const ServantInCall&) = delete;

  /// Once. What was found in a map enters before the POA semaphore is given back.
  void enter(const ServantBase* servant);
  static bool has(const ServantBase* servant);

 private:
  struct Shelf;
  const ServantBase* servant_ = nullptr;
  ServantInCall* next_ = nullptr;  // on the shelf; guarded by its mutex
};

}  // namespace PortableServer
