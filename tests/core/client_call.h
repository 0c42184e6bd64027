// Calls of the ORB core, step by step, to a server that a test plays.
#pragma once

#include <algorithm>
#include <atomic>
#include <list>
#include <thread>

#include "connections/client_pool.h"
#include "memory_network.h"
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

  /// False at the connection's end, and where no whole message is there and it does not wait for one.
  bool next(Got* got, bool waits = true) {
    if (!receive(&got->header, &got->octets, waits)) return false;
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
  /// Answers what is there.
  void answer_all(const std::function<bool(Peer&, const Got&)>& answer) {
    for (Got got; fd_ >= 0 && next(&got, false);)
      if (!answer(*this, got)) close();
  }
};

using Script = std::function<void(Peer&)>;
/// False ends the connection.
using Answer = std::function<bool(Peer&, const Got&)>;
inline bool answer_nothing(Peer&, const Got&) { return true; }
inline bool echo_each(Peer& peer, const Got& got) { return peer.echo(got), true; }

/// What a server does on one connection: it answers each message on the thread that has sent it, or goes through a script
/// on a thread of its own.
struct Play {
  template <class Act>
  Play(Act act) {
    if constexpr (std::is_invocable_v<Act, Peer&, const Got&>)
      answer = std::move(act);
    else
      script = std::move(act);
  }
  Answer answer;
  Script script;
};

/// A server of the network in memory. It plays each of these for one connection, in the order in which connections come,
/// and refuses those after the last, or plays the last one for them all.
class Server {
 public:
  explicit Server(std::vector<Play> plays, bool for_ever = false)
      : plays_(std::move(plays)), for_ever_(for_ever) {}
  /// Closes the client's connections, for scripts that go on until then.
  ~Server() {
    zrsv::close_client_connections();
    join();
    EXPECT_TRUE(for_ever_ || accepted == plays_.size());
  }
  /// Waits for the scripts' ends.
  void join() {
    for (std::thread& one : threads_)
      if (one.joinable()) one.join();
  }
  uint16_t port() const { return port_.number(); }

  std::atomic<std::size_t> accepted{0};

 private:
  bool arrive(int fd, memory_network::Heard* heard) {
    if (accepted >= plays_.size() && !for_ever_) return false;
    const Play& play = plays_[std::min<std::size_t>(accepted++, plays_.size() - 1)];
    Peer& peer = peers_.emplace_back(fd);
    if (play.answer)
      *heard = [&] { peer.answer_all(play.answer); };
    else
      threads_.emplace_back([&] { play.script(peer), peer.close(); });
    return true;
  }

  const std::vector<Play> plays_;
  const bool for_ever_;
  std::list<Peer> peers_;
  std::list<std::thread> threads_;
  const memory_network::Port port_{[this](int fd, auto* heard) { return arrive(fd, heard); }};
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
      const zrsv::Endpoint endpoint{memory_network::host, a.port};
      zrsv::write_iiop_profile(&out, a.minor, {&endpoint, 1}, a.key);
    }
  });
}

inline zrsv::Ref<zrsv::Reference> reference_to(const std::vector<Address>& addresses) {
  zrsv::Ref<zrsv::Reference> made;
  EXPECT_TRUE(zrsv::read_reference(Decoding(ior(addresses)), &made));
  return made;
}

/// What became of a call, as text: "42", "no value", "forward", or "NAME minor" of a failure.
using Result = std::string;

inline Result failure() {
  Outcome ev;
  SetStdExReqLib(CORBA_COMPLETED_MAYBE, ev);
  const CORBA_Environment& record = *static_cast<CORBA_Environment*>(ev);
  const bool knows = record._completed == CORBA_COMPLETED_NO;
  const std::string minor = std::to_string(record._minor), name = ev.name();
  EXPECT_EQ(knows, name == "TRANSIENT") << name << ": nobody took such a request, and no other is known of";
  return name + " " + minor;
}

/// One call, step by step as a stub makes it.
class Call {
 public:
  explicit Call(const zrsv::Ref<zrsv::Reference>& object, uint64_t argument = 42,
                bool response_expected = true, std::size_t filler = 0) {
    uint32_t kind = 0;
    int32_t word = 0;
    created_ = OM_req_lib_initiator_request_create(object.get(), "op", response_expected, &request_, &kind);
    if (!created_) return;
    EXPECT_EQ(kind, unsigned{ZR_REQUEST_IIOP});
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_get_cdr(request_, &cdr));
    encoded_ = OM_cdr_long(cdr, &word) && OM_cdr_unsigned_long_long(cdr, &argument);
    unsigned char some[1000];
    std::fill(std::begin(some), std::end(some), 'Z');
    for (std::size_t n = 0; encoded_ && filler > 0; filler -= n) {
      n = std::min(filler, sizeof some);
      encoded_ = cdr_bytes(cdr, some, static_cast<uint32_t>(n));
    }
  }
  ~Call() { OM_req_lib_UNO_IIOP_initiator_request_complete(request_); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void* get() const { return request_; }
  bool send() { return encoded_ && OM_req_lib_UNO_IIOP_send_request(request_); }
  Result result() {
    uint32_t status = 9, value = 0;
    if (!OM_req_lib_UNO_IIOP_recv_reply(request_) ||
        !OM_req_lib_UNO_IIOP_decode_reply_header(request_, &status))
      return failure();
    if (status == ZR_REPLY_LOCATION_FORWARD) return "forward";
    EXPECT_EQ(status, unsigned{ZR_REPLY_NO_EXCEPTION});
    return OM_cdr_unsigned_long(cdr, &value) ? std::to_string(value) : "no value";
  }
  Result run() { return send() ? result() : created_ && !encoded_ ? "MARSHAL" : failure(); }

  CDR* cdr = nullptr;

 private:
  bool created_ = false, encoded_ = false;
  void* request_ = nullptr;
};

/// Like a stub: follows forwards.
inline Result call_and_follow(const zrsv::Ref<zrsv::Reference>& object, uint64_t argument = 42,
                              std::size_t filler = 0) {
  for (;;) {
    Call one(object, argument, true, filler);
    const Result result = one.run();
    if (result != "forward") return result;
    void* to = nullptr;
    if (!OM_cdr_object(one.cdr, &to)) return "MARSHAL";
    const bool ok = OM_req_lib_set_locate_object(object.get(), to);
    CORBA_object_release(to);
    if (!ok) return failure();
  }
}
