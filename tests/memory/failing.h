// Memory that runs out at a chosen moment. The program is linked so that each allocation of the library, by new or
// by malloc, comes by here.
#pragma once

namespace failing {

/// From now on the n-th allocation of threads that count fails, and `more` after it.
void begin(long n, long more);
/// None fails any more. Whether one did.
bool end();

/// Octets that are allocated.
long live();

/// Allocations of this thread do (not) count, while it lives. Those of threads of the library count, those of the
/// thread that runs the tests do not.
class Counted {
 public:
  explicit Counted(bool counted = true);
  ~Counted();
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  const bool before_;
};

}  // namespace failing
