// Ties of interfaces whose names templates might hide.
#include <gtest/gtest.h>

#include "calls.h"

namespace {

struct Turner {
  T::Row_slice* turned(const T::Row r) {
    T::Row_var result = T::Row_dup(r);
    std::swap(result[0], result[1]);
    return result._retn();
  }
};

TEST(Ties, FindTheTypesOfAnyModule) {
  Turner turner;
  POA_T::Tied_tie<Turner> tie(turner);
  const T::Row row = {1, 2};
  const T::Row_var result = tie.turned(row);
  EXPECT_EQ(result[0], 2);
}

}  // namespace
