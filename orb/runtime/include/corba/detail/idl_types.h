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
//   typecode_at      the place of its TypeCode
// It comes from one line for most types; structs, unions and exceptions add the list of their members.
//
// Read it from the bottom of a call: a row (corba/detail/row.h) takes in<D>, which is Type<D>::InArg; that has the C++
// type of the parameter and knows where its value stands. What decodes never leaves half a value that somebody would
// free wrongly: a fresh one takes the old one's place when it is whole, or a value in place stays one that can be
// destroyed. The library knows the basic types, strings, references, sequences and arrays; generated headers specialise
// Type for the rest by the bases in corba/detail/describe.h and corba/detail/union.h.
#pragma once

#include "corba/any.h"
#include "corba/detail/flat.h"
#include "corba/detail/typecode_place.h"
#include "corba/local_object.h"
#include "corba/values.h"

namespace CORBA {
using TypeCode_out = ObjectOut<TypeCode>;
}  // namespace CORBA

namespace CORBA::idl {

/// What a member of type D is in C++: String_mgr of a string, X_var of a reference, else the type itself.
template <class D>
using ValueOf = typename Type<D>::Value;

// ---- Forms of parameters ----------------------------------------------------------------------------------

/// A parameter of C++ type P whose slot is a V in place: on the stub's side the caller's own, on the other the
/// holder's.
template <class V, class P, bool (*Move)(CDR*, V&)>
struct InPlace {
  using type = P;
  static bool move(CDR* cdr, void* slot) { return Move(cdr, *static_cast<V*>(slot)); }
  static void* address(const V& value) { return const_cast<V*>(&value); }
  /// `pass` is what the member function gets; `take` puts its result here, and `give` hands that on.
  struct Holder {
    V value{};
    void* slot() { return &value; }
    P pass() { return value; }
    void take(V&& v) { value = std::move(v); }
    V give() { return std::move(value); }
  };
};

/// Parameters whose slot is a pointer that owns: `Own::free(P)`, `Own::move(CDR*, P&)`, which on decoding
/// frees what was there. The holder owns what was decoded for an in parameter and what the servant left in an out one.
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
/// Such a parameter, in a signature as `Parameter`: the pointer itself, a reference to it, or a T_out.
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

/// Structs and unions of fixed length: out ones are filled in place, results are values.
template <class T, bool (*Move)(CDR*, T&)>
struct Fixed {
  using Value = T;
  static bool move(CDR* cdr, T& value) { return Move(cdr, value); }
  using InArg = InPlace<T, const T&, Move>;
  using InoutArg = InPlace<T, T&, Move>;
  using OutArg = InoutArg;
  using ResultArg = InPlace<T, T, Move>;
};

/// Lets the stream keep the buffer of an encoded sequence that stands apart (zrsv/cdr.h): the sequence itself goes.
template <class T>
void hand_over_buffer(CDR* cdr, T& sequence) {
  if constexpr (requires { sequence.adopt_message(0, sequence.get_buffer()); }) {
    using Stored = std::remove_pointer_t<decltype(sequence.get_buffer(false))>;
    const void* const apart = cdr->apart.octets;
    if (cdr->apart.release || apart != sequence.get_buffer(false)) return;
    if (!sequence.release() || sequence.in_message()) return;
    cdr->apart.owner = sequence.get_buffer(true);
    cdr->apart.release = [](void* buffer) { T::freebuf(static_cast<Stored*>(buffer)); };
  }
}

/// Values that results and out parameters give on the heap: of variable length. Null there does not encode.
template <class T, bool (*Move)(CDR*, T&)>
struct Variable {
  using Value = T;
  static bool move(CDR* cdr, T& value) { return Move(cdr, value); }
  struct Own {
    static void free(T* value) { delete value; }
    static bool move(CDR* cdr, T*& value) {
      if (cdr->direction == CDR_ENCODE) {
        if (!value || !Move(cdr, *value)) return false;
        if (cdr->apart.octets) hand_over_buffer(cdr, *value);
        return true;
      }
      ValueVar<T> fresh(new T);
      if (!Move(cdr, fresh.inout())) return false;
      delete std::exchange(value, fresh._retn());
      return true;
    }
  };
  using InArg = InPlace<T, const T&, Move>;
  using InoutArg = InPlace<T, T&, Move>;
  using OutArg = PointerArg<T*, Own, ValueOut<T>>;
  using ResultArg = PointerArg<T*, Own, T*>;
};

// ---- Basic types ------------------------------------------------------------------------------------------

/// A type that travels by its Wire alone.
template <class T>
bool move_plain(CDR* cdr, T& value) {
  return Wire<T>::move(cdr, value);
}

/// Numbers, characters, booleans and octets.
template <class T>
concept Basic = Number<T> || OneOf<T, Char, Boolean, Octet, WChar, long double>;

template <Basic T>
struct Type<T> : ByValue<T, move_plain<T>> {
  static TypeCode* const* typecode_at() {
    if constexpr (OneOf<T, Short>) return &_tc_short;
    if constexpr (OneOf<T, UShort>) return &_tc_ushort;
    if constexpr (OneOf<T, Long>) return &_tc_long;
    if constexpr (OneOf<T, ULong>) return &_tc_ulong;
    if constexpr (OneOf<T, LongLong>) return &_tc_longlong;
    if constexpr (OneOf<T, ULongLong>) return &_tc_ulonglong;
    if constexpr (OneOf<T, Float>) return &_tc_float;
    if constexpr (OneOf<T, Double>) return &_tc_double;
    if constexpr (OneOf<T, Boolean>) return &_tc_boolean;
    if constexpr (OneOf<T, Octet>) return &_tc_octet;
    if constexpr (OneOf<T, Char>) return &_tc_char;
    if constexpr (OneOf<T, WChar>) return &_tc_wchar;
    if constexpr (OneOf<T, long double>) return &_tc_longdouble;
  }
};

/// fixed<Digits, Scale>
template <UShort Digits, Short Scale>
struct BuildFixed {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.length = Digits;
    parameters.scale = Scale;
    return tk_fixed;
  }
};
template <UShort Digits, Short Scale>
struct Type<FixedType<Digits, Scale>> : Fixed<FixedType<Digits, Scale>, move_plain<FixedType<Digits, Scale>>>,
                                        BuiltBy<BuildFixed<Digits, Scale>> {};

