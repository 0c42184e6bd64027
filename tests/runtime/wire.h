// Octets on their way.
#pragma once

#include <gtest/gtest.h>

#include "../core/octets.h"
#include "corba.h"

inline constexpr bool native_is_little = std::endian::native == std::endian::little;

/// What `write(CDR*)` encodes.
template <class Write>
std::string encoded(Write&& write) {
  Encoding out;
  EXPECT_TRUE(write(static_cast<CDR*>(out)));
  return out.octets();
}

/// `accepts(const std::string&)` is false for every proper prefix.
template <class Accepts>
void expect_no_prefix(const std::string& octets, Accepts&& accepts) {
  for (std::size_t end = 0; end < octets.size(); ++end)
    EXPECT_FALSE(accepts(octets.substr(0, end))) << end << " of " << octets.size();
}
