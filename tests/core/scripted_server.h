// A server for the client's tests: a raw socket, and a script for each connection in turn.
#pragma once

#include <atomic>
#include <thread>

#include "connections/client_pool.h"
#include "references/reference.h"
#include "sockets.h"
#include "wire/iiop_profile.h"

/// A message that a client sent, its fragments joined.
struct Got {
  zrsv::giop::Header header;
  uint32_t id = 0;
  std::string key, octets;
  uint64_t argument = 0;  // each request of these tests has one, after a long
  bool response_expected = true;
};

/// A reply; its body starts on a multiple of 8 in every version.
inline std::string reply(const Got& to, uint32_t status, std::string_view body) {
  Encoding message;
  zrsv::giop::begin_reply(message, to.header.minor, to.id, status);
  zrsv::Writer(message).raw(body);
  zrsv::giop::end_message(message);
  return message.octets();
}

inline std::string encoded(const std::function<void(zrsv::Writer&)>& write) {
  Encoding stream;
  zrsv::Writer out(stream);
  write(out);
  return stream.octets();
}

/// One end of a connection that a script plays.
class Peer : public Socket {
 public:
  using Socket::Socket;

  /// False at the connection's end.
  bool next(Got* got) {
    if (!receive(&got->header, &got->octets)) return false;
    Decoding in(got->octets, got->header.little, zrsv::giop::header_size, got->header.minor);
    zrsv::giop::RequestHead head;
    int32_t filler = 0;
    if (got->header.type == zrsv::giop::Type::CancelRequest) return OM_cdr_unsigned_long(in, &got->id);
    EXPECT_TRUE(zrsv::giop::read_request(in, got->header.minor, &head) && OM_cdr_long(in, &filler) &&
                OM_cdr_unsigned_long_long(in, &got->argument));
    got->id = head.id;
    got->key = head.key;
    got->response_expected = head.response_expected;
    return true;
  }
  Got read() {
    Got got;
    EXPECT_TRUE(next(&got));
    return got;
  }
  /// Answers with the argument, plus `more`.
  void echo(const Got& to, uint32_t more = 0) {
    const auto value = static_cast<uint32_t>(to.argument) + more;
    send(reply(to, ZR_REPLY_NO_EXCEPTION, encoded([&](auto& out) { out.u32(value); })));
  }
  /// Answers all requests until the client goes.
  void echo_all() {
    for (Got got; next(&got);) echo(got);
  }
};

using Script = std::function<void(Peer&)>;

/// Runs the scripts, each for one connection, in the order in which connections come; refuses connections
/// after the last.
class ScriptedServer : private Socket {
 public:
  explicit ScriptedServer(std::vector<Script> scripts) {
    EXPECT_TRUE(at_loopback(::bind, fd_, 0) && (scripts.empty() || ::listen(fd_, 16) == 0));
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, all = std::move(scripts)] {
      for (std::size_t i = 0; i < all.size(); ++i) {
        const int fd = ::accept(fd_, nullptr, nullptr);
        if (fd < 0) return ADD_FAILURE() << "no connection for script " << i, void();
        Peer peer(fd);
        ++accepted;
        if (i + 1 == all.size()) close();
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
  uint16_t port() const { return port_; }

  std::atomic<int> accepted{0};

 private:
  uint16_t port_ = 0;
  std::thread thread_;
};

/// One address of a reference.
struct Address {
  uint16_t port;
  std::string key = "k";
  uint8_t minor = 2;
};

inline std::string ior(const std::vector<Address>& addresses) {
  return encoded([&](zrsv::Writer& out) {
    out.text("IDL:test/Thing:1.0").u32(static_cast<uint32_t>(addresses.size()));
    for (const Address& a : addresses) {
      const zrsv::Endpoint endpoint{"127.0.0.1", a.port};
      zrsv::write_iiop_profile(&out, a.minor, {&endpoint, 1}, a.key);
    }
  });
}

inline zrsv::Ref<zrsv::Reference> reference_to(const std::vector<Address>& addresses) {
  zrsv::Ref<zrsv::Reference> made;
  EXPECT_TRUE(zrsv::read_reference(Decoding(ior(addresses)), &made));
  return made;
}
