// Adapter activators at work. A POA that one makes is in the tree as soon as it is created, and its objects
// are not there yet: requests that come on other threads wait until the activator is through.
#pragma once

#include <string_view>
#include <thread>

#include "objects/ownobject.h"

/// The calling thread's activation of one child POA, for as long as its adapter activator runs.
class AdapterActivation {
 public:
  /// When another thread is at the same child, waits for it first. `name` is not copied.
  AdapterActivation(Identity parent, std::string_view name);
  ~AdapterActivation();
  AdapterActivation(const AdapterActivation&) = delete;
  AdapterActivation& operator=(const AdapterActivation&) = delete;

  /// Whether any thread is in an adapter activator. One load.
  static bool any();
  /// Waits until no other thread is in the activator of that child, but not for ever: an activator that waits
  /// for one of the threads that wait for it has to come to an end. Whether there was one.
  static bool wait_for_others(Identity parent, std::string_view name);

  /// A scope in which the thread runs program code with poa_mutex held: it waits for no activator, which may
  /// be waiting for that.
  struct NoWaiting {
    NoWaiting() { ++depth_; }
    ~NoWaiting() { --depth_; }
    NoWaiting(const NoWaiting&) = delete;
    NoWaiting& operator=(const NoWaiting&) = delete;
  };

 private:
  struct Running;
  bool is_of_another(Identity parent, std::string_view name) const;

  const Identity parent_;
  const std::string_view name_;
  const std::thread::id thread_ = std::this_thread::get_id();
  static thread_local int depth_;  // of NoWaiting
};
