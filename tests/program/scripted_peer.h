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

class ScriptedPeer {  // for one client
 public:
  explicit ScriptedPeer(std::vector<ScriptedReply> script) : script_(std::move(script)) {
    socklen_t size = sizeof address_;
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address_), size), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
    EXPECT_EQ(::listen(listener_, 1), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedPeer() {
    ::shutdown(listener_, SHUT_RDWR);
    ::shutdown(connection_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
    ::close(connection_);
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
    connection_ = ::accept(listener_, nullptr, nullptr);
    ::shutdown(listener_, SHUT_RDWR);
    for (const ScriptedReply& reply : script_)
      if (!answer(reply)) return void(::shutdown(connection_, SHUT_RDWR));
    for (char octet = 0; ::recv(connection_, &octet, 1, 0) > 0;) {
    }
  }
  /// Reads one request and answers it; false at the connection's end.
  bool answer(const ScriptedReply& reply) {
    char header[12];
    if (::recv(connection_, header, sizeof header, MSG_WAITALL) != sizeof header) return false;
    uint32_t size = 0;
    std::memcpy(&size, header + 8, sizeof size);
    std::string request(size, '\0');
    if (::recv(connection_, request.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size)) return false;
    ++requests_;
    if (reply.status == ScriptedReply::hang_up) return false;
    const auto word = [](uint32_t value) {
      return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    };
    const std::string message = hex("47494F50 01020101")  // GIOP 1.2, little-endian, Reply
                                + word(12 + static_cast<uint32_t>(reply.body.size())) +
                                request.substr(0, 4)            // the request's number
                                + word(reply.status) + word(0)  // no service contexts; then octet 24
                                + reply.body;
    return ::send(connection_, message.data(), message.size(), MSG_NOSIGNAL) > 0;
  }

  const std::vector<ScriptedReply> script_;
  sockaddr_in address_{};
  const int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  std::atomic<int> connection_{-1};
  std::atomic<int> requests_{0};
  std::thread thread_;
};
