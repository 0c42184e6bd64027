#include <future>

#include "base/options.h"
#include "client_call.h"

namespace {

using namespace zrsv;
using giop::Type;

Result call(const Ref<Reference>& object, uint64_t argument = 42) { return Call(object, argument).run(); }

class Client : public testing::Test {
 protected:
  ~Client() override { set_options({}); }
  template <class Value>
  static void set(Value Options::*option, Value value) {
    Options o = options();
    o.*option = value;
    set_options(o);
  }
};

constexpr std::size_t more_than_fits = 4 * memory_network::room;  // into a socket at once

/// A call whose request is still on its way out.
class LongCall {
 public:
  LongCall(const Ref<Reference>& object, std::future<void> begun, Result expected)
      : thread_([=] { EXPECT_EQ(Call(object, 42, true, 2 * more_than_fits).run(), expected); }) {
    EXPECT_EQ(begun.wait_for(bound), std::future_status::ready);
  }
  ~LongCall() { end(); }
  void end() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::thread thread_;
};

std::string number(uint32_t value) {
  return encoded([&](Writer& out) { out.u32(value); });
}
TEST_F(Client, UnderstandsEveryKindOfAnswer) {
  const std::string bad = "COMM_FAILURE 2";
  constexpr uint32_t none = 99;
  const struct {
    const char* name;
    uint32_t status;  // none: octets are the whole answer
    std::string octets;
    Result expected, expected_1_2;
  } rows[] = {{"value", 0, number(5) + std::string(99, 'x'), "5", "5"},
              {"empty", 0, "", "no value", "no value"},
              {"forward", 3, "", "forward", "forward"},
              {"forward for good", 4, "", bad, "forward"},
              {"addressing", 5, "", bad, "INV_OBJREF 3"},
              {"status", 6, "", bad, bad},
              {"head too short", none, hex("47494f50 01020101 04000000 00000000"), bad, bad},
              {"no GIOP", none, "HTTP/1.1 400 Bad Request\r\n", bad, bad},
              {"message error", none, message(Type::MessageError), bad, bad},
              {"client's message", none, message(Type::CancelRequest), bad, bad},
              {"cut", none, hex("47494f50 01020101 04000000"), "COMM_FAILURE 1", "COMM_FAILURE 1"},
              {"other id", none, reply({}, 0, ""), bad, bad}};
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    for (const auto& row : rows) {
      Server server({[&](Peer& peer, const Got& got) {
        EXPECT_EQ(got.header.minor, minor);
        const std::string answer = row.status == none ? row.octets : reply(got, row.status, row.octets);
        for (const std::string& part : fragments(answer, 64)) peer.send(part);
        return false;
      }});
      EXPECT_EQ(call(reference_to({{server.port(), "k", minor}})),
                minor == 2 ? row.expected_1_2 : row.expected)
          << row.name;
    }
  }
}

TEST_F(Client, ReadsABigEndianReplyOctetByOctet) {
  Server server({[](Peer& peer) {
    std::string id = number(peer.read().id);
    if (std::endian::native == std::endian::little) std::reverse(id.begin(), id.end());
    const std::string golden = hex("47494f50 0102 00 01 00000020") +  // "GIOP" 1.2, Reply, 32 octets
                               id +
                               hex("00000000"                       // NO_EXCEPTION
                                   "00000001 00000009 00000001 aa"  // context 9, of one octet
                                   "000000 00000000 00abcdef");     // padding to 8; the result
    for (char c : golden) peer.send({&c, 1});
  }});
  EXPECT_EQ(call(reference_to({{server.port()}})), std::to_string(0xabcdef));
}

TEST_F(Client, SendsLongMessagesInFragments) {
  set(&Options::fragment_size, 1000u);
  constexpr std::size_t filler = more_than_fits;
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    Server server({[&](Peer& peer, const Got& got) {
      const std::size_t size = got.octets.size(), fragments = (size - 1000 + 983) / 984;
      EXPECT_EQ(peer.received, size + fragments * (minor < 2 ? 0u : 16u));
      EXPECT_EQ(got.octets.substr(size - filler), std::string(filler, 'Z'));
      return echo_each(peer, got);
    }});
    EXPECT_EQ(Call(reference_to({{server.port(), "k", minor}}), 42, true, filler).run(), "42");
  }
}

