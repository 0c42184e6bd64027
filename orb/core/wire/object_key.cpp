#include "wire/object_key.h"

#include "wire/crc32c.h"
#include "wire/key_secret.h"

// Layout; numbers are unsigned and little-endian, widths in octets:
//
//   key     = magic[4] version[1] sizes impl intf data check
//   magic   = "ZRSV"
//   version = 1; 2 when the process has a secret
//   sizes   = impl-length[2] intf-length[2] data-length[2]
//   impl    = impl-length octets, none of them 0
//   intf    = intf-length octets, none of them 0
//   data    = data-length octets
//   check   = check[4]       CRC-32C of all octets before it (version 1)
//           | signature[16]  the first octets of HMAC-SHA-256 of all octets before it, under the secret (version 2)
//
// A CRC finds damage, not malice: what the data names is still looked up among the live records. A process takes keys
// of one version only.

namespace zrsv {
namespace {

constexpr std::string_view magics[] = {{"ZRSV\1", 5}, {"ZRSV\2", 5}};
constexpr std::size_t head_size = 5 + 6;
std::string_view magic() { return magics[keys_are_signed()]; }
std::size_t check_size() { return keys_are_signed() ? signature_size : 4; }
constexpr std::size_t own_data_limit = 8;  // a POA's objects have 16 octets at least, its own name may be any
constexpr std::string_view interface_definition = "IDL:CORBA/InterfaceDef:1.0";  // whose data is an id

void put(std::string* to, uint32_t value, int width) {
  for (int i = 0; i < width; ++i) to->push_back(static_cast<char>(value >> (8 * i)));
}

template <int width>
uint32_t get(std::string_view from, std::size_t at) {
  uint32_t value = static_cast<unsigned char>(from[at]);
  if constexpr (width > 1) value |= get<width - 1>(from, at + 1) << 8;
  return value;
}

bool is_name(std::string_view text) { return text.find('\0') == text.npos; }

void put_check(std::string* key) {
  if (!keys_are_signed()) return put(key, crc32c(*key), 4);
  const Signature signature = sign_key(*key);
  key->append(reinterpret_cast<const char*>(signature.data()), signature.size());
}

/// Whether the end of the key is the check of what stands before it.
bool is_checked(std::string_view key) {
  const std::size_t end = key.size() - check_size();
  const std::string_view octets = key.substr(0, end), check = key.substr(end);
  if (!keys_are_signed()) return crc32c(octets) == get<4>(check, 0);
  const Signature signature = sign_key(octets);
  return equal_signatures({reinterpret_cast<const char*>(signature.data()), signature.size()}, check);
}

}  // namespace

bool names_own_object(const KeyParts& parts) {
  if (!parts.impl.starts_with("IDL:")) return false;
  return parts.data.size() <= own_data_limit || parts.impl == interface_definition;
}

std::optional<std::string> write_object_key(const KeyParts& parts) {
  const std::string_view all[] = {parts.impl, parts.intf, parts.data};
  std::size_t total = head_size + check_size();
  for (std::string_view part : all) {
    if (part.size() > UINT16_MAX) return std::nullopt;
    total += part.size();
  }
  if (!is_name(parts.impl) || !is_name(parts.intf)) return std::nullopt;
  std::string key;
  key.reserve(total);
  key += magic();
  for (std::string_view part : all) put(&key, static_cast<uint32_t>(part.size()), 2);
  for (std::string_view part : all) key += part;
  put_check(&key);
  return key;
}

KeyParts parts_of_written(std::string_view key) {
  const std::size_t impl = get<2>(key, magic().size());
  const std::size_t intf = get<2>(key, magic().size() + 2);
  const std::size_t data = get<2>(key, magic().size() + 4);
  return {key.substr(head_size, impl), key.substr(head_size + impl, intf),
          key.substr(head_size + impl + intf, data)};
}

std::optional<KeyParts> read_object_key(std::string_view key) {
  const std::size_t size = check_size();
  if (key.size() < head_size + size || !key.starts_with(magic())) return std::nullopt;
  std::size_t total = head_size + size;
  for (std::size_t i = 0; i < 3; ++i) total += get<2>(key, magic().size() + 2 * i);
  if (key.size() != total) return std::nullopt;
  if (!is_checked(key)) return std::nullopt;
  const KeyParts parts = parts_of_written(key);
  if (!is_name(parts.impl) || !is_name(parts.intf)) return std::nullopt;
  return parts;
}

bool is_sibling(std::string_view key, std::string_view known, std::size_t data) {
  return key.size() == known.size() && key.size() >= data + check_size() &&
         key.substr(0, data) == known.substr(0, data) && is_checked(key);
}

}  // namespace zrsv
