#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "client_pool.h"
#include "options.h"
#include "scripted_server.h"

namespace {

using namespace zrsv;
using giop::Type;

/// What became of a call, as text: "42", "user ID", "system NAME minor completed", "forward", or "NAME minor"
/// of a local failure.
using Result = std::string;

Result local_failure() {
  Outcome env;
  SetStdExReqLib(CORBA_COMPLETED_NO, env);
  const auto minor = static_cast<CORBA_Environment*>(env)->_minor;
  const std::string name = env.name();
  return name + " " + std::to_string(minor);
}

/// One call, step by step as a stub makes it.
class Call {
 public:
  explicit Call(const Ref<Reference>& object, uint64_t argument = 42, bool response_expected = true,
                std::size_t filler = 0) {
    uint32_t kind = 0;
    created_ = OM_req_lib_initiator_request_create(object.get(), "op", response_expected, &request_, &kind);
    if (!created_) return;
    EXPECT_EQ(kind, unsigned{ZR_REQUEST_IIOP});
    int32_t word = 0;
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_get_cdr(request_, &cdr_));
    EXPECT_TRUE(OM_cdr_long(cdr_, &word) && OM_cdr_unsigned_long_long(cdr_, &argument));
    std::vector<unsigned char> rest(filler, 0x5A);
    EXPECT_TRUE(cdr_bytes(cdr_, rest.data(), static_cast<uint32_t>(filler)));
  }
  ~Call() { OM_req_lib_UNO_IIOP_initiator_request_complete(request_); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool send() { return created_ && OM_req_lib_UNO_IIOP_send_request(request_); }
  Result result() {
    uint32_t status = 9;
    if (!OM_req_lib_UNO_IIOP_recv_reply(request_)) return local_failure();
    if (!OM_req_lib_UNO_IIOP_decode_reply_header(request_, &status)) return local_failure();
    CORBA_Environment env{};
    Result text = "forward";
    if (status == ZR_REPLY_NO_EXCEPTION) {
      uint32_t value = 0;
      text = OM_cdr_unsigned_long(cdr_, &value) ? std::to_string(value) : "no value";
    } else if (status == ZR_REPLY_USER_EXCEPTION) {
      const bool ok = OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request_, &env);
      text = (ok ? "user " : "bad user ") + std::string(CORBA_exception_id(&env));
    } else if (status == ZR_REPLY_SYSTEM_EXCEPTION) {
      const bool ok = OM_req_lib_UNO_IIOP_decode_standard_excep(request_, &env);
      text = (ok ? "system " : "bad system ") + std::string(CORBA_exception_id(&env)) + " " +
             std::to_string(env._minor) + " " + std::to_string(env._completed);
    }
    CORBA_exception_free(&env);
    return text;
  }
  Result run() { return send() ? result() : local_failure(); }
  CDR* cdr() { return cdr_; }

 private:
  bool created_ = false;
  void* request_ = nullptr;
  CDR* cdr_ = nullptr;
};

Result call(const Ref<Reference>& object, uint64_t argument = 42) { return Call(object, argument).run(); }

/// Like a stub: follows forwards.
Result call_and_follow(const Ref<Reference>& object) {
  for (;;) {
    Call one(object);
    const Result result = one.run();
    if (result != "forward") return result;
    void* to = nullptr;
    EXPECT_TRUE(OM_cdr_object(one.cdr(), &to));
    const bool ok = OM_req_lib_set_locate_object(object.get(), to);
    CORBA_object_release(to);
    if (!ok) return local_failure();
  }
}

class Client : public testing::Test {
 protected:
  ~Client() override { set_options({}); }
  static void limit(uint32_t ms) {
    Options o = options();
    o.timeout_ms = ms;
    set_options(o);
  }
};

std::string raw(const char* text) { return text; }

const auto done = [](Writer&) {};
const auto system_exception = [](uint32_t completed) {
  return [=](Writer& out) { out.text("IDL:omg.org/CORBA/NO_PERMISSION:1.0").u32(7).u32(completed); };
};

