// For the engine's tests: a process that serves one kind of object through the hooks, and clients that talk
// to it by raw sockets.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <semaphore>

#include "calls/in_process.h"
#include "no_leftovers.h"
#include "references/reference.h"
#include "requests/queue_group.h"
#include "sockets.h"

namespace engine_test {

using zrsv::giop::Type;
using Texts = std::vector<std::string>;
inline constexpr const char* impl_name = "engine test";

/// What threads tell each other, and a gate that keeps them; every wait is bounded.
class Board {
 public:
  void add(const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  Texts lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  bool wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, bound, [&] { return lines_.size() >= count; });
  }
  void pass() {
    add("in");
    EXPECT_TRUE(gate_.try_acquire_for(bound));
  }
  void open(int count) { gate_.release(count); }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Texts lines_;
  std::counting_semaphore<> gate_{0};
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
};

/// One request message; the argument is a long.
inline std::string request(uint32_t id, const std::string& operation, int32_t argument, std::string_view key,
                           uint8_t minor = 2, bool response = true) {
  Encoding out(minor);
  EXPECT_TRUE(zrsv::giop::begin_request(out, minor, id, response, key, operation) &&
              zrsv::giop::align_body(out, minor));
  zrsv::Writer(out).u32(static_cast<uint32_t>(argument));
  zrsv::giop::end_message(out);
  return out.octets();
}
/// A message with so many octets more at its end.
inline std::string with_more(std::string message, std::size_t octets, char octet = 'x') {
  message.append(octets, octet);
  const auto size = static_cast<uint32_t>(message.size() - zrsv::giop::header_size);
  std::memcpy(message.data() + 8, &size, sizeof size);
  return message;
}
inline std::string cancel(uint32_t id, uint8_t minor = 2) {
  return message(
      Type::CancelRequest, [&](zrsv::Writer& out) { out.u32(id); }, minor);
}

/// A client's end of a connection.
class Client : public Socket {
 public:
  explicit Client(uint16_t port) : connected(at_loopback(::connect, fd_, port)) {}
  /// One whose system takes no more than about so many octets for it.
  Client(uint16_t port, int most) : connected(limit(most) && at_loopback(::connect, fd_, port)) {}

  /// The server's next message: "42", "TRANSIENT 1" (name, completion), "here" of a LocateReply,
  /// "MessageError" or "CloseConnection"; "end" at the connection's end.
  std::string answer() {
    zrsv::giop::Header header;
    std::string octets;
    if (!receive(&header, &octets)) return "end";
    if (header.type == Type::MessageError) return "MessageError";
    if (header.type == Type::CloseConnection) return "CloseConnection";
    Decoding in(octets, header.little, zrsv::giop::header_size, header.minor);
    zrsv::giop::ReplyHead head;
    if (header.type == Type::LocateReply) return "here";
    EXPECT_TRUE(zrsv::giop::read_reply(in, header.minor, &head));
    zrsv::Reader body(in);
    if (head.status == ZR_REPLY_NO_EXCEPTION) return std::to_string(static_cast<int32_t>(body.u32()));
    const std::string id(body.text()), prefix = "IDL:omg.org/CORBA/";
    EXPECT_TRUE(id.starts_with(prefix)) << id;
    body.u32();  // minor code
    return id.substr(prefix.size(), id.rfind(':') - prefix.size()) + " " + std::to_string(body.u32());
  }
  Texts answers(int count) {
    Texts texts;
    for (int i = 0; i < count; ++i) texts.push_back(answer());
    return texts;
  }
  std::string ask(std::string_view octets) { return send(octets) ? answer() : "not sent"; }

  const bool connected;

 private:
  bool limit(int octets) { return ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &octets, sizeof octets) == 0; }
};

