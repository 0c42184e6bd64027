// Sequences, unbounded and bounded, and their _var types (OMG IDL to C++, "Mapping for Sequence Types").
//
// A sequence has a length, which is how many elements it has, and a maximum, which is for how many it has room.
// `typedef sequence<T> Ts` in IDL gives Ts, a class with what Sequence has, and Ts_var, which owns one made with new:
//
//   CORBA::LongSeq numbers;
//   numbers.length(3);                     // three zeros
//   for (CORBA::ULong i = 0; i < numbers.length(); ++i) numbers[i] = 10 * i;
//
// Numbers are 0 in new elements, strings "", references nil, and structs what their members are. A sequence may stand
// in a struct, an Any or another sequence, and copies with it; `typedef sequence<T, 8> Ts` refuses more than eight.
//
// In an operation a sequence is an in argument of the caller's (`const Ts&`), an inout one that is changed in place,
// and as an out argument or a result a new one that the caller deletes (`Ts*`; null there is MARSHAL for the client).
// Numbers, and structs of them, travel in one piece and need no call an element.
#pragma once

#include "corba/detail/sequence_elements.h"

namespace CORBA {

/// Ways out of a sequence: BAD_PARAM (minor code 0, completed NO) for an index at or past the length and for a length
/// over the bound. Of the library.
[[noreturn]] ZRSVCPP_API void refuse_index();
[[noreturn]] ZRSVCPP_API void refuse_bound();
/// Gives back a message that a sequence adopted. Of the library.
ZRSVCPP_API void free_message(void* buffer) noexcept;

/// An index of any integral type as a sequence's: a negative one is past the length of any sequence, as is one of more
/// than 32 bits.
template <Index I>
constexpr ULong sequence_index(I i) {
  constexpr ULong past = 0xFFFFFFFF;
  const auto wide = static_cast<long long>(i);
  return wide < 0 || wide > past ? past : static_cast<ULong>(wide);
}

/// A sequence. What `Elements` say is how its elements are kept and copied. An index at or past the length gives the
/// scratch element `wkrtn`, which is no part of the sequence, or with NoScratch BAD_PARAM: sequences of generated
/// code and those of corba/standard_sequences.h are of the second kind; OctetSeq, ObjectId and PolicyList of the
/// first.
///
/// Copies are deep, and a copy owns its buffer. A sequence owns its buffer unless it was given one that it was not to
/// own; a sequence that has to grow past the maximum moves to a buffer of its own then, and pointers into the old one
/// are good no more. Belongs to one thread at a time; several may read one that nobody changes.
///
///   CORBA::OctetSeq data(4096);                     // room for 4096, length 0
///   data.length(4);
///   std::memcpy(data.get_buffer(), octets, 4);      // elements stand one behind the other
///   CORBA::OctetSeq lent(4, 4, octets);             // reads `octets`, and leaves it alone at its end
///   CORBA::OctetSeq mine = lent;                    // a copy of the four, in a buffer of its own
///
/// An argument of a servant may be lent in this way: numbers stay where the request has them, release() is false, and
/// the elements are gone after the call. Who wants to keep them copies the sequence.
///
/// `T` is what an element is, or for strings and references the pointer in the buffer; `Reference` is what operator[]
/// gives of it: T& of numbers and structs, else an object to assign by (CORBA::TextElement of strings).
template <class T, class Elements = PlainElements<T>, class Scratch = T>
class Sequence : public Allocated {
 public:
  // What stands in the buffer, and what operator[] gives of it, changing and reading.
  using Element = T;
  using Reference = typename Elements::Reference;
  using ConstReference = typename Elements::ConstReference;

  /// n default elements; null for 0 or without memory. Freed with freebuf, or by a sequence that is given them to own:
  /// nothing else fits. Texts that are put into such a buffer are of string_dup, as the buffer frees them.
  ///
  ///   char** names = CORBA::StringSeq::allocbuf(1);
  ///   names[0] = CORBA::string_dup("Ann");
  ///   CORBA::StringSeq made(1, 1, names, true);  // the sequence's now
  static T* allocbuf(ULong n) { return n == 0 ? nullptr : Elements::make(n); }
  /// Frees what allocbuf gave, with the elements; null is allowed.
  static void freebuf(T* buffer) { Elements::free(buffer); }

