// Requests of a POA with SINGLE_THREAD_MODEL, one after the other.
#pragma once

#include <memory>

#include "zrsv/gate.h"

/// A request has to wait; it is at its gate already. The upcall ends without a reply.
struct RequestWaits {};

/// While one lives, this thread runs a request of the POA whose gate it is, and no other thread does.
class Turn {
 public:
  /// Null: of a POA whose requests run at once. `request` is the ORB core's handle. Throws RequestWaits.
  Turn(const std::shared_ptr<zrsv::Gate>& gate, void* request) : gate_(gate.get()) {
    if (gate_) [[unlikely]]
      begin(gate, request);
  }
  ~Turn() {
    if (gate_) [[unlikely]]
      end();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  void begin(const std::shared_ptr<zrsv::Gate>& gate, void* request);
  void end();

  zrsv::Gate* gate_;  // null when this thread had the turn already
  Turn* outer_ = nullptr;
};
