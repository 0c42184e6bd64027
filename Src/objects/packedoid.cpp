#include "objects/packedoid.h"

#include <array>
#include <cstring>

namespace {

constexpr std::uint64_t FACTOR = 0x9E3779B97F4A7C15;

std::uint32_t mixed(std::uint64_t value) { return static_cast<std::uint32_t>(value * FACTOR >> 32); }

template <class Word>
Word load(const char* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

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

PackedOctets PackedOctets::of(std::string_view octets) {
  if (octets.size() > IN_PLACE) {
    std::array<std::uint32_t, 3> numbers;
    if (read_unique_id(octets, numbers)) return of_unique(numbers[0], numbers[1], numbers[2]);
    return {0, std::uint64_t{ELSEWHERE} << 32};
  }
  // The last four octets overlap the first ones, where there are fewer than twelve.
  const std::uint64_t form = std::uint64_t{octets.size()} << 32;
  const char* const end = octets.data() + octets.size();
  if (octets.size() >= 8) return {load<std::uint64_t>(octets.data()), form | load<std::uint32_t>(end - 4)};
  if (octets.size() >= 4) return {load<std::uint32_t>(octets.data()), form | load<std::uint32_t>(end - 4)};
  std::uint64_t few = 0;
  for (const char octet : octets) few = few << 8 | static_cast<unsigned char>(octet);
  return {few, form};
}

SearchedId::Key SearchedId::key_of(std::string_view oid, const PackedOctets& packed) {
  const auto low = static_cast<std::uint32_t>(packed.second),
             process = static_cast<std::uint32_t>(packed.first);
  if (packed.form() == PackedOctets::ELSEWHERE) return key_of_octets(oid);
  if (packed.form() != PackedOctets::UNIQUE) return mixed(packed.first * FACTOR >> 29 ^ packed.second * 3);
  const std::uint64_t moment = (packed.first >> 32) * 1000 + low;
  const auto place = static_cast<Key>(moment % TOGETHER);
  return mixed(moment / TOGETHER ^ std::uint64_t{process} << 40) / TOGETHER * TOGETHER + place;
}

PackedOctets PackedObjectId::put_elsewhere(std::string_view octets) {
  char* const at = new char[octets.size()];
  std::memcpy(at, octets.data(), octets.size());
  std::uint64_t where = 0;
  std::memcpy(&where, &at, sizeof at);
  return {where, octets.size() | std::uint64_t{PackedOctets::ELSEWHERE} << 32};
}

std::string_view PackedObjectId::elsewhere() const {
  const char* octets = nullptr;
  std::memcpy(&octets, &packed_.first, sizeof octets);
  return {octets, static_cast<std::uint32_t>(packed_.second)};
}

PackedObjectId::Octets::Octets(const PackedObjectId& id) {
  const std::uint64_t first = id.packed_.first;
  const std::uint32_t low = static_cast<std::uint32_t>(id.packed_.second), form = id.packed_.form();
  view_ = {unpacked_, form};
  if (form == PackedOctets::ELSEWHERE) {
    view_ = id.elsewhere();
  } else if (form == PackedOctets::UNIQUE) {
    const auto seconds = static_cast<std::uint32_t>(first >> 32);
    print_unique_id(unpacked_, static_cast<std::uint32_t>(first), {seconds, low});
    view_ = {unpacked_, UNIQUE_ID_LENGTH};
  } else if (form >= 4) {
    const auto front = static_cast<std::uint32_t>(first);
    form >= 8 ? std::memcpy(unpacked_, &first, 8) : std::memcpy(unpacked_, &front, 4);
    std::memcpy(unpacked_ + form - 4, &low, 4);
  } else {
    for (std::uint32_t i = 0; i < form; ++i) unpacked_[i] = static_cast<char>(first >> 8 * (form - 1 - i));
  }
}
