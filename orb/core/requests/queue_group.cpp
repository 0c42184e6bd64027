#include "requests/queue_group.h"

#include "references/repository.h"
#include "requests/waiting.h"

namespace zrsv {

QueueGroup& queue_group() {
  static QueueGroup* const one = new QueueGroup;  // requests may come until the process ends
  return *one;
}

QueueGroup::Admission QueueGroup::hold(ServerRequest* request, uint32_t limit) {
  const MutexLock lock(mutex_);
  if (is_open()) return Admission::Pass;
  if (!deliver_ || held_.size() >= limit) return Admission::Full;
  if (held_.empty()) held_since_ = Clock::now();
  held_.push_back(std::make_unique<ServerRequest>(std::move(*request)));
  return Admission::Held;
}

void QueueGroup::announce(const std::string& name) {
  const MutexLock lock(mutex_);
  announced_.insert(name);
}

bool QueueGroup::is_announced(const std::string& name) {
  const MutexLock lock(mutex_);
  return announced_.contains(name);
}

void QueueGroup::begin() {
  const MutexLock lock(mutex_);
  if (state_ == State::Waiting) open_locked();
}

std::size_t QueueGroup::waiting_in_vain(Clock::time_point since) {
  const MutexLock lock(mutex_);
  if (state_ != State::Waiting || held_.empty() || held_since_ > since) return 0;
  return std::exchange(told_in_vain_, true) ? 0 : held_.size();
}

void QueueGroup::open() {
  const MutexLock lock(mutex_);
  open_locked();
}

void QueueGroup::open_locked() {
  Requests released = std::move(held_);
  if (deliver_ && !released.empty()) deliver_(std::move(released));
  state_.store(State::Open, std::memory_order_release);
}

void QueueGroup::close() {
  const MutexLock lock(mutex_);
  state_.store(State::Held, std::memory_order_release);
}

std::size_t QueueGroup::held() {
  const MutexLock lock(mutex_);
  return held_.size();
}

void QueueGroup::deliver_to(Deliver deliver) {
  const MutexLock lock(mutex_);
  deliver_ = std::move(deliver);
}

bool QueueGroup::deliver(Requests* requests) {
  const MutexLock lock(mutex_);
  if (!deliver_) return false;
  deliver_(std::move(*requests));
  return true;
}

bool QueueGroup::delivers() {
  const MutexLock lock(mutex_);
  return deliver_ != nullptr;
}

Requests QueueGroup::withdraw(const Connection* connection, const uint32_t* id) {
  const MutexLock lock(mutex_);
  return held_.take_if([&](const ServerRequest& request) { return matches(request, connection, id); });
}

}  // namespace zrsv

using namespace zrsv;

void CORBA_BOA_impl_is_ready(void* /*boa*/, void* impl_def, CORBA_Environment* ev) {
  if (!impl_def) return raise_standard(ev, "BAD_PARAM");
  queue_group().announce(static_cast<const ImplDef*>(impl_def)->name);
}

void ZR_queue_begin(void) { queue_group().begin(); }

void ZR_queue_control_queue_group(uint32_t /*reserved*/, const char* name, int code, uint32_t /*reserved2*/,
                                  CORBA_Environment* ev) {
  if (!name || code < ZR_QUEUE_DRAIN || code > ZR_QUEUE_CLOSE) return raise_standard(ev, "BAD_PARAM");
  if (!queue_group().is_announced(name)) return raise_standard(ev, "NO_IMPLEMENT");
  switch (code) {
    case ZR_QUEUE_HOLD:
      return queue_group().close();
    case ZR_QUEUE_RELEASE:
    case ZR_QUEUE_CLOSE:
      return queue_group().open();
    default:  // ZR_QUEUE_DRAIN only tells that ZR_QUEUE_CLOSE is near: what is held stays
      return;
  }
}
