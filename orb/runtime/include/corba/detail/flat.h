// Types whose values stand on the wire as they do in memory, and how many of them move at once: numbers, and structs of
// numbers where every member of a struct that stands behind another one is at the same place in both.
#pragma once

#include "corba/detail/typecode_place.h"
#include "corba/detail/wire.h"

namespace CORBA::idl {

/// Numbers and characters: their octets are those in memory, but for the byte order.
template <class V>
concept FlatNumber = Number<V> || OneOf<V, Octet, Char>;

// ---- Structs ----------------------------------------------------------------------------------------------

/// Where the members of a struct stand in memory, and where they would on the wire, both from its begin.
struct Layout {
  bool same = true;         // each at the same place
  bool uniform = true;      // all numbers of one size
  std::size_t memory = 0;   // behind the last member
  std::size_t wire = 0;     // the same on the wire
  std::size_t numbers = 0;  // octets of the numbers alone
  std::size_t unit = 0;     // octets of the first number
};

/// `at`, or the next multiple of `to` behind it.
constexpr std::size_t aligned(std::size_t at, std::size_t to) { return (at + to - 1) / to * to; }

struct MeasureMembers;
/// A type with a list of members that copies as its octets do: a struct of fixed length.
template <class T>
concept PlainStruct = std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T> &&
    requires(const MeasureMembers& measure, T& value) {
  Type<T>::each(measure, value);
};

/// Called once a member. A typedef says nothing that the C++ type of its member does not.
struct MeasureMembers {
  Layout& layout;
  template <class V>
  constexpr bool operator()(const char*, V& member, const void* = nullptr) const {
    using Single = std::remove_all_extents_t<V>;
    const std::size_t begin = aligned(layout.memory, alignof(V));
    layout.memory = begin;
    if constexpr (FlatNumber<Single> && !std::same_as<Single, Char>)
      numbers<Single>(sizeof(V) / sizeof(Single));
    else if constexpr (PlainStruct<V>)
      Type<V>::each(*this, member);
    else
      layout.same = false;
    layout.memory = begin + sizeof(V);
    return layout.same;
  }

 private:
  template <class N>
  constexpr void numbers(std::size_t count) const {
    if (layout.unit == 0) layout.unit = sizeof(N);
    layout.wire = aligned(layout.wire, sizeof(N));
    layout.same = layout.same && layout.wire == layout.memory && alignof(N) == sizeof(N);
    layout.uniform = layout.uniform && sizeof(N) == layout.unit;
    layout.wire += count * sizeof(N);
    layout.numbers += count * sizeof(N);
  }
};

/// `same` says of the result whether a struct behind another one stands as this one does: then the first member aligns
/// as the whole struct.
template <PlainStruct T>
consteval Layout layout_of() {
  Layout layout;
  T sample{};
  Type<T>::each(MeasureMembers{layout}, sample);
  layout.same = layout.same && layout.unit == alignof(T) && aligned(layout.memory, alignof(T)) == sizeof(T);
  return layout;
}

/// Structs whose array in memory is their array on the wire, but for the octets between the numbers.
template <class T>
concept FlatStruct = PlainStruct<T> && layout_of<T>()
.same;
/// With no octet between its numbers or behind them.
template <class T>
concept DenseStruct = FlatStruct<T> && layout_of<T>()
.numbers == sizeof(T);

// ---- Many values ------------------------------------------------------------------------------------------

/// Types whose octets on the wire are those in memory, all of them, but for the byte order.
template <class V>
concept Flat = FlatNumber<V> || DenseStruct<V>;

/// Octets of the numbers that a flat value is made of: they align it, and they are what is reversed.
template <Flat V>
consteval std::size_t unit_of() {
  if constexpr (FlatNumber<V>)
    return sizeof(V);
  else
    return layout_of<V>().unit;
}

/// Whether numbers of several sizes travel so in this stream: in this machine's byte order, and in one piece.
inline bool is_native(const CDR* cdr) {
  return cdr->direction == CDR_ENCODE || (!cdr->swap && !cdr->in_cuts);
}
/// Whether values travel so in this stream: characters only where they need no conversion, structs of numbers of
/// several sizes only where is_native.
template <Flat V>
bool is_flat(const CDR* cdr) {
  if constexpr (std::same_as<V, Char>) return cdr->narrow == ZR_TEXT_NATIVE;
  if constexpr (DenseStruct<V>)
    if (!layout_of<V>().uniform) return is_native(cdr);
  return true;
}

/// `count` numbers of `size` octets each, one behind the other, by the stream's direction; reversed where its byte
/// order is the other one. Encoding may refer to `values` instead of copying them: they stay until the message is sent.
ZRSVCPP_API bool move_flat(CDR* cdr, void* values, std::size_t count, std::size_t size);
/// So many values where they are in the stream's window, which is read past them; null, and nothing read, where they
/// cannot stay: not allowed, the other byte order, not aligned, in fragments.
ZRSVCPP_API void* view_flat(CDR* cdr, std::size_t count, std::size_t size);
/// Many values together with the memory of the message that they came in, for Sequence::adopt_message; null as above.
ZRSVCPP_API void* take_flat(CDR* cdr, std::size_t count, std::size_t size);

/// `octets` in one piece behind the next multiple of `align`, passed over; null when they are not there.
/// Encoding: to be filled, until the next write. Decoding: of a stream in one piece.
ZRSVCPP_API unsigned char* claim_octets(CDR* cdr, std::uint64_t octets, std::size_t align);
ZRSVCPP_API const unsigned char* take_octets(CDR* cdr, std::uint64_t octets, std::size_t align);

/// Puts numbers at their places, counted from where `value` begins.
struct StoreMembers {
  const unsigned char* value;
  unsigned char* to;
  template <class V>
  bool operator()(const char*, V& member, const void* = nullptr) const {
    if constexpr (PlainStruct<V>)
      Type<V>::each(*this, member);
    else
      std::memcpy(to + (reinterpret_cast<const unsigned char*>(&member) - value), &member, sizeof member);
    return true;
  }
};

/// Octets of `count` structs on the wire, at least one: the last ends with its last number.
template <FlatStruct T>
constexpr std::uint64_t octets_of(ULong count) {
  return std::uint64_t{count - 1} * sizeof(T) + layout_of<T>().wire;
}

/// Structs with octets between their numbers, which are zero on the wire: what is there in memory stays here.
template <FlatStruct T>
bool write_padded(CDR* cdr, T* values, ULong count) {
  unsigned char* to = claim_octets(cdr, octets_of<T>(count), layout_of<T>().unit);
  if (!to) return false;
  for (ULong i = 0; i < count; ++i, to += sizeof(T)) {
    std::memset(to, 0, i + 1 == count ? layout_of<T>().wire : sizeof(T));
    Type<T>::each(StoreMembers{reinterpret_cast<const unsigned char*>(values + i), to}, values[i]);
  }
  return true;
}
/// In one copy: what is between the numbers comes along, and nobody reads it.
template <FlatStruct T>
bool read_padded(CDR* cdr, T* values, ULong count) {
  const unsigned char* from = take_octets(cdr, octets_of<T>(count), layout_of<T>().unit);
  if (from) ZR_copy_octets(values, from, octets_of<T>(count));
  return from != nullptr;
}

}  // namespace CORBA::idl