TEST_F(Client, ThreadsAreSpreadOverConnectionsAndKeepToTheirs) {
  set(&Options::client_connections, 2u);
  Server server({answer_nothing, answer_nothing});
  const auto connection = [&] {
    Fault why;
    auto now = Clock::now();
    return client_pool().get({memory_network::host, server.port()}, now + bound, &now, &why);
  };
  const auto mine = connection();
  ClientPool::Connection second, third, later;
  ASSERT_TRUE(mine);
  EXPECT_EQ(connection(), mine);
  std::thread([&] {
    second = connection();
    EXPECT_EQ(connection(), second);
    std::thread([&] { third = connection(); }).join();
  }).join();
  EXPECT_TRUE(second && second != mine);
  EXPECT_TRUE(third == mine || third == second);
  std::thread([&] { later = connection(); }).join();
  EXPECT_EQ(later, second);  // whose thread has ended
}

TEST_F(Client, AServerThatTakesNoSecondConnectionIsCalledOverTheFirst) {
  Server server({echo_each});
  const auto object = reference_to({{server.port()}});
  EXPECT_EQ(call(object, 1), "1");
  std::thread([&] {
    for (uint64_t i = 2; i < 4; ++i) EXPECT_EQ(call(object, i), std::to_string(i));
  }).join();
  EXPECT_EQ(server.accepted, 1u);
}

TEST_F(Client, ThreadsShareAConnectionAndGetTheirOwnAnswers) {
  set(&Options::client_connections, 1u);
  constexpr int threads = 8, rounds = 50;
  std::vector<Got> held;
  bool ending = false;  // threads are through at different times: no waiting for all of them any more
  Server server({[&](Peer& peer, const Got& got) {
    ending |= got.argument % rounds == rounds - 1;
    held.push_back(got);
    if (held.size() == threads || ending)
      for (; !held.empty(); held.pop_back()) peer.echo(held.back());  // in reverse order
    return true;
  }});
  const auto object = reference_to({{server.port()}});
  std::vector<std::thread> all;
  for (uint64_t t = 0; t < threads; ++t) {
    all.emplace_back([&, t] {
      for (uint64_t i = t * rounds; i < (t + 1) * rounds; ++i) EXPECT_EQ(call(object, i), std::to_string(i));
    });
  }
  for (std::thread& t : all) t.join();
  EXPECT_EQ(server.accepted, 1u);
}

// A caller runs into its time limit, maybe while it reads for both; the other one is to go on.
TEST_F(Client, TheTimeLimitHoldsWhateverHappensMeanwhile) {
  using std::chrono::milliseconds;
  const auto a_while = [] { std::promise<void>().get_future().wait_for(milliseconds(300)); };
  Server closes({[&](Peer& peer) {
    EXPECT_TRUE(peer.send(reply(peer.read(), 0, number(1))));
    peer.read();
    a_while();
    peer.send(message(Type::CloseConnection));
  }});
  Server other({[&, asked = 0](Peer& peer, const Got& got) mutable {
    return asked++ > 0 || peer.send(reply(got, 0, number(2)));
  }});
  Server third({answer_nothing});
  // Open already, so that the call can go over at once.
  EXPECT_EQ(call(reference_to({{closes.port()}})), "1");
  EXPECT_EQ(call(reference_to({{other.port()}})), "2");
  const auto both = reference_to({{closes.port()}, {other.port()}}), one = reference_to({{third.port()}});
  set(&Options::timeout_ms, 400u);
  const auto within_the_limit = [&](const char* what, auto&& calls) {
    const auto begun = Clock::now();
    EXPECT_EQ(calls(), "TIMEOUT 1") << what;
    EXPECT_LT(Clock::now() - begun, milliseconds(600)) << what;
  };
  within_the_limit("sent anew", [&] { return call(both); });
  within_the_limit("received late", [&] {
    Call late(one);
    EXPECT_TRUE(late.send());
    a_while();
    return late.result();
  });
}

