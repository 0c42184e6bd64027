// Any's operators for the types that an IDL file defines; they come from the descriptions, so generated code has none
// of its own. poa/mapping.h brings them to programs, which write
//
//   any <<= entry;           a copy of a struct, union, sequence, exception or enum
//   any <<= new Entry        taken over
//   any <<= account          duplicated; `&account` is taken over
//   any >>= pointer          lent; a reference too
//   any >>= colour           an enum, copied
//
// Extractions give false, and leave the target alone, when the Any holds another type. A value that came from a wire is
// decoded by the first extraction, and kept. Types are compared by _tc_T, which is built then if it was not before.
#pragma once

#include <memory>

#include "corba/detail/describe.h"

namespace CORBA {

namespace idl {

/// How an Any holds a described value: on the heap, by the type's own copy and marshalling.
template <class T>
struct DescribedOps {
  static void* copy(const void* value) { return value ? new T(*static_cast<const T*>(value)) : nullptr; }
  static void destroy(void* value) { delete static_cast<T*>(value); }
  /// What does not decode whole is freed again.
  static bool move(CDR* cdr, void*& value) {
    if (cdr->direction == CDR_ENCODE) return value && Type<T>::move(cdr, *static_cast<T*>(value));
    ValueVar<T> fresh(new T);
    if (!Type<T>::move(cdr, fresh.inout())) return false;
    value = fresh._retn();
    return true;
  }
  static constexpr ValueOps ops{copy, destroy, move};
};
/// The same of an array, by its tag; held as its slice, made and freed as those are.
template <class Tag>
struct ArrayOps {
  using Slice = ArraySlice<Tag>;
  static void* copy(const void* value) { return array_dup<Tag>(static_cast<const Slice*>(value)); }
  static void destroy(void* value) { array_free<Tag>(static_cast<Slice*>(value)); }
  static bool move(CDR* cdr, void*& value) {
    auto* slice = cdr->direction == CDR_ENCODE ? static_cast<Slice*>(value) : nullptr;
    if (!Type<Tag>::Own::move(cdr, slice)) return false;
    value = slice;
    return true;
  }
  static constexpr ValueOps ops{copy, destroy, move};
};

/// The same of a reference: held as itself, released with the Any.
template <class X>
struct ReferenceOpsOf {
  static void* copy(const void* value) { return X::_duplicate(static_cast<X*>(const_cast<void*>(value))); }
  static void destroy(void* value) { release(static_cast<X*>(value)); }
  static bool move(CDR* cdr, void*& value) {
    auto* reference = cdr->direction == CDR_ENCODE ? static_cast<X*>(value) : nullptr;
    if (!ReferenceMoves<X>::move(cdr, reference)) return false;
    value = reference;
    return true;
  }
  static constexpr ValueOps ops{copy, destroy, move};
};

/// Takes over `value`, which was made with new.
template <class T>
void insert_owned(Any& any, T* value) {
  std::unique_ptr<T> owned(value);
  TypeCode* const type = typecode<T>();  // without memory there is none
  any.adopt(type, owned.release(), DescribedOps<T>::ops);
}
/// The Any's own value as a T; null when it holds another type, or none.
template <class T>
T* extracted(const Any& any) {
  void* found = nullptr;
  return any.is_of(typecode<T>()) && any.view(DescribedOps<T>::ops, found) ? static_cast<T*>(found) : nullptr;
}

}  // namespace idl

// Types that generated code has described: structs, unions, sequences and exceptions; enums; the client classes of
// interfaces. Other types find no operator here, and have their own or none.

template <class T>
concept DescribedClass = std::is_class_v<T> && requires {
  idl::Type<T>::id;
};
template <class T>
concept DescribedEnum = std::is_enum_v<T> && requires {
  idl::Type<T>::id;
};
template <class X>
concept ClientClass = requires {
  { X::interface_name } -> std::convertible_to<const char*>;
  { X::repository_id } -> std::convertible_to<const char*>;
};

/// Values: a copy, or a pointer that is taken over. The pointer that an extraction gives is the Any's.
template <DescribedClass T>
void operator<<=(Any& any, const T& value) {
  idl::insert_owned(any, new T(value));
}
template <DescribedClass T>
void operator<<=(Any& any, T* value) {
  idl::insert_owned(any, value);
}
template <DescribedClass T>
Boolean operator>>=(const Any& any, const T*& value) {
  const T* found = idl::extracted<T>(any);
  if (found) value = found;
  return found != nullptr;
}
template <DescribedClass T>
Boolean operator>>=(const Any& any, T*& value) {
  T* found = idl::extracted<T>(any);
  if (found) value = found;
  return found != nullptr;
}

/// Enums, by value.
template <DescribedEnum E>
void operator<<=(Any& any, E value) {
  idl::insert_owned(any, new E(value));
}
template <DescribedEnum E>
Boolean operator>>=(const Any& any, E& value) {
  const E* found = idl::extracted<E>(any);
  if (found) value = *found;
  return found != nullptr;
}

/// Arrays, as their Row_forany: a copy, unless it says `nocopy`. What is extracted is the Any's.
template <class Tag>
void operator<<=(Any& any, const ArrayForany<Tag>& array) {
  TypeCode* const type = idl::typecode<Tag>();
  auto* slice = array.nocopy() ? array.in() : array_dup<Tag>(array.in());
  any.replace(type, slice, 1, &idl::ArrayOps<Tag>::ops);
}
template <class Tag>
Boolean operator>>=(const Any& any, ArrayForany<Tag>& array) {
  void* found = nullptr;
  if (!any.is_of(idl::typecode<Tag>()) || !any.view(idl::ArrayOps<Tag>::ops, found) || !found) return false;
  array = ArrayForany<Tag>(static_cast<ArraySlice<Tag>*>(found), true);
  return true;
}

/// A reference: duplicated; given by its address, taken over. What is extracted stays the Any's, so a program that
/// keeps it duplicates it. The interface's own TypeCode has to be there: one of a base or a derived interface is
/// another type.
template <ClientClass X>
void operator<<=(Any& any, X** reference) {
  ObjectVar<X> owned(*reference);
  any.replace(idl::typecode<idl::ref<X>>(), owned.in(), 1, &idl::ReferenceOpsOf<X>::ops);
  owned._retn();
}
template <ClientClass X>
void operator<<=(Any& any, X* reference) {
  X* copy = X::_duplicate(reference);
  any <<= &copy;
}
template <ClientClass X>
Boolean operator>>=(const Any& any, X*& reference) {
  void* found = nullptr;
  if (!any.is_of(idl::typecode<idl::ref<X>>()) || !any.view(idl::ReferenceOpsOf<X>::ops, found)) return false;
  reference = static_cast<X*>(found);
  return true;
}

}  // namespace CORBA
