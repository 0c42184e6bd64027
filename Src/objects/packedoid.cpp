#include "objects/packedoid.h"

#include <cstring>

namespace {

constexpr std::uint64_t FACTOR = 0x9E3779B97F4A7C15;

std::uint32_t mixed(std::uint64_t value) { return static_cast<std::uint32_t>(value * FACTOR >> 32); }

std::uint32_t key_of_octets(std::string_view oid) {
  std::uint64_t key = oid.size();
  const auto add = [&](auto octets) {
    std::memcpy(&octets, oid.data(), sizeof octets);
    oid.remove_prefix(sizeof octets);
    key = (key ^ octets) * FACTOR;
  };
  while (oid.size() >= 8) add(std::uint64_t{});
  if (oid.size() >= 4) add(std::uint32_t{});
  while (!oid.empty()) add(std::uint8_t{});
  return static_cast<std::uint32_t>(key >> 32);
}

}  // namespace

PackedOctets::PackedOctets(std::string_view octets) {
  if (octets.size() <= IN_PLACE) {
    if (!octets.empty()) std::memcpy(words.data(), octets.data(), octets.size());
    form = static_cast<std::uint32_t>(octets.size());
  } else {
    form = read_unique_id(octets, words) ? UNIQUE : ELSEWHERE;
  }
}

/// System ids that were made one after the other have keys one after the other, eight at a time: they stand together in
/// the index, too.
SearchedId::Key SearchedId::key_of(std::string_view oid, const PackedOctets& packed) {
  const auto& [first, second, third] = packed.words;
  if (packed.form == PackedOctets::ELSEWHERE) return key_of_octets(oid);
  if (packed.form == PackedOctets::UNIQUE) {
    const std::uint64_t moment = std::uint64_t{second} * 1000 + third;
    return (mixed(moment >> 2 ^ std::uint64_t{first} << 40) & ~Key{3}) | (moment & 3);
  }
  const std::uint64_t front = (first ^ std::uint64_t{second} << 32) + packed.form;
  return mixed((front * FACTOR >> 29) ^ third);
}

PackedObjectId::PackedObjectId(const SearchedId& id) : packed_(id.packed) {
  if (packed_.form != PackedOctets::ELSEWHERE) return;
  packed_.form = 0;  // nothing to free yet
  char* const octets = new char[id.oid.size()];
  std::memcpy(octets, id.oid.data(), id.oid.size());
  static_assert(sizeof octets <= 2 * sizeof packed_.words[0]);
  std::memcpy(packed_.words.data(), &octets, sizeof octets);
  packed_.words[2] = static_cast<std::uint32_t>(id.oid.size());
  packed_.form = PackedOctets::ELSEWHERE;
}

std::string_view PackedObjectId::elsewhere() const {
  const char* octets;
  std::memcpy(&octets, packed_.words.data(), sizeof octets);
  return {octets, packed_.words[2]};
}

PackedObjectId::Octets::Octets(const PackedObjectId& id) {
  const auto& [words, form] = id.packed_;
  if (form == PackedOctets::ELSEWHERE) {
    view_ = id.elsewhere();
  } else if (form == PackedOctets::UNIQUE) {
    print_unique_id(unpacked_, words[0], {words[1], words[2]});
    view_ = {unpacked_, UNIQUE_ID_LENGTH};
  } else {
    std::memcpy(unpacked_, words.data(), form);
    view_ = {unpacked_, form};
  }
}
