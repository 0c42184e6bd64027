// What the runtime knows of an IDL type: `Type<D>` for a descriptor D, which is the C++ type itself where
// that is unique (numbers, enums, structs, unions, sequences, Any, exceptions), else a tag: string<Bound>,
// wstring<Bound>, ref<X>, array<...>, TypeCode.
//
// A Type<D> has
//   Value            the C++ type of a member or element, which owns what it holds
//   move             `bool move(CDR*, Value&)`: encodes, or decodes in place; false when it does not fit
//   InArg, InoutArg, OutArg, ResultArg
//                    the forms of a parameter: `type` in a signature; `move(CDR*, void*)` between the stream
//                    and a slot; `address` of the slot on the stub's side; `Holder`, which owns the slot on
//                    the skeleton's side, and for results on both
//   typecode         a counted TypeCode for every caller, never nil
// It comes from one line for most types; structs, unions and exceptions add the list of their members.
#pragma once

#include "corba/any.h"
#include "corba/values.h"

namespace CORBA {
using Any_out = ValueOut<Any>;
}

namespace CORBA::idl {

template <class D>
struct Type;

template <class D>
using ValueOf = typename Type<D>::Value;

// ---- Forms of parameters ----------------------------------------------------------------------------------

/// A parameter of C++ type P whose slot is a V in place.
template <class V, class P, bool (*Move)(CDR*, V&)>
struct InPlace {
  using type = P;
  static bool move(CDR* cdr, void* slot) { return Move(cdr, *static_cast<V*>(slot)); }
  static void* address(const V& value) { return const_cast<V*>(&value); }
  struct Holder {
    V value{};
    void* slot() { return &value; }
    P pass() { return value; }
    void take(V&& v) { value = std::move(v); }
    V give() { return std::move(value); }
  };
};

/// Parameters whose slot is a pointer that owns: `Own::free(P)`, `Own::move(CDR*, P&)`, which on decoding
/// frees what was there.
template <class P, class Own>
struct PointerHolder {
  P value{};
  PointerHolder() = default;
  PointerHolder(const PointerHolder&) = delete;
  PointerHolder& operator=(const PointerHolder&) = delete;
  ~PointerHolder() { Own::free(value); }
  void* slot() { return &value; }
  P& pass() { return value; }
  void take(P v) { value = v; }
  P give() { return std::exchange(value, P{}); }
};
template <class P, class Own, class Parameter>
struct PointerArg {
  using type = Parameter;
  static bool move(CDR* cdr, void* slot) { return Own::move(cdr, *static_cast<P*>(slot)); }
  template <class Place>
  static void* address(Place& place) {
    if constexpr (std::is_same_v<Place, P>)
      return &place;
    else
      return &place.ptr();
  }
  using Holder = PointerHolder<P, Own>;
};

/// By value: numbers, booleans, enums.
template <class T, bool (*Move)(CDR*, T&)>
struct ByValue {
  using Value = T;
  static bool move(CDR* cdr, T& value) { return Move(cdr, value); }
  using InArg = InPlace<T, T, Move>;
  using InoutArg = InPlace<T, T&, Move>;
  using OutArg = InoutArg;
  using ResultArg = InArg;
};

/// Structs and unions of fixed length.
template <class T, bool (*Move)(CDR*, T&)>
struct Fixed {
  using Value = T;
  static bool move(CDR* cdr, T& value) { return Move(cdr, value); }
  using InArg = InPlace<T, const T&, Move>;
  using InoutArg = InPlace<T, T&, Move>;
  using OutArg = InoutArg;
  using ResultArg = InPlace<T, T, Move>;
};

/// Values that results and out parameters give on the heap.
template <class T, bool (*Move)(CDR*, T&)>
struct Variable {
  using Value = T;
  static bool move(CDR* cdr, T& value) { return Move(cdr, value); }
  struct Own {
    static void free(T* value) { delete value; }
    static bool move(CDR* cdr, T*& value) {
      if (cdr->direction == CDR_ENCODE) return value && Move(cdr, *value);
      auto fresh = std::make_unique<T>();
      if (!Move(cdr, *fresh)) return false;
      delete std::exchange(value, fresh.release());
      return true;
    }
  };
  using InArg = InPlace<T, const T&, Move>;
  using InoutArg = InPlace<T, T&, Move>;
  using OutArg = PointerArg<T*, Own, ValueOut<T>>;
  using ResultArg = PointerArg<T*, Own, T*>;
};

/// Strings and references: a pointer P in all forms. `In` is the slot of an in parameter, moved by `InMove`
/// (a string is read in place).
template <class V, class P, class Own, class In, bool (*InMove)(CDR*, In&), class Out>
struct Pointer {
  using Value = V;
  static bool move(CDR* cdr, V& value) { return Own::move(cdr, value.inout()); }
  using InArg = InPlace<In, In, InMove>;
  using InoutArg = PointerArg<P, Own, P&>;
  using OutArg = PointerArg<P, Own, Out>;
  using ResultArg = PointerArg<P, Own, P>;
};

// ---- Basic types ------------------------------------------------------------------------------------------

template <class T>
bool move_plain(CDR* cdr, T& value) {
  return Wire<T>::move(cdr, value);
}

template <class T>
concept Basic = Number<T> || OneOf<T, Boolean, Octet>;

template <Basic T>
struct Type<T> : ByValue<T, move_plain<T>> {
  static TypeCode* typecode() {
    if constexpr (AnyNumber<T>) return number_typecode<T>();
    if constexpr (OneOf<T, Boolean>) return _tc_boolean;
    if constexpr (OneOf<T, Octet>) return _tc_octet;
    if constexpr (OneOf<T, Char>) return _tc_char;
  }
};

template <>
struct Type<Any> : Variable<Any, move_plain<Any>> {
  static TypeCode* typecode() { return _tc_any; }
};

// ---- Strings ----------------------------------------------------------------------------------------------

/// A string of at most Bound characters; 0: of any length.
template <ULong Bound = 0>
struct string {};

template <ULong Bound>
struct StringMoves {
  static bool fits(const char* text) { return Bound == 0 || !text || std::strlen(text) <= Bound; }
  static void free(char* text) { string_free(text); }
  static bool move(CDR* cdr, char*& text) {
    if (cdr->direction == CDR_ENCODE) return fits(text) && cdr_CORBA_string_cpp(cdr, &text);
    char* fresh = nullptr;
    if (!cdr_CORBA_string_cpp(cdr, &fresh)) return false;
    string_free(std::exchange(text, fresh));
    return fits(text);
  }
  static bool move_in(CDR* cdr, const char*& text) {
    return (cdr->direction != CDR_ENCODE || fits(text)) && Wire<const char*>::move(cdr, text) && fits(text);
  }
};
template <ULong Bound>
struct Type<string<Bound>>
    : Pointer<String_mgr, char*, StringMoves<Bound>, const char*, StringMoves<Bound>::move_in, String_out> {
  static TypeCode* typecode() {
    if (Bound == 0) return _tc_string;
    static TypeCode* const bounded = TypeCode::create_string_tc(Bound);
    return bounded;
  }
};

// ---- References -------------------------------------------------------------------------------------------

/// A reference of interface X.
template <class X>
struct ref {};

template <class X>
X* make_reference(void* handle);

template <class X>
struct ReferenceMoves {
  static void free(X* reference) { release(reference); }
  static bool move(CDR* cdr, X*& reference) {
    void* handle = cdr->direction == CDR_ENCODE && reference ? reference->get_ref() : nullptr;
    if (cdr->direction == CDR_ENCODE && reference && !handle) return false;  // a local object
    if (!OM_cdr_object(cdr, &handle)) return false;
    if (cdr->direction == CDR_ENCODE) return true;
    X* fresh = handle ? make_reference<X>(handle) : nullptr;
    release(std::exchange(reference, fresh));
    return true;
  }
};
template <class X>
struct Type<ref<X>> {
  using Value = ObjectVar<X>;
  using Own = ReferenceMoves<X>;
  static bool move(CDR* cdr, Value& value) { return Own::move(cdr, value.inout()); }
  using InArg = PointerArg<X*, Own, X*>;
  using InoutArg = PointerArg<X*, Own, X*&>;
  using OutArg = PointerArg<X*, Own, ObjectOut<X>>;
  using ResultArg = InArg;
  static TypeCode* typecode() {
    if constexpr (std::is_same_v<X, Object>) {
      return _tc_Object;
    } else {
      static TypeCode* const type = TypeCode::create_interface_tc(X::repository_id, X::interface_name);
      return type;
    }
  }
};

/// Takes over `handle`. CORBA::Object and the client classes of interfaces.
template <class X>
X* make_reference(void* handle) {
  auto made = std::make_unique<X>();
  made->set_ref(handle);
  return made.release();
}

/// What the static members of a client class do.
template <class X>
X* unchecked_narrow(Object* object) {
  return object ? make_reference<X>(CORBA_object_duplicate(object->get_ref(), nullptr)) : nullptr;
}
template <class X>
X* duplicate(X* reference) {
  return unchecked_narrow<X>(reference);
}
template <class X>
X* narrow(Object* object) {
  return object && object->_is_a(X::repository_id) ? unchecked_narrow<X>(object) : nullptr;
}

// ---- Sequences and arrays ---------------------------------------------------------------------------------

/// An element of a sequence of references, as TextElement is one of strings.
template <class X>
class ReferenceElement {
 public:
  using Const = X*;
  static X* constant(X* reference) { return reference; }

