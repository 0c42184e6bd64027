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
// A T_var that is given as an argument chooses by itself. All belong to one thread at a time, as any variable. What an
// operation takes and gives of a type T of variable length, and of one of fixed length:
//
//   in       const T&    const T&    the caller's, so what is to be kept is copied
//   inout    T&          T&          changed in place
//   out      T_out       T&          a new T that the caller deletes, or filled in place
//   result   T*          T           a new T that the caller deletes, or a value
//
// A servant that leaves null where a new T is due gives its client MARSHAL.
#pragma once

#include "corba/object.h"

namespace CORBA {

/// Owns one value on the heap, null at first: T_var of a type of variable length, which has strings, sequences, Anys or
/// references somewhere in it. Copies are deep; std::bad_alloc without memory, and what was held stays. While it is
/// null only ptr(), out(), _retn() and assignments are to be used: nobody looks.
///
///   CORBA::StringSeq_var names = orb->list_initial_services();  // taken over
///   CORBA::StringSeq_var copy = names;                          // deep
///   for (CORBA::ULong i = 0; i < copy->length(); ++i) std::cout << copy[i].in() << std::endl;
template <class T>
class ValueVar {
 public:
  /// Null.
  ValueVar() = default;
  /// Takes over a value made with new: a result, as a rule. Null is none.
  ValueVar(T* value) : value_(value) {}
  /// A copy, of null null.
  ValueVar(const T& value) : value_(new T(value)) {}
  ValueVar(const ValueVar& o) : value_(copied(o.value_)) {}
  /// Takes the value over, and leaves null.
  ValueVar(ValueVar&& o) noexcept : value_(std::exchange(o.value_, nullptr)) {}
  ~ValueVar() { delete value_; }
  /// Deletes what is held, unless it is the same, and takes `value` over.
  ValueVar& operator=(T* value) {
    if (value != value_) delete std::exchange(value_, value);
    return *this;
  }
  /// A copy takes the place of what is held.
  ValueVar& operator=(const T& value) { return &value == value_ ? *this : *this = new T(value); }
  ValueVar& operator=(const ValueVar& o) { return this == &o ? *this : *this = copied(o.value_); }
  /// Exchanges the two values.
  ValueVar& operator=(ValueVar&& o) noexcept {
    std::swap(value_, o.value_);
    return *this;
  }

  /// Members, and the value as an argument.
  T* operator->() { return value_; }
  const T* operator->() const { return value_; }
  operator T&() { return *value_; }
  operator const T&() const { return *value_; }
  /// The value, still owned; null when there is none.
  T* ptr() const { return value_; }
  /// Lends the value: read only, and to be changed in place.
  const T& in() const { return *value_; }
  T& inout() { return *value_; }
  /// Frees what is held; the place to put a new value at. It is null there until somebody does.
  T*& out() {
    *this = static_cast<T*>(nullptr);
    return value_;
  }
  /// Hands it over: the caller deletes it. What a servant's operation returns.
  T* _retn() { return std::exchange(value_, nullptr); }
  /// An element, where T is a sequence: BAD_PARAM for an index at or past its length.
  decltype(auto) operator[](ULong i) { return (*value_)[i]; }
  decltype(auto) operator[](ULong i) const { return std::as_const(*value_)[i]; }