/// An Any, by its TypeCode and then its value.
template <>
struct Type<Any> : Variable<Any, move_plain<Any>> {
  static TypeCode* const* typecode_at() { return &_tc_any; }
};

// ---- Strings ----------------------------------------------------------------------------------------------

/// A string of at most Bound characters; 0: of any length. A text over the bound does not travel, in neither direction;
/// null travels as "".
template <ULong Bound = 0>
struct string {};
template <ULong Bound = 0>
struct wstring {};

/// How a text of the heap travels and is freed, of both kinds of characters.
template <class C, ULong Bound>
struct TextMoves {
  static bool fits(const C* text) {
    return Bound == 0 || !text || std::char_traits<C>::length(text) <= Bound;
  }
  static void free(C* text) { text_free(text); }
  static bool move(CDR* cdr, C*& text) {
    if (cdr->direction == CDR_ENCODE) return fits(text) && Wire<C*>::move(cdr, text);
    C* fresh = nullptr;
    if (!Wire<C*>::move(cdr, fresh)) return false;
    text_free(std::exchange(text, fresh));
    return fits(text);
  }
};
/// A string as an in parameter: read in place, unless it has to be converted.
template <class Own>
struct TextInArg {
  using type = const Char*;
  struct Holder {
    const Char* value = nullptr;  // in the request, or the next one
    Char* converted = nullptr;    // owned
    Holder() = default;
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() {
      if (converted) string_free(converted);
    }
    void* slot() { return this; }
    const Char* pass() { return value; }
  };
  /// The slot is the text on the stub's side, a holder on the other.
  static bool move(CDR* cdr, void* slot) {
    if (cdr->direction == CDR_ENCODE) {
      const Char* text = *static_cast<const Char**>(slot);
      return Own::fits(text) && Wire<const Char*>::move(cdr, text);
    }
    auto& holder = *static_cast<Holder*>(slot);
    if (OM_cdr_string_view(cdr, &holder.value)) return Own::fits(holder.value);
    if (cdr->narrow == ZR_TEXT_NATIVE || !Own::move(cdr, holder.converted)) return false;
    holder.value = holder.converted;
    return true;
  }
  static void* address(const Char*& text) { return const_cast<Char**>(&text); }
};
template <ULong Bound>
struct Type<string<Bound>> {
  using Value = String_mgr;
  using Own = TextMoves<Char, Bound>;
  static bool move(CDR* cdr, Value& value) { return Own::move(cdr, value.inout()); }
  using InArg = TextInArg<Own>;
  using InoutArg = PointerArg<Char*, Own, Char*&>;
  using OutArg = PointerArg<Char*, Own, String_out>;
  using ResultArg = PointerArg<Char*, Own, Char*>;
  static TypeCode* const* typecode_at() {
    if constexpr (Bound == 0)
      return &_tc_string;
    else
      return typecode_built_by<BuildContent<tk_string, void, Bound>>();
  }
};
template <ULong Bound>
struct Type<wstring<Bound>> {
  using Value = WString_mgr;
  using Own = TextMoves<WChar, Bound>;
  static bool move(CDR* cdr, Value& value) { return Own::move(cdr, value.inout()); }
  /// Always converted: what is in the request is UTF-16.
  struct InArg {
    using type = const WChar*;
    static bool move(CDR* cdr, void* slot) { return Own::move(cdr, *static_cast<WChar**>(slot)); }
    static void* address(const WChar*& text) { return const_cast<WChar**>(&text); }
    using Holder = PointerHolder<WChar*, Own>;
  };
  using InoutArg = PointerArg<WChar*, Own, WChar*&>;
  using OutArg = PointerArg<WChar*, Own, WString_out>;
  using ResultArg = PointerArg<WChar*, Own, WChar*>;
  static TypeCode* const* typecode_at() {
    if constexpr (Bound == 0)
      return &_tc_wstring;
    else
      return typecode_built_by<BuildContent<tk_wstring, void, Bound>>();
  }
};

