// That nothing is left of the library once its ORB is destroyed.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "comes_true.h"
#include "zrsv.h"

inline std::string leftovers() {
  const ZR_Leftovers left = ZR_leftovers();
  const std::pair<const char*, uint32_t> rows[] = {{"threads", left.threads},
                                                   {"descriptors", left.descriptors},
                                                   {"connections", left.connections},
                                                   {"requests", left.requests},
                                                   {"objects", left.objects}};
  std::string all;
  for (const auto& [what, count] : rows)
    if (count != 0) all += std::to_string(count) + " " + what + " ";
  return all;
}

/// A servant that was left to itself may be on its way out still.
inline std::string leftovers_at_last() {
  comes_true([] { return leftovers().empty(); }, std::chrono::seconds(10));
  return leftovers();
}
inline void expect_no_leftovers() { EXPECT_EQ(leftovers_at_last(), ""); }

/// Destroys the ORB, of which others may have a use still.
inline void destroy_wholly(void* orb, CORBA_Environment* ev) {
  CORBA_ORB_destroy(orb, ev);
  CORBA_Environment refused{};
  void* const root = CORBA_ORB_resolve_initial_references(orb, "RootPOA", &refused);
  CORBA_exception_free(&refused);
  root ? CORBA_object_release(root) : expect_no_leftovers();
}
