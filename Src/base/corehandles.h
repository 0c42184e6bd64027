// Handles that the ORB core gave to start-up. They stay good until the process ends.
#pragma once

#include <atomic>

struct CoreHandles {
  std::atomic<void*> orb{nullptr};
  std::atomic<void*> boa{nullptr};
  void* interface_repository = nullptr;  // these two are written before there is a POA
  void* implementation_repository = nullptr;
};

inline constinit CoreHandles core_handles;
