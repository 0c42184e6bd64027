#include <fcntl.h>

#include <set>
#include <thread>

#include "engine_fixture.h"

namespace {

using namespace engine_test;
using zrsv::giop::Type;
using Texts = std::vector<std::string>;

Texts answers(Client& client, int count) {
  Texts texts;
  for (int i = 0; i < count; ++i) texts.push_back(client.answer());
  return texts;
}

TEST_F(Engine, AnswersInEveryVersion) {
  script().operations["fail"] = [](Upcalled& r) {
    Outcome env;
    CORBA_BOA_set_standard_exception(env, "BAD_PARAM", 3, CORBA_COMPLETED_YES);
    EXPECT_TRUE(
        OM_req_lib_UNO_IIOP_encode_reply_header(r.info->request, ZR_REPLY_NO_EXCEPTION));  // thrown away
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_encode_reply_header(r.info->request, ZR_REPLY_SYSTEM_EXCEPTION));
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_encode_standard_excep(r.info->request, env));
    EXPECT_FALSE(OM_req_lib_UNO_IIOP_encode_reply_header(r.info->request, 4));
  };
  script().operations["throw"] = [](Upcalled&) { throw 1; };
  script().operations["kind"] = [](Upcalled& r) { r.answer(static_cast<int32_t>(r.info->request_type)); };
  start();
  const struct {
    const char* operation;
    std::string key, wanted;
  } rows[] = {{"echo", key(), "-7"},
              {"kind", key(), "2"},
              {"fail", key(), "BAD_PARAM 0"},
              {"throw", key(), "UNKNOWN 2"},
              {"silent", key(), "INTERNAL 2"},
              {"echo", "no key of ours", "OBJECT_NOT_EXIST 1"},
              {"echo", "", "OBJECT_NOT_EXIST 1"}};
  for (uint8_t minor = 0; minor <= 2; ++minor) {
    Client client(port());
    uint32_t id = 100;
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(row.operation) + " in 1." + std::to_string(minor));
      ASSERT_TRUE(client.send(request(++id, row.operation, 9, row.key, minor, false)));  // has no answer
      ASSERT_TRUE(client.send(request(++id, row.operation, -7, row.key, minor)));
      const auto got = client.read();
      ASSERT_TRUE(got);
      EXPECT_EQ(got->text(), row.wanted);
      EXPECT_EQ(got->id, id);
      EXPECT_EQ(got->minor, minor);
    }
    ASSERT_TRUE(client.send(short_request(Type::LocateRequest, 1, key(), minor)));
    ASSERT_TRUE(client.send(short_request(Type::LocateRequest, 2, "nothing", minor)));
    EXPECT_EQ(answers(client, 2), (Texts{"here", "unknown"}));
  }
}

TEST_F(Engine, ReadsMessagesHoweverTheyAreCut) {
  start({"-ORBThreads", "1"});
  Client client(port());
  const std::string one = call(1, "echo", 11);
  for (const char octet : one) ASSERT_TRUE(client.send({&octet, 1}));
  EXPECT_EQ(client.answer(), "11");
  std::string many;
  for (int32_t i = 0; i < 500; ++i) many += call(static_cast<uint32_t>(i), "echo", i);
  ASSERT_TRUE(client.send(many + one.substr(0, 30)));
  std::set<int32_t> seen;
  for (int i = 0; i < 500; ++i) {
    const auto got = client.read();
    ASSERT_TRUE(got);
    EXPECT_EQ(static_cast<uint32_t>(got->value), got->id);
    seen.insert(got->value);
  }
  EXPECT_EQ(seen.size(), 500u);
  ASSERT_TRUE(client.send(one.substr(30)));
  EXPECT_EQ(client.answer(), "11");
}

