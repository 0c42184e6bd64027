#include "serving/engine.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>

#include <list>
#include <thread>

#include "engine_fixture.h"
#include "scratch.h"
#include "serving/listener.h"
#include "time_limit.h"

namespace {

using namespace engine_test;

TEST_F(Engine, WhatTheHookDoesNotAnswerFails) {
  operations["throw"] = [](Upcalled&) { throw 1; };
  start();
  Client client(port());
  const std::pair<const char*, const char*> rows[] = {{"throw", "UNKNOWN 2"}, {"silent", "INTERNAL 2"}};
  for (const auto& [operation, wanted] : rows) {
    ASSERT_TRUE(client.send(request(1, operation, 9, key(), 2, false)));  // nor has this an answer
    EXPECT_EQ(client.ask(call(2, operation)), wanted);
  }
}

// A key that somebody made up, or that was made without the secret, is none of ours; one that a person wrote is.
TEST_F(Engine, OnlySignedKeysAreLookedUpWithASecret) {
  const std::string made_up = key();
  start({"-ORBKeySecret", Scratch().write("secret", std::string(32, 's'))});
  const auto object = zrsv::Reference::make_local(impl_name, "IDL:Test:1.0", "object");
  ZR_register_key("Bank", object.get(), env_);
  Client client(port());
  EXPECT_TRUE(client.send(request(0, "echo", 0, made_up, 2, /*response=*/false)));  // refused without a word
  EXPECT_EQ(client.ask(request(1, "echo", 1, made_up)), "OBJECT_NOT_EXIST 1");
  EXPECT_EQ(client.ask(request(2, "echo", 2, key())), "2");
  EXPECT_EQ(client.ask(request(3, "echo", 3, "Bank")), "3");
  ZR_register_key("Bank", nullptr, env_);
}

TEST_F(Engine, BadInputEndsItsConnection) {
  start({"-ORBMaxMessage", "4096"});
  const std::pair<std::string, const char*> rows[] = {
      {call(1, "echo").substr(0, 8) + hex("01100000"), "MessageError"},    // too long
      {hex("47494F50 0103") + call(1, "echo").substr(6), "MessageError"},  // GIOP 1.3
      {message(Type::CloseConnection), "end"},
      {message(Type::MessageError), "end"}};
  for (const auto& [octets, wanted] : rows) {
    Client client(port());
    EXPECT_EQ(client.ask(octets), wanted);
    EXPECT_EQ(client.answer(), "end");
  }
}

TEST_F(Engine, SlowServantsStopNobody) {
  start({"-ORBThreads", "2", "-ORBQueue", "2"});
  Client a(port()), b(port());
  for (int i = 0; i < 100; ++i) ASSERT_EQ(a.ask(call(1, "echo", i)), std::to_string(i));
  ASSERT_TRUE(a.send(call(1, "block", 1)) && barrier_.wait_for(1));  // a thread stayed with this connection
  EXPECT_EQ(a.ask(call(2, "echo", 2)), "2");                         // its own connection goes on
  EXPECT_EQ(b.ask(call(1, "echo", 3)), "3");
  // Both slots are taken: two requests wait, the third is refused.
  testing::internal::CaptureStderr();
  ASSERT_TRUE(a.send(call(3, "block", 4)) && barrier_.wait_for(2));
  EXPECT_EQ(b.ask(call(2, "echo", 5) + call(3, "echo", 6) + call(4, "echo", 7) + look_), "TRANSIENT 1");
  EXPECT_EQ(b.answer(), "here");
  EXPECT_EQ(b.ask(cancel(2) + call(5, "echo", 8) + call(6, "echo", 9)), "TRANSIENT 1");  // room for one
  EXPECT_EQ(Client(port()).ask("nonsense...."), "MessageError");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("refused: as many requests wait as may (-ORBQueue 2)"));

  barrier_.open(2);
  Texts late = a.answers(2), waited = b.answers(2);
  std::sort(late.begin(), late.end());
  std::sort(waited.begin(), waited.end());
  EXPECT_EQ(late, (Texts{"1", "4"}));
  EXPECT_EQ(waited, (Texts{"6", "8"}));
}