  /// Empty, without a buffer.
  Sequence() = default;
  /// Empty, with room for `max`, so that lengths up to it cost nothing; with room for none where there is no memory.
  explicit Sequence(ULong max) : _buffer(allocbuf(max)), _release(true) { _maximum = _buffer ? max : 0; }
  /// Takes `data`, room for `max` elements, as its buffer, and owns it when `rel`: then it is of allocbuf, and not the
  /// caller's any more. Else it stays the caller's, and outlives this; elements that are assigned to are changed there,
  /// and strings and references that are replaced are not freed. A length over the maximum is cut to it; null is an
  /// empty sequence.
  Sequence(ULong max, ULong len, T* data, Boolean rel = false)
      : _maximum(data ? max : 0), _length(len < _maximum ? len : _maximum), _buffer(data), _release(rel) {}
  /// A deep copy with the same maximum, in a buffer of its own, also of a lent one; std::bad_alloc without memory.
  Sequence(const Sequence& o)
      : _maximum(o._maximum), _length(o._length), _buffer(copied(o, o._maximum)), _release(true) {}
  /// Takes over the buffer, owned or lent, and leaves the other one empty.
  Sequence(Sequence&& o) noexcept { swap(o); }
  /// What is assigned may be a part of this sequence. Without memory std::bad_alloc, and nothing changes.
  Sequence& operator=(const Sequence& o) {
    if (this == &o) return *this;
    T* buffer = copied(o, o._maximum);
    const ULong max = o._maximum, len = o._length;
    adopt(max, len, buffer, true);
    return *this;
  }
  /// As the constructor; what was here is freed.
  Sequence& operator=(Sequence&& o) noexcept {
    Sequence taken(std::move(o));
    swap(taken);
    return *this;
  }
  /// Frees a buffer that it owns, with the strings and references in it.
  ~Sequence() {
    if (_release) drop(_buffer, _in_message);
  }

  /// For how many elements there is room, and how many there are. The first is the second at least.
  ULong maximum() const { return _maximum; }
  ULong length() const { return _length; }
  /// Growing past the maximum moves to a new buffer of n; without memory for it std::bad_alloc is thrown and nothing
  /// changes. Who appends one by one asks for room before (the constructor with a maximum): the buffer grows to n and
  /// no further. Shrinking keeps the buffer; elements that are left out let go of what they own and come back empty,
  /// but numbers, and elements of a buffer that is not owned, come back as they were. With a scratch element all do.
  void length(ULong n) {
    if (n > _maximum) grow(n);
    if constexpr (std::is_same_v<Scratch, NoScratch>)
      if (n < _length && _release) Elements::clear(_buffer + n, _length - n);
    _length = n;
  }
  /// The same for who fills all n elements next: what they are until then is not defined where a new buffer is needed,
  /// and what was there before may be gone. Beyond the standard; for large sequences of numbers, which are else zeroed.
  void length_to_fill(ULong n) {
    if (n <= _maximum) return length(n);
    T* fresh = Elements::make_for_copy(n);
    if (!fresh) throw std::bad_alloc();
    adopt(n, n, fresh, true);
  }
  /// The element, to be read and changed; of a sequence of strings or references, what it can be assigned by: a plain
  /// pointer is taken over then, a constant one or a _var copied. What is held is freed. Good until the length changes
  /// or the sequence ends. At or past the length: BAD_PARAM, or the scratch element.
  Reference operator[](ULong i) {
    if (i < _length) return Elements::at(_buffer, i, _release);
    if constexpr (std::is_same_v<Scratch, NoScratch>)
      refuse_index();
    else
      return wkrtn;
  }
  /// The element, to be read; of strings a `const char*`, which stays the sequence's.
  ConstReference operator[](ULong i) const {
    if (i < _length) return Elements::at(static_cast<const T*>(_buffer), i);
    if constexpr (std::is_same_v<Scratch, NoScratch>)
      refuse_index();
    else
      return wkrtn;
  }

