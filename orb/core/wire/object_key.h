// Object keys of this kind of server: written, and taken apart again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zrsv {

/// Parts of an object key; of a key that was read, views into it.
struct KeyParts {
  std::string_view impl;  // implementation name
  std::string_view intf;  // interface (repository) id
  std::string_view data;  // reference data
};

/// Nothing when a part is over 65535 octets or a name holds a NUL. Signed when there is a secret (key_secret.h).
std::optional<std::string> write_object_key(const KeyParts& parts);

/// Where the parts are in a key that write_object_key made just now: nothing is checked that it has checked.
KeyParts parts_of_written(std::string_view key);

/// The exact inverse: nothing for octets that write_object_key does not produce.
std::optional<KeyParts> read_object_key(std::string_view key);

/// Whether the key is one, and that of `known`, which is one whose data begins at `data`, but for what the data is: it has
/// as many octets, and the same names before it.
bool is_sibling(std::string_view key, std::string_view known, std::size_t data);

/// Whether the key names one of the broker's own objects rather than one that a POA serves: its implementation
/// name is an interface id, and its data is no path to a POA, which takes more octets.
bool names_own_object(const KeyParts& parts);

}  // namespace zrsv
