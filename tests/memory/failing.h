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
  clock,        // an hour has passed
  full,         // nothing is sent, as if the socket took no more
  shortage      // there is no descriptor, no watch and no thread left
};

/// From now on the n-th of threads that count fails, and `more` after it.
void begin(What what, long n, long more = 0);
/// None fails any more. Whether one did.
bool end();

/// A step of the calling thread at which a test has others do something.
enum class Moment {
  told_full,  // the system has found that a socket takes no more, and the library does not know yet
  connecting
};
/// From now on `act` runs at each such moment of this thread; null: nothing does.
void at(Moment moment, std::function<void()> act);

/// The next thread that counts and sends on a socket runs `act` before it does.
void before_send(std::function<void()> act);
/// The next that waits for events and is woken for another reason runs it before it knows.
void after_wake(std::function<void()> act);

/// Waits until so many threads that count wait for a condition, or for events without a limit; false when that takes too
/// long. They find all that is done from then on only when they are woken.
bool wait_for_asleep(long threads);

/// Octets that are allocated.
long live();
/// How often memory was given back to the system.
long trims();

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