  /// The elements, one behind the other, still the sequence's; null when there is no buffer. Strings and references are
  /// plain pointers there, and a null pointer among strings is "".
  const T* get_buffer() const { return _buffer; }
  /// The same, to be written to; a pointer that is replaced there is freed by the one who does. With `orphan` it is the
  /// caller's from then on (freebuf), and the sequence empty; null when the sequence does not own its buffer. A result
  /// that stayed in the message that it came in is copied out then: std::bad_alloc without memory, and nothing changes.
  T* get_buffer(Boolean orphan = false) {
    if (!orphan) return _buffer;
    if (!_release) return nullptr;
    if (_in_message) adopt(_maximum, _length, copied(*this, _maximum), true);
    _maximum = _length = 0;
    _release = false;
    return std::exchange(_buffer, nullptr);
  }
  /// Whether the buffer is the sequence's own. One without a buffer may say either.
  Boolean release() const { return _release; }
  /// As the constructor with the same parameters: what was here is freed. `data` may be the buffer that get_buffer()
  /// lent, with another length or owner.
  void replace(ULong max, ULong len, T* data, Boolean rel = false) {
    const bool same = data == _buffer, in_message = same && _in_message && rel;
    if (same) _release = false;  // given back what get_buffer lent
    adopt(data ? max : 0, !data ? 0 : len < max ? len : max, data, rel);
    _in_message = in_message;
  }

  // Of the library: elements in the memory of the message that they came in, which the sequence owns from then on. To a
  // program it is a sequence that owns its buffer, as any other.
  void adopt_message(ULong len, T* data) requires std::is_trivially_copyable_v<T> {
    adopt(len, len, data, true);
    _in_message = true;
  }
  bool in_message() const { return _in_message; }

 protected:
  ULong _maximum = 0;
  ULong _length = 0;
  T* _buffer = nullptr;
  // What an index past the length gives, where there is such an element: it can be written to, and nobody reads it.
  [[no_unique_address]] Scratch wkrtn{};
  Boolean _release = false;
  Boolean _in_message = false;  // the buffer is a part of a message, and not freebuf's