 private:
  static T* copied(const T* value) { return value ? new T(*value) : nullptr; }
  T* value_ = nullptr;
};

/// An out parameter of a type of variable length: the caller's pointer, null at first. The servant puts a value made
/// with new there, which is the caller's; left at null the reply cannot be made, and the client gets MARSHAL. A caller
/// gives its T_var, which owns what comes, or a `T*`, which it deletes itself.
///
///   void names(CORBA::StringSeq_out all) { all = new CORBA::StringSeq; }
///
///   void ask() {
///     CORBA::StringSeq_var all;
///     names(all);  // or all.out()
///     std::cout << all->length() << " names" << std::endl;
///   }
template <class T>
class ValueOut {
 public:
  /// The pointer is set to null; what it pointed to stays the caller's to delete.
  ValueOut(T*& place) : place_(place) { place_ = nullptr; }
  /// What the variable holds is deleted.
  ValueOut(ValueVar<T>& place) : place_(place.out()) {}
  /// The same place: an out parameter may be passed on.
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
/// at first (numbers 0). A pointer that it is made of is taken over: the value is copied, and the pointer deleted. It
/// is never null, and out() is the value itself. Nothing of it is on the heap; it is there so that code need not know
/// whether a type is of fixed length.
///
///   Bank::Point_var point = Bank::Point{1.0, 2.0};
///   point->x = 3.0;
///   Bank::Point moved = point._retn();  // a copy: the variable keeps its value
template <class T>
class FixedVar {
 public:
  FixedVar() = default;
  /// Null is the default value.
  FixedVar(T* value) : value_(value ? *value : T{}) { delete value; }
  FixedVar(const T& value) : value_(value) {}
  /// A copy.
  FixedVar& operator=(const T& value) {
    value_ = value;
    return *this;
  }
  /// As those of ValueVar, of a value that is always there.
  T* operator->() { return &value_; }
  const T* operator->() const { return &value_; }
  operator T&() { return value_; }
  operator const T&() const { return value_; }
  /// The value itself, whichever way it goes: an operation fills an out one in place.
  const T& in() const { return value_; }
  T& inout() { return value_; }
  T& out() { return value_; }
  /// A copy: the variable keeps its value.
  T _retn() { return value_; }

 private:
  T value_{};
};

/// An out parameter of interface X (X_out): the caller's pointer, nil at first, which may stay nil. What a servant puts
/// there is a reference that the caller releases: a plain pointer is taken over, an X_var duplicated.
///
///   void find(CORBA::Object_out found) { found = CORBA::Object::_duplicate(object); }
template <class X>
class ObjectOut {
 public:
  /// The pointer is set to nil; what it referred to stays the caller's to release.
  ObjectOut(X*& place) : place_(place) { place_ = nullptr; }
  /// What the variable holds is released.
  ObjectOut(ObjectVar<X>& place) : place_(place.out()) {}
  /// The same place: an out parameter may be passed on.
  ObjectOut(const ObjectOut&) = default;
  /// The caller's from then on. What was put there before is not released.
  ObjectOut& operator=(X* reference) {
    place_ = reference;
    return *this;
  }
  /// A duplicate: the variable keeps its own.
  ObjectOut& operator=(const ObjectVar<X>& o) { return *this = X::_duplicate(o.in()); }
  ObjectOut& operator=(const ObjectOut& o) { return *this = o.place_; }

