// Octets on their way.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <vector>

#include "corba.h"

using Octets = std::vector<CORBA::Octet>;

/// What `write(CDR*)` encodes.
template <class Write>
Octets encoded(Write&& write) {
  CDR cdr;
  OM_cdr_open_encode(&cdr);
  EXPECT_TRUE(write(&cdr));
  Octets octets(cdr.out_base, cdr.out_next);
  OM_cdr_close(&cdr);
  return octets;
}

/// A stream over octets in this machine's byte order, or in big-endian order.
inline CDR reader(const Octets& octets, bool big_endian = std::endian::native == std::endian::big) {
  CDR cdr;
  OM_cdr_open_decode(&cdr, octets.data(), static_cast<CORBA::ULong>(octets.size()),
                     big_endian != (std::endian::native == std::endian::big));
  return cdr;
}

/// `accepts(const Octets&)` is false for every proper prefix.
template <class Accepts>
void expect_no_prefix(const Octets& octets, Accepts&& accepts) {
  for (auto end = octets.begin(); end != octets.end(); ++end) {
    EXPECT_FALSE(accepts(Octets(octets.begin(), end))) << end - octets.begin() << " of " << octets.size();
  }
}