TEST_F(Engine, JoinsFragmentsAndCutsLongReplies) {
  script().operations["octets"] = [](Upcalled& r) { r.answer_octets(r.argument); };
  start({"-ORBFragmentSize", "128"});
  for (uint8_t minor = 1; minor <= 2; ++minor) {
    Client client(port());
    auto a = fragments(request(1, "echo", 1, key(), minor), 64),
         b = fragments(request(2, "echo", 2, key(), minor), 64);
    ASSERT_GT(a.size(), 1u);
    // 1.2 mixes them, with a cancelled third one between; 1.1 sends one after the other.
    const auto third = fragments(request(3, "echo", 3, key(), minor), 64);
    if (minor == 2) {
      ASSERT_TRUE(client.send(third[0]));
    }
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_TRUE(client.send(minor == 2 ? a[i] + b[i] : a[i]));
    if (minor == 2) {
      ASSERT_TRUE(client.send(short_request(Type::CancelRequest, 3, "")));
    }
    for (std::size_t i = 0; minor == 1 && i < b.size(); ++i) ASSERT_TRUE(client.send(b[i]));
    Texts both = answers(client, 2);
    std::sort(both.begin(), both.end());
    EXPECT_EQ(both, (Texts{"1", "2"}));
    for (int32_t size : {50, 104, 105, 1000, 300'000}) {
      ASSERT_TRUE(client.send(request(4, "octets", size, key(), minor)));
      const auto got = client.read();
      ASSERT_TRUE(got);
      EXPECT_EQ(got->size, 28u + static_cast<uint32_t>(size));
    }
  }
}

TEST_F(Engine, RefusesBadInputOnThatConnectionAlone) {
  start({"-ORBMaxMessage", "4096"});
  Client other(port());
  const std::string good = call(1, "echo", 5);
  const auto changed = [&](std::size_t at, const std::string& to) {
    return good.substr(0, at) + to + good.substr(at + to.size());
  };
  const auto pieces = fragments(good, 64);
  const struct {
    const char* what;
    std::string octets;
  } rows[] = {{"magic", changed(0, "HTTP")},
              {"version", changed(5, "\3")},
              {"type", changed(7, "\x08")},
              {"length", good.substr(0, 8) + std::string("\x00\x00\x00\x7F", 4)},
              {"a reply", changed(7, "\1")},
              {"head that ends early", hex("47494F50 01020100 08000000 0100000003000000")},
              {"locate request that ends early", hex("47494F50 01020103 04000000 01000000")},
              {"cancel request that ends early", hex("47494F50 01020102 00000000")},
              {"key past the end", changed(24, "\xFF\xFF\xFF\xFF")},
              {"fragment of nothing", pieces[1]},
              {"begun twice", pieces[0] + pieces[0]},
              {"fragments of a cancel request", hex("47494F50 01020302 04000000 01000000")}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Client client(port());
    ASSERT_TRUE(client.send(row.octets));
    EXPECT_EQ(answers(client, 2), (Texts{"MessageError", "end"}));
    ASSERT_TRUE(other.send(good));
    EXPECT_EQ(other.answer(), "5");
  }
  // More in unfinished messages than one may have in all.
  Client hoarder(port());
  bool refused = false;
  for (uint32_t id = 1; id <= 100 && !refused; ++id)
    refused = !hoarder.send(fragments(call(id, "echo", 5), 64)[0]);
  EXPECT_TRUE(refused || hoarder.answer() != "5");
  // Polite ends.
  for (Type type : {Type::CloseConnection, Type::MessageError}) {
    Client client(port());
    unsigned char octets[12];
    zrsv::giop::write_empty(octets, 2, type);
    ASSERT_TRUE(client.send({reinterpret_cast<char*>(octets), 12}));
    EXPECT_EQ(client.answer(), "end");
  }
}

TEST_F(Engine, SlowServantsStopNobody) {
  script().operations["block"] = [&](Upcalled& r) {
    barrier_.pass();
    r.answer(r.argument);
  };
  start({"-ORBThreads", "2", "-ORBQueue", "2"});
  Client a(port()), b(port());
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(a.send(call(1, "echo", i)) && a.answer() == std::to_string(i));
  ASSERT_TRUE(a.send(call(1, "block", 1)) &&
              barrier_.wait_inside(1));  // a thread stayed with this connection
  ASSERT_TRUE(a.send(call(2, "echo", 2)));
  EXPECT_EQ(a.answer(), "2");  // its own connection goes on
  ASSERT_TRUE(b.send(call(1, "echo", 3)));
  EXPECT_EQ(b.answer(), "3");
  ASSERT_TRUE(a.send(call(3, "block", 4)));
  ASSERT_TRUE(barrier_.wait_inside(2));  // both slots are taken: two requests wait, the third is refused

  ASSERT_TRUE(b.send(call(2, "echo", 5) + call(3, "echo", 6) + call(4, "echo", 7) +
                     short_request(Type::LocateRequest, 9, key())));
  EXPECT_EQ(answers(b, 2), (Texts{"TRANSIENT 1", "here"}));
  ASSERT_TRUE(b.send(short_request(Type::CancelRequest, 2, "") + call(5, "echo", 8) + call(6, "echo", 9)));
  EXPECT_EQ(b.answer(), "TRANSIENT 1");  // the cancelled one left room for one
  Client c(port());
  ASSERT_TRUE(c.send("nonsense....") && c.answer() == "MessageError");

  barrier_.open(2);
  Texts late = answers(a, 2), waited = answers(b, 2);
  std::sort(late.begin(), late.end());
  std::sort(waited.begin(), waited.end());
  EXPECT_EQ(late, (Texts{"1", "4"}));
  EXPECT_EQ(waited, (Texts{"6", "8"}));
}

TEST_F(Engine, ManyClientsAtOnce) {
  std::atomic<int> running{0}, most{0};
  script().operations["count"] = [&](Upcalled& r) {
    const int now = ++running;
    for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) continue;
    std::this_thread::yield();
    --running;
    r.answer(r.argument);
  };
  start({"-ORBThreads", "3"});
  std::vector<std::thread> threads;
  for (int32_t t = 0; t < 6; ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 5; ++round) {
        Client client(port());
        for (int32_t i = 0; i < 40; ++i) {
          const int32_t first = t * 1000 + i;
          const bool pairs = t % 2 == 1;
          ASSERT_TRUE(client.send(call(1, "count", first) + (pairs ? call(2, "count", first) : "")));
          for (int n = 0; n <= pairs; ++n) ASSERT_EQ(client.answer(), std::to_string(first));
        }
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(most, 3);
  EXPECT_GE(most, 1);
}

TEST_F(Engine, AClientThatReadsNothingIsDropped) {
  script().operations["octets"] = [](Upcalled& r) { r.answer_octets(r.argument); };
  script().disconnect = [&](long, const unsigned char*, bool) { board_.add("lost"); };
  start({"-ORBThreads", "1", "-ORBTimeout", "1500", "-ORBMaxMessage", "8388608"});
  Client silent(port()), good(port());
  ASSERT_TRUE(silent.send(call(1, "octets", 8'000'000) + short_request(Type::LocateRequest, 2, key())));
  EXPECT_TRUE(board_.wait_for(1));
  ASSERT_TRUE(good.send(call(2, "echo", 6)));
  EXPECT_EQ(good.answer(), "6");
  ASSERT_TRUE(good.send(call(3, "octets", 8'400'000)));
  EXPECT_EQ(good.answer(), "IMP_LIMIT 0");
  ASSERT_TRUE(good.send(call(3, "octets", 8'300'000)));  // waits for the client, but in time
  EXPECT_EQ(good.answer(), "8300000");
}

TEST_F(Engine, TellsWhoTheClientIsAndWhenItIsGone) {
  std::atomic<int32_t> known{-1};
  script().operations["who"] = [&](Upcalled& r) {
    int32_t fd = -1;
    unsigned char ipv6 = 9, address[16] = {};
    EXPECT_TRUE(OM_ext_get_client_info_ip6(&fd, &ipv6, address, nullptr, nullptr, nullptr));
    EXPECT_EQ(ipv6, 0);
    EXPECT_EQ(0, std::memcmp(address, "\x7F\0\0\1", 4));
    known = fd;
    r.answer(fd);
  };
  script().disconnect = [&](long fd, const unsigned char* address, bool ipv6) {
    EXPECT_FALSE(ipv6);
    EXPECT_EQ(0, std::memcmp(address, "\x7F\0\0\1", 4));
    EXPECT_GE(::fcntl(static_cast<int>(fd), F_GETFD), 0);  // not closed yet, so not used again
    board_.add(std::to_string(fd));
  };
  start();
  unsigned char nothing = 9;
  EXPECT_FALSE(OM_ext_get_client_info_ip6(nullptr, &nothing, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(nothing, 9);
  Client idle(port()), served(port());
  ASSERT_TRUE(served.send(call(1, "who")));
  const std::string fd = served.answer();
  EXPECT_EQ(fd, std::to_string(known));
  idle.close();  // carried nothing: nobody is told
  served.close();
  ASSERT_TRUE(board_.wait_for(1));
  Client last(port());
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(last.send(call(1, "echo", 1)) && last.answer() == "1");
  last.close();
  ASSERT_TRUE(board_.wait_for(2));
  EXPECT_EQ(board_.lines()[0], fd);
  EXPECT_EQ(board_.lines().size(), 2u);
}

TEST_F(Engine, ServesTheBrokersOwnObjectsByTheirTables) {
  start();
  const char* const names[] = {"twice", "gone", "broken", nullptr};
  const ZR_skeleton skeletons[] = {
      [](void* request, void*, uint32_t, unsigned char, void*) -> unsigned char {
        CDR* cdr = nullptr;
        int32_t value = 0;
        if (!OM_req_lib_UNO_IIOP_get_cdr(request, &cdr) || !OM_cdr_long(cdr, &value)) return 0;
        value *= 2;
        return OM_req_lib_UNO_IIOP_encode_reply_header(request, 0) && OM_cdr_long(cdr, &value);
      },
      [](void*, void*, uint32_t, unsigned char, void*) -> unsigned char { return 1; },
      [](void*, void*, uint32_t, unsigned char, void*) -> unsigned char { return 0; }, nullptr};
  const ZR_method methods[] = {nullptr, nullptr, nullptr, nullptr};
  ZR_register_interface("IDL:Table:1.0");
  void* definition = CORBA_Repository_lookup_id(nullptr, "IDL:Table:1.0", env_);
  CORBA_BOA_set_impl_methods(nullptr, env_, definition, names, skeletons, methods);
  ASSERT_EQ(env_.name(), "");
  control(ZR_QUEUE_HOLD);  // which is not for these
  const std::string table = key("IDL:Table:1.0", "IDL:Table:1.0"),
                    intf(zrsv::as_reference(definition)->key());
  const struct {
    std::string key;
    const char *operation, *wanted;
  } rows[] = {{table, "twice", "42"},
              {table, "gone", "OBJECT_NOT_EXIST 1"},
              {table, "broken", "MARSHAL 1"},
              {table, "other", "BAD_OPERATION 1"},
              {table, "_is_a", "MARSHAL 1"},  // its argument is no string
              {key("IDL:Else:1.0", "IDL:Else:1.0"), "twice", "OBJECT_NOT_EXIST 1"},
              {intf, "describe", "NO_IMPLEMENT 1"}};
  Client client(port());
  for (const auto& row : rows) {
    ASSERT_TRUE(client.send(request(1, row.operation, 21, row.key)));
    EXPECT_EQ(client.answer(), row.wanted) << row.operation;
  }
  CORBA_object_release(definition);
}

TEST_F(Engine, CallsOfThisProcessTakeTheSameRoad) {
  const auto local = [](const std::string& octets, std::chrono::milliseconds limit, std::string* why) {
    zrsv::Buffer message, reply;
    EXPECT_TRUE(message.append(reinterpret_cast<const unsigned char*>(octets.data()), octets.size()));
    const char* failure =
        zrsv::call_in_process(std::move(message), true, std::chrono::steady_clock::now() + limit, &reply);
    *why = failure ? failure : "";
    int32_t value = -1;
    if (reply.size() == 28) std::memcpy(&value, reply.data() + 24, 4);
    return value;
  };
  script().operations["nested"] = [&](Upcalled& r) {
    std::string why;
    unsigned char ipv6 = 0;
    EXPECT_TRUE(OM_ext_get_client_info_ip6(nullptr, &ipv6, nullptr, nullptr, nullptr, nullptr));
    const int32_t inner = local(request(1, "inner", r.argument, key()), bound, &why);
    EXPECT_EQ(why, "");
    EXPECT_TRUE(OM_ext_get_client_info_ip6(nullptr, &ipv6, nullptr, nullptr, nullptr, nullptr));
    r.answer(inner + 1);
  };
  script().operations["inner"] = [&](Upcalled& r) {
    EXPECT_EQ(r.info->request_type, unsigned{ZR_REQUEST_IN_PROCESS});
    EXPECT_FALSE(OM_ext_get_client_info_ip6(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    r.answer(r.argument * 10);
  };
  std::string why;
  EXPECT_EQ(local(request(1, "inner", 1, key()), bound, &why), -1);
  EXPECT_EQ(why, "TRANSIENT");  // nothing is served yet
  start({"-ORBThreads", "1"});
  Client client(port());
  ASSERT_TRUE(client.send(call(1, "nested", 4)));
  EXPECT_EQ(client.answer(), "41");  // with one slot: the nested call needs none
  EXPECT_EQ(local(request(1, "inner", 5, key()), bound, &why), 50);
  EXPECT_EQ(local(request(1, "inner", 5, "x"), bound, &why), -1);
  EXPECT_EQ(why, "OBJECT_NOT_EXIST");

  control(ZR_QUEUE_HOLD);
  EXPECT_EQ(local(request(1, "inner", 6, key()), std::chrono::milliseconds(1), &why), -1);
  EXPECT_EQ(why, "TIMEOUT");
  std::thread caller([&] {
    std::string ok;
    EXPECT_EQ(local(request(1, "inner", 7, key()), bound, &ok), 70) << ok;
  });
  control(ZR_QUEUE_RELEASE);
  caller.join();

  script().operations["block"] = [&](Upcalled& r) {
    barrier_.pass();
    r.answer(0);
  };
  ASSERT_TRUE(client.send(call(2, "block")));
  ASSERT_TRUE(barrier_.wait_inside(1));  // the slot is taken: this one waits its turn
  EXPECT_EQ(local(request(1, "inner", 8, key()), std::chrono::milliseconds(1), &why), -1);
  EXPECT_EQ(why, "TIMEOUT");
  barrier_.open(1);
  EXPECT_EQ(local(request(1, "inner", 9, key()), bound, &why), 90);
}

TEST_F(Engine, ShutsDownFromAServantAndStartsAgain) {
  script().operations["block"] = [&](Upcalled& r) {
    barrier_.pass();
    r.answer(r.argument);
  };
  script().operations["shutdown"] = [&](Upcalled& r) {
    Outcome env;
    CORBA_ORB_shutdown(orb_, 1, env);
    EXPECT_EQ(env.name(), "BAD_INV_ORDER");  // it cannot wait for itself
    CORBA_ORB_shutdown(orb_, 0, env);
    CORBA_ORB_shutdown(orb_, 0, env);
    EXPECT_EQ(env.name(), "");
    r.answer(1);
  };
  start({"-ORBThreads", "2"});
  for (int round = 0; round < 2; ++round) {
    std::thread runs([&] { CORBA_ORB_run(orb_, nullptr); });
    {
      Client busy(port()), idle(port()), asks(port());
      ASSERT_TRUE(busy.send(call(1, "block", 8)) &&
                  barrier_.wait_inside(static_cast<std::size_t>(1 + round)));
      ASSERT_TRUE(idle.send(call(1, "echo", 3)) && idle.answer() == "3");
      control(ZR_QUEUE_HOLD);
      ASSERT_TRUE(idle.send(call(2, "echo", 4) + short_request(Type::LocateRequest, 3, key())) &&
                  idle.answer() == "here");
      control(ZR_QUEUE_RELEASE);
      EXPECT_EQ(idle.answer(), "4");
      ASSERT_TRUE(asks.send(call(1, "shutdown")));
      EXPECT_EQ(asks.answer(), "1");
      barrier_.open(1);
      EXPECT_EQ(answers(busy, 3), (Texts{"8", "CloseConnection", "end"}));  // what runs may end
      EXPECT_EQ(answers(idle, 2), (Texts{"CloseConnection", "end"}));
      runs.join();
      EXPECT_FALSE(Client(port()).connected());
    }
    ASSERT_TRUE(resolve_root());
    Client again(port());
    ASSERT_TRUE(again.send(call(1, "echo", 5)));
    EXPECT_EQ(again.answer(), "5");
  }
}

TEST_F(Engine, ShutdownDoesNotWaitForEver) {
  script().operations["block"] = [&](Upcalled& r) {
    barrier_.pass();
    r.answer(1);
    board_.add("back");
  };
  start({"-ORBThreads", "1", "-ORBShutdownTimeout", "1"});
  Client stuck(port()), waits(port()), held(port());
  ASSERT_TRUE(stuck.send(call(1, "block")) && barrier_.wait_inside(1));
  ASSERT_TRUE(waits.send(call(1, "echo") + short_request(Type::LocateRequest, 2, key())) &&
              waits.answer() == "here");
  control(ZR_QUEUE_HOLD);
  ASSERT_TRUE(held.send(call(1, "echo") + short_request(Type::LocateRequest, 2, key())) &&
              held.answer() == "here");
  CORBA_ORB_shutdown(orb_, 1, env_);
  EXPECT_EQ(answers(stuck, 2), (Texts{"CloseConnection", "end"}));
  EXPECT_EQ(answers(waits, 3), (Texts{"TRANSIENT 1", "CloseConnection", "end"}));
  EXPECT_EQ(answers(held, 3), (Texts{"TRANSIENT 1", "CloseConnection", "end"}));
  barrier_.open(1);
  EXPECT_TRUE(board_.wait_for(1));
}

TEST_F(Engine, AStartThatFailsCanBeTriedAgain) {
  init({"-ORBMaxConnections", "1", "-ORBPublish", "example.org", "-ORBListen", "0.0.0.0:0"});
  script().root = []() -> zrsv::Reference* { return nullptr; };
  EXPECT_FALSE(resolve_root());
  EXPECT_EQ(env_.name(), "INITIALIZE");
  script().root = [this] {  // the adapter calls back while it starts
    EXPECT_TRUE(CORBA_ORB_resolve_initial_references(orb_, "KQ_LightInterfaceRepository", env_));
    EXPECT_TRUE(CORBA_ORB_resolve_initial_references(orb_, "ImplementationRepository", env_));
    EXPECT_FALSE(CORBA_ORB_resolve_initial_references(orb_, "RootPOA", env_));
    EXPECT_EQ(env_.name(), "BAD_INV_ORDER");
    EXPECT_EQ(std::string(ZR_published_endpoint(orb_, 0)).substr(0, 12), "example.org:");
    return zrsv::Reference::make_local("IDL:R:1.0", "IDL:R:1.0", "root").release();
  };
  EXPECT_TRUE(resolve_root());
  EXPECT_EQ(ZR_published_endpoint(orb_, 1), nullptr);
  EXPECT_FALSE(CORBA_ORB_resolve_initial_references(orb_, "Unheard", env_));
  EXPECT_EQ(env_.name(), "BAD_PARAM");
  Client first(port());
  ASSERT_TRUE(first.send(short_request(Type::LocateRequest, 1, key())) && first.answer() == "here");
  EXPECT_EQ(Client(port()).answer(), "end");  // one too many
}

TEST_F(Engine, ATickThatBlocksStopsNothing) {
  script().tick = [&] { barrier_.pass(); };
  start({"-ORBTick", "1"});
  ASSERT_TRUE(barrier_.wait_inside(1));
  Client client(port());
  ASSERT_TRUE(client.send(call(1, "echo", 2)));
  EXPECT_EQ(client.answer(), "2");
  barrier_.open(1'000'000);
  EXPECT_TRUE(barrier_.wait_inside(3));
}

}  // namespace
