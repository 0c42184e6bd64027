// Messages made by hand, and sockets for the client or the server that a test plays.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "connections/assembler.h"
#include "octets.h"
#include "wire/cdr_chain.h"
#include "wire/giop.h"

inline constexpr auto bound = std::chrono::seconds(20);  // for all that is to come in time

/// A message that is no request and no reply.
inline std::string message(zrsv::giop::Type type, const std::function<void(zrsv::Writer&)>& body = {},
                           uint8_t minor = 2) {
  Encoding out(minor);
  zrsv::giop::begin_message(out, minor, type);
  zrsv::Writer writer(out);
  if (body) body(writer);
  zrsv::giop::end_message(out);
  return out.octets();
}

/// Cuts a message into fragments as a peer would.
inline std::vector<std::string> fragments(std::string message, uint32_t size) {
  std::vector<std::string> cut;
  if (message[5] == 1) {  // which we never cut ourselves
    const std::string head = message.substr(0, 8);
    for (std::size_t at = 12; at < message.size(); at += size - 12) {
      const std::string part = message.substr(at, size - 12);
      cut.push_back(head + std::string(4, '\0') + part);
      const auto length = static_cast<uint32_t>(part.size());
      std::memcpy(cut.back().data() + 8, &length, sizeof length);
      if (at > 12) cut.back()[7] = static_cast<char>(zrsv::giop::Type::Fragment);
      if (at + part.size() < message.size()) cut.back()[6] = static_cast<char>(cut.back()[6] | 2);
    }
    return cut;
  }
  zrsv::Fragments fragments(reinterpret_cast<unsigned char*>(message.data()), message.size(), size);
  for (const iovec& part : fragments.parts()) {
    const std::string_view octets(static_cast<const char*>(part.iov_base), part.iov_len);
    if (cut.empty() || octets.starts_with("GIOP")) cut.emplace_back();
    cut.back() += octets;
  }
  return cut;
}

/// One end of a connection, or a listener.
class Socket {
 public:
  explicit Socket(int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : fd_(fd) {
    const int on = 1;
    const timeval limit{bound.count(), 0};
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Socket() { close(); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

  bool send(std::string_view octets) {
    return ::send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(octets.size());
  }
  /// The next message, its fragments joined; false at the connection's end. That nothing comes in time is a failure of
  /// the test, as it is neither, unless it is not to wait.
  bool receive(zrsv::giop::Header* header, std::string* octets, bool waits = true) {
    using Result = zrsv::Assembler::Result;
    zrsv::Buffer message;
    for (Result result; (result = in_.next(header, &message)) != Result::Message;) {
      std::size_t room = 0;
      unsigned char* to = in_.room(&room);
      EXPECT_EQ(result, Result::NeedMore) << in_.error();
      const ssize_t n = result == Result::NeedMore ? ::recv(fd_, to, room, waits ? 0 : MSG_DONTWAIT) : 0;
      if (n < 0 && errno != ECONNRESET && (waits || errno != EAGAIN))
        ADD_FAILURE() << "neither a message nor the end: " << std::strerror(errno);
      if (n <= 0) return false;
      in_.received(static_cast<std::size_t>(n));
      received += static_cast<std::size_t>(n);
    }
    octets->assign(reinterpret_cast<const char*>(message.data()), message.size());
    return true;
  }
  /// Until something has come, which stays there.
  void await_input() {
    char first = 0;
    EXPECT_EQ(::recv(fd_, &first, 1, MSG_PEEK), 1);
  }
  /// All that comes until the connection's end.
  std::string rest() {
    std::string all;
    char some[1 << 16];
    for (ssize_t n; (n = ::recv(fd_, some, sizeof some, 0)) > 0;)
      all.append(some, static_cast<std::size_t>(n));
    return all;
  }
  int fd() const { return fd_; }
  /// Gives back what reading took.
  void forget() { in_.reset(); }
  std::size_t received = 0;  // octets so far

 protected:
  int fd_;

 private:
  zrsv::Assembler in_{256u << 20};
};

/// Calls ::connect or ::bind with a port of the loopback address.
template <class Call>
bool at_loopback(Call* call, int fd, uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return call(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0;
}