// ---- TypeCodes --------------------------------------------------------------------------------------------

/// As references, but counted; nil travels as tk_null.
struct TypeCodeMoves {
  static void free(TypeCode* type) { release(type); }
  static bool move(CDR* cdr, TypeCode*& type) {
    TypeCode* moved = cdr->direction == CDR_ENCODE ? type : nullptr;
    if (!Wire<TypeCode*>::move(cdr, moved)) return false;
    if (cdr->direction == CDR_DECODE) release(std::exchange(type, moved));
    return true;
  }
};
template <>
struct Type<TypeCode> {
  using Value = TypeCode_var;
  using Own = TypeCodeMoves;
  static bool move(CDR* cdr, Value& value) { return Own::move(cdr, value.inout()); }
  using InArg = PointerArg<TypeCode*, Own, TypeCode*>;
  using InoutArg = PointerArg<TypeCode*, Own, TypeCode*&>;
  using OutArg = PointerArg<TypeCode*, Own, ObjectOut<TypeCode>>;
  using ResultArg = InArg;
  static TypeCode* const* typecode_at() { return &_tc_TypeCode; }
};

// ---- References -------------------------------------------------------------------------------------------

/// A reference of interface X. What comes in is of class X whatever its type id says: nobody is asked.
template <class X>
struct ref {};

template <class X>
X* make_reference(void* handle);

/// An abstract interface; what derives from one is none by that alone.
template <class X>
concept AbstractInterface = std::is_same_v<typename X::_abstract_type, X>;
/// What stands in front of the value of an abstract interface: whether a reference follows. False when something
/// other than a reference or nil does.
ZRSVCPP_API bool move_abstract(CDR* cdr, bool& is_reference);

/// By the handle. Local objects have none, and do not encode.
template <class X>
struct ReferenceMoves {
  static void free(X* reference) { release(reference); }
  static bool move(CDR* cdr, X*& reference) {
    if constexpr (AbstractInterface<X>) {
      bool is_reference = reference != nullptr;
      if (!move_abstract(cdr, is_reference)) return false;
      if (!is_reference) {
        if (cdr->direction == CDR_DECODE) release(std::exchange(reference, nullptr));
        return true;
      }
    }
    void* handle = cdr->direction == CDR_ENCODE && reference ? reference->Object::get_ref() : nullptr;
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
  static TypeCode* const* typecode_at() {
    if constexpr (std::is_same_v<X, Object>)
      return &_tc_Object;
    else
      return typecode_built_by<Type>();
  }
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.id = X::repository_id;
    parameters.name = X::interface_name;
    if (AbstractInterface<X>) return tk_abstract_interface;
    return std::derived_from<X, LocalObject> ? tk_local_interface : tk_objref;
  }
};