TEST_F(Client, UnderstandsEveryKindOfAnswer) {
  const std::string lost = "COMM_FAILURE 1", bad = "COMM_FAILURE 2";
  const std::string no_permission = "system IDL:CORBA/StExcep/NO_PERMISSION:1.0 7 ";
  const struct {
    const char* name;
    std::function<std::string(const Got&)> answer;
    Result expected, expected_1_2;  // the second: when GIOP 1.2 differs
  } rows[] = {
      {"value", [](auto& g) { return Peer::reply(g, 0, [](Writer& out) { out.u32(5); }); }, "5", ""},
      {"empty", [](auto& g) { return Peer::reply(g, 0, done); }, "no value", ""},
      {"user", [](auto& g) { return Peer::reply(g, 1, [](Writer& out) { out.text("IDL:x:1.0"); }); },
       "user IDL:x:1.0", ""},
      {"user, cut", [](auto& g) { return Peer::reply(g, 1, [](Writer& out) { out.u32(9).u8('x'); }); },
       "bad user IDL:CORBA/StExcep/MARSHAL:1.0", ""},
      {"system", [](auto& g) { return Peer::reply(g, 2, system_exception(1)); }, no_permission + "1", ""},
      {"completion", [](auto& g) { return Peer::reply(g, 2, system_exception(77)); }, no_permission + "2",
       ""},
      {"system, cut", [](auto& g) { return Peer::reply(g, 2, done); },
       "bad system IDL:CORBA/StExcep/MARSHAL:1.0 1 2", ""},
      {"forward", [](auto& g) { return Peer::reply(g, 3, done); }, "forward", ""},
      {"forward for good", [](auto& g) { return Peer::reply(g, 4, done); }, bad, "forward"},
      {"addressing", [](auto& g) { return Peer::reply(g, 5, done); }, bad, "INV_OBJREF 3"},
      {"status", [](auto& g) { return Peer::reply(g, 6, done); }, bad, ""},
      {"other id", [](Got g) { return ++g.id, Peer::reply(g, 0, done); }, bad, ""},
      {"request", [](auto& g) { return g.octets; }, bad, ""},
      {"head too short", [](auto&) { return raw("GIOP\1\2\1\1") + hex("04000000 00000000"); }, bad, ""},
      {"magic", [](auto&) { return raw("HTTP/1.1 400 Bad Request\r\n"); }, bad, ""},
      {"version", [](auto&) { return raw("GIOP\2\2\1\1") + hex("00000000"); }, bad, ""},
      {"type", [](auto&) { return raw("GIOP\1\2\1\11") + hex("00000000"); }, bad, ""},
      {"length", [](auto&) { return raw("GIOP\1\2\1\1") + hex("ffffffff"); }, bad, ""},
      {"message error", [](auto&) { return raw("GIOP\1\2\1\6") + hex("00000000"); }, bad, ""},
      {"lone fragment", [](auto&) { return raw("GIOP\1\2\1\7") + hex("04000000 00000000"); }, bad, ""},
      {"cut", [](auto& g) { return Peer::reply(g, 0, done).substr(0, 20); }, lost, ""},
      {"nothing", [](auto&) { return raw(""); }, lost, ""},
  };
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    std::vector<Script> scripts;  // each ends its connection
    for (const auto& row : rows) {
      scripts.push_back([&](Peer& peer) {
        const auto got = peer.read();
        ASSERT_TRUE(got);
        EXPECT_EQ(got->header.minor, minor);
        EXPECT_EQ(got->operation, "op");
        peer.send(row.answer(*got));
      });
    }
    ScriptedServer server(scripts);
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(row.name) + " in 1." + std::to_string(minor));
      const Result& expected = minor == 2 && !row.expected_1_2.empty() ? row.expected_1_2 : row.expected;
      EXPECT_EQ(call(reference_to({{server.port(), "k", minor}})), expected);
      close_client_connections();
    }
  }
}

// A reply of a big-endian server.
std::string golden_reply(uint32_t id) {
  char id_octets[9];
  std::snprintf(id_octets, sizeof id_octets, "%08x", id);
  return hex("47494f50 0102 00 01 00000020") +   // "GIOP" 1.2, big-endian, Reply, 32 octets
         hex(id_octets) + hex("00000000") +      // request id, NO_EXCEPTION
         hex("00000001 00000009 00000001 aa") +  // one service context: id 9, one octet
         hex("000000 00000000") +                // padding: the body starts on a multiple of 8
         hex("00abcdef");                        // the result
}

