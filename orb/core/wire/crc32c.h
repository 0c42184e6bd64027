// A checksum that processors have an instruction for.
#pragma once

#include <cstdint>
#include <string_view>

namespace zrsv {

/// CRC-32C (Castagnoli), reflected, initial value and final inversion all ones.
uint32_t crc32c(std::string_view octets);
/// The same without that instruction.
uint32_t crc32c_by_table(std::string_view octets);

}  // namespace zrsv
