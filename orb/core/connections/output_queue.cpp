#include "connections/output_queue.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include "base/counting.h"

namespace zrsv {

namespace {

constexpr std::size_t parts_at_once = 64;

bool would_block() { return errno == EAGAIN || errno == EWOULDBLOCK; }

std::size_t size_of(std::span<const iovec> parts) {
  std::size_t octets = 0;
  for (const iovec& part : parts) octets += part.iov_len;
  return octets;
}

ssize_t send_vectors(int fd, IoVectors vectors) {
  msghdr message{};
  message.msg_iov = vectors.data();
  message.msg_iovlen = vectors.size();
  return ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace

void OutputQueue::open(int fd) {
  const MutexLock lock(mutex_);
  fd_ = fd;
  count_left(Left::Descriptors, 1);
  closed_ = watched_ = false;
  sent_ = 0;
}

template <class Send>
ssize_t OutputQueue::send_unlocked(Send send) {
  sending_ = true;
  ssize_t n = 0;
  {
    const Unlocked unlocked(mutex_);
    n = send();
  }
  sending_ = false;
  sent_it_.notify_all();
  return n;
}

OutputQueue::Sent OutputQueue::send(Buffer* message, uint32_t fragment, Apart apart) {
  const MutexLock lock(mutex_);
  if (closed_) return Sent::All;
  if (sending_ || !messages_.empty())
    return keep(message, std::move(apart), fragment, nullptr);  // who sends takes it along
  if (must_fragment(message->data(), message->size(), fragment)) {
    const Sent kept = keep(message, std::move(apart), fragment, nullptr);
    return kept == Sent::All ? write_some() : kept;
  }
  const ssize_t n = send_unlocked([&, fd = fd_] {
    if (apart) [[unlikely]]
      return send_vectors(fd, io_vectors_of(message->data(), message->size(), apart.get()));
    return ::send(fd, message->data(), message->size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  });
  if (n < 0 && !would_block() && errno != EINTR) return Sent::Failed;
  const std::size_t sent = n > 0 ? static_cast<std::size_t>(n) : 0;
  if (sent < message->size() + apart.get().size) return keep(message, std::move(apart), fragment, &sent);
  return messages_.empty() ? Sent::All : write_some();
}

// What has begun to go comes before what others have left meanwhile.
OutputQueue::Sent OutputQueue::keep(Buffer* message, Apart apart, uint32_t fragment,
                                    const std::size_t* sent) try {
  message->shrink(0);
  const Message& kept = sent ? messages_.emplace_front(std::move(*message), std::move(apart), fragment, *sent)
                             : messages_.emplace_back(std::move(*message), std::move(apart), fragment, 0u);
  octets_.fetch_add(size_of(kept.left));
  return sent ? Sent::Rest : Sent::All;
} catch (const std::bad_alloc&) {
  return Sent::Failed;
}

OutputQueue::Sent OutputQueue::flush() {
  const MutexLock lock(mutex_);
  if (!sending_) return write_some();
  room_came_ = true;  // perhaps after the one that sends was told that there is none
  return Sent::All;
}

// Nobody else is sending.
OutputQueue::Sent OutputQueue::write_some() {
  while (!closed_ && !messages_.empty()) {
    std::array<iovec, parts_at_once> parts;
    std::size_t count = 0;
    for (auto one = messages_.begin(); one != messages_.end() && count < parts.size(); ++one)
      for (auto part = one->left.begin(); part != one->left.end() && count < parts.size(); ++part)
        parts[count++] = *part;
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = count;
    room_came_ = false;
    const ssize_t n =
        send_unlocked([&, fd = fd_] { return ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (n < 0 && (errno == EINTR || (would_block() && room_came_))) continue;
    if (n < 0) return would_block() ? Sent::Rest : Sent::Failed;
    took(static_cast<std::size_t>(n));
  }
  return Sent::All;
}

void OutputQueue::took(std::size_t octets) {
  sent_ += octets;
  octets_.fetch_sub(octets);
  while (octets > 0) {
    Message& first = messages_.front();
    const std::size_t of_it = std::min(octets, size_of(first.left));
    first.left = rest_of(first.left, of_it);
    octets -= of_it;
    if (first.left.empty()) messages_.pop_front();
  }
}

void OutputQueue::finish(const unsigned char* message, std::size_t length) {
  const MutexLock lock(mutex_);
  while (sending_) sent_it_.wait(mutex_);
  if (length > 0 && !closed_ && messages_.empty()) ::send(fd_, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
  closed_ = true;
  if (fd_ >= 0) ::shutdown(fd_, SHUT_WR);
}

void OutputQueue::close() {
  const MutexLock lock(mutex_);
  closed_ = true;
  while (sending_) sent_it_.wait(mutex_);
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
  const MutexLock lock(mutex_);
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