TEST_F(Client, ReadsOctetByOctetAndSeesEveryCut) {
  const std::size_t size = golden_reply(0).size();
  std::vector<Script> scripts;
  for (std::size_t cut = 0; cut <= size; ++cut) {
    scripts.push_back([=](Peer& peer) {
      const auto got = peer.read();
      ASSERT_TRUE(got);
      for (char c : golden_reply(got->id).substr(0, cut)) peer.send({&c, 1});
    });
  }
  ScriptedServer server(scripts);
  for (std::size_t cut = 0; cut <= size; ++cut) {
    SCOPED_TRACE(cut);
    EXPECT_EQ(call(reference_to({{server.port()}})),
              cut == size ? std::to_string(0xabcdef) : "COMM_FAILURE 1");
  }
}

/// The message in fragments that carry `step` octets of its body.
std::vector<std::string> in_fragments(const std::string& message, std::size_t step, bool with_id) {
  std::vector<std::string> all;
  for (std::size_t at = 12; at < message.size(); at += step) {
    std::string part =
        message.substr(0, 12) + (with_id && at > 12 ? message.substr(12, 4) : "") + message.substr(at, step);
    const auto length = static_cast<uint32_t>(part.size() - 12);
    part[6] = static_cast<char>(part[6] | (at + step < message.size() ? 2 : 0));
    if (at > 12) part[7] = 7;
    std::memcpy(part.data() + 8, &length, sizeof length);
    all.push_back(part);
  }
  return all;
}

TEST_F(Client, JoinsFragmentsOfTwoRepliesAtOnce) {
  for (const uint8_t minor : {uint8_t{1}, uint8_t{2}}) {
    ScriptedServer server({[&](Peer& peer) {
      const auto first = peer.read(), second = peer.read();
      ASSERT_TRUE(first && second);
      const auto value = [](const Got& g) {
        return Peer::reply(g, 0, [&](Writer& out) { out.u32(static_cast<uint32_t>(g.argument)); });
      };
      const auto a = in_fragments(value(*first), 8, minor == 2),
                 b = in_fragments(value(*second), 8, minor == 2);
      if (minor == 2) {
        for (std::size_t i = 0; i < a.size(); ++i) peer.send(a[i] + b[i]);
      } else {
        for (const auto* parts : {&a, &b})
          for (const std::string& part : *parts) peer.send(part);
      }
    }});
    const auto object = reference_to({{server.port(), "k", minor}});
    Call one(object, 1), two(object, 2);
    ASSERT_TRUE(one.send() && two.send());
    EXPECT_EQ(two.result(), "2");
    EXPECT_EQ(one.result(), "1");
  }
}

TEST_F(Client, SendsLongMessagesInFragments) {
  Options o = options();
  o.fragment_size = 1000;
  set_options(o);
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    constexpr std::size_t filler = 3'000'000;  // more than the socket takes at once
    ScriptedServer server({[&](Peer& peer) {
      const auto got = peer.read();
      ASSERT_TRUE(got);
      EXPECT_EQ(got->fragments, minor == 0 ? 0u : (got->octets.size() - 1000 + 983) / 984);
      EXPECT_EQ(got->octets.substr(got->octets.size() - filler), std::string(filler, 0x5A));
      peer.echo(*got);
    }});
    EXPECT_EQ(Call(reference_to({{server.port(), "k", minor}}), 42, true, filler).run(), "42");
  }
}

TEST_F(Client, ThreadsShareAConnectionAndGetTheirOwnAnswers) {
  constexpr int threads = 8, rounds = 50;
  ScriptedServer server({[](Peer& peer) {
    std::vector<Got> held;
    bool ending = false;  // threads are through at different times: no waiting for all of them any more
    while (auto got = peer.read()) {
      ending |= got->argument % rounds == rounds - 1;
      held.push_back(*got);
      if (held.size() < threads && !ending) continue;
      for (; !held.empty(); held.pop_back()) peer.echo(held.back());  // in reverse order
    }
  }});
  const auto object = reference_to({{server.port()}});
  std::vector<std::thread> all;
  for (int t = 0; t < threads; ++t) {
    all.emplace_back([&, t] {
      for (int i = 0; i < rounds; ++i) {
        const auto argument = static_cast<uint64_t>(t * rounds + i);
        EXPECT_EQ(call(object, argument), std::to_string(argument));
      }
    });
  }
  for (std::thread& t : all) t.join();
  EXPECT_EQ(server.accepted(), 1);
}