  ReferenceElement(X*& place, bool owned) : place_(place), owned_(owned) {}
  ReferenceElement(const ReferenceElement&) = default;
  ReferenceElement& operator=(X* reference) {
    if (reference != place_ && owned_) release(place_);
    place_ = reference;
    return *this;
  }
  ReferenceElement& operator=(const ObjectVar<X>& o) { return *this = X::_duplicate(o.in()); }
  ReferenceElement& operator=(const ReferenceElement& o) { return *this = X::_duplicate(o.place_); }
  operator X*&() const { return place_; }
  X* operator->() const { return place_; }
  X* in() const { return place_; }
  X*& inout() const { return place_; }
  X*& out() {
    *this = static_cast<X*>(nullptr);
    return place_;
  }
  X* _retn() { return std::exchange(place_, nullptr); }

 private:
  X*& place_;
  bool owned_;
};
template <class X>
struct ReferenceElements : OwnedElements<X*, ObjectVar<X>, ReferenceElement<X>> {
  static void copy(X* const* from, ULong n, X** to) {
    for (ULong i = 0; i < n; ++i) to[i] = X::_duplicate(from[i]);
  }
};

/// The C++ class of a sequence of D.
template <class V>
struct SequenceClass {
  using type = Sequence<V, PlainElements<V>, NoScratch>;
};
template <class C>
struct SequenceClass<TextVar<C, true>> {
  using type = Sequence<C*, TextElements<C>, NoScratch>;
};
template <class X>
struct SequenceClass<ObjectVar<X>> {
  using type = Sequence<X*, ReferenceElements<X>, NoScratch>;
};
/// Base of a generated sequence class, by the C++ type of its members' elements (CORBA::String_mgr and
/// X_var for strings and references).
template <class V>
using sequence = typename SequenceClass<V>::type;
template <class V, ULong Bound>
using bounded_sequence = BoundedSequence<sequence<V>, Bound>;

/// Types whose octets on the wire are those in memory, but for the byte order.
template <class V>
concept Flat = Number<V> || std::same_as<V, Octet>;

ZRSVCPP_API bool move_length(CDR* cdr, ULong& length, ULong bound);
ZRSVCPP_API bool move_flat(CDR* cdr, void* values, ULong count, std::size_t size);

/// Elements one after the other.
template <class D, class Stored>
bool move_element(CDR* cdr, Stored& element) {
  if constexpr (std::is_same_v<Stored, ValueOf<D>>)
    return Type<D>::move(cdr, element);
  else
    return Type<D>::ResultArg::move(cdr, &element);
}

/// Makes room for more elements: as many as `length` says, but no more than the octets that are left may
/// hold.
template <class S>
void grow(CDR* cdr, S& sequence, ULong length) {
  const std::uint64_t believable = std::uint64_t{sequence.length()} + OM_cdr_remaining(cdr) + 1;
  sequence.length(static_cast<ULong>(std::min<std::uint64_t>(length, believable)));
}

template <class S, class D, ULong Bound>
bool move_sequence(CDR* cdr, S& sequence) {
  ULong length = sequence.length();
  if (!move_length(cdr, length, Bound)) return false;
  if constexpr (Flat<D>) {
    if (cdr->direction == CDR_DECODE) {
      if (length > OM_cdr_remaining(cdr) / sizeof(D)) return false;
      sequence.length(length);
    }
    return move_flat(cdr, sequence.get_buffer(), length, sizeof(D));
  } else {
    if (cdr->direction == CDR_DECODE) sequence.length(0);
    for (ULong i = 0; i < length; ++i) {
      if (cdr->direction == CDR_DECODE && i == sequence.length()) grow(cdr, sequence, length);
      if (!move_element<D>(cdr, sequence.get_buffer()[i])) return false;
    }
    return true;
  }
}
/// A typedef of an array is a tag: its C++ type `Array` (outermost dimension first), the descriptor `Element`
/// of what stands in it, and `fixed` when that is of fixed length.
template <class D>
concept ArrayTag = requires {
  typename D::Array;
};

template <ArrayTag Tag>
struct Type<Tag> {
  using Value = typename Tag::Array;
  using Slice = ArraySlice<Tag>;
  using Element = ValueOf<typename Tag::Element>;

