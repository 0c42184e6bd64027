#include "base/process_life.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "zrsv.h"

namespace zrsv {

namespace detail {
std::atomic<Life> life{Life::Usable};
}

namespace {

using detail::life;

std::atomic<bool> in_use{false};
std::atomic<bool> told{false};

// In the child, whose only thread this is.
void after_fork() {
  if (in_use.load()) life.store(Life::Forked);
}

}  // namespace

void mark_in_use() {
  static const int watched = ::pthread_atfork(nullptr, nullptr, after_fork);
  if (watched != 0) OM_log("forks cannot be noticed: a child must not use the ORB");
  in_use.store(true);
}

void mark_destroyed() {
  in_use.store(false);
  life.store(Life::Destroyed);
}

void mark_usable() { life.store(Life::Usable); }

void log_forked_child() {
  if (told.exchange(true)) return;
  OM_log("process %ld was forked from %ld while the ORB there was in use: it can make no calls",
         static_cast<long>(::getpid()), static_cast<long>(::getppid()));
}

void end_forked_child() {
  OM_log("process %ld was forked by a servant and returned from it: it ends", static_cast<long>(::getpid()));
  std::_Exit(EXIT_FAILURE);
}

}  // namespace zrsv
