// Clients that mean no good, over bare sockets.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace soak {

/// What the text of a reference says: where to connect, and the key of the object.
struct Target {
  std::uint16_t port = 0;
  std::string key;
};
Target target_of(const std::string& reference);

/// A client of one kind: connects, does its kind of harm, goes, and comes again until `end`. `rounds` counts how often.
struct Attacker {
  const char* name;
  void (*run)(const Target& target, unsigned seed, const std::atomic<bool>& end, std::atomic<long>& rounds);
};
inline constexpr int attacker_kinds = 6;
extern const Attacker attackers[attacker_kinds];

}  // namespace soak
