// Adapter activators at work. A POA that one makes is in the tree as soon as it is created, and its objects
// are not there yet: requests that come on other threads wait until the activator is through.
#pragma once

#include <string_view>
#include <thread>

#include "identity.h"

/// The calling thread's activation of one child POA, for as long as its adapter activator runs.
class AdapterActivation {
 public:
  /// When another thread is at the same child, waits for it first. `name` is not copied.
  AdapterActivation(Identity parent, std::string_view name);
  ~AdapterActivation();
  AdapterActivation(const AdapterActivation&) = delete;
  AdapterActivation& operator=(const AdapterActivation&) = delete;

  /// The constructor had to wait: the child may be there by now.
  bool waited() const { return waited_; }

  /// Whether any thread is in an adapter activator. One load.
  static bool any();
  /// Waits until no other thread is in the activator of that child, but not for ever: an activator that waits
  /// for one of the threads that wait for it has to come to an end. No lock may be held.
  static void wait_for_others(Identity parent, std::string_view name);

 private:
  struct Running;
  bool is_of_another(Identity parent, std::string_view name) const;

  const Identity parent_;
  const std::string_view name_;
  const std::thread::id thread_ = std::this_thread::get_id();
  bool waited_ = false;
};
