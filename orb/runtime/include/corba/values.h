// Owners and out parameters of structs, unions, sequences, arrays and references (OMG IDL to C++: the T_var
// and T_out types of each).
//
// Each T_var owns one T, takes over a pointer that is assigned to it, copies a value that is, and frees what it held
// before. It lends what it holds to the parameters of operations:
//
//   in()      for in parameters: read only
//   inout()   for inout ones: to be changed in place
//   out()     for out ones: frees what is held, the operation puts something new there
//   _retn()   hands it over: for results of servants' operations
//
// A T_var that is given as an argument chooses by itself. All belong to one thread at a time, as any variable.
#pragma once

#include "corba/object.h"

namespace CORBA {

/// Owns one value on the heap, null at first: T_var of a type of variable length, which has strings, sequences, Anys or
/// references somewhere in it. Copies are deep; std::bad_alloc without memory. While it is null only ptr(), out(),
/// _retn() and assignments are to be used.
///
///   CORBA::StringSeq_var names = orb->list_initial_services();  // taken over
///   CORBA::StringSeq_var copy = names;                          // deep
///   for (CORBA::ULong i = 0; i < copy->length(); ++i) std::cout << copy[i].in() << std::endl;
template <class T>
class ValueVar {
 public:
  ValueVar() = default;
  /// Takes over a value made with new; null is none.
  ValueVar(T* value) : value_(value) {}
  /// A copy.
  ValueVar(const T& value) : value_(new T(value)) {}
  ValueVar(const ValueVar& o) : value_(copied(o.value_)) {}
  ValueVar(ValueVar&& o) noexcept : value_(std::exchange(o.value_, nullptr)) {}
  ~ValueVar() { delete value_; }
  ValueVar& operator=(T* value) {
    if (value != value_) delete std::exchange(value_, value);
    return *this;
  }
  ValueVar& operator=(const T& value) { return &value == value_ ? *this : *this = new T(value); }
  ValueVar& operator=(const ValueVar& o) { return this == &o ? *this : *this = copied(o.value_); }
  ValueVar& operator=(ValueVar&& o) noexcept {
    std::swap(value_, o.value_);
    return *this;
  }

  T* operator->() { return value_; }
  const T* operator->() const { return value_; }
  operator T&() { return *value_; }
  operator const T&() const { return *value_; }
  /// The value, still owned; null when there is none.
  T* ptr() const { return value_; }
  const T& in() const { return *value_; }
  T& inout() { return *value_; }
  /// Frees what is held; the place to put a new value at.
  T*& out() {
    *this = static_cast<T*>(nullptr);
    return value_;
  }
  /// Hands it over: the caller deletes it.
  T* _retn() { return std::exchange(value_, nullptr); }
  /// An element, where T is a sequence.
  decltype(auto) operator[](ULong i) { return (*value_)[i]; }
  decltype(auto) operator[](ULong i) const { return std::as_const(*value_)[i]; }

 private:
  static T* copied(const T* value) { return value ? new T(*value) : nullptr; }
  T* value_ = nullptr;
};

/// An out parameter of a type of variable length: the caller's pointer, null at first. The servant puts a value made
/// with new there, which is the caller's; left at null the reply cannot be made, and the client gets MARSHAL.
///
///   void names(CORBA::StringSeq_out all) { all = new CORBA::StringSeq; }
template <class T>
class ValueOut {
 public:
  ValueOut(T*& place) : place_(place) { place_ = nullptr; }
  ValueOut(ValueVar<T>& place) : place_(place.out()) {}
  ValueOut(const ValueOut&) = default;
  /// The caller's from then on. What was put there before is not deleted.
  ValueOut& operator=(T* value) {
    place_ = value;
    return *this;
  }
  ValueOut& operator=(const ValueOut& o) { return *this = o.place_; }

  /// The caller's pointer itself; what it points to can be filled in by these once it is there.
  operator T*&() { return place_; }
  T*& ptr() { return place_; }
  T* operator->() { return place_; }
  T& operator*() { return *place_; }
  decltype(auto) operator[](ULong i) { return (*place_)[i]; }

