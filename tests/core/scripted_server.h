// A server for the client's tests: a raw socket, and a script for each connection in turn.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cdr_chain.h"
#include "client_pool.h"
#include "giop.h"
#include "iiop_profile.h"
#include "octets.h"
#include "reference.h"

inline constexpr auto test_bound = std::chrono::seconds(20);

inline void bound_reads(int fd) {
  const timeval bound{test_bound.count(), 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
}

/// A socket of a free port of the loopback address; until it listens, connections to it are refused.
class BoundSocket {
 public:
  BoundSocket() : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    socklen_t size = sizeof address_;
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address_), size), 0);
    EXPECT_EQ(::getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
  }
  ~BoundSocket() { close(); }
  BoundSocket(const BoundSocket&) = delete;
  BoundSocket& operator=(const BoundSocket&) = delete;

  int fd() const { return fd_; }
  uint16_t port() const { return ntohs(address_.sin_port); }
  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

 private:
  int fd_;
  sockaddr_in address_{};
};

/// A message that a client sent, its fragments joined.
struct Got {
  zrsv::giop::Header header;
  uint32_t id = 0;
  uint32_t fragments = 0;
  std::string operation, key, octets;
  uint64_t argument = 0;  // each request of these tests has one, after a long
};

/// One end of a connection that a script plays.
class Peer {
 public:
  explicit Peer(int fd) : fd_(fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    bound_reads(fd);
  }
  ~Peer() { ::close(fd_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// The next message; nothing at the connection's end.
  std::optional<Got> read() {
    Got got;
    if (!read_message(&got.header, &got.octets)) return {};
    for (zrsv::giop::Header more = got.header; more.more; ++got.fragments) {
      if (more.minor == 2) {
        EXPECT_EQ((zrsv::giop::header_size + more.size) % 8, 0u) << "all fragments but the last";
      }
      std::string octets;
      if (!read_message(&more, &octets) || more.type != zrsv::giop::Type::Fragment) return {};
      got.octets += octets.substr(more.minor == 2 ? 16 : 12);
    }
    Decoding in(got.octets, got.header.little, zrsv::giop::header_size, got.header.minor);
    CDR* cdr = in;
    if (got.header.type == zrsv::giop::Type::CancelRequest) return OM_cdr_unsigned_long(cdr, &got.id), got;
    zrsv::giop::RequestHead head;
    int32_t filler = 0;
    EXPECT_TRUE(zrsv::giop::read_request(cdr, got.header.minor, &head));
    EXPECT_TRUE(OM_cdr_long(cdr, &filler) && OM_cdr_unsigned_long_long(cdr, &got.argument));
    got.id = head.id;
    got.operation = head.operation;
    got.key = head.key;
    return got;
  }

  void send(std::string_view octets) { ::send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL); }

  void empty(zrsv::giop::Type type) {
    unsigned char octets[zrsv::giop::header_size];
    zrsv::giop::write_empty(octets, 2, type);
    send(zrsv::as_view(octets, sizeof octets));
  }

  static std::string reply(const Got& to, uint32_t status, const std::function<void(zrsv::Writer&)>& body) {
    Encoding message;
    zrsv::giop::begin_reply(message, to.header.minor, to.id, status);
    zrsv::giop::align_body(message, to.header.minor);
    zrsv::Writer out(message);
    body(out);
    zrsv::giop::end_message(message);
    return message.octets();
  }

  /// Answers with the argument, plus `more`.
  void echo(const Got& to, uint32_t more = 0) {
    send(reply(to, ZR_REPLY_NO_EXCEPTION,
               [&](zrsv::Writer& out) { out.u32(static_cast<uint32_t>(to.argument) + more); }));
  }
  /// Answers all requests until the client goes.
  void echo_all(uint32_t more = 0) {
    while (std::optional<Got> got = read()) echo(*got, more);
  }

 private:
  bool read_message(zrsv::giop::Header* header, std::string* octets) {
    octets->resize(zrsv::giop::header_size);
    if (!read_exactly(octets->data(), octets->size())) return false;
    const auto* start = reinterpret_cast<const unsigned char*>(octets->data());
    if (const char* wrong = zrsv::giop::read_header(start, 1u << 30, header))
      return ADD_FAILURE() << wrong, false;
    octets->resize(zrsv::giop::header_size + header->size);
    return read_exactly(octets->data() + zrsv::giop::header_size, header->size);
  }
  bool read_exactly(char* to, std::size_t n) {
    return n == 0 || ::recv(fd_, to, n, MSG_WAITALL) == static_cast<ssize_t>(n);
  }

  int fd_;
};

using Script = std::function<void(Peer&)>;

/// Runs the scripts, each for one connection, in the order in which connections come; refuses connections
/// after the last.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::vector<Script> scripts) {
    EXPECT_EQ(::listen(listener_.fd(), 16), 0);
    bound_reads(listener_.fd());
    thread_ = std::thread([this, all = std::move(scripts)] {
      for (std::size_t i = 0; i < all.size(); ++i) {
        const int fd = ::accept(listener_.fd(), nullptr, nullptr);
        if (fd < 0) return ADD_FAILURE() << "no connection for script " << i, void();
        Peer peer(fd);
        ++accepted_;
        if (i + 1 == all.size()) listener_.close();
        all[i](peer);
      }
    });
  }
  /// Closes the client's connections, for scripts that go on until then.
  ~ScriptedServer() {
    zrsv::close_client_connections();
    join();
  }

  /// Waits for the last script's end.
  void join() {
    if (thread_.joinable()) thread_.join();
  }
  uint16_t port() const { return listener_.port(); }
  int accepted() const { return accepted_; }

 private:
  BoundSocket listener_;
  std::atomic<int> accepted_{0};
  std::thread thread_;
};

/// One address of a reference.
struct Address {
  uint16_t port;
  std::string key = "k";
  uint8_t minor = 2;
};

inline void write_ior(zrsv::Writer& out, const std::vector<Address>& addresses) {
  out.text("IDL:test/Thing:1.0").u32(static_cast<uint32_t>(addresses.size()));
  for (const Address& a : addresses) {
    const zrsv::Endpoint endpoint{"127.0.0.1", a.port};
    zrsv::write_iiop_profile(&out, a.minor, {&endpoint, 1}, a.key);
  }
}

inline zrsv::Ref<zrsv::Reference> reference_to(const std::vector<Address>& addresses) {
  Encoding ior;
  zrsv::Writer out(ior);
  write_ior(out, addresses);
  zrsv::Ref<zrsv::Reference> made;
  EXPECT_TRUE(zrsv::read_reference(Decoding(ior.octets()), &made));
  return made;
}
