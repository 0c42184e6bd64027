// A server in memory that answers each request with the next of its replies.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <bit>
#include <vector>

#include "../core/octets.h"
#include "memory_network.h"
#include "orb_fixture.h"

/// Status and body of a reply; status `hang_up` closes the connection instead.
struct ScriptedReply {
  static constexpr uint32_t hang_up = 99;
  uint32_t status;
  std::string body;
};

class Replies {  // for one client, which sends each request at once
 public:
  explicit Replies(std::vector<ScriptedReply> replies) : replies_(std::move(replies)) {}
  ~Replies() { ::close(fd_); }

  /// A new handle to an object of this server.
  void* handle() const {
    const std::string at = std::string(memory_network::host) + ":" + std::to_string(port_.number());
    return CORBA_ORB_string_to_object(test_orb(), ("corbaloc:iiop:1.2@" + at + "/key").c_str(), nullptr);
  }
  /// How many requests came.
  std::size_t requests() const { return requests_; }

 private:
  void answer() {
    uint32_t request[1024];
    if (::recv(fd_, request, sizeof request, MSG_DONTWAIT) <= 0 || ++requests_ > replies_.size()) return;
    const ScriptedReply& reply = replies_[requests_ - 1];
    if (reply.status == ScriptedReply::hang_up) return void(::shutdown(fd_, SHUT_RDWR));
    const auto size = static_cast<uint32_t>(12 + reply.body.size());
    const uint32_t head[] = {size, request[3], reply.status,
                             0};  // its number; no service contexts; then octet 24
    const std::string message =
        hex("47494F50 0102 0" + std::to_string(std::endian::native == std::endian::little) + "01") +
        std::string(reinterpret_cast<const char*>(head), sizeof head) + reply.body;
    EXPECT_EQ(::send(fd_, message.data(), message.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(message.size()));
  }

  const std::vector<ScriptedReply> replies_;
  std::size_t requests_ = 0;
  int fd_ = -1;
  const memory_network::Port port_{[this](int fd, memory_network::Heard* heard) {
    if (fd_ >= 0) return false;
    fd_ = fd;
    *heard = [this] { answer(); };
    return true;
  }};
};