TEST_F(Client, TheReaderHandsItsRoleOn) {
  set(&Options::client_connections, 1u);
  Server server({[&](Peer& peer) {
    const Got late = peer.read(), last = peer.read(), cancel = peer.read();
    EXPECT_EQ(cancel.header.type, Type::CancelRequest);
    EXPECT_EQ(cancel.id, late.id);
    peer.echo(last);
    peer.echo(late);
    peer.echo_all();
  }});
  const auto object = reference_to({{server.port()}});
  set(&Options::timeout_ms, 50u);
  Call late(object, 3);
  ASSERT_TRUE(late.send());
  set(&Options::timeout_ms, 10'000u);
  Call last(object, 4);
  ASSERT_TRUE(last.send());
  std::thread waits([&] { EXPECT_EQ(last.result(), "4"); });
  EXPECT_EQ(late.result(), "TIMEOUT 1");
  waits.join();
  EXPECT_EQ(call(object, 5), "5");  // over the same connection, behind the late reply
  EXPECT_EQ(server.accepted, 1u);
}

TEST_F(Client, ShortRequestsAreLeftForTheThreadThatWrites) {
  set(&Options::client_connections, 1u);
  std::promise<void> begun, go_on;
  Server server({[&](Peer& peer) {
    peer.await_input();
    begun.set_value();
    go_on.get_future().wait_for(bound);
    const Got first = peer.read(), late = peer.read(), last = peer.read();
    EXPECT_EQ(late.argument, 1u);
    for (const Got& got : {last, late, first}) peer.echo(got);
    peer.echo_all();
  }});
  const auto object = reference_to({{server.port()}});
  LongCall writes(object, begun.get_future(), "42");
  set(&Options::timeout_ms, 50u);
  Call late(object, 1);
  EXPECT_TRUE(late.send());
  EXPECT_EQ(late.result(), "TIMEOUT 1");
  set(&Options::timeout_ms, 10'000u);
  Call last(object, 2);
  EXPECT_TRUE(last.send());
  go_on.set_value();
  EXPECT_EQ(last.result(), "2");
  writes.end();
  EXPECT_EQ(call(object, 3), "3");
  EXPECT_EQ(server.accepted, 1u);
}

// A request that did not get out in time ends its connection. What others left behind it goes over another one.
TEST_F(Client, NothingIsSentBehindAPartOfARequest) {
  set(&Options::client_connections, 1u);
  set(&Options::fragment_size, 0u);
  std::promise<void> begun, cut;
  Server server({[&](Peer& peer) {
                   peer.await_input();
                   begun.set_value();
                   cut.get_future().wait_for(bound);
                   EXPECT_TRUE(peer.rest().ends_with("ZZZZ"));
                 },
                 echo_each});
  const auto object = reference_to({{server.port()}});
  set(&Options::timeout_ms, 200u);
  LongCall writes(object, begun.get_future(), "TIMEOUT 1");
  set(&Options::timeout_ms, 10'000u);
  Call left(object, 5);
  EXPECT_TRUE(left.send());
  writes.end();
  cut.set_value();
  EXPECT_EQ(left.result(), "5");
  EXPECT_EQ(server.accepted, 2u);
}

TEST_F(Client, SendsAgainOnlyWhatTheServerDidNotTake) {
  const std::string close = message(Type::CloseConnection);
  const Play echo = echo_each;
  const Play vanish = [](Peer&, const Got&) { return false; };
  const Play refuse = [&](Peer& peer, const Got&) { return peer.send(close), false; };
  const Play close_idle = [&](Peer& peer, const Got& got) {
    peer.echo(got);
    return peer.send(close), false;
  };
  const struct {
    const char* name;
    std::vector<Play> plays;
    Result expected, next;
  } rows[] = {{"closed before it answered", {refuse, echo}, "42", "42"},
              {"closed while idle", {close_idle, echo}, "42", "42"},
              {"closed twice", {refuse, refuse, echo}, "TRANSIENT 3", "42"},
              {"gone without a word", {vanish, echo}, "COMM_FAILURE 1", "42"},
              {"closed, then gone", {refuse, vanish, echo}, "COMM_FAILURE 1", "42"},
              {"closed, then nobody", {refuse}, "TRANSIENT 2", "TRANSIENT 2"}};
  for (const auto& row : rows) {
    Server server(row.plays);
    const auto object = reference_to({{server.port()}});
    EXPECT_EQ(call(object), row.expected) << row.name;
    EXPECT_EQ(call(object), row.next) << row.name;
  }
}

TEST_F(Client, FollowsForwardsComesBackAndSeesACircle) {
  Server second({[](Peer& peer, const Got& got) { return peer.echo(got, 100), false; }});
  Server first({[&, asked = 0](Peer& peer, const Got& got) mutable {
    if (asked++ > 0) return echo_each(peer, got);
    return peer.send(reply(got, 3, ior({{second.port(), "elsewhere"}})));
  }});
  const auto object = reference_to({{first.port()}});
  EXPECT_EQ(call_and_follow(object), "142");
  EXPECT_EQ(call_and_follow(object), "42") << "which is found when it sends, and called where it was";

  int asked = 0;
  Server circle({[&](Peer& peer, const Got& got) {
    return ++asked, peer.send(reply(got, 3, ior({{circle.port()}})));
  }});
  EXPECT_EQ(call_and_follow(reference_to({{circle.port()}})), "TRANSIENT 5");
  EXPECT_EQ(asked, ZR_FORWARD_LIMIT + 1);
}

TEST_F(Client, AForwardThatLeadsNowhereLeavesTheOldPlace) {
  const std::string other_protocol = encoded([](Writer& out) { out.text("").u32(1).u32(77).octets("x"); });
  Server server({[&](Peer& peer) {
    peer.echo(peer.read());
    for (const std::string& nowhere : {ior({{0}}), other_protocol}) {
      peer.send(reply(peer.read(), 3, nowhere));
      peer.echo(peer.read(), 1);
    }
    for (Got got; peer.next(&got);) peer.send(reply(got, 3, other_protocol));
  }});
  const auto object = reference_to({{server.port()}});
  for (const char* expected : {"42", "43", "43", "TRANSIENT 5"}) EXPECT_EQ(call_and_follow(object), expected);
}

TEST_F(Client, RefusesWhatIsTooLongAndSaysBy) {
  set(&Options::max_message, 2048u);
  set(&Options::fragment_size, 1000u);
  Server server({[&](Peer& peer, const Got& got) {
    EXPECT_EQ(got.argument, 2u) << "the long one was not to come";
    return peer.send(reply(got, 0, std::string(3000, 'x')));
  }});
  const auto object = reference_to({{server.port()}});
  testing::internal::CaptureStderr();
  EXPECT_EQ(Call(object, 1, true, 3000).run(), "IMP_LIMIT 1");
  EXPECT_EQ(call(object, 2), "COMM_FAILURE 2");
  const std::string log = testing::internal::GetCapturedStderr();
  for (const char* said : {"request op not sent: 3068 octets, over -ORBMaxMessage 2048",
                           "length: 3012 octets, over -ORBMaxMessage 2048"})
    EXPECT_NE(log.find(said), log.npos) << log;
}

// A thread's next call starts with the header of the last one where that is the same.
TEST_F(Client, CallsInARowSayWhatEachOfThemIs) {
  set(&Options::fragment_size, 1000u);
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    std::vector<Got> all;
    Server server({[&](Peer& peer, const Got& got) {
      if (got.response_expected) peer.echo(got);
      return all.push_back(got), true;
    }});
    const auto one = reference_to({{server.port(), "k", minor}});
    const auto like_it = reference_to({{server.port(), "j", minor}});
    const auto other = reference_to({{server.port(), "another key", minor}});
    const struct {
      const Ref<Reference>& object;
      const char* key;
      bool response_expected;
      std::size_t filler;
    } rows[] = {{one, "k", true, 0},
                {one, "k", true, 0},
                {like_it, "j", true, 0},
                {one, "k", true, 0},
                {one, "k", false, 0},
                {like_it, "j", false, 0},
                {other, "another key", false, 0},
                {other, "another key", true, 2500},
                {other, "another key", true, 0},
                {one, "k", true, 0}};
    for (uint64_t argument = 0; const auto& row : rows) {
      Call each(row.object, ++argument, row.response_expected, row.filler);
      EXPECT_TRUE(each.send());
      if (row.response_expected) {
        EXPECT_EQ(each.result(), std::to_string(argument));
      }
    }
    ASSERT_EQ(all.size(), std::size(rows));
    for (std::size_t i = 0; i < all.size(); ++i) {
      EXPECT_EQ(all[i].key, rows[i].key);
      EXPECT_EQ(all[i].header.minor, minor);
      EXPECT_EQ(all[i].response_expected, rows[i].response_expected);
      EXPECT_EQ(all[i].argument, i + 1);
      EXPECT_EQ(all[i].id, all[0].id + i);
    }
  }
}

TEST_F(Client, TriesTheNextAddressUnderItsOwnKey) {
  const Server nobody({});
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    for (std::size_t length = 1; length <= 9; ++length) {  // the argument has to stay on a multiple of 8
      const std::string key(length, 'x');
      Server server({[&](Peer& peer, const Got& got) {
        EXPECT_EQ(got.key, key);
        EXPECT_EQ(got.header.minor, minor);
        return echo_each(peer, got);
      }});
      EXPECT_EQ(call(reference_to({{nobody.port(), "kk", 2}, {server.port(), key, minor}})), "42");
    }
  }
}

TEST_F(Client, TheTimeLimitHoldsInEveryStep) {
  std::promise<void> over;
  Server silent({[&](Peer&) { over.get_future().wait_for(bound); }});  // reads nothing
  const auto object = reference_to({{silent.port()}});
  set(&Options::timeout_ms, 50u);
  EXPECT_EQ(call(object), "TIMEOUT 1");
  EXPECT_EQ(Call(object, 1, true, more_than_fits).run(), "TIMEOUT 1");  // the socket takes only a part
  over.set_value();
}

TEST_F(Client, ClosingFailsWhatWaits) {
  set(&Options::client_connections, 1u);
  std::promise<void> here;
  Server server({[&](Peer& peer) {
                   for (int i = 0; i < 2; ++i) peer.read();
                   here.set_value();
                   Got more;
                   EXPECT_FALSE(peer.next(&more));
                 },
                 echo_each});
  const auto object = reference_to({{server.port()}});
  std::vector<std::thread> callers;
  for (int i = 0; i < 2; ++i) callers.emplace_back([&] { EXPECT_EQ(call(object), "COMM_FAILURE 3"); });
  EXPECT_EQ(here.get_future().wait_for(bound), std::future_status::ready);
  close_client_connections();
  for (std::thread& t : callers) t.join();
  EXPECT_EQ(call(object), "42");
}

TEST_F(Client, OnewaysAndAbandonedCallsLeaveTheConnectionInOrder) {
  Server server({[](Peer& peer) {
    const Got oneway = peer.read(), abandoned = peer.read(), cancel = peer.read(), last = peer.read();
    EXPECT_EQ(oneway.argument, 1u);
    EXPECT_EQ(cancel.id, abandoned.id);
    peer.echo(abandoned);
    peer.echo(last);
  }});
  const auto object = reference_to({{server.port()}});
  Call oneway(object, 1, false);
  EXPECT_TRUE(oneway.send());
  EXPECT_EQ(oneway.result(), "BAD_INV_ORDER 1");
  EXPECT_TRUE(Call(object, 2).send());
  EXPECT_EQ(call(object, 3), "3");
}

TEST_F(Client, KeepsABoundedNumberOfIdleConnections) {
  std::promise<void> dropped;
  std::vector<std::unique_ptr<Server>> servers;
  for (std::size_t i = 0; i <= ClientPool::max_idle + 1; ++i) {
    servers.push_back(std::make_unique<Server>(std::vector<Play>{[&, i](Peer& peer) {
      peer.echo_all();
      if (i == 0) dropped.set_value();  // the one that was idle for longest
    }}));
    EXPECT_EQ(call(reference_to({{servers.back()->port()}})), "42");
  }
  EXPECT_EQ(dropped.get_future().wait_for(bound), std::future_status::ready);
  EXPECT_TRUE(client_pool().find({memory_network::host, servers[2]->port()}, Clock::now()));
}

TEST_F(Client, CallsOwnObjectsOverASocketWhenToldTo) {
  set(&Options::in_process, false);
  set_published_endpoints({});
  const auto own = Reference::make_local("server", "IDL:test/Thing:1.0", "data");
  EXPECT_EQ(call(own), "TRANSIENT 4");
  Server server({[&](Peer& peer, const Got& got) {
    EXPECT_EQ(got.key, own->key());
    return echo_each(peer, got);
  }});
  set_published_endpoints({{memory_network::host, server.port()}});
  EXPECT_EQ(call(own), "42");
  set_published_endpoints({});
  EXPECT_EQ(call({}), "INV_OBJREF 1");
}

}  // namespace
