// A network in this process's memory. Who connects to its address gets one half of a pair of sockets, whatever the
// program was linked with; a test has the other half. Below is the system's own code, so nothing is imitated.
#pragma once

#include <cstdint>
#include <functional>

namespace memory_network {

/// The address of all its servers, which no machine has: it is for documents.
inline constexpr const char* host = "192.0.2.1";

/// How many octets a half takes before the other is read, about.
inline constexpr int room = 1 << 16;

/// What runs on the client's thread after each of its sends, one at a time. It sends less than that.
using Heard = std::function<void()>;

/// A port of that address.
class Port {
 public:
  /// Runs on the thread that connects. It takes the test's half, and says what is to be run for it; false refuses.
  using Arrival = std::function<bool(int fd, Heard* heard)>;
  explicit Port(Arrival arrival);
  /// Nobody is let in any more, and nothing runs any more.
  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;
  uint16_t number() const { return number_; }

 private:
  const uint16_t number_;
};

}  // namespace memory_network
