// Unbounded sequences and their _var types (OMG IDL to C++, "Mapping for Sequence Types").
#pragma once

#include <algorithm>
#include <new>
#include <type_traits>

#include "corba/types.h"

namespace CORBA {

/// A sequence of T, where copying a T is what copying an element means (an ObjectVar duplicates).
template <class T>
class Sequence : public Allocated {
 public:
  using Element = T;

  /// n value-initialised elements; null for 0 or without memory. Freed with freebuf.
  static T* allocbuf(ULong n) {
    if (n == 0) return nullptr;
    if constexpr (std::is_trivially_default_constructible_v<T>) {  // a compiler may make a loop of T[n]()
      T* zeroed = new (std::nothrow) T[n];
      if (zeroed) std::memset(zeroed, 0, n * sizeof(T));
      return zeroed;
    } else {
      return new (std::nothrow) T[n]();
    }
  }
  static void freebuf(T* buffer) { delete[] buffer; }

  Sequence() = default;
  explicit Sequence(ULong max) : _buffer(allocbuf(max)), _release(1) { _maximum = _buffer ? max : 0; }
  /// Adopts `data`, and owns it when `rel`. A length over the maximum is cut to it.
  Sequence(ULong max, ULong len, T* data, Boolean rel = 0)
      : _maximum(data ? max : 0), _length(len < _maximum ? len : _maximum), _buffer(data), _release(rel) {}
  Sequence(const Sequence& o) : Sequence(o._maximum) { copy_elements(o); }
  Sequence& operator=(const Sequence& o) {
    if (this == &o) return *this;
    if (_release) freebuf(_buffer);
    _buffer = allocbuf(o._maximum);
    _maximum = _buffer ? o._maximum : 0;
    _release = 1;
    copy_elements(o);
    return *this;
  }
  ~Sequence() {
    if (_release) freebuf(_buffer);
  }

  ULong maximum() const { return _maximum; }
  ULong length() const { return _length; }
  /// Growing past the maximum moves to a new buffer of n; without memory for it std::bad_alloc is thrown and
  /// nothing changes.
  void length(ULong n) {
    if (n > _maximum) {
      T* grown = allocbuf(n);
      if (!grown) throw std::bad_alloc();
      std::copy_n(_buffer, _length, grown);
      if (_release) freebuf(_buffer);
      _buffer = grown;
      _maximum = n;
      _release = 1;
    }
    _length = n;
  }
  /// The element, or at and past the length a scratch element that is no part of the sequence.
  T& operator[](ULong i) { return i < _length ? _buffer[i] : wkrtn; }
  const T& operator[](ULong i) const { return i < _length ? _buffer[i] : wkrtn; }

  T* get_buffer() { return _buffer; }
  const T* get_buffer() const { return _buffer; }
  Boolean release() const { return _release; }

 protected:
  ULong _maximum = 0;
  ULong _length = 0;
  T* _buffer = nullptr;
  T wkrtn{};
  Boolean _release = 0;

 private:
  void copy_elements(const Sequence& o) {
    _length = o._length < _maximum ? o._length : _maximum;
    std::copy_n(o._buffer, _length, _buffer);
  }
};

/// Owns one sequence, never null: a fresh one holds a new empty sequence; copies are deep.
template <class S>
class SequenceVar {
 public:
  SequenceVar() : _ptr(new S) {}
  SequenceVar(S* s) : _ptr(s) {}
  SequenceVar(const S& s) : _ptr(new S(s)) {}
  SequenceVar(const SequenceVar& o) : _ptr(o._ptr ? new S(*o._ptr) : nullptr) {}
  ~SequenceVar() { delete _ptr; }
  SequenceVar& operator=(S* s) {
    if (s != _ptr) delete std::exchange(_ptr, s);
    return *this;
  }
  SequenceVar& operator=(const S& s) { return &s == _ptr ? *this : *this = new S(s); }
  SequenceVar& operator=(const SequenceVar& o) {
    return this == &o ? *this : *this = (o._ptr ? new S(*o._ptr) : nullptr);
  }

  typename S::Element& operator[](ULong i) { return _ptr ? (*_ptr)[i] : wkrtn; }
  const typename S::Element& operator[](ULong i) const { return _ptr ? (*_ptr)[i] : wkrtn; }
  S* operator->() const { return _ptr; }
  operator S*() const { return _ptr; }
  operator const S&() const { return *_ptr; }
  const S& in() const { return *_ptr; }
  S* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  S* _ptr;
  typename S::Element wkrtn{};
};

using OctetSeq = Sequence<Octet>;
using OctetSeq_var = SequenceVar<OctetSeq>;

}  // namespace CORBA