/// A new reference of class X, CORBA::Object or the client class of an interface. Takes over `handle`, also when it
/// throws.
template <class X>
X* make_reference(void* handle) try {
  X* const made = new X;
  made->Object::set_ref(handle);
  return made;
} catch (...) {
  CORBA_object_release(handle);
  throw;
}

// What the static members of a client class do. Results are new references, which the caller releases; nil for nil.

/// Without asking.
template <class X>
X* unchecked_narrow(Object* object) {
  return object ? make_reference<X>(CORBA_object_duplicate(object->get_ref(), nullptr)) : nullptr;
}
/// One more of the same class.
template <class X>
X* duplicate(X* reference) {
  return unchecked_narrow<X>(reference);
}
/// Nil when the object says that it is no X; a call where its type id does not tell.
template <class X>
X* narrow(Object* object) {
  return object && object->_is_a(X::repository_id) ? unchecked_narrow<X>(object) : nullptr;
}

// ---- Sequences and arrays ---------------------------------------------------------------------------------

/// An element of a sequence of references, as TextElement is one of strings: a plain pointer that is assigned is taken
/// over, an X_var and another element duplicated.
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
/// How they stand in the buffer: plain pointers, nil at first.
template <class X>
struct ReferenceElements : OwnedElements<X*, ObjectVar<X>, ReferenceElement<X>> {
  static void copy(X* const* from, ULong n, X** to) {
    for (ULong i = 0; i < n; ++i) to[i] = X::_duplicate(from[i]);
  }
};

/// The C++ class of a sequence whose members are of C++ type V.
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
/// The same of a bounded one.
template <class V, ULong Bound>
using bounded_sequence = BoundedSequence<sequence<V>, Bound>;

/// The length of a sequence: false for one over the bound (0: none), in either direction.
ZRSVCPP_API bool move_length(CDR* cdr, ULong& length, ULong bound);

/// One element: as a member is where it is kept as one, else by its pointer in the buffer.
template <class D, class Stored>
bool move_element(CDR* cdr, Stored& element) {
  if constexpr (std::is_same_v<Stored, ValueOf<D>>)
    return Type<D>::move(cdr, element);
  else
    return Type<D>::ResultArg::move(cdr, &element);
}

/// Makes room for more elements: all that `length` says where they take no more memory than a few times the octets that
/// are left, else twice as many as have come. So an empty promise costs no memory.
template <class S>
void grow(CDR* cdr, S& sequence, ULong length) {
  const ULong come = sequence.length();
  const std::uint64_t first =
      (std::uint64_t{OM_cdr_remaining(cdr)} * 4 + 4096) / sizeof(*sequence.get_buffer()) + 1;
  const std::uint64_t more = come == 0 ? first : std::uint64_t{come} * 2;
  sequence.length(more < length ? static_cast<ULong>(more) : length);
}

/// Sequences stand in each other as deep as the sender says where a type contains itself; each level takes some stack.
class Level {
 public:
  explicit Level(CDR* cdr) : cdr_(cdr) { ++cdr->levels; }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;
  ~Level() { --cdr_->levels; }
  bool too_deep() const { return cdr_->levels > most; }

 private:
  static constexpr unsigned most = 1000;
  CDR* cdr_;
};

/// Elements whose octets are those in memory: where they are in the message, or copied in one piece.
template <class S, Flat D>
bool move_flat_elements(CDR* cdr, S& sequence, ULong length) {
  constexpr std::size_t unit = unit_of<D>();
  const std::size_t units = std::size_t{length} * (sizeof(D) / unit);
  if (cdr->direction == CDR_DECODE) {
    if (length > OM_cdr_remaining(cdr) / sizeof(D)) return false;
    if constexpr (requires(ValueOf<D> * values) { sequence.replace(length, length, values, false); }) {
      if (void* values = view_flat(cdr, units, unit))
        return sequence.replace(length, length, static_cast<ValueOf<D>*>(values), false), true;
      if (void* values = take_flat(cdr, units, unit))
        return sequence.adopt_message(length, static_cast<ValueOf<D>*>(values)), true;
    }
    sequence.length_to_fill(length);
  }
  return move_flat(cdr, sequence.get_buffer(), units, unit);
}

