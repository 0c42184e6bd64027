// For the engine's tests: a process that serves one kind of object through the hooks, and clients that talk
// to it by raw sockets.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "assembler.h"
#include "giop.h"
#include "in_process.h"
#include "octets.h"
#include "queue_group.h"
#include "reference.h"

namespace engine_test {

inline constexpr auto bound = std::chrono::seconds(20);
inline constexpr const char* impl_name = "engine test";

/// What threads tell each other; every wait is bounded.
class Board {
 public:
  void add(const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  bool wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, bound, [&] { return lines_.size() >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
};

/// Keeps servants inside until the test lets them go.
class Barrier {
 public:
  void pass() {
    inside_.add("in");
    EXPECT_TRUE(go_.try_acquire_for(bound));
  }
  bool wait_inside(std::size_t count) { return inside_.wait_for(count); }
  void open(int count) { go_.release(count); }

 private:
  Board inside_;
  std::counting_semaphore<> go_{0};
};

/// A request as a servant of these tests sees it.
struct Upcalled {
  ZR_RequestInfo* info;
  CDR* cdr = nullptr;
  int32_t argument = 0;

  explicit Upcalled(void* request) : info(static_cast<ZR_ServerRequest*>(request)->info) {
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_get_cdr(info->request, &cdr));
    if (!OM_cdr_long(cdr, &argument)) argument = -1;
  }
  void answer(int32_t value) {
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_encode_reply_header(info->request, ZR_REPLY_NO_EXCEPTION) &&
                OM_cdr_long(cdr, &value));
  }
  void answer_octets(int32_t count) {
    std::string octets(static_cast<std::size_t>(count), 'x');
    answer(count);
    EXPECT_TRUE(
        cdr_bytes(cdr, reinterpret_cast<unsigned char*>(octets.data()), static_cast<uint32_t>(count)));
  }
};

using Operation = std::function<void(Upcalled&)>;

/// What the hooks of the process do; emptied by each fixture.
struct Script {
  std::map<std::string, Operation> operations;
  std::function<void(long fd, const unsigned char* address, bool ipv6)> disconnect;
  std::function<void()> tick;
  std::function<zrsv::Reference*()> root;
};
inline Script& script() {
  static Script one;
  return one;
}

/// A reply or locate reply, or another message of the server's, read to the body.
struct Answer {
  zrsv::giop::Type type{};
  uint8_t minor = 9;
  uint32_t id = 0, status = 9;
  int32_t value = -1;
  std::string exception;  // short name of a system exception
  uint32_t completed = 9;
  std::size_t size = 0;  // of the whole message

  /// "42", "TRANSIENT 1" (name, completion), "here", "unknown", "MessageError", "CloseConnection".
  std::string text() const {
    using zrsv::giop::Type;
    if (type == Type::MessageError) return "MessageError";
    if (type == Type::CloseConnection) return "CloseConnection";
    if (type == Type::LocateReply) return status == 1 ? "here" : "unknown";
    return status == 0 ? std::to_string(value) : exception + " " + std::to_string(completed);
  }
};

/// One request message; the argument is a long.
inline std::string request(uint32_t id, const char* operation, int32_t argument, std::string_view key,
                           uint8_t minor = 2, bool response = true) {
  Encoding out(minor);
  EXPECT_TRUE(zrsv::giop::begin_request(out, minor, id, response, key, operation) &&
              zrsv::giop::align_body(out, minor));
  static_cast<CDR*>(out)->direction = CDR_ENCODE;
  EXPECT_TRUE(OM_cdr_long(out, &argument));
  zrsv::giop::end_message(out);
  return out.octets();
}

/// A locate or cancel request: an id, and the key of the former.
inline std::string short_request(zrsv::giop::Type type, uint32_t id, std::string_view key,
                                 uint8_t minor = 2) {
  Encoding out(minor);
  EXPECT_TRUE(zrsv::giop::begin_message(out, minor, type));
  static_cast<CDR*>(out)->direction = CDR_ENCODE;
  uint16_t key_address = 0;
  auto length = static_cast<uint32_t>(key.size());
  EXPECT_TRUE(OM_cdr_unsigned_long(out, &id));
  if (type == zrsv::giop::Type::LocateRequest) {
    if (minor == 2) {
      EXPECT_TRUE(OM_cdr_unsigned_short(out, &key_address));
    }
    EXPECT_TRUE(OM_cdr_unsigned_long(out, &length));
    EXPECT_TRUE(cdr_bytes(out, reinterpret_cast<unsigned char*>(const_cast<char*>(key.data())), length));
  }
  zrsv::giop::end_message(out);
  return out.octets();
}

/// Cuts a message into fragments as a peer would.
inline std::vector<std::string> fragments(std::string message, uint32_t size) {
  std::vector<std::string> cut;
  zrsv::Pieces pieces(reinterpret_cast<unsigned char*>(message.data()), message.size(), size);
  for (const iovec& part : pieces.parts()) {
    const std::string_view octets(static_cast<const char*>(part.iov_base), part.iov_len);
    if (cut.empty() || octets.starts_with("GIOP")) cut.emplace_back();
    cut.back() += octets;
  }
  return cut;
}

/// A client's end of a connection.
class Client {
 public:
  explicit Client(uint16_t port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval limit{std::chrono::seconds(bound).count(), 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0;
  }
  ~Client() { close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return connected_; }
  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }
  bool send(std::string_view octets) {
    return ::send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(octets.size());
  }
  /// The next message; nothing at the connection's end.
  std::optional<Answer> read() {
    zrsv::Buffer message;
    zrsv::giop::Header header;
    for (;;) {
      switch (in_.next(&header, &message)) {
        case zrsv::Assembler::Result::Message:
          return decode(header, message);
        case zrsv::Assembler::Result::Bad:
          ADD_FAILURE() << in_.error();
          return {};
        case zrsv::Assembler::Result::NeedMore:
          std::size_t room = 0;
          unsigned char* to = in_.room(&room);
          const ssize_t n = ::recv(fd_, to, room, 0);
          if (n <= 0) return {};
          in_.received(static_cast<std::size_t>(n));
      }
    }
  }
  /// The next message's text; "end" at the connection's end.
  std::string answer() {
    const std::optional<Answer> got = read();
    return got ? got->text() : "end";
  }

