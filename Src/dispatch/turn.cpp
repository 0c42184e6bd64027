#include "dispatch/turn.h"

namespace {
thread_local Turn* innermost = nullptr;
}

// A servant that calls an object of its own POA has the turn already.
void Turn::begin(const std::shared_ptr<zrsv::Gate>& gate, void* request) {
  for (const Turn* turn = innermost; turn; turn = turn->outer_) {
    if (turn->gate_ != gate.get()) continue;
    gate_ = nullptr;
    return;
  }
  if (!gate->enter(request)) {
    zrsv::wait_at(gate, request);
    throw RequestWaits{};
  }
  outer_ = innermost;
  innermost = this;
}

void Turn::end() {
  innermost = outer_;
  gate_->leave();
}
