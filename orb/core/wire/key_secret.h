// The secret that object keys are signed with, where the program has one.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <string_view>

namespace zrsv {

namespace detail {
extern std::atomic<bool> keys_are_signed;
}

inline constexpr std::size_t signature_size = 16;
using Signature = std::array<unsigned char, signature_size>;

/// Takes the secret out of a file that nobody but its owner may read; none when `path` is empty. "", or what is wrong.
std::string load_key_secret(const std::string& path);
/// Whether there is a secret, so that keys without a signature are none of ours.
inline bool keys_are_signed() { return detail::keys_are_signed.load(std::memory_order_relaxed); }
/// The first octets of the HMAC-SHA-256 under the secret. Throws bad_alloc where that cannot be had.
Signature sign_key(std::string_view octets);
/// Takes as long wherever they differ. `b` has signature_size octets, too.
bool equal_signatures(std::string_view a, std::string_view b);

/// Whether a key from outside is that known one; how far it is right takes no part in the time.
inline bool same_key(std::string_view known, std::string_view key) {
  if (!keys_are_signed()) return known == key;
  if (known.size() != key.size() || key.size() < signature_size) return false;
  const std::size_t head = key.size() - signature_size;
  return known.substr(0, head) == key.substr(0, head) &&
         equal_signatures(known.substr(head), key.substr(head));
}

}  // namespace zrsv
