// Whether this process may make calls: not once its ORB is destroyed, until it is made again, and not in a
// child that was forked from a process whose ORB had threads or connections. Those are the parent's.
#pragma once

#include <atomic>

namespace zrsv {

enum class Life { Usable, Destroyed, Forked };

namespace detail {
extern std::atomic<Life> life;
}

inline bool is_usable() { return detail::life.load(std::memory_order_relaxed) == Life::Usable; }
inline bool in_forked_child() { return detail::life.load(std::memory_order_relaxed) == Life::Forked; }

/// Threads or connections are about to be made: a child forked from now on cannot use the ORB. Any thread.
void mark_in_use();
/// They are gone, and so is the ORB.
void mark_destroyed();
/// The ORB is made (again).
void mark_usable();

/// Says once in the log why such a child is refused. Any thread; takes no lock, which the parent may have held.
void log_forked_child();

/// For a thread of the engine whose servant forked and let the child return: it would answer and read in its
/// parent's place. Ends the child, with a log line.
[[noreturn]] void end_forked_child();

}  // namespace zrsv