TEST_F(Client, TheReaderHandsItsRoleOn) {
  std::promise<void> first_over;
  ScriptedServer server({[&](Peer& peer) {
    const auto one = peer.read(), two = peer.read();
    ASSERT_TRUE(one && two);
    peer.echo(*one);
    first_over.get_future().wait_for(test_bound);
    peer.echo(*two);
    // The first runs into its time limit, maybe while it reads for both; the other is to go on.
    const auto late = peer.read(), last = peer.read(), cancel = peer.read();
    ASSERT_TRUE(late && last && cancel);
    EXPECT_EQ(cancel->header.type, Type::CancelRequest);
    EXPECT_EQ(cancel->id, late->id);
    peer.echo(*last);
    peer.echo(*late);
    peer.echo_all();
  }});
  const auto object = reference_to({{server.port()}});
  {
    Call one(object, 1), two(object, 2);
    ASSERT_TRUE(one.send() && two.send());
    std::thread waits([&] { EXPECT_EQ(two.result(), "2"); });
    EXPECT_EQ(one.result(), "1");
    first_over.set_value();
    waits.join();
  }
  limit(50);
  Call late(object, 3);
  ASSERT_TRUE(late.send());
  limit(10'000);
  Call last(object, 4);
  ASSERT_TRUE(last.send());
  std::thread waits([&] { EXPECT_EQ(last.result(), "4"); });
  EXPECT_EQ(late.result(), "TIMEOUT 1");
  waits.join();
  EXPECT_EQ(call(object, 5), "5");  // over the same connection, behind the late reply
  EXPECT_EQ(server.accepted(), 1);
}

TEST_F(Client, SendsAgainOnlyWhatTheServerDidNotTake) {
  const auto close_after = [](int answers) {
    return [=](Peer& peer) {
      for (int i = 0; i < answers; ++i) peer.echo(*peer.read());
      EXPECT_TRUE(peer.read());
      peer.empty(Type::CloseConnection);
    };
  };
  const auto echo = [](Peer& peer) { peer.echo_all(); };
  const auto vanish = [](Peer& peer) { EXPECT_TRUE(peer.read()); };
  const auto close_idle = [](Peer& peer) {
    peer.echo(*peer.read());
    peer.empty(Type::CloseConnection);
  };
  const struct {
    const char* name;
    std::vector<Script> scripts;
    std::vector<Result> expected;
  } rows[] = {
      {"closed before it answered", {close_after(0), echo}, {"42", "42"}},
      {"closed later", {close_after(1), echo}, {"42", "42"}},
      {"closed while idle", {close_idle, echo}, {"42", "42"}},
      {"closed twice", {close_after(0), close_after(0), echo}, {"TRANSIENT 3", "42"}},
      {"gone without a word", {vanish, echo}, {"COMM_FAILURE 1", "42"}},
      {"closed, then gone", {close_after(0), vanish, echo}, {"COMM_FAILURE 1", "42"}},
      {"closed, then nobody", {close_after(0)}, {"TRANSIENT 2", "TRANSIENT 2"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(row.scripts);
    const auto object = reference_to({{server.port()}});
    for (const Result& expected : row.expected) EXPECT_EQ(call(object), expected);
  }
}

TEST_F(Client, FollowsForwardsComesBackAndSeesACircle) {
  ScriptedServer second({[](Peer& peer) { peer.echo(*peer.read(), 100); }});
  ScriptedServer first({[&](Peer& peer) {
    const auto got = peer.read();
    peer.send(Peer::reply(*got, 3, [&](Writer& out) { write_ior(out, {{second.port(), "elsewhere"}}); }));
    peer.echo_all();
  }});
  const auto object = reference_to({{first.port()}});
  EXPECT_EQ(call_and_follow(object), "142");
  second.join();
  const Result broken =
      call_and_follow(object);  // the second server goes: noticed while sending or while waiting
  EXPECT_TRUE(broken == "COMM_FAILURE 1" || broken == "42") << broken;
  EXPECT_EQ(call_and_follow(object), "42");

  ScriptedServer circle({[&](Peer& peer) {
    int asked = 0;
    for (; auto got = peer.read(); ++asked)
      peer.send(Peer::reply(*got, 3, [&](Writer& out) { write_ior(out, {{circle.port()}}); }));
    EXPECT_EQ(asked, ZR_FORWARD_LIMIT + 1);
  }});
  EXPECT_EQ(call_and_follow(reference_to({{circle.port()}})), "TRANSIENT 5");
}

TEST_F(Client, TriesTheNextAddressUnderItsOwnKey) {
  const BoundSocket gone;  // nobody listens there
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    for (std::size_t length = 1; length <= 9; ++length) {  // the argument has to stay on a multiple of 8
      const std::string key(length, 'x');
      ScriptedServer server({[&](Peer& peer) {
        for (int i = 0; i < 2; ++i) {
          const auto got = peer.read();
          ASSERT_TRUE(got);
          EXPECT_EQ(got->key, key);
          EXPECT_EQ(got->header.minor, minor);
          peer.echo(*got);
        }
      }});
      const auto object = reference_to({{gone.port(), "kk", 2}, {server.port(), key, minor}});
      EXPECT_EQ(call(object), "42");
      EXPECT_EQ(call(object, 43), "43");  // first of all over the connection that is open
    }
  }
}

TEST_F(Client, TheTimeLimitHoldsInEveryStep) {
  std::promise<void> over;
  ScriptedServer silent({[&](Peer&) { over.get_future().wait_for(test_bound); }});
  const auto object = reference_to({{silent.port()}});
  limit(50);
  EXPECT_EQ(call(object), "TIMEOUT 1");
  EXPECT_EQ(Call(object, 1, true, 64 << 20).run(), "TIMEOUT 1");  // the socket takes only a part
  over.set_value();
}

TEST_F(Client, ClosingFailsWhatWaits) {
  std::promise<void> here;
  ScriptedServer server({[&](Peer& peer) {
                           EXPECT_TRUE(peer.read() && peer.read());
                           here.set_value();
                           EXPECT_FALSE(peer.read());
                         },
                         [](Peer& peer) { peer.echo_all(); }});
  const auto object = reference_to({{server.port()}});
  std::vector<std::thread> callers;
  for (int i = 0; i < 2; ++i) callers.emplace_back([&] { EXPECT_EQ(call(object), "COMM_FAILURE 3"); });
  EXPECT_EQ(here.get_future().wait_for(test_bound), std::future_status::ready);
  close_client_connections();
  for (std::thread& t : callers) t.join();
  EXPECT_EQ(call(object), "42");
}

TEST_F(Client, OnewaysAndAbandonedCallsLeaveTheConnectionInOrder) {
  ScriptedServer server({[](Peer& peer) {
    const auto oneway = peer.read(), abandoned = peer.read(), cancel = peer.read(), last = peer.read();
    ASSERT_TRUE(oneway && abandoned && cancel && last);
    EXPECT_EQ(oneway->argument, 1u);
    EXPECT_EQ(cancel->id, abandoned->id);
    peer.echo(*abandoned);
    peer.echo(*last);
  }});
  const auto object = reference_to({{server.port()}});
  {
    Call oneway(object, 1, false);
    EXPECT_TRUE(oneway.send());
    EXPECT_EQ(oneway.result(), "BAD_INV_ORDER 1");
    EXPECT_TRUE(Call(object, 2).send());
  }
  EXPECT_EQ(call(object, 3), "3");
}

TEST_F(Client, KeepsABoundedNumberOfIdleConnections) {
  std::promise<void> dropped;
  std::vector<std::unique_ptr<ScriptedServer>> servers;
  for (std::size_t i = 0; i <= ClientPool::max_idle + 1; ++i) {
    servers.push_back(std::make_unique<ScriptedServer>(std::vector<Script>{[&, i](Peer& peer) {
      peer.echo_all();
      if (i == 0) dropped.set_value();  // the one that was idle for longest
    }}));
    EXPECT_EQ(call(reference_to({{servers.back()->port()}})), "42");
  }
  EXPECT_EQ(dropped.get_future().wait_for(test_bound), std::future_status::ready);
  EXPECT_TRUE(client_pool().find({"127.0.0.1", servers[2]->port()}, Clock::now()));
}

TEST_F(Client, CallsOwnObjectsOverASocketWhenToldTo) {
  Options o = options();
  o.in_process = false;
  set_options(o);
  const auto own = Reference::make_local("server", "IDL:test/Thing:1.0", "data");
  EXPECT_EQ(call(own), "TRANSIENT 4");
  ScriptedServer server({[&](Peer& peer) {
    const auto got = peer.read();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->key, own->key());
    peer.echo(*got);
  }});
  set_published_endpoints({{"127.0.0.1", server.port()}});
  EXPECT_EQ(call(own), "42");
  set_published_endpoints({});
  EXPECT_EQ(call({}), "INV_OBJREF 1");
  EXPECT_EQ(call(reference_to({})), "INV_OBJREF 1");  // nil
}

}  // namespace
