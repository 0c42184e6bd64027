// Objects that live in this process only (OMG IDL to C++, "Mapping of Local Interface"): those of IDL's local
// interfaces, and of the library's own such as lists, requests and interceptors. They are named by X_ptr and X_var as
// references are, and a call is a plain call of C++.
#pragma once

#include <atomic>

#include "corba/object.h"

namespace CORBA {

/// Base of every local interface and of what programs implement for one. Counted: a new one has the count 1, which is
/// the creator's; _duplicate counts up, release counts down, and the last one deletes it, so it is made with new, and
/// its destructor runs on whatever thread gives the last count back. Counting is for any thread; the rest is the
/// class's own affair. It has no handle, cannot be turned into text, and cannot travel (MARSHAL).
///
///   class Here : public PortableServer::ServantActivator, public CORBA::LocalObject {
///     PortableServer::Servant incarnate(const PortableServer::ObjectId& id, PortableServer::POA_ptr) override {
///       return new Account(load(id));
///     }
///   };
///   PortableServer::ServantManager_var manager = new Here;  // its first count
///   poa->set_servant_manager(manager);                      // the POA has one of its own
class ZRSVCPP_API LocalObject : public virtual Object {
 public:
  /// The nil reference: null.
  static LocalObject* _nil() { return nullptr; }
  /// The same object, counted once more; nil for nil.
  static LocalObject* _duplicate(LocalObject* object);
  /// As an object of this class: the same, counted once more, nil for an object that is not local. Nothing is asked,
  /// and nothing raised.
  static LocalObject* _narrow(Object* object);

  /// One count more and one less; how many there are, which another thread may change meanwhile. Programs that count in
  /// a way of their own override all three; an object that is not to be deleted overrides the first two with nothing.
  virtual void _add_ref() { ++count_; }
  virtual void _remove_ref() {
    if (--count_ == 0) delete this;
  }
  virtual ULong _refcount_value() const { return count_; }
  /// What _duplicate and release of a plain Object_ptr do with it.
  Object* _share_reference() override { return _add_ref(), this; }
  void _release_reference() override { _remove_ref(); }

 protected:
  /// The count is 1, the creator's. Only derived classes are made.
  LocalObject() = default;

 private:
  std::atomic<ULong> count_{1};
};
using LocalObject_ptr = LocalObject*;
using LocalObject_var = ObjectVar<LocalObject>;

namespace idl {

/// What the static members of a local interface's class do: count up, and find out by the C++ class, without asking
/// anybody. Nil for nil.
template <class X>
X* duplicate_local(X* object) {
  if (object) object->_add_ref();
  return object;
}
template <class X>
X* narrow_local(Object* object) {
  return duplicate_local(dynamic_cast<X*>(object));
}

}  // namespace idl

inline LocalObject* LocalObject::_duplicate(LocalObject* object) { return idl::duplicate_local(object); }
inline LocalObject* LocalObject::_narrow(Object* object) { return idl::narrow_local<LocalObject>(object); }

}  // namespace CORBA
