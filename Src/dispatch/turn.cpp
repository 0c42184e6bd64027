#include "dispatch/turn.h"

namespace {
thread_local Turn* innermost = nullptr;
}

// A servant that calls an object of its own POA has the turn already.
void Turn::begin(const std::shared_ptr<zrsv::Gate>& turnstile, void* request) {
  for (const Turn* turn = innermost; turn; turn = turn->outer_) {
    if (turn->turnstile_ != turnstile.get()) continue;
    turnstile_ = nullptr;
    return;
  }
  if (!turnstile->enter(request)) {
    zrsv::wait_at(turnstile, request);
    throw RequestWaits{};
  }
  outer_ = innermost;
  innermost = this;
}

void Turn::end() {
  innermost = outer_;
  turnstile_->leave();
}
