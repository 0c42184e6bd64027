// The id of an active object as its map keeps it, and looks for it.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <utility>

#include "objects/common_poa.h"
#include "objects/slotindex.h"

/// What of an id takes twelve octets: all of a short one, and the three numbers of a system id's unique form, of which
/// the rest is the same in all. Two words, so that it is handed over in registers.
struct PackedOctets {
  static constexpr std::size_t IN_PLACE = 12;
  static constexpr std::uint32_t UNIQUE = IN_PLACE + 1, ELSEWHERE = UNIQUE + 1;

  [[gnu::noinline]] static PackedOctets of(std::string_view octets);
  static PackedOctets of_unique(std::uint32_t process, std::uint32_t seconds, std::uint32_t millisecond) {
    return {process | std::uint64_t{seconds} << 32, millisecond | std::uint64_t{UNIQUE} << 32};
  }
  /// The length of a short one, UNIQUE, or ELSEWHERE: nothing is packed.
  std::uint32_t form() const { return static_cast<std::uint32_t>(second >> 32); }
  bool operator==(const PackedOctets& other) const { return first == other.first && second == other.second; }

  std::uint64_t first = 0, second = 0;
};

/// An id to search for: a view of it, and what is compared first, which is better made without a lock.
struct SearchedId {
  using Key = std::uint32_t;  // equal for equal ids; else hardly ever
  /// So many system ids that were made one after the other have keys that differ in the lowest bits only: they stand
  /// together in the index, too.
  static constexpr std::uint32_t TOGETHER = SlotIndex::RUN;

  template <std::convertible_to<std::string_view> Octets>
  SearchedId(const Octets& octets) : oid(octets), packed(PackedOctets::of(oid)), key(key_of(oid, packed)) {}
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
  explicit PackedObjectId(const SearchedId& id)
      : packed_(id.packed.form() == PackedOctets::ELSEWHERE ? put_elsewhere(id.oid) : id.packed) {}
  PackedObjectId(PackedObjectId&& other) noexcept : packed_(std::exchange(other.packed_, PackedOctets())) {}
  PackedObjectId& operator=(PackedObjectId&& other) noexcept {
    std::swap(packed_, other.packed_);
    return *this;
  }
  ~PackedObjectId() {
    if (packed_.form() == PackedOctets::ELSEWHERE) delete[] elsewhere().data();
  }

  Octets octets() const { return Octets(*this); }
  bool is(const SearchedId& id) const {
    if (packed_.form() != PackedOctets::ELSEWHERE) return packed_ == id.packed;
    return elsewhere() == id.oid;
  }
  /// As one to search for; good as long as octets(). Of one that packs nobody reads the octets: there are none.
  SearchedId searched() const {
    return {packed_.form() == PackedOctets::ELSEWHERE ? elsewhere() : std::string_view(), packed_};
  }

 private:
  [[gnu::noinline]] static PackedOctets put_elsewhere(std::string_view octets);
  std::string_view elsewhere() const;

  PackedOctets packed_;  // of one elsewhere its address and length
};