 private:
  T*& place_;
};

/// T_var of a type of fixed length (numbers, enums, and structs and arrays of these alone): the value itself, default
/// at first. A pointer that it is made of is taken over: the value is copied, and the pointer deleted. It is never
/// null, and out() is the value itself.
///
///   Bank::Point_var point = Bank::Point{1.0, 2.0};
///   point->x = 3.0;
template <class T>
class FixedVar {
 public:
  FixedVar() = default;
  FixedVar(T* value) : value_(value ? *value : T{}) { delete value; }
  FixedVar(const T& value) : value_(value) {}
  FixedVar& operator=(const T& value) {
    value_ = value;
    return *this;
  }
  T* operator->() { return &value_; }
  const T* operator->() const { return &value_; }
  operator T&() { return value_; }
  operator const T&() const { return value_; }
  const T& in() const { return value_; }
  T& inout() { return value_; }
  T& out() { return value_; }
  T _retn() { return value_; }

 private:
  T value_{};
};

/// An out parameter of interface X: the caller's pointer, nil at first. What a servant puts there is a reference that
/// the caller releases: a plain pointer is taken over, an X_var duplicated.
///
///   void find(CORBA::ObjectOut<CORBA::Object> found) { found = CORBA::Object::_duplicate(object); }
template <class X>
class ObjectOut {
 public:
  ObjectOut(X*& place) : place_(place) { place_ = nullptr; }
  ObjectOut(ObjectVar<X>& place) : place_(place.out()) {}
  ObjectOut(const ObjectOut&) = default;
  ObjectOut& operator=(X* reference) {
    place_ = reference;
    return *this;
  }
  ObjectOut& operator=(const ObjectVar<X>& o) { return *this = X::_duplicate(o.in()); }
  ObjectOut& operator=(const ObjectOut& o) { return *this = o.place_; }

  operator X*&() { return place_; }
  X*& ptr() { return place_; }
  X* operator->() { return place_; }

 private:
  X*& place_;
};
// void find(CORBA::Object_out found): what an operation of the ORB gives as an Object.
using Object_out = ObjectOut<Object>;

/// A new reference of what `reference` refers to. Where this is called X need not be complete yet.
template <class X>
X* duplicated(X* reference) {
  return X::_duplicate(reference);
}

// ---- Arrays ----------------------------------------------------------------------------------------------- An
// array of the mapping is a C++ array; its slice is the element of the outermost dimension. `Tag` tells typedefs of
// one C++ array type apart and names it: Tag::Array. Generated code gives each typedef `long Row[3]` its Row_slice,
// Row_var, Row_out and Row_forany, and functions Row_alloc, Row_dup, Row_copy and Row_free, which are these. An array
// that changes hands is a pointer to its slice, made by Row_alloc or Row_dup, and freed by Row_free or a Row_var.

template <class Tag>
using ArraySlice = std::remove_extent_t<typename Tag::Array>;

/// Element by element; those that own something copy it.
template <class A>
void array_copy(A& to, const A& from) {
  if constexpr (std::is_array_v<std::remove_extent_t<A>>) {
    for (std::size_t i = 0; i < std::extent_v<A>; ++i) array_copy(to[i], from[i]);
  } else {
    for (std::size_t i = 0; i < std::extent_v<A>; ++i) to[i] = from[i];
  }
}
/// The array that a slice pointer begins.
template <class Tag>
typename Tag::Array& array_of(ArraySlice<Tag>* slice) {
  return *reinterpret_cast<typename Tag::Array*>(slice);
}
template <class Tag>
const typename Tag::Array& array_of(const ArraySlice<Tag>* slice) {
  return *reinterpret_cast<const typename Tag::Array*>(slice);
}
/// A new array of default elements, freed with array_free. std::bad_alloc without memory.
template <class Tag>
ArraySlice<Tag>* array_alloc() {
  return new typename Tag::Array{};
}
template <class Tag>
void array_free(ArraySlice<Tag>* slice) {
  delete[] slice;
}
/// Copies all elements, deeply. Nothing where one of the two is null, or both are the same.
template <class Tag>
void array_copy_slice(ArraySlice<Tag>* to, const ArraySlice<Tag>* from) {
  if (to && from && to != from) array_copy(array_of<Tag>(to), array_of<Tag>(from));
}
/// A deep copy, freed with array_free; null for null.
template <class Tag>
ArraySlice<Tag>* array_dup(const ArraySlice<Tag>* slice) {
  if (!slice) return nullptr;
  ArraySlice<Tag>* copy = array_alloc<Tag>();
  array_copy_slice<Tag>(copy, slice);
  return copy;
}

/// Owns one array on the heap, null at first; copies are deep. While it is null there are no elements, and an index
/// past the array's length is the program's mistake: nobody looks.
///
///   Bank::Row_var row = Bank::Row_alloc();      // three zeros
///   row[0] = 7;
///   Bank::Row_var copy = Bank::Row_dup(row.in());
///   Bank::Row_slice* mine = row._retn();        // the caller's now
///   Bank::Row_free(mine);
template <class Tag>
class ArrayVar {
 public:
  using Slice = ArraySlice<Tag>;
  ArrayVar() = default;
  /// Takes over an array of array_alloc or array_dup.
  ArrayVar(Slice* slice) : slice_(slice) {}
  ArrayVar(const ArrayVar& o) : slice_(array_dup<Tag>(o.slice_)) {}
  ~ArrayVar() { array_free<Tag>(slice_); }
  ArrayVar& operator=(Slice* slice) {
    if (slice != slice_) array_free<Tag>(std::exchange(slice_, slice));
    return *this;
  }
  ArrayVar& operator=(const ArrayVar& o) { return this == &o ? *this : *this = array_dup<Tag>(o.slice_); }