/// A call of the library's own client on an object of this process: the number that it gives, or the name of what is
/// wrong.
inline std::string own_call(const std::string& key, const char* operation, int32_t argument) {
  const auto target = zrsv::Reference::from_key(key);
  void* request = nullptr;
  uint32_t kind = 0, status = 99;
  CDR* cdr = nullptr;
  int32_t value = argument;
  Outcome ev;
  const bool answered = OM_req_lib_initiator_request_create(target.get(), operation, 1, &request, &kind) &&
                        OM_req_lib_UNO_IIOP_get_cdr(request, &cdr) && OM_cdr_long(cdr, &value) &&
                        OM_req_lib_UNO_IIOP_send_request(request) &&
                        OM_req_lib_UNO_IIOP_recv_reply(request) &&
                        OM_req_lib_UNO_IIOP_decode_reply_header(request, &status);
  if (!answered) SetStdExReqLib(CORBA_COMPLETED_NO, ev);
  if (status == ZR_REPLY_SYSTEM_EXCEPTION) OM_req_lib_UNO_IIOP_decode_standard_excep(request, ev);
  const bool right = status == ZR_REPLY_NO_EXCEPTION && OM_cdr_long(cdr, &value);
  OM_req_lib_UNO_IIOP_initiator_request_complete(request);
  return right ? std::to_string(value) : ev.name();
}

/// A started ORB with the group open; undone at the end.
class Engine : public testing::Test {
 protected:
  void SetUp() override {
    operations = {{"echo", [](Upcalled& r) { r.answer(r.argument); }},
                  {"octets",  // so many octets
                   [](Upcalled& r) {
                     r.answer(r.argument);
                     EXPECT_TRUE(zrsv::put_octets(r.cdr, std::string(static_cast<size_t>(r.argument), 'x')));
                   }},
                  {"block", [this](Upcalled& r) {
                     barrier_.pass();
                     r.answer(r.argument);
                     board_.add("back");
                   }}};
    disconnect = [](long, const void*, bool) {};
    tick = [] {};
    root = [] { return zrsv::Reference::make_local("IDL:R:1.0", "IDL:R:1.0", "root").release(); };
    _cpp_poa_init = [](void*, void*) -> void* { return root(); };
    _call_cpp_ = [](void*, void* request, CORBA_Environment*) {
      Upcalled upcalled(request);
      const auto found = operations.find(upcalled.info->operation);
      if (found != operations.end()) found->second(upcalled);
    };
    _call_disconnect_cpp_ = [](long fd, void* address, unsigned char ipv6) { disconnect(fd, address, ipv6); };
    _call_poa_inst_lifespan_ = [] { tick(); };
  }
  void TearDown() override {
    if (orb_) CORBA_ORB_destroy(orb_, env_);
    EXPECT_EQ(env_.name(), "");
    expect_no_leftovers();
    _cpp_poa_init = nullptr;
    _call_cpp_ = nullptr;
    _call_disconnect_cpp_ = nullptr;
    _call_poa_inst_lifespan_ = nullptr;
  }

  void init(Texts options) {
    options.insert(options.begin(), "test");
    std::vector<char*> argv;
    for (std::string& option : options) argv.push_back(option.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(options.size());
    orb_ = CORBA_ORB_init(&argc, argv.data(), "", env_);
    ASSERT_TRUE(orb_);
  }
  void start(Texts options = {}) {
    init(std::move(options));
    ASSERT_TRUE(resolve_root()) << env_.name();
    void* repository = CORBA_ORB_resolve_initial_references(orb_, "ImplementationRepository", env_);
    CORBA_BOA_impl_is_ready(nullptr, KQ_ImplementationRep_lookup_id(repository, impl_name, env_), env_);
    ZR_queue_begin();
    control(ZR_QUEUE_RELEASE);
  }
  bool resolve_root() {
    void* resolved = CORBA_ORB_resolve_initial_references(orb_, "RootPOA", env_);
    CORBA_object_release(resolved);
    return resolved != nullptr;
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
  static std::string key() { return zrsv::Reference::make_local(impl_name, "IDL:Test:1.0", "object")->key(); }
  static std::string call(uint32_t id, const char* operation, int32_t argument = 0) {
    return request(id, operation, argument, key());
  }

  // What the hooks of the process do.
  static inline std::map<std::string, std::function<void(Upcalled&)>> operations;
  static inline std::function<void(long fd, const void* address, bool ipv6)> disconnect;
  static inline std::function<void()> tick;
  static inline std::function<zrsv::Reference*()> root;

  void* orb_ = nullptr;
  Outcome env_;
  Board board_, barrier_;  // outlive the threads of the ORB, unlike what a test has on its stack
  // Answered with "here" once all before it is in.
  const std::string look_ =
      message(Type::LocateRequest, [](zrsv::Writer& out) { out.u32(9).u16(0).octets(key()); });
};

}  // namespace engine_test