 private:
  struct Buffer {  // freed unless it is given on
    T* at;
    ~Buffer() { Elements::free(at); }
  };
  /// A new buffer of `max` that begins with the elements of `o`; null for 0.
  static T* copied(const Sequence& o, ULong max) {
    if (max == 0) return nullptr;
    Buffer fresh{max == o._length ? Elements::make_for_copy(max) : Elements::make(max)};
    if (!fresh.at) throw std::bad_alloc();
    Elements::copy(o._buffer, o._length, fresh.at);
    return std::exchange(fresh.at, nullptr);
  }
  /// To a buffer of `max`, which is more than the maximum. Elements that are owned move over.
  void grow(ULong max) {
    if (!_release || _in_message) return adopt(max, max, copied(*this, max), true);
    Buffer fresh{Elements::make(max)};
    if (!fresh.at) throw std::bad_alloc();
    Elements::move(_buffer, _length, fresh.at);
    adopt(max, max, std::exchange(fresh.at, nullptr), true);
  }
  /// What it has from now on; what it had is freed then, when it was owned.
  void adopt(ULong max, ULong len, T* buffer, Boolean rel) {
    T* old = std::exchange(_buffer, buffer);
    const bool owned = std::exchange(_release, rel), in_message = std::exchange(_in_message, false);
    _maximum = max;
    _length = len;
    if (owned) drop(old, in_message);
  }
  static void drop(T* buffer, bool in_message) {
    if (in_message) [[unlikely]]
      free_message(buffer);
    else
      freebuf(buffer);
  }
  void swap(Sequence& o) noexcept {
    std::swap(_maximum, o._maximum);
    std::swap(_length, o._length);
    std::swap(_buffer, o._buffer);
    std::swap(_release, o._release);
    std::swap(_in_message, o._in_message);
  }
};

/// A sequence of at most Bound elements (IDL's sequence<T, Bound>); its maximum is the bound, whatever it has room for.
/// BAD_PARAM for a length over the bound, and nothing changes; one that comes in over the wire is MARSHAL. `Of` is the
/// sequence without a bound, and the rest is as there.
///
///   CORBA::BoundedSequence<CORBA::LongSeq, 8> few;
///   few.length(8);  // few.length(9) raises BAD_PARAM
template <class Of, ULong Bound>
class BoundedSequence : public Of {
 public:
  /// Empty, without a buffer.
  BoundedSequence() = default;
  /// As Sequence's, with the bound as maximum: `data` has room for so many.
  BoundedSequence(ULong len, typename Of::Element* data, Boolean rel = false) : Of(Bound, len, data, rel) {}
  /// The bound.
  ULong maximum() const { return Bound; }
  using Of::length;
  void length(ULong n) {
    if (n > Bound) refuse_bound();
    Of::length(n);
  }
  /// As Sequence's, with the bound as maximum.
  void replace(ULong len, typename Of::Element* data, Boolean rel = false) {
    Of::replace(Bound, len, data, rel);
  }
  /// Room for as many as there may be; freed with freebuf.
  static typename Of::Element* allocbuf() { return Of::allocbuf(Bound); }
};

/// Owns one sequence that was made with new, never null: a fresh one holds a new empty sequence; copies are deep.
/// Null only after `_retn()`, `out()`, or where null was assigned: then the element of any index is a scratch one,
/// and in() is not to be called. A pointer that is assigned is taken over, a sequence copied; std::bad_alloc without
/// memory, and what was held stays. It belongs to one thread at a time. The Ts_var of generated sequences is
/// CORBA::ValueVar, null at first; this one is of OctetSeq, ObjectId and PolicyList.
///
///   PortableServer::ObjectId_var id = poa->servant_to_id(&servant);  // taken over
///   std::cout << id->length() << " octets" << std::endl;
///   PortableServer::ObjectId copy = id.in();
template <class S>
class SequenceVar {
 public:
  /// A new empty sequence.
  SequenceVar() : _ptr(new S) {}
  /// Takes over one made with new; null is none.
  SequenceVar(S* s) : _ptr(s) {}
  /// A copy, of null null.
  SequenceVar(const S& s) : _ptr(new S(s)) {}
  SequenceVar(const SequenceVar& o) : _ptr(o._ptr ? new S(*o._ptr) : nullptr) {}
  ~SequenceVar() { delete _ptr; }
  /// As the constructors; what was held is deleted, unless it is the same.
  SequenceVar& operator=(S* s) {
    if (s != _ptr) delete std::exchange(_ptr, s);
    return *this;
  }
  SequenceVar& operator=(const S& s) { return &s == _ptr ? *this : *this = new S(s); }
  SequenceVar& operator=(const SequenceVar& o) {
    return this == &o ? *this : *this = (o._ptr ? new S(*o._ptr) : nullptr);
  }

  /// An element, by an index of any integral type; a scratch one past the length, and for a negative index.
  typename S::Element& operator[](Index auto i) { return _ptr ? (*_ptr)[sequence_index(i)] : wkrtn; }
  const typename S::Element& operator[](Index auto i) const {
    return _ptr ? std::as_const(*_ptr)[sequence_index(i)] : wkrtn;
  }
  /// Still owned; null when there is none.
  S* operator->() const { return _ptr; }
  operator S*() const { return _ptr; }
  /// What an in parameter takes; for one that is not null.
  operator const S&() const { return *_ptr; }
  /// Lends the sequence: read only, and to be changed in place.
  const S& in() const { return *_ptr; }
  S& inout() { return *_ptr; }
  /// Frees what is held; the place to put a new sequence at.
  S*& out() {
    delete std::exchange(_ptr, nullptr);
    return _ptr;
  }
  /// Hands it over: the caller deletes it, and nothing is held. What a servant's operation returns.
  S* _retn() { return std::exchange(_ptr, nullptr); }

 private:
  S* _ptr;
  typename S::Element wkrtn{};
};

/// Octets: binary data, object ids. They travel in one piece, and stay where the message has them in a servant's in
/// argument.
///
///   CORBA::OctetSeq_var text = new CORBA::OctetSeq;
///   text->length(5);
///   std::memcpy(text->get_buffer(), "hello", 5);
using OctetSeq = Sequence<Octet>;
using OctetSeq_var = SequenceVar<OctetSeq>;

}  // namespace CORBA
