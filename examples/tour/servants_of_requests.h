// Servants that a locator makes for one request each.
#pragma once

#include <memory>
#include <vector>

#include "poa.h"

/// The servants made for the requests of this thread, the outermost first: a servant may call another object of its
/// own process through the same locator, on the same thread. No postinvoke follows a request that failed in the
/// servant's invoke (an unknown operation), so what has ended is told by the servant itself: no request is in it.
/// At most one servant a thread outlives its request, until the thread serves the next one.
class ServantsOfRequests {
 public:
  /// For preinvoke, as its last step.
  static PortableServer::Servant keep(std::unique_ptr<PortableServer::ServantBase> servant) {
    drop_ended();
    return servants.emplace_back(std::move(servant)).get();
  }
  /// For postinvoke.
  static void drop_ended() {
    while (!servants.empty() && servants.back()->get_ref_counter() == 0) servants.pop_back();
  }

 private:
  static inline thread_local std::vector<std::unique_ptr<PortableServer::ServantBase>> servants;
};
