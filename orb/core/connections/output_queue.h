// What one connection sends. A message goes out at once as far as the peer takes it; the rest waits here, and
// leaves when the socket has room. No thread waits for a peer, nor for another thread that sends: that one takes
// along what comes meanwhile.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>

#include "base/clock.h"
#include "connections/assembler.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// Any thread may send; messages leave whole and in turn.
class OutputQueue {
 public:
  enum class Sent { All, Rest, Failed };

  /// Begins with that socket, and takes it over.
  void open(int fd);
  /// Sends a message, in fragments when it is over `fragment` octets. What does not go out now is taken out of
  /// `message`. Rest: flush() is to be called when the socket can take more. One thread at a time is told so.
  /// Only a message that is not cut may have something apart.
  Sent send(Buffer* message, uint32_t fragment, Apart apart = {});
  Sent flush();
  /// Sends a last message, unless something waits before it: then it would only be taken for a part of that.
  /// Nothing is sent afterwards, and the peer is told so.
  void finish(const unsigned char* message, std::size_t length);
  /// Forgets what waits, and closes the socket.
  void close();
  /// Calls `use` with the socket, unless it is closed; it stays open meanwhile. `use` must not wait, nor call this.
  template <class Use>
  void with_socket(Use use) {
    const MutexLock lock(mutex_);
    if (fd_ >= 0) use(fd_);
  }

  bool empty() const { return octets_.load() == 0; }
  /// Octets that wait.
  std::size_t octets() const { return octets_.load(); }

  /// How slow a peer may be: without any progress for `patience`, or under `rate` octets a second for so long
  /// with more than `mark` waiting.
  struct Pace {
    std::chrono::milliseconds patience;
    std::size_t rate, mark;
  };
  /// Null, or how the peer is too slow. To be asked again and again: time runs from the first question on.
  const char* too_slow(Clock::time_point now, const Pace& pace);

 private:
  struct Message {
    Message(Buffer whole, Apart with, uint32_t fragment, std::size_t sent)
        : octets(std::move(whole)),
          apart(std::move(with)),
          fragments(octets.data(), octets.size(), fragment, apart.get()),
          left(rest_of(fragments.parts(), sent)) {
      count_memory(0, unless_counted());
      count_memory(0, apart.get().size);
    }
    ~Message() {
      count_memory(unless_counted(), 0);
      count_memory(apart.get().size, 0);
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    /// Small messages count here, as there may be many.
    std::size_t unless_counted() const { return octets.capacity() < counted_from ? counted_from : 0; }
    Buffer octets;
    Apart apart;
    Fragments fragments;
    std::span<iovec> left;
  };
  /// Calls `send`, which makes one system call, without the lock; gives what it does, errno included.
  template <class Send>
  ssize_t send_unlocked(Send send) ZR_REQUIRES(mutex_);
  Sent keep(Buffer* message, Apart apart, uint32_t fragment, const std::size_t* sent) ZR_REQUIRES(mutex_);
  Sent write_some() ZR_REQUIRES(mutex_);
  void took(std::size_t octets) ZR_REQUIRES(mutex_);

  Mutex mutex_;
  int fd_ ZR_GUARDED_BY(mutex_) = -1;
  bool closed_ ZR_GUARDED_BY(mutex_) = true;
  // A thread sends, without the lock: no message is taken out meanwhile but by it.
  bool sending_ ZR_GUARDED_BY(mutex_) = false;
  bool room_came_ ZR_GUARDED_BY(mutex_) = false;  // flush() was called meanwhile
  Condition sent_it_;                             // it does no longer
  std::deque<Message> messages_ ZR_GUARDED_BY(mutex_);
  uint64_t sent_ ZR_GUARDED_BY(mutex_) = 0;  // octets that went out of the queue
  std::atomic<std::size_t> octets_{0};       // written with mutex_ held

  // The watch over the peer's pace.
  bool watched_ = false;  // by who asks, which is one thread
  Clock::time_point progress_at_ ZR_GUARDED_BY(mutex_), full_since_ ZR_GUARDED_BY(mutex_);
  uint64_t sent_at_progress_ ZR_GUARDED_BY(mutex_) = 0, sent_at_full_ ZR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zrsv
