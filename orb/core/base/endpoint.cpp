#include "base/endpoint.h"

#include <charconv>

namespace zrsv {
namespace {

constexpr std::string_view letters_and_digits =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

bool made_of(std::string_view text, std::string_view more) {
  for (char c : text) {
    if (letters_and_digits.find(c) == letters_and_digits.npos && more.find(c) == more.npos) return false;
  }
  return !text.empty();
}

bool is_host(std::string_view text, bool bracketed) {
  if (!bracketed) return made_of(text, "-._");
  return made_of(text, ":.%-_") && text.find(':') != text.npos;  // an address, and perhaps its zone
}

}  // namespace

std::string endpoint_text(const Endpoint& endpoint) {
  const bool is_ipv6 = endpoint.host.find(':') != endpoint.host.npos;
  std::string text =
      is_ipv6 ? "[" : "";  // built up in place: g++ 12 sees an overlap that is none in "[" + string
  text += endpoint.host;
  text += is_ipv6 ? "]:" : ":";
  return text += std::to_string(endpoint.port);
}

std::optional<Endpoint> parse_endpoint(std::string_view text, std::optional<uint16_t> default_port) {
  const bool bracketed = text.starts_with('[');
  const std::size_t host_end = text.find(bracketed ? ']' : ':');
  if (bracketed && host_end == text.npos) return std::nullopt;
  const std::string_view host = bracketed ? text.substr(1, host_end - 1) : text.substr(0, host_end);
  const std::string_view rest =
      host_end == text.npos ? std::string_view() : text.substr(host_end + bracketed);
  if (!is_host(host, bracketed)) return std::nullopt;
  if (rest.empty()) {
    if (!default_port) return std::nullopt;
    return Endpoint{std::string(host), *default_port};
  }
  if (!rest.starts_with(':')) return std::nullopt;
  const std::optional<uint32_t> port = parse_number(rest.substr(1), 0, UINT16_MAX);
  if (!port) return std::nullopt;
  return Endpoint{std::string(host), static_cast<uint16_t>(*port)};
}

std::optional<uint32_t> parse_number(std::string_view text, uint32_t least, uint32_t most) {
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
    return std::nullopt;
  return value;
}

}  // namespace zrsv
