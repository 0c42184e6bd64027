// The id of an active object as its map keeps it, and looks for it.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <string_view>
#include <utility>

#include "objects/common_poa.h"

/// What of an id takes twelve octets: all of a short one, and the three numbers of a system id's unique form, of which
/// the rest is the same in all.
struct PackedOctets {
  static constexpr std::size_t IN_PLACE = 12;
  static constexpr std::uint32_t UNIQUE = IN_PLACE + 1, ELSEWHERE = UNIQUE + 1;

  explicit PackedOctets(std::string_view octets);
  PackedOctets(CORBA::ULong process, const SystemIdTime& time)
      : words{process, time.seconds, time.millisecond}, form(UNIQUE) {}
  PackedOctets() = default;
  bool operator==(const PackedOctets&) const = default;

  std::array<std::uint32_t, 3> words{};
  std::uint32_t form = 0;  // the length of a short one, UNIQUE, or ELSEWHERE: nothing is packed
};

/// An id to search for: a view of it, and what is compared first, which is better made without a lock.
struct SearchedId {
  using Key = std::uint32_t;  // equal for equal ids; else hardly ever

  template <std::convertible_to<std::string_view> Octets>
  SearchedId(const Octets& octets) : oid(octets), packed(oid), key(key_of(oid, packed)) {}
  /// Of octets that pack as that.
  SearchedId(std::string_view octets, const PackedOctets& as)
      : oid(octets), packed(as), key(key_of(oid, packed)) {}

  std::string_view oid;
  PackedOctets packed;
  Key key;

 private:
  static Key key_of(std::string_view oid, const PackedOctets& packed);
};

/// An id in sixteen octets, and in memory of its own where it does not pack.
class PackedObjectId {
 public:
  /// Its octets; good as long as the id is there and stays where it is.
  class Octets {
   public:
    explicit Octets(const PackedObjectId& id);
    Octets(const Octets&) = delete;
    Octets& operator=(const Octets&) = delete;
    operator std::string_view() const { return view_; }

   private:
    char unpacked_[UNIQUE_ID_LENGTH + 1];
    std::string_view view_;
  };

  PackedObjectId() = default;
  /// std::bad_alloc without memory.
  explicit PackedObjectId(const SearchedId& id);
  PackedObjectId(PackedObjectId&& other) noexcept : packed_(std::exchange(other.packed_, PackedOctets())) {}
  PackedObjectId& operator=(PackedObjectId&& other) noexcept {
    std::swap(packed_, other.packed_);
    return *this;
  }
  ~PackedObjectId() {
    if (packed_.form == PackedOctets::ELSEWHERE) delete[] elsewhere().data();
  }

  Octets octets() const { return Octets(*this); }
  bool is(const SearchedId& id) const {
    if (packed_.form != PackedOctets::ELSEWHERE) return packed_ == id.packed;
    return elsewhere() == id.oid;
  }
  /// As one to search for, with octets() of it.
  SearchedId searched(std::string_view octets) const { return {octets, packed_}; }

 private:
  std::string_view elsewhere() const;

  PackedOctets packed_;  // of one elsewhere its address and length
};