  Slice& operator[](Index auto i) { return slice_[i]; }
  const Slice& operator[](Index auto i) const { return slice_[i]; }
  operator Slice*&() { return slice_; }
  /// Lends the array: read only, and to be changed in place.
  const Slice* in() const { return slice_; }
  Slice* inout() { return slice_; }
  /// The place of a new array; of an array of fixed length the array itself, made when there is none.
  decltype(auto) out() {
    if constexpr (Tag::fixed) {
      if (!slice_) slice_ = array_alloc<Tag>();
      return static_cast<Slice*>(slice_);
    } else {
      *this = static_cast<Slice*>(nullptr);
      return static_cast<Slice*&>(slice_);
    }
  }
  /// Hands it over: the caller frees it with array_free.
  Slice* _retn() { return std::exchange(slice_, nullptr); }

 private:
  Slice* slice_ = nullptr;
};

/// An out parameter of an array of variable length: the caller's pointer, null at first. One of fixed length is filled
/// in place.
template <class Tag>
class ArrayOut {
 public:
  using Slice = ArraySlice<Tag>;
  ArrayOut(Slice*& place) : place_(place) { place_ = nullptr; }
  ArrayOut(ArrayVar<Tag>& place) : place_(place.out()) {}
  ArrayOut(const ArrayOut&) = default;
  ArrayOut& operator=(Slice* slice) {
    place_ = slice;
    return *this;
  }
  ArrayOut& operator=(const ArrayOut& o) { return *this = o.place_; }
  operator Slice*&() { return place_; }
  Slice*& ptr() { return place_; }
  Slice& operator[](Index auto i) { return place_[i]; }

 private:
  Slice*& place_;
};

/// An array as Any's operators take and give it: `any <<= Row_forany(row)` copies, `any >>= forany` lends the array
/// that the Any holds. It owns nothing.
template <class Tag>
class ArrayForany {
 public:
  using Slice = ArraySlice<Tag>;
  ArrayForany() = default;
  /// `nocopy`: an insertion takes over the array.
  ArrayForany(Slice* slice, Boolean nocopy = false) : slice_(slice), nocopy_(nocopy) {}
  Slice& operator[](Index auto i) const { return slice_[i]; }
  operator Slice*() const { return slice_; }
  Slice* in() const { return slice_; }
  /// Whether an insertion takes the array over.
  Boolean nocopy() const { return nocopy_; }

 private:
  Slice* slice_ = nullptr;
  Boolean nocopy_ = false;
};

}  // namespace CORBA