 private:
  static Answer decode(const zrsv::giop::Header& header, const zrsv::Buffer& message) {
    using zrsv::giop::Type;
    Answer got;
    got.type = header.type;
    got.minor = header.minor;
    got.size = message.size();
    Decoding in({reinterpret_cast<const char*>(message.data()), message.size()}, header.little, 12,
                header.minor);
    zrsv::giop::ReplyHead head;
    if (header.type == Type::Reply) {
      EXPECT_TRUE(zrsv::giop::read_reply(in, header.minor, &head));
    }
    if (header.type == Type::LocateReply) {
      EXPECT_TRUE(zrsv::giop::read_locate_reply(in, header.minor, &head));
    }
    got.id = head.id;
    got.status = head.status;
    if (header.type == Type::Reply && head.status == 0) {
      EXPECT_TRUE(OM_cdr_long(in, &got.value));
    }
    if (header.type == Type::Reply && head.status == 2) {
      const char* id = nullptr;
      uint32_t minor = 0;
      EXPECT_TRUE(OM_cdr_string_view(in, &id) && OM_cdr_unsigned_long(in, &minor) &&
                  OM_cdr_unsigned_long(in, &got.completed));
      got.exception = id;
      EXPECT_TRUE(got.exception.starts_with("IDL:omg.org/CORBA/")) << id;
      got.exception = got.exception.substr(18, got.exception.size() - 22);
    }
    return got;
  }

  int fd_;
  bool connected_ = false;
  zrsv::Assembler in_{256u << 20};
};

/// A started ORB with the group open; undone at the end.
class Engine : public testing::Test {
 protected:
  void SetUp() override {
    script() = {};
    script().operations["echo"] = [](Upcalled& r) { r.answer(r.argument); };
    _cpp_poa_init = [](void*, void*) -> void* {
      return script().root ? script().root()
                           : zrsv::Reference::make_local("IDL:R:1.0", "IDL:R:1.0", "root").release();
    };
    _call_cpp_ = [](void*, void* request, CORBA_Environment*) {
      Upcalled upcalled(request);
      const auto found = script().operations.find(upcalled.info->operation);
      if (found != script().operations.end()) found->second(upcalled);
    };
    _call_disconnect_cpp_ = [](long fd, void* address, unsigned char ipv6) {
      if (script().disconnect) script().disconnect(fd, static_cast<unsigned char*>(address), ipv6 != 0);
    };
    _call_poa_inst_lifespan_ = [] {
      if (script().tick) script().tick();
    };
  }
  void TearDown() override {
    if (orb_) CORBA_ORB_destroy(orb_, env_);
    EXPECT_EQ(env_.name(), "");
    _cpp_poa_init = nullptr;
    _call_cpp_ = nullptr;
    _call_disconnect_cpp_ = nullptr;
    _call_poa_inst_lifespan_ = nullptr;
  }

  void init(std::vector<std::string> options) {
    options.insert(options.begin(), "test");
    std::vector<char*> argv;
    for (std::string& option : options) argv.push_back(option.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(options.size());
    orb_ = CORBA_ORB_init(&argc, argv.data(), "", env_);
    ASSERT_TRUE(orb_);
  }
  void start(std::vector<std::string> options = {}) {
    init(std::move(options));
    ASSERT_TRUE(resolve_root()) << env_.name();
    void* repository = CORBA_ORB_resolve_initial_references(orb_, "ImplementationRepository", env_);
    CORBA_BOA_impl_is_ready(nullptr, KQ_ImplementationRep_lookup_id(repository, impl_name, env_), env_);
    control(ZR_QUEUE_RELEASE);
  }
  bool resolve_root() {
    void* root = CORBA_ORB_resolve_initial_references(orb_, "RootPOA", env_);
    CORBA_object_release(root);
    return root != nullptr;
  }
  void control(int code) {
    ZR_queue_control_queue_group(0, impl_name, code, 0, env_);
    ASSERT_EQ(env_.name(), "");
  }
  uint16_t port() {
    const std::string at = ZR_published_endpoint(orb_, 0);
    return static_cast<uint16_t>(std::stoi(at.substr(at.rfind(':') + 1)));
  }
  /// The key of an object of the adapter.
  static std::string key(const std::string& impl = impl_name, const std::string& intf = "IDL:Test:1.0") {
    return zrsv::Reference::make_local(impl, intf, "object")->key();
  }
  static std::string call(uint32_t id, const char* operation, int32_t argument = 0) {
    return request(id, operation, argument, key());
  }

  void* orb_ = nullptr;
  Outcome env_;
  Board board_;  // outlive the threads of the ORB, unlike what a test has on its stack
  Barrier barrier_;
};

}  // namespace engine_test
