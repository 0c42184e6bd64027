// Any's operators in one line, for types that are not generated. T travels by a CORBA::idl::Wire<T> of its own. `type`
// is the type's TypeCode: a plain TypeCode* is taken over, as by any _var, so a TypeCode that was built for the call
// goes in as it is. It may be nil (it could not be built): insertions then throw BAD_TYPECODE, extractions give false.
#pragma once

#include "corba/any.h"

namespace CORBA {

/// Takes over `value`, which was made with new, whatever happens.
template <class T>
void any_insert_value(Any& any, const TypeCode_var& type, T* value) {
  any.adopt(type.in(), value, ValueOpsOf<T>::ops);
}
/// Copies.
template <class T>
void any_insert_copy(Any& any, const TypeCode_var& type, const T& value) {
  any_insert_value(any, type, new T(value));
}
/// The Any's own value.
template <class T>
Boolean any_extract(const Any& any, const TypeCode_var& type, T*& value) {
  void* found = nullptr;
  if (!any.is_of(type.in()) || !any.view(ValueOpsOf<T>::ops, found) || !found) return 0;
  value = static_cast<T*>(found);
  return 1;
}
/// A copy of it.
template <class T>
Boolean any_extract_copy(const Any& any, const TypeCode_var& type, T& value) {
  T* found = nullptr;
  if (!any_extract(any, type, found)) return 0;
  value = *found;
  return 1;
}
/// Takes over `reference`, which may be nil, whatever happens.
template <class X>
void any_insert_owned_reference(Any& any, const TypeCode_var& type, X* reference) {
  any.adopt(type.in(), static_cast<Object*>(reference), ReferenceOps::ops);
}
/// Duplicates `reference`.
template <class X>
void any_insert_reference(Any& any, const TypeCode_var& type, X* reference) {
  any_insert_owned_reference(any, type, X::_duplicate(reference));
}
/// Takes over the reference in a cell made with new, and deletes the cell.
template <class X>
void any_insert_reference(Any& any, const TypeCode_var& type, X** cell) {
  X* const reference = *cell;
  delete cell;
  any_insert_owned_reference(any, type, reference);
}
/// Copies a user exception, for ServerRequest::set_exception. Exceptions of generated code have an operator of their
/// own:
///
///   CORBA::Any any;
///   any <<= Bank::Overdrawn(20);
template <class E>
void any_insert_exception(Any& any, const TypeCode_var& type, const E& exception) {
  any.adopt(type.in(), new E(exception), ExceptionOpsOf<E>::ops);
}

}  // namespace CORBA