  /// The caller's pointer itself.
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

// ---- Arrays -----------------------------------------------------------------------------------------------
// An array of the mapping is a C++ array; its slice is the element of the outermost dimension. `Tag` tells typedefs of
// one C++ array type apart and names it: Tag::Array. Generated code gives each typedef `long Row[3]` its Row_slice,
// Row_var, Row_out and Row_forany, and functions Row_alloc, Row_dup, Row_copy and Row_free, which are these. An array
// that changes hands is a pointer to its slice, made by Row_alloc or Row_dup, and freed by Row_free or a Row_var:
// neither new nor delete fits. In an operation an array of n elements is
//
//   in       const Row_slice*    the caller's
//   inout    Row_slice*          changed in place
//   out      Row_slice*          filled in place (of variable length Row_out: a new array that the caller frees)
//   result   Row_slice*          a new array that the caller frees
//
// A new array is default at first, and freed as it was made:
//
//   Bank::Row_slice* threes = Bank::Row_alloc();
//   for (CORBA::ULong i = 0; i < 3; ++i) threes[i] = 3;
//   Bank::Row copy;
//   Bank::Row_copy(copy, threes);
//   Bank::Row_free(threes);

/// Row_slice: of `long Row[3]` a long, of `long Table[2][3]` a long[3].
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
/// A new array of default elements (numbers 0, strings "", references nil), freed with array_free. std::bad_alloc
/// without memory.
template <class Tag>
ArraySlice<Tag>* array_alloc() {
  return new typename Tag::Array{};
}
/// Frees an array of array_alloc or array_dup with what its elements own; null is allowed.
template <class Tag>
void array_free(ArraySlice<Tag>* slice) {
  delete[] slice;
}
/// Copies all elements, deeply: `to` is an array of the same type, whose elements are replaced. Nothing where one of
/// the two is null, or both are the same.
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

/// Owns one array on the heap (Row_var), null at first; copies are deep, std::bad_alloc without memory. While it is
/// null there are no elements, and an index past the array's length is the program's mistake: nobody looks.
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
  /// Null.
  ArrayVar() = default;
  /// Takes over an array of array_alloc or array_dup.
  ArrayVar(Slice* slice) : slice_(slice) {}
  /// A deep copy; of null null.
  ArrayVar(const ArrayVar& o) : slice_(array_dup<Tag>(o.slice_)) {}
  ~ArrayVar() { array_free<Tag>(slice_); }
  /// As the constructors; what was held is freed, unless it is the same.
  ArrayVar& operator=(Slice* slice) {
    if (slice != slice_) array_free<Tag>(std::exchange(slice_, slice));
    return *this;
  }
  ArrayVar& operator=(const ArrayVar& o) { return this == &o ? *this : *this = array_dup<Tag>(o.slice_); }

  /// An element, or of several dimensions a row of them.
  Slice& operator[](Index auto i) { return slice_[i]; }
  const Slice& operator[](Index auto i) const { return slice_[i]; }
  /// The array as an argument.
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

/// An out parameter of an array of variable length (Row_out): the caller's pointer, null at first. The servant puts an
/// array of array_alloc there, which is the caller's; left at null the client gets MARSHAL. One of fixed length is
/// filled in place.
template <class Tag>
class ArrayOut {
 public:
  using Slice = ArraySlice<Tag>;
  /// As those of ValueOut.
  ArrayOut(Slice*& place) : place_(place) { place_ = nullptr; }
  ArrayOut(ArrayVar<Tag>& place) : place_(place.out()) {}
  ArrayOut(const ArrayOut&) = default;
  /// The caller's from then on. What was put there before is not freed.
  ArrayOut& operator=(Slice* slice) {
    place_ = slice;
    return *this;
  }
  ArrayOut& operator=(const ArrayOut& o) { return *this = o.place_; }
  /// The caller's pointer itself; elements can be filled in once an array is there.
  operator Slice*&() { return place_; }
  Slice*& ptr() { return place_; }
  Slice& operator[](Index auto i) { return place_[i]; }

 private:
  Slice*& place_;
};

/// An array as Any's operators take and give it (Row_forany), as a pointer says nothing of its length. An insertion
/// copies, an extraction lends the array that the Any holds, and false says that it holds another type. It owns
/// nothing.
///
///   Bank::Row row = {1, 2, 3};
///   any <<= Bank::Row_forany(row);
///   Bank::Row_forany held;
///   if (any >>= held) std::cout << held[2] << std::endl;  // the Any's own
template <class Tag>
class ArrayForany {
 public:
  using Slice = ArraySlice<Tag>;
  /// No array: to be extracted into.
  ArrayForany() = default;
  /// `nocopy`: an insertion takes over the array.
  ArrayForany(Slice* slice, Boolean nocopy = false) : slice_(slice), nocopy_(nocopy) {}
  /// Elements, and the array itself; null when there is none.
  Slice& operator[](Index auto i) const { return slice_[i]; }
  operator Slice*() const { return slice_; }
  /// The same by name.
  Slice* in() const { return slice_; }
  /// Whether an insertion takes the array over.
  Boolean nocopy() const { return nocopy_; }

 private:
  Slice* slice_ = nullptr;
  Boolean nocopy_ = false;
};

}  // namespace CORBA
