// IIOP profiles: the octets of one, read in place and written.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/endpoint.h"
#include "wire/cdr_chain.h"

namespace zrsv {

/// One IIOP profile, decoded.
struct IiopProfile {
  uint8_t minor = 2;
  std::string host;
  uint16_t port = 0;
  std::string key;
  std::vector<Tagged> components;
};

inline constexpr uint32_t profile_iiop = 0;              // TAG_INTERNET_IOP
inline constexpr uint32_t component_alternate_iiop = 3;  // TAG_ALTERNATE_IIOP_ADDRESS

/// Views into the octets of a profile.
struct ProfileView {
  uint8_t minor = 0;  // of the IIOP version: 0 to 2
  std::string_view host;
  uint16_t port = 0;
  std::string_view key;
};

enum class ProfileRead { Ok, UnknownVersion, Malformed };

/// Reads the octets of a profile tagged profile_iiop. With `components` those of the profile are appended
/// there. A minor version past 2 is read as 2, and what such a profile holds more is passed over; another
/// major version is unknown.
ProfileRead read_iiop_profile(std::string_view octets, ProfileView* profile, std::vector<Tagged>* components);

/// One more address of a profile, out of a component tagged component_alternate_iiop; false when malformed.
bool read_alternate_address(std::string_view octets, Endpoint* address);

/// Writes a profile with its tag: the first end point is its address, the others are components. `minor` 0
/// has no room for components.
void write_iiop_profile(Writer* out, uint8_t minor, std::span<const Endpoint> endpoints,
                        std::string_view key);

}  // namespace zrsv
