#include "attackers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

namespace soak {
namespace {

/// CDR in this machine's byte order; alignment counts from the first octet.
class Octets {
 public:
  Octets& number(std::uint32_t value) {
    text_.resize((text_.size() + 3) / 4 * 4);
    text_.append(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
  }
  Octets& octet(int value) { return text_ += static_cast<char>(value), *this; }
  Octets& counted(const std::string& octets) {
    return number(static_cast<std::uint32_t>(octets.size())), text_ += octets, *this;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// A GIOP 1.0 request.
std::string request(const Target& target, std::uint32_t id, const std::string& operation,
                    const std::string& argument) {
  Octets body;
  body.number(0)
      .number(id)
      .octet(1)
      .counted(target.key)
      .counted(operation + '\0')
      .number(0)
      .counted(argument);
  Octets head;
  head.octet('G').octet('I').octet('O').octet('P').octet(1).octet(0);
  head.octet(std::endian::native == std::endian::little)
      .octet(0)
      .number(static_cast<std::uint32_t>(body.text().size()));
  return head.text() + body.text();
}

class Connection {
 public:
  explicit Connection(const Target& target) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(target.port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) pause(20);
  }
  ~Connection() { ::close(fd_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// As much as the server takes at once; the next send goes on where this one ended.
  bool send(const std::string& octets) {
    if (rest_.empty()) rest_ = octets;
    const ssize_t n = ::send(fd_, rest_.data(), rest_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) rest_.erase(0, static_cast<std::size_t>(n));
    return n >= 0 || errno == EAGAIN;
  }
  /// Waits until the server says something or hangs up, at most that long.
  bool pause(int milliseconds) {
    pollfd wait{fd_, POLLIN, 0};
    return ::poll(&wait, 1, milliseconds) > 0;
  }
  void take() {
    char some[65536];
    while (::recv(fd_, some, sizeof some, MSG_DONTWAIT) > 0) {
    }
  }
  /// The end of the connection is a reset.
  void reset() {
    const linger now{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  }

 private:
  int fd_;
  std::string rest_;
};

using Flag = const std::atomic<bool>;
using Count = std::atomic<long>;

void wait(Flag& end, int milliseconds) {
  for (; milliseconds > 0 && !end; milliseconds -= 20) ::poll(nullptr, 0, 20);
}

/// Sends a request an octet at a time.
void slow(const Target& target, unsigned seed, Flag& end, Count& rounds) {
  const std::string whole = request(target, seed, "echo_string", "slow\0");
  for (; !end; ++rounds) {
    Connection connection(target);
    for (std::size_t i = 0; i < whole.size() && !end && connection.send(whole.substr(i, 1)); ++i)
      wait(end, 20);
  }
}

/// Says nothing at all.
void silent(const Target& target, unsigned, Flag& end, Count& rounds) {
  for (; !end; ++rounds) {
    Connection connection(target);
    wait(end, 2000);
  }
}

/// Asks for much and takes nothing of it.
void deaf(const Target& target, unsigned, Flag& end, Count& rounds) {
  const std::string large = request(target, 1, "echo_octets", std::string(60'000, 'x'));
  for (; !end; ++rounds) {
    Connection connection(target);
    for (int i = 0; i < 200 && connection.send(large); ++i) {
    }
    wait(end, 1000);
  }
}

/// Dies in the middle of a request, or with requests that run.
void killed(const Target& target, unsigned seed, Flag& end, Count& rounds) {
  std::minstd_rand random(seed);
  const std::string one = request(target, 1, "echo_string", std::string("gone\0", 5));
  for (; !end; ++rounds) {
    Connection connection(target);
    connection.send(one + one.substr(0, random() % one.size()));
    if (random() % 2) connection.reset();
    wait(end, 20);
  }
}

/// Sends requests without waiting for one answer, ten thousand a second.
void greedy(const Target& target, unsigned, Flag& end, Count& rounds) {
  std::string many;
  for (std::uint32_t id = 0; id < 200; ++id)
    many += request(target, id, "echo_string", std::string("more\0", 5));
  for (; !end; ++rounds) {
    Connection connection(target);
    for (int i = 0; i < 100 && !end && connection.send(many); ++i) {
      wait(end, 20);
      connection.take();
    }
  }
}

/// Sends octets that mean nothing, and messages with some octets turned.
void garbage(const Target& target, unsigned seed, Flag& end, Count& rounds) {
  std::minstd_rand random(seed);
  const std::string right = request(target, 1, "echo_string", std::string("right\0", 6));
  for (; !end; ++rounds) {
    Connection connection(target);
    std::string wrong = right;
    for (int i = 0; i < 4; ++i) wrong[random() % wrong.size()] = static_cast<char>(random());
    if (random() % 4 == 0) wrong.assign(100, static_cast<char>(random()));
    connection.send(wrong);
    connection.pause(50);
  }
}

}  // namespace

const Attacker attackers[attacker_kinds] = {{"slow", slow},     {"silent", silent}, {"deaf", deaf},
                                            {"killed", killed}, {"greedy", greedy}, {"garbage", garbage}};

Target target_of(const std::string& reference) {
  std::string octets;
  for (std::size_t i = 4; i + 1 < reference.size(); i += 2)
    octets += static_cast<char>(std::stoi(reference.substr(i, 2), nullptr, 16));
  std::size_t at = 0;
  const auto number = [&] {
    std::uint32_t value = 0;
    at = (at + 3) / 4 * 4;
    if (at + 4 > octets.size()) throw std::runtime_error("the reference is cut");
    std::memcpy(&value, octets.data() + at, sizeof value);
    at += sizeof value;
    return value;
  };
  Target target;
  at = 4;
  at += number();  // its type
  if (number() == 0 || number() != 0)
    throw std::runtime_error("the reference does not begin with an IIOP profile");
  number();
  octets.erase(0, at), at = 4;  // in an encapsulation alignment begins anew: byte order, version
  at += number();               // host
  at = (at + 1) / 2 * 2;
  std::memcpy(&target.port, octets.data() + at, sizeof target.port);
  at += sizeof target.port;
  const std::uint32_t size = number();
  target.key = octets.substr(at, size);
  return target;
}

}  // namespace soak
