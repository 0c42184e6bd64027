// How an Any copies, frees and marshals a value that it holds as an untyped pointer: a table of functions a type. The
// library has those of the basic types, corba/detail/any_operators.h those of described ones.
#pragma once

#include "corba/detail/wire.h"
#include "corba/values.h"

namespace CORBA {

/// How an Any handles a value that it holds as an untyped pointer. References, TypeCodes and strings are
/// pointers themselves; other values are pointed to. A null value is copied as null and encoded as nil or,
/// where there is no nil, not at all. For generated code; programs have the operators.
struct ValueOps {
  void* (*copy)(const void* value);  ///< a deep copy that `destroy` takes; null for null
  void (*destroy)(void* value);      ///< null is allowed
  /// By the stream's direction: encodes the value, or decodes a new one and stores it; false, and nothing
  /// stored, on failure.
  bool (*move)(CDR* cdr, void*& value);
};

/// Values that are pointed to: T is copyable, has a default, and travels by Wire<T>.
template <class T>
struct ZRSVCPP_API ValueOpsOf {
  // std::bad_alloc without memory; what does not decode whole is freed again.
  static void* copy(const void* value) { return value ? new T(*static_cast<const T*>(value)) : nullptr; }
  static void destroy(void* value) { delete static_cast<T*>(value); }
  static bool move(CDR* cdr, void*& value) {
    if (cdr->direction == CDR_ENCODE) return value && idl::Wire<T>::move(cdr, *static_cast<T*>(value));
    ValueVar<T> fresh(new T);
    if (!idl::Wire<T>::move(cdr, fresh.inout())) return false;
    value = fresh._retn();
    return true;
  }
  static constexpr ValueOps ops{copy, destroy, move};
};

/// User exceptions: E has `repository_id`, and Wire<E> when it has members. They travel as their id and their members.
template <class E>
struct ZRSVCPP_API ExceptionOpsOf {
  /// The members alone; none without a Wire<E>.
  static bool move_members([[maybe_unused]] CDR* cdr, [[maybe_unused]] E& e) {
    if constexpr (requires { idl::Wire<E>::move(cdr, e); }) return idl::Wire<E>::move(cdr, e);
    return true;
  }
  /// With the id in front: another one does not decode.
  static bool move(CDR* cdr, void*& value) {
    const char* id = E::repository_id;
    if (cdr->direction == CDR_ENCODE) {
      return value && idl::Wire<const char*>::move(cdr, id) && move_members(cdr, *static_cast<E*>(value));
    }
    ExceptionVar<E> fresh;
    if (!idl::Wire<const char*>::move(cdr, id) || std::strcmp(id, E::repository_id) != 0) return false;
    if (!move_members(cdr, *fresh)) return false;
    value = fresh._retn();
    return true;
  }
  static constexpr ValueOps ops{ValueOpsOf<E>::copy, ValueOpsOf<E>::destroy, move};
};

/// Object references, held as Object*: released with the Any.
struct ZRSVCPP_API ReferenceOps {
  static const ValueOps ops;
};

}  // namespace CORBA
