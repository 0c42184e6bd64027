// A server that answers each request with the next reply of a script.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "../core/octets.h"
#include "orb_fixture.h"

/// Status and body of a reply; status `hang_up` closes the connection instead.
struct ScriptedReply {
  static constexpr uint32_t hang_up = 99;
  uint32_t status;
  std::string body;
};

class ScriptedPeer {
 public:
  explicit ScriptedPeer(std::vector<ScriptedReply> script) : script_(std::move(script)) {
    socklen_t size = sizeof address_;
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address_), size), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
    EXPECT_EQ(::listen(listener_, 4), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedPeer() {
    ::shutdown(listener_, SHUT_RDWR);
    if (const int fd = connection_; fd >= 0) ::shutdown(fd, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }

  /// A new handle to an object of this server.
  void* handle() const {
    const std::string text =
        "corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/key";
    return CORBA_ORB_string_to_object(test_orb(), text.c_str(), nullptr);
  }
  /// How many requests came.
  int requests() const { return requests_; }

 private:
  void serve() {
    for (auto next = script_.begin(); next != script_.end();) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      if (fd < 0) return;
      connection_ = fd;
      while (next != script_.end() && answer(fd, *next)) ++next;
      if (next != script_.end() && next->status == ScriptedReply::hang_up) ++next;
      for (char octet = 0; next == script_.end() && ::recv(fd, &octet, 1, 0) > 0;) {
      }
      connection_ = -1;
      ::close(fd);
    }
  }
  /// Reads one request and answers it; false at the connection's end.
  bool answer(int fd, const ScriptedReply& reply) {
    char header[12];
    if (::recv(fd, header, sizeof header, MSG_WAITALL) != sizeof header) return false;
    uint32_t size = 0;
    std::memcpy(&size, header + 8, sizeof size);
    std::string request(size, '\0');
    if (::recv(fd, request.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size)) return false;
    ++requests_;
    if (reply.status == ScriptedReply::hang_up) return false;
    std::string message = hex("47494F50 01020101");  // GIOP 1.2, little-endian, Reply
    const auto word = [&](uint32_t value) {
      message.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    word(12 + static_cast<uint32_t>(reply.body.size()));
    message += request.substr(0, 4);  // the request's number
    word(reply.status);
    word(0);  // no service contexts; the body then stands at octet 24
    message += reply.body;
    return ::send(fd, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size());
  }

  const std::vector<ScriptedReply> script_;
  sockaddr_in address_{};
  const int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  std::atomic<int> connection_{-1};
  std::atomic<int> requests_{0};
  std::thread thread_;
};
