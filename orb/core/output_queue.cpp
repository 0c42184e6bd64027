#include "output_queue.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "leftovers.h"

namespace zrsv {

namespace {

constexpr std::size_t parts_at_once = 64;

bool would_block() { return errno == EAGAIN || errno == EWOULDBLOCK; }

std::size_t size_of(std::span<const iovec> parts) {
  std::size_t octets = 0;
  for (const iovec& part : parts) octets += part.iov_len;
  return octets;
}

}  // namespace

void OutputQueue::open(int fd) {
  std::lock_guard lock(mutex_);
  fd_ = fd;
  count_left(Left::Descriptors, 1);
  closed_ = watched_ = false;
  sent_ = 0;
}

OutputQueue::Sent OutputQueue::send(Buffer* message, uint32_t fragment) {
  std::lock_guard lock(mutex_);
  if (closed_) return Sent::All;
  const bool first = messages_.empty();
  std::size_t sent = 0;
  if (first && !must_fragment(message->data(), message->size(), fragment)) {
    const ssize_t n = ::send(fd_, message->data(), message->size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n == static_cast<ssize_t>(message->size())) return Sent::All;
    if (n < 0 && !would_block() && errno != EINTR) return Sent::Failed;
    if (n > 0) sent = static_cast<std::size_t>(n);
  }
  try {
    message->shrink(0);
    const Message& last = messages_.emplace_back(std::move(*message), fragment, sent);
    octets_.fetch_add(size_of(last.left));
  } catch (const std::bad_alloc&) {
    return Sent::Failed;
  }
  return first && sent == 0 ? write_some() : Sent::Rest;
}

OutputQueue::Sent OutputQueue::flush() {
  std::lock_guard lock(mutex_);
  return closed_ ? Sent::All : write_some();
}

// With the lock.
OutputQueue::Sent OutputQueue::write_some() {
  while (!messages_.empty()) {
    Message& first = messages_.front();
    msghdr message{};
    message.msg_iov = first.left.data();
    message.msg_iovlen = std::min(first.left.size(), parts_at_once);
    const ssize_t n = ::sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return would_block() ? Sent::Rest : Sent::Failed;
    sent_ += static_cast<std::size_t>(n);
    octets_.fetch_sub(static_cast<std::size_t>(n));
    first.left = rest_of(first.left, static_cast<std::size_t>(n));
    if (first.left.empty()) messages_.pop_front();
  }
  return Sent::All;
}

void OutputQueue::finish(const unsigned char* message, std::size_t length) {
  std::lock_guard lock(mutex_);
  if (length > 0 && !closed_ && messages_.empty()) ::send(fd_, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
  closed_ = true;
  if (fd_ >= 0) ::shutdown(fd_, SHUT_WR);
}

void OutputQueue::close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  messages_.clear();
  octets_ = 0;
  if (fd_ < 0) return;
  ::close(std::exchange(fd_, -1));
  count_left(Left::Descriptors, -1);
}

const char* OutputQueue::too_slow(Clock::time_point now, const Pace& pace) {
  if (empty() || pace.patience.count() == 0) {
    watched_ = false;
    return nullptr;
  }
  std::lock_guard lock(mutex_);
  const std::size_t waiting = octets_.load();
  const bool begun = !std::exchange(watched_, true);
  if (begun || sent_ != sent_at_progress_) progress_at_ = now, sent_at_progress_ = sent_;
  if (begun || waiting <= pace.mark) full_since_ = now, sent_at_full_ = sent_;
  if (now - progress_at_ >= pace.patience) return "takes no replies";
  if (now - full_since_ < pace.patience) return nullptr;
  const auto ms = static_cast<uint64_t>(pace.patience.count());
  if ((sent_ - sent_at_full_) * 1000 < pace.rate * ms) return "takes its replies too slowly";
  full_since_ = now, sent_at_full_ = sent_;
  return nullptr;
}

}  // namespace zrsv
