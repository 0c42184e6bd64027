// Calls to the system that fail at a chosen moment. The program is linked so that each allocation of the library, each
// call of it that moves octets or waits for them, and each look at the clock comes by here.
#pragma once

#include <functional>

namespace failing {

enum class What {
  allocation,   // there is no memory
  socket,       // the connection is lost, or the system lacks what it needs
  interrupted,  // a signal came: nothing was done
  shortened,    // one octet is sent, however many were wanted
  clock         // an hour has passed
};

/// From now on the n-th of threads that count fails, and `more` after it.
void begin(What what, long n, long more = 0);
/// None fails any more. Whether one did.
bool end();

/// From now on `act` runs when this thread is about to be told that a socket takes no more; none: nothing.
void when_a_socket_is_full(std::function<void()> act);

/// Octets that are allocated.
long live();

/// What this thread does counts (not), while it lives. Threads of the library count, the one that runs the tests does
/// not.
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