  static bool move(CDR* cdr, Value& value) {
    auto* elements = reinterpret_cast<Element*>(&value);
    constexpr ULong count = sizeof(Value) / sizeof(Element);
    if constexpr (Flat<Element>) return move_flat(cdr, elements, count, sizeof(Element));
    for (ULong i = 0; i < count; ++i)
      if (!Type<typename Tag::Element>::move(cdr, elements[i])) return false;
    return true;
  }
  struct Own {
    static void free(Slice* slice) { array_free<Tag>(slice); }
    static bool move(CDR* cdr, Slice*& slice) {
      if (cdr->direction == CDR_ENCODE) return slice && Type::move(cdr, array_of<Tag>(slice));
      PointerHolder<Slice*, Own> fresh;
      fresh.value = array_alloc<Tag>();
      if (!Type::move(cdr, array_of<Tag>(fresh.value))) return false;
      free(std::exchange(slice, fresh.give()));
      return true;
    }
  };
  template <class P>
  struct Lent {  // the caller's array
    using type = P;
    static bool move(CDR* cdr, void* slot) { return Type::move(cdr, *static_cast<Value*>(slot)); }
    static void* address(P slice) { return const_cast<Slice*>(slice); }
    struct Holder {
      Value value{};
      void* slot() { return &value; }
      P pass() { return value; }
    };
  };
  using InArg = Lent<const Slice*>;
  using InoutArg = Lent<Slice*>;
  using OutArg = std::conditional_t<Tag::fixed, InoutArg, PointerArg<Slice*, Own, ArrayOut<Tag>>>;
  using ResultArg = PointerArg<Slice*, Own, Slice*>;
};

}  // namespace CORBA::idl