/// Structs of numbers with octets between them.
template <class S, FlatStruct D>
bool move_padded_elements(CDR* cdr, S& sequence, ULong length) {
  if (cdr->direction == CDR_ENCODE) return write_padded(cdr, sequence.get_buffer(), length);
  if (octets_of<D>(length) > OM_cdr_remaining(cdr)) return false;
  sequence.length_to_fill(length);
  return read_padded(cdr, sequence.get_buffer(), length);
}

/// A sequence S of elements D: in one piece where that is possible, else one after the other. What is allocated for a
/// length that came in never exceeds what the octets that are left could fill.
template <class S, class D, ULong Bound>
bool move_sequence(CDR* cdr, S& sequence) {
  ULong length = sequence.length();
  if (!move_length(cdr, length, Bound)) return false;
  if constexpr (Flat<D>) {
    if (is_flat<D>(cdr)) return move_flat_elements<S, D>(cdr, sequence, length);
  } else if constexpr (FlatStruct<D>) {
    if (length != 0 && is_native(cdr)) return move_padded_elements<S, D>(cdr, sequence, length);
  }
  const Level level(cdr);
  if (level.too_deep()) return false;
  if (cdr->direction == CDR_DECODE) sequence.length(0);
  for (ULong i = 0; i < length; ++i) {
    if (cdr->direction == CDR_DECODE && i == sequence.length()) grow(cdr, sequence, length);
    if (!move_element<D>(cdr, sequence.get_buffer()[i])) return false;
  }
  return true;
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

  /// All elements, the last dimension fastest; no length.
  static bool move(CDR* cdr, Value& value) {
    auto* elements = reinterpret_cast<Element*>(&value);
    constexpr ULong count = sizeof(Value) / sizeof(Element);
    if constexpr (Flat<Element>)
      if (is_flat<Element>(cdr))
        return move_flat(cdr, elements, count * (sizeof(Element) / unit_of<Element>()), unit_of<Element>());
    for (ULong i = 0; i < count; ++i)
      if (!Type<typename Tag::Element>::move(cdr, elements[i])) return false;
    return true;
  }
  /// An array on the heap, by its slice.
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
  /// The caller's array, or the holder's.
  template <class P>
  struct Borrowed {
    using type = P;
    static bool move(CDR* cdr, void* slot) { return Type::move(cdr, *static_cast<Value*>(slot)); }
    static void* address(P slice) { return const_cast<Slice*>(slice); }
    struct Holder {
      Value value{};
      void* slot() { return &value; }
      P pass() { return value; }
      Slice* give() { return array_dup<Tag>(value); }
    };
  };
  using InArg = Borrowed<const Slice*>;
  using InoutArg = Borrowed<Slice*>;
  using OutArg = std::conditional_t<Tag::fixed, InoutArg, PointerArg<Slice*, Own, ArrayOut<Tag>>>;
  using ResultArg = PointerArg<Slice*, Own, Slice*>;

  static TypeCode* const* typecode_at() {
    if constexpr (requires { Tag::id; })
      return typecode_built_by<BuildAlias<Tag, Dimensions<Value>>>();
    else
      return Dimensions<Value>::typecode_at();
  }

 private:
  /// The TypeCode without the typedef's name: an array of arrays, a dimension each.
  template <class A>
  struct Dimensions {
    static TCKind make(TypeCode::Parameters& parameters) {
      parameters.length = std::extent_v<A>;
      using Inner = std::remove_extent_t<A>;
      if constexpr (std::is_same_v<Inner, Element>)
        parameters.content = Type<typename Tag::Element>::typecode_at();
      else
        parameters.content = Dimensions<Inner>::typecode_at();
      return tk_array;
    }
    static TypeCode* const* typecode_at() { return typecode_built_by<Dimensions>(); }
  };
};

}  // namespace CORBA::idl
