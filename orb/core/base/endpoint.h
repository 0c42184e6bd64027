// End points, and their text: "host:port", with an IPv6 address in brackets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zrsv {

/// Where somebody listens.
struct Endpoint {
  std::string host;  // a name, or an address without brackets
  uint16_t port = 0;
  bool operator==(const Endpoint&) const = default;
};

/// "host:port", "[::1]:port".
std::string endpoint_text(const Endpoint& endpoint);

/// Reads such a text; without ":port" the port is `default_port`, and there must be one when that is nothing.
/// The host comes out without its brackets. Nothing when malformed.
std::optional<Endpoint> parse_endpoint(std::string_view text, std::optional<uint16_t> default_port);

/// A whole decimal number of `least` to `most`; nothing for anything else, signs and blanks included.
std::optional<uint32_t> parse_number(std::string_view text, uint32_t least, uint32_t most);

}  // namespace zrsv