// Time is told, so nobody waits for it.
TEST(Output, WhoTakesItTooSlowlyIsTold) {
  using zrsv::OutputQueue;
  constexpr OutputQueue::Pace pace{std::chrono::seconds(10), 64 << 10, 256 << 10};
  const struct {
    std::size_t waiting, taken_each_second;
    const char* wanted;
  } rows[] = {{100'000, 0, "takes no replies"},
              {1'000'000, 0, "takes no replies"},
              {1'000'000, 10'000, "takes its replies too slowly"},
              {1'500'000, 100'000, ""},
              {200'000, 5'000, ""}};  // below the mark
  for (const auto& row : rows) {
    SCOPED_TRACE(row.waiting + row.taken_each_second);
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const int least = 4608;
    ::setsockopt(pair[1], SOL_SOCKET, SO_SNDBUF, &least, sizeof least);
    Socket peer(pair[0]);
    OutputQueue queue;
    queue.open(pair[1]);
    zrsv::Buffer message;
    const std::string octets(row.waiting, 'x');
    ASSERT_TRUE(message.append(reinterpret_cast<const unsigned char*>(octets.data()), octets.size()));
    EXPECT_EQ(queue.send(&message, 0), OutputQueue::Sent::Rest);
    zrsv::Clock::time_point now;
    std::string told;
    for (int second = 0; second <= 12 && told.empty(); ++second, now += std::chrono::seconds(1)) {
      if (const char* slow = queue.too_slow(now, pace)) told = slow;
      EXPECT_TRUE(told.empty() || second == 10) << second;
      for (std::size_t taken = 0; taken < row.taken_each_second; queue.flush()) {
        char some[1000];
        const ssize_t n = ::recv(peer.fd(), some, sizeof some, MSG_DONTWAIT);
        ASSERT_GT(n, 0);
        taken += static_cast<std::size_t>(n);
      }
    }
    EXPECT_EQ(told, row.wanted);
    queue.close();
  }
}

TEST_F(Engine, ManyClientsAtOnce) {
  std::atomic<int> running{0};
  operations["count"] = [&](Upcalled& r) {
    EXPECT_LE(++running, 3);
    std::this_thread::yield();
    --running;
    r.answer(r.argument);
  };
  start({"-ORBThreads", "3"});
  std::vector<std::thread> threads;
  for (int32_t t = 0; t < 12; ++t) {  // threads stay with more connections than requests may run
    threads.emplace_back([&, t] {
      for (int i = 0; i < 5; ++i) {
        Client client(port());
        for (int32_t value = 1000 * t; value < 1000 * t + 40; ++value)
          EXPECT_EQ(client.ask(call(1, "count", value)), std::to_string(value));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// While one thread sends, or the client takes no more, others leave it what they have to send.
TEST_F(Engine, RepliesOfManyThreadsLeaveWhole) {
  time_limit() = std::chrono::seconds(20);  // 110 MB
  start({"-ORBThreads", "8"});
  Client client(port(), 16384);
  for (int round = 0; round < 4; ++round) {
    std::string many;
    Texts wanted;
    for (int32_t i = 0; i < 40; ++i) {
      const int32_t value = i % 3 == 0 ? 600'000 + i : i;  // more than sockets take at once
      many += call(static_cast<uint32_t>(i), i % 3 == 0 ? "octets" : "echo", value);
      wanted.push_back(std::to_string(value));
    }
    ASSERT_TRUE(client.send(many));
    EXPECT_THAT(client.answers(40), testing::UnorderedElementsAreArray(wanted));
  }
}

TEST_F(Engine, ClientsThatReadNothingTakeNoThreadAndAreDropped) {
  disconnect = [&](long, const void*, bool) { board_.add("lost"); };
  operations["much"] = [&, octets = operations["octets"]](Upcalled& r) { (octets(r), barrier_.add("much")); };
  start({"-ORBThreads", "1", "-ORBWriteTimeout", "1500", "-ORBMaxMessage", "8388608"});
  std::list<Client> deaf;
  Client good(port());
  for (std::size_t i = 0; i < 4; ++i) {
    Client& client = deaf.emplace_back(port(), 4096);
    ASSERT_TRUE(client.send(call(1, "much", 8'000'000)) && barrier_.wait_for(i + 1));
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(good.ask(call(2, "echo", 6)), "6");
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(1));  // the limit would be 1.5
    ASSERT_TRUE(client.send(call(2, "block")));                                    // is not read any more
  }
  EXPECT_TRUE(board_.wait_for(4));
  EXPECT_EQ(barrier_.lines(), Texts(4, "much"));
  EXPECT_EQ(good.ask(call(3, "octets", 8'400'000)), "IMP_LIMIT 0");
  EXPECT_EQ(good.ask(call(3, "octets", 8'300'000)), "8300000");
}

// Who sends a message an octet at a time, says nothing at all, or pauses for long, is closed; others are not.
TEST_F(Engine, SlowAndSilentClientsAreClosed) {
  start({"-ORBThreads", "1", "-ORBReadTimeout", "300", "-ORBIdleTimeout", "600"});
  Client silent(port()), slow(port()), fragmented(port()), idle(port()), busy(port());
  const std::string part = fragments(request(1, "echo", 1, key() + std::string(300, 'k')), 64)[0];
  ASSERT_TRUE(slow.send(look_ + call(1, "echo").substr(0, 20)) && fragmented.send(part + look_));
  EXPECT_EQ(idle.ask(look_), "here");
  ASSERT_TRUE(busy.send(call(1, "block", 4)) && barrier_.wait_for(1));
  testing::internal::CaptureStderr();
  EXPECT_EQ(silent.answer(), "end");
  EXPECT_EQ(slow.answers(2), (Texts{"here", "end"}));
  EXPECT_EQ(fragmented.answers(2), (Texts{"here", "end"}));
  EXPECT_EQ(idle.answers(2), (Texts{"CloseConnection", "end"}));
  const std::string log = testing::internal::GetCapturedStderr();
  for (const char* line : {"sent no whole message in time", "sends a message too slowly", "was idle for"})
    EXPECT_NE(log.find(line), log.npos) << log;
  barrier_.open(1);
  EXPECT_EQ(busy.answer(), "4");  // it waits for its own call
}

TEST_F(Engine, AConnectionHasItsShareAndTakesTurns) {
  operations["note"] = [&](Upcalled& r) { r.answer((board_.add(std::to_string(r.argument)), r.argument)); };
  start({"-ORBThreads", "1", "-ORBConnectionRequests", "3"});
  Client greedy(port()), good(port());
  ASSERT_TRUE(greedy.send(call(1, "block", 1)) && barrier_.wait_for(1));
  std::string many;
  for (int32_t i = 2; i < 9; ++i) many += call(static_cast<uint32_t>(i), "note", i);
  ASSERT_TRUE(greedy.send(call(2, "note", 1) + look_) && greedy.answer() == "here");
  ASSERT_TRUE(greedy.send(many + look_));
  EXPECT_EQ(good.ask(call(1, "note", 100) + look_), "here");
  for (int i = 0; i < 50; ++i) EXPECT_EQ(good.ask(look_), "here");
  char octet = 0;
  EXPECT_LT(::recv(greedy.fd(), &octet, 1, MSG_PEEK | MSG_DONTWAIT), 0);  // it is not read to the end
  barrier_.open(1);
  EXPECT_EQ(good.answer(), "100");
  EXPECT_THAT(greedy.answers(10), testing::Contains("8"));
  const Texts order = board_.lines();  // "back" of the first comes first
  EXPECT_LE(std::find(order.begin(), order.end(), "100") - order.begin(), 3);
}

TEST_F(Engine, RequestsDoNotWaitForEver) {
  start({"-ORBThreads", "1", "-ORBQueueTimeout", "100"});
  Client first(port()), second(port());
  ASSERT_TRUE(first.send(call(1, "block", 1)) && barrier_.wait_for(1));
  testing::internal::CaptureStderr();
  EXPECT_EQ(second.ask(call(1, "echo", 2)), "TRANSIENT 1");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("1 requests waited longer than -ORBQueueTimeout 100"));
  barrier_.open(1);
  EXPECT_EQ(first.answer(), "1");
  EXPECT_EQ(second.ask(call(2, "echo", 3)), "3");
}

int option_of(int fd, int level, int option) {
  int value = -1;
  socklen_t length = sizeof value;
  ::getsockopt(fd, level, option, &value, &length);
  return value;
}

std::string congestion_control_of(int fd) {
  char name[16] = {};
  socklen_t length = sizeof name;
  ::getsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, name, &length);
  return name;
}

TEST_F(Engine, TellsWhoTheClientIsAndWhenItIsGone) {
  operations["who"] = [&](Upcalled& r) {
    int32_t fd = -1;
    unsigned char ipv6 = 9, address[16] = {};
    EXPECT_TRUE(OM_ext_get_client_info_ip6(&fd, &ipv6, address, nullptr, nullptr, nullptr));
    EXPECT_TRUE(ipv6 == 0 && std::memcmp(address, "\x7F\0\0\1", 4) == 0);
    r.answer(fd);
  };
  disconnect = [&](long fd, const void*, bool) { board_.add(std::to_string(fd)); };
  start();
  Texts wanted;
  for (int calls : {0, 50}) {  // nobody is told of one that carried nothing
    Client client(port());
    std::string fd;
    for (int i = 0; i < calls; ++i) fd = client.ask(call(1, "who"));
    if (calls > 0) {  // the system is to tell of one that goes without a word
      const int descriptor = std::stoi(fd) % (1 << 20);
      EXPECT_EQ(option_of(descriptor, SOL_SOCKET, SO_KEEPALIVE), 1);
      EXPECT_EQ(option_of(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT), 60'000);
      const Socket told;  // emulated systems know no such option
      ::setsockopt(told.fd(), IPPROTO_TCP, TCP_CONGESTION, "reno", 4);
      EXPECT_EQ(congestion_control_of(descriptor), congestion_control_of(told.fd()));
    }
    client.close();
    if (calls > 0) wanted.push_back(fd);
    ASSERT_TRUE(board_.wait_for(wanted.size()));
  }
  EXPECT_EQ(board_.lines(), wanted);
}

// Who connects, asks for something that takes long, and leaves, again and again, uses up nothing.
TEST_F(Engine, ALostClientGivesItsDescriptorBackAtOnce) {
  operations["who"] = [](Upcalled& r) {
    int32_t number = -1;
    EXPECT_TRUE(OM_ext_get_client_info_ip6(&number, nullptr, nullptr, nullptr, nullptr, nullptr));
    r.answer(number);
  };
  disconnect = [&](long number, const void*, bool) { board_.add("lost " + std::to_string(number)); };
  start({"-ORBThreads", "2", "-ORBMaxConnections", "2"});
  Client busy(port());
  const std::string number = busy.ask(call(1, "who"));
  ASSERT_TRUE(busy.send(call(2, "block")) && barrier_.wait_for(1));
  busy.close();
  ASSERT_TRUE(board_.wait_for(1));
  EXPECT_EQ(::fcntl(std::stoi(number), F_GETFD), -1);  // though the request runs
  for (std::size_t i = 0; i < 40; ++i) {
    Client next(port());
    const std::string other = next.ask(call(1, "who"));
    EXPECT_NE(other, number);  // that would have what the request leaves behind
    EXPECT_LT(std::stoi(other) % (1 << 20), std::stoi(number) + 2);
    next.close();
    ASSERT_TRUE(board_.wait_for(i + 2));
  }
  barrier_.open(1);
  ASSERT_TRUE(board_.wait_for(43));
  const Texts lines = board_.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "lost " + number), 2);
  EXPECT_TRUE(comes_true([&] { return Client(port()).ask(call(1, "who")) == number; }));
}

TEST(Connections, OfOneAddressAreLimited) {
  zrsv::Options limits;
  limits.peer_connections = 2;
  limits.threads = 1;
  zrsv::set_options(limits);
  const auto engine = std::make_shared<zrsv::Engine>(1);
  ASSERT_TRUE(engine->start());
  std::list<Socket> ends;
  const auto connects = [&](const char* address) {
    zrsv::PeerAddress peer;
    peer.ipv6 = std::strchr(address, ':') != nullptr;
    EXPECT_EQ(::inet_pton(peer.ipv6 ? AF_INET6 : AF_INET, address, peer.octets), 1);
    int pair[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    ends.emplace_back(pair[0]);
    engine->add(pair[1], peer);
    char octet = 0;
    return ::recv(pair[0], &octet, 1, MSG_DONTWAIT) < 0;  // else it is closed
  };
  const std::pair<const char*, bool> rows[] = {
      {"192.0.2.1", true},       {"192.0.2.1", true},   {"192.0.2.1", false},   {"192.0.2.2", true},
      {"2001:db8::1", true},     {"2001:db8::2", true}, {"2001:db8::3", false},  // one network
      {"2001:db8:0:1::1", true}, {"127.0.0.1", true},   {"127.0.0.1", true},    {"127.9.9.9", true},
      {"127.0.0.1", true},       {"::1", true},         {"::1", true},          {"::1", true}};
  for (const auto& [address, taken] : rows) EXPECT_EQ(connects(address), taken) << address;
  ends.front().close();  // a client of the first address leaves
  EXPECT_TRUE(comes_true([&] { return connects("192.0.2.1"); }));
  engine->stop(std::chrono::steady_clock::now());
  zrsv::set_options({});
}

// What the client does not take at once stays, whoever is served meanwhile.
TEST_F(Engine, AResultMayBeAViewOfItsRequest) {
  constexpr std::size_t many = 8'000'000;
  operations["view"] = [this](Upcalled& r) {
    const unsigned char* octets = nullptr;
    const uint32_t count = OM_cdr_remaining(r.cdr);
    EXPECT_TRUE(OM_cdr_bytes_view(r.cdr, &octets, count));
    r.answer(r.argument);
    r.cdr->leaves_apart = 1;
    EXPECT_TRUE(ZR_cdr_refer(r.cdr, octets, count) && ZR_cdr_apart_is_of_message(r.cdr));
    r.cdr->leaves_apart = 0;
    board_.add("viewed");
  };
  start({"-ORBFragmentSize", "0"});
  const auto call_with = [&](char octet) { return with_more(call(1, "view", 7), many, octet); };
  Client slow(port(), 4096), other(port());
  slow.send(call_with('a'));
  ASSERT_TRUE(board_.wait_for(1));
  for (const auto& [client, octet] : {std::pair(&other, 'b'), std::pair(&slow, 'a')}) {
    if (client == &other) client->send(call_with(octet));
    zrsv::giop::Header header;
    std::string octets;
    ASSERT_TRUE(client->receive(&header, &octets));
    EXPECT_TRUE(octets.ends_with(std::string(many, octet)) && octets.size() < many + 64) << octet;
  }
}

TEST_F(Engine, ALossIsToldAtOnceAndWhenARequestEndsLater) {
  disconnect = [&](long, const void*, bool) { board_.add("lost"); };
  start({"-ORBThreads", "3"});
  Texts wanted;
  for (int calls : {0, 40}) {  // with so many a thread is pinned to the connection
    Client client(port());
    for (int i = 0; i < calls; ++i) EXPECT_EQ(client.ask(call(1, "echo", i)), std::to_string(i));
    ASSERT_TRUE(client.send(call(2, "block")) && barrier_.wait_for(wanted.size() / 3 + 1));
    client.close();
    wanted.insert(wanted.end(), {"lost", "back", "lost"});
    ASSERT_TRUE(board_.wait_for(wanted.size() - 2));
    barrier_.open(1);
    ASSERT_TRUE(board_.wait_for(wanted.size()));
    EXPECT_EQ(board_.lines(), wanted);
  }
}

/// A call of this thread on the object with that key.
std::string local(const std::string& to, std::chrono::milliseconds limit = bound) {
  zrsv::use_call_scopes();
  zrsv::set_thread_limit(std::chrono::nanoseconds(limit).count());
  return own_call(to, "echo", 5);
}

TEST_F(Engine, CallsWhileAThreadEnds) {
  struct Late {
    std::string to;
    ~Late() { EXPECT_EQ(local(to), "5"); }
  };
  start();
  std::thread([to = key()] {
    thread_local Late late;  // goes after what the call below makes for the thread
    late.to = to;
    EXPECT_EQ(local(to), "5");
  }).join();
}

TEST_F(Engine, TheSlotOfACallOfThisProcessGoesToWhoWaits) {
  start({"-ORBThreads", "1"});
  std::thread here([] { EXPECT_EQ(own_call(key(), "block", 1), "1"); });
  EXPECT_TRUE(barrier_.wait_for(1));
  Client client(port());
  EXPECT_EQ(client.ask(call(1, "echo", 2) + look_), "here");
  barrier_.open(1);
  EXPECT_EQ(client.answer(), "2");
  here.join();
}

TEST_F(Engine, CallsOfThisProcessTakeTheSameRoad) {
  const std::chrono::milliseconds soon(1);
  start({"-ORBThreads", "1"});
  EXPECT_EQ(local(key()), "5");

  control(ZR_QUEUE_HOLD);
  EXPECT_EQ(local(key(), soon), "TIMEOUT");
  std::thread caller([&] { EXPECT_EQ(local(key()), "5"); });
  control(ZR_QUEUE_RELEASE);
  caller.join();

  Client client(port());
  ASSERT_TRUE(client.send(call(2, "block")) && barrier_.wait_for(1));  // the slot is taken: it waits its turn
  EXPECT_EQ(local(key(), soon), "TIMEOUT");
  barrier_.open(1);
  EXPECT_EQ(local(key()), "5");
}

TEST_F(Engine, ShutsDownFromAServantAndStartsAgain) {
  operations["shutdown"] = [&](Upcalled& r) {
    Outcome ev;
    CORBA_ORB_shutdown(orb_, 1, ev);
    EXPECT_EQ(ev.name(), "BAD_INV_ORDER");  // it cannot wait for itself
    CORBA_ORB_shutdown(orb_, 0, ev);
    CORBA_ORB_shutdown(orb_, 0, ev);
    EXPECT_EQ(ev.name(), "");
    r.answer(1);
  };
  start({"-ORBThreads", "2"});
  for (std::size_t round = 1; round <= 2; ++round) {
    std::thread runs([&] { CORBA_ORB_run(orb_, nullptr); });
    Client busy(port()), idle(port());
    ASSERT_TRUE(busy.send(call(1, "block", 8)) && barrier_.wait_for(round));
    control(ZR_QUEUE_HOLD);
    EXPECT_EQ(idle.ask(call(2, "echo", 4) + look_), "here");
    control(ZR_QUEUE_RELEASE);
    EXPECT_EQ(idle.answer(), "4");
    EXPECT_EQ(Client(port()).ask(call(1, "shutdown")), "1");
    barrier_.open(1);
    EXPECT_EQ(busy.answers(3), (Texts{"8", "CloseConnection", "end"}));  // what runs may end
    EXPECT_EQ(idle.answers(2), (Texts{"CloseConnection", "end"}));
    runs.join();
    EXPECT_FALSE(Client(port()).connected);
    ASSERT_TRUE(resolve_root());
    EXPECT_EQ(Client(port()).ask(call(1, "echo", 5)), "5");
  }
}

TEST_F(Engine, ShutdownDoesNotWaitForEver) {
  start({"-ORBThreads", "1", "-ORBShutdownTimeout", "1"});
  Client stuck(port()), waits(port()), held(port());
  ASSERT_TRUE(stuck.send(call(1, "block")) && barrier_.wait_for(1));
  EXPECT_EQ(waits.ask(call(1, "echo") + look_), "here");
  control(ZR_QUEUE_HOLD);
  EXPECT_EQ(held.ask(call(1, "echo") + look_), "here");
  testing::internal::CaptureStderr();
  CORBA_ORB_shutdown(orb_, 1, env_);
  const std::string log = testing::internal::GetCapturedStderr();
  const std::string runs = ZR_still_running(0);
  EXPECT_NE(log.find("shutdown: still runs: " + runs), log.npos) << log;
  EXPECT_EQ(runs.substr(0, runs.rfind(':')),
            "operation block of object 'object' of engine test for 127.0.0.1");
  EXPECT_EQ(ZR_still_running(1), nullptr);
  EXPECT_EQ(log.find("tick"), log.npos) << log;  // which runs no more
  EXPECT_EQ(ZR_leftovers().requests, 1u);
  EXPECT_GE(ZR_leftovers().threads, 1u);
  EXPECT_EQ(stuck.answer(), "end");  // it may have been run, so it must not be sent again
  EXPECT_EQ(waits.answers(3), (Texts{"TRANSIENT 1", "CloseConnection", "end"}));
  EXPECT_EQ(held.answers(3), (Texts{"TRANSIENT 1", "CloseConnection", "end"}));
  barrier_.open(1);
  EXPECT_TRUE(board_.wait_for(1));
}

TEST_F(Engine, AStartThatFailsCanBeTriedAgain) {
  init({"-ORBMaxConnections", "1", "-ORBPublish", "example.org", "-ORBListen", "0.0.0.0:0"});
  root = []() -> zrsv::Reference* { return nullptr; };
  EXPECT_FALSE(resolve_root());
  EXPECT_EQ(env_.name(), "INITIALIZE");
  root = [this] {  // the adapter calls back while it starts
    EXPECT_TRUE(CORBA_ORB_resolve_initial_references(orb_, "ImplementationRepository", env_));
    EXPECT_FALSE(CORBA_ORB_resolve_initial_references(orb_, "RootPOA", env_));
    EXPECT_EQ(env_.name(), "BAD_INV_ORDER");
    EXPECT_EQ(std::string(ZR_published_endpoint(orb_, 0)).substr(0, 12), "example.org:");
    return zrsv::Reference::make_local("IDL:R:1.0", "IDL:R:1.0", "root").release();
  };
  EXPECT_TRUE(resolve_root());
  Client first(port());
  EXPECT_EQ(first.ask(look_), "here");
  EXPECT_EQ(Client(port()).answer(), "end");  // one too many
}

TEST(Publishing, LeavesOutWhatLeadsNobodyHere) {
  const std::pair<Texts, Texts> rows[] = {
      {{"127.0.0.1"}, {"127.0.0.1"}},
      {{"127.0.0.1", "192.0.2.1"}, {"192.0.2.1"}},
      {{"fe80::1", "::1", "2001:db8::1", "127.9.9.9", "169.254.7.7"}, {"2001:db8::1"}},
      {{"::1", "127.0.0.1"}, {"::1", "127.0.0.1"}},
      {{"host.example", "host.example", "127.0.1.1"}, {"host.example"}},
      {{"169.253.0.1", "169.254.0.1"}, {"169.253.0.1"}}};
  for (const auto& [listened, wanted] : rows) {
    std::vector<zrsv::Endpoint> all;
    for (const std::string& host : listened) all.push_back({host, 7});
    Texts published;
    for (const zrsv::Endpoint& at : zrsv::worth_publishing(all)) published.push_back(at.host);
    EXPECT_EQ(published, wanted);
  }
}

TEST_F(Engine, TheWildcardOfIPv6ServesBothFamilies) {
  start({"-ORBListen", "[::]:0"});
  EXPECT_EQ(Client(port()).ask(look_), "here");
  const int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  Socket six(fd);
  sockaddr_in6 to{};
  to.sin6_family = AF_INET6;
  to.sin6_port = htons(port());
  to.sin6_addr = in6addr_loopback;
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
  zrsv::giop::Header header;
  std::string octets;
  ASSERT_TRUE(six.send(look_) && six.receive(&header, &octets));
  EXPECT_EQ(header.type, Type::LocateReply);
}

TEST_F(Engine, AnIdleConnectionMakesRoomForANewOne) {
  start({"-ORBMaxConnections", "2", "-ORBThreads", "1"});
  Client busy(port()), idle(port());
  ASSERT_TRUE(idle.ask(look_) == "here" && busy.send(call(1, "block", 3)) && barrier_.wait_for(1));
  EXPECT_TRUE(
      comes_true([&] { return Client(port()).ask(look_) == "here"; }));  // when it was idle for a second
  EXPECT_EQ(idle.answers(2), (Texts{"CloseConnection", "end"}));
  barrier_.open(1);
  EXPECT_EQ(busy.answer(), "3");
}

TEST_F(Engine, ATickThatBlocksStopsNothing) {
  tick = [&] { barrier_.pass(); };
  start({"-ORBTick", "1"});
  ASSERT_TRUE(barrier_.wait_for(1));
  EXPECT_EQ(Client(port()).ask(call(1, "echo", 2)), "2");
  barrier_.open(1'000'000);
  EXPECT_TRUE(barrier_.wait_for(3));
}

}  // namespace
