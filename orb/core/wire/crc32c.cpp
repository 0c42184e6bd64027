#include "wire/crc32c.h"

#include <array>
#include <cstring>

#ifdef __aarch64__
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace zrsv {
namespace {

constexpr std::array<uint32_t, 256> crc_table = [] {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1) ? (c >> 1) ^ 0x82F63B78u : c >> 1;
    table[i] = c;
  }
  return table;
}();

uint32_t step(uint32_t crc, char octet) {
  return crc_table[(crc ^ static_cast<unsigned char>(octet)) & 0xFF] ^ (crc >> 8);
}

#if defined(__x86_64__) || (defined(__aarch64__) && defined(__AARCH64EL__))

#ifdef __x86_64__
#define ZR_HAS_CRC __attribute__((target("sse4.2")))
bool has_instruction() { return __builtin_cpu_supports("sse4.2"); }
ZR_HAS_CRC uint32_t step(uint32_t crc, uint64_t octets) {
  return static_cast<uint32_t>(__builtin_ia32_crc32di(crc, octets));
}
#else
#define ZR_HAS_CRC
bool has_instruction() { return (::getauxval(AT_HWCAP) & HWCAP_CRC32) != 0; }
uint32_t step(uint32_t crc, uint64_t octets) {
  __asm__(".arch_extension crc\n\tcrc32cx %w0, %w0, %x1" : "+r"(crc) : "r"(octets));
  return crc;
}
#endif

/// Eight octets at a time.
ZR_HAS_CRC uint32_t by_instruction(std::string_view octets) {
  uint32_t crc = ~0u;
  for (uint64_t eight; octets.size() >= sizeof eight; octets.remove_prefix(sizeof eight)) {
    std::memcpy(&eight, octets.data(), sizeof eight);
    crc = step(crc, eight);
  }
  for (char octet : octets) crc = step(crc, octet);
  return ~crc;
}

#else
bool has_instruction() { return false; }
uint32_t by_instruction(std::string_view octets) { return crc32c_by_table(octets); }
#endif

}  // namespace

uint32_t crc32c_by_table(std::string_view octets) {
  uint32_t crc = ~0u;
  for (char octet : octets) crc = step(crc, octet);
  return ~crc;
}

uint32_t crc32c(std::string_view octets) {
  static const bool fast = has_instruction();
  return fast ? by_instruction(octets) : crc32c_by_table(octets);
}

}  // namespace zrsv
