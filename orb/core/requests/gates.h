// The requests that wait at gates (zrsv/gate.h).
#pragma once

#include "requests/server_request.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// One mutex for all gates: they are used when something waits.
inline constinit Mutex gates_mutex;

struct GatedRequests {
  explicit GatedRequests(Gate::Kind of) : kind(of) {}
  static GatedRequests& of(Gate& gate) { return *gate.waiting_; }

  const Gate::Kind kind;
  bool shut ZR_GUARDED_BY(gates_mutex) =
      false;  // closed, or a request is between enter and leave or on its way there
  Requests requests ZR_GUARDED_BY(gates_mutex);
};

/// Keeps a request that wants to wait (moved from) at its gate; where that is open by now, it goes on at once. False
/// when `limit` requests wait there, when nothing is served any more, or without memory for it.
bool keep_at_gate(ServerRequest* request, uint32_t limit);
/// Takes back all requests that wait at gates.
Requests withdraw_from_gates();

}  // namespace zrsv
