// Each single allocation, call to a socket and look at the clock of what a server and a client do fails once: that costs
// a request or a connection, never the process, and the next client is served. A call that a signal ends, or that moves
// less than was wanted, costs nothing. Which one is the n-th is up to the threads, and each n is tried once; the client's
// part alone, where the order is the same each time, is in connections_test.cpp.
#include <list>
#include <optional>
#include <thread>

#include "connections/client_pool.h"
#include "engine_fixture.h"
#include "failing.h"
#include "time_limit.h"

namespace {

using namespace engine_test;
using failing::Counted;
using failing::What;

/// What a failure may look like to a client.
bool is_a_failure(const std::string& answer) {
  for (const char* known :
       {"end", "not sent", "NO_MEMORY", "TRANSIENT", "COMM_FAILURE", "INTERNAL", "MARSHAL", "TIMEOUT"})
    if (answer.starts_with(known)) return true;
  return false;
}

class Exhaustion : public Engine {
 protected:
  void SetUp() override {
    time_limit() = std::chrono::seconds(60);
    Engine::SetUp();
    log_away();
    _call_cpp_ = [](void*, void* request, CORBA_Environment*) { serve(request); };
    disconnect = [this](long, const void*, bool) {
      const Counted not_this(false);
      board_.add("lost");
    };
    blocked_ = &barrier_;
  }
  void TearDown() override {
    Engine::TearDown();
    OM_log_set_sink(nullptr, nullptr);
  }

  /// Answers a long with that long, and with so many octets behind it as the operation's name says.
  static void serve(void* request) {
    ZR_RequestInfo* const info = static_cast<ZR_ServerRequest*>(request)->info;
    CDR* cdr = nullptr;
    int32_t value = -1;
    OM_req_lib_UNO_IIOP_get_cdr(info->request, &cdr);
    OM_cdr_long(cdr, &value);
    const std::string_view operation = info->operation;
    if (operation == "block") {
      const Counted not_this(false);
      blocked_->pass();
    }
    if (!OM_req_lib_UNO_IIOP_encode_reply_header(info->request, ZR_REPLY_NO_EXCEPTION)) return;
    OM_cdr_long(cdr, &value);
    if (operation == "much") {
      int32_t client = -1;
      const int little = 65'536;  // more is to wait until the client has taken some
      OM_ext_get_client_info_ip6(&client, nullptr, nullptr, nullptr, nullptr, nullptr);
      ::setsockopt(client, SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
      zrsv::put_octets(cdr, std::string(500'000, 'x'));
    }
  }
  static void log_away() {
    OM_log_set_sink([](int, const char*, void*) {}, nullptr);
  }
  /// A key that no thread has seen: its reference has to be made.
  static std::string fresh_key() {
    static int count = 0;
    return zrsv::Reference::make_local(impl_name, "IDL:Test:1.0", "object" + std::to_string(++count))->key();
  }

  using Arm = std::function<void()>;
  /// `scene` says what its client saw after it has armed: `wanted` where nothing failed.
  void sweep(const std::string& wanted, const std::function<std::string(const Arm& arm)>& scene) {
    for (const auto& [what, more] : faults) {
      bool failed = true;
      for (long n = 1; failed && !HasFailure(); ++n) {
        SCOPED_TRACE(std::string(names[static_cast<int>(what)]) + " " + std::to_string(n) + ", and " +
                     std::to_string(more) + " more");
        ASSERT_LT(n, 3000);
        const auto begun = std::chrono::steady_clock::now();
        const std::string seen = scene([&, fault = what, after = more] {
          other_failed_ = false;  // of what failed the last time
          failing::begin(fault, n, after);
        });
        failed = failing::end();
        EXPECT_LT(std::chrono::steady_clock::now() - begun, soon_ * slowness()) << "a time-out ended it";
        const bool may_fail = failed && what != What::interrupted && what != What::shortened;
        EXPECT_TRUE(seen == wanted || (may_fail && is_a_failure(seen))) << seen;
        // What failed once cost one of the two at most; who leaps in time may find both too old.
        EXPECT_TRUE(!std::exchange(other_failed_, false) ||
                    (may_fail && (seen == wanted || more || what == What::clock)));
        EXPECT_TRUE(!orb_ || Client(port()).ask(request(1, "echo", 5, fresh_key())) == "5");
      }
    }
  }
  /// A call of another client, which knows nothing of what is done to the first one, and is answered soon.
  void call_of_other() {
    const auto asked = std::chrono::steady_clock::now();
    if (!other_) other_.emplace(port());
    if (const std::string said = other_->ask(request(1, "echo", 5, key())); said != "5") {
      EXPECT_TRUE(is_a_failure(said)) << said;
      other_failed_ = true;
      other_.reset();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - asked, soon_ * slowness());
  }

  static constexpr std::chrono::seconds soon_{3};
  static constexpr const char* names[] = {"allocation", "call to a socket", "interrupted call", "short call",
                                          "leap",       "full socket",      "shortage"};
  std::vector<std::pair<What, long>> faults{{What::allocation, 0},  {What::allocation, 3}, {What::socket, 0},
                                            {What::interrupted, 0}, {What::shortened, 0},  {What::clock, 0},
                                            {What::shortage, 0}};
  void control_counted(int code) {
    const Counted these;
    ZR_queue_control_queue_group(0, impl_name, code, 0, env_);
  }

  static inline Board* blocked_ = nullptr;
  std::optional<Client> other_;
  bool other_failed_ = false;
};

/// The answers, or the first that is a failure.
std::string one_of(const Texts& answers) {
  std::string all;
  for (const std::string& answer : answers) {
    if (is_a_failure(answer)) return answer;
    all += (all.empty() ? "" : " ") + answer;
  }
  return all;
}

TEST_F(Exhaustion, ARequestThatWaits) {
  start({"-ORBThreads", "1"});
  std::size_t rounds = 0;
  sweep("here 1 2", [&](const Arm& arm) {
    Client first(port()), second(port());
    EXPECT_TRUE(first.send(request(1, "block", 1, key())) && barrier_.wait_for(++rounds));
    arm();
    const std::string here = second.ask(request(2, "echo", 2, fresh_key()) + look_);
    barrier_.open(1);
    return one_of({here, first.answer(), here == "here" ? second.answer() : here});
  });
}

TEST_F(Exhaustion, ARequestThatIsHeld) {
  start({"-ORBThreads", "1"});
  sweep("here 3", [&](const Arm& arm) {
    Client client(port());
    arm();
    control_counted(ZR_QUEUE_HOLD);
    const std::string here = client.ask(request(3, "echo", 3, fresh_key()) + look_);
    control_counted(ZR_QUEUE_RELEASE);
    return one_of({here, here == "here" ? client.answer() : here});
  });
}

TEST_F(Exhaustion, AClientThatLeaves) {
  start({"-ORBThreads", "2"});
  std::size_t rounds = 0;
  sweep("told", [&](const Arm& arm) {
    Client client(port()), other(port());
    EXPECT_EQ(client.ask(request(3, "echo", 3, key())), "3");
    EXPECT_TRUE(other.send(request(1, "block", 1, key())) && barrier_.wait_for(++rounds));
    EXPECT_TRUE(other.send(request(1, "echo", 1, fresh_key())) && other.answer() == "1");
    arm();
    client.close();
    EXPECT_TRUE(board_.wait_for(3 * rounds - 2));
    other.close();
    EXPECT_TRUE(board_.wait_for(3 * rounds - 1));
    barrier_.open(1);
    return board_.wait_for(3 * rounds) ? "told" : "not told";
  });
}

TEST_F(Exhaustion, BigMessages) {
  start({"-ORBThreads", "2", "-ORBFragmentSize", "65536"});
  const std::string octets = with_more(request(8, "much", 8, key()), 600'000);
  sweep("8", [&](const Arm& arm) {
    Client client(port(), 4096);
    arm();
    for (const std::string& part : fragments(octets, 100'000))
      if (!client.send(part)) break;
    return client.answer();
  });
}

// ---- What fails on the road of one client's call costs the others nothing ----

TEST_F(Exhaustion, OthersWhileAClientComesAndCalls) {
  start({"-ORBThreads", "1"});
  std::list<Client> clients;  // all stay, so that each connection is a new one
  sweep("here 7", [&](const Arm& arm) {
    call_of_other();
    arm();
    Client& client = clients.emplace_back(port());
    call_of_other();
    const std::string here = client.ask(look_);
    call_of_other();
    const std::string seven = client.ask(request(1, "echo", 7, fresh_key()));
    call_of_other();
    return one_of({here, seven});
  });
}

TEST_F(Exhaustion, OthersWhileAThreadIsPinned) {
  start({"-ORBThreads", "2"});
  sweep("1 2 3 4 5 6 7 8 8 9", [&](const Arm& arm) {
    Client client(port());
    Texts answers;
    call_of_other();
    arm();
    for (int32_t i = 1; i < 8; ++i) {
      answers.push_back(client.ask(call(static_cast<uint32_t>(i), "echo", i)));
      call_of_other();
    }
    answers.push_back(client.ask(call(8, "echo", 8) + call(9, "echo", 8)));  // the thread leaves for that
    call_of_other();
    answers.push_back(is_a_failure(answers.back()) ? answers.back() : client.answer());
    answers.push_back(is_a_failure(answers.back()) ? answers.back() : client.ask(call(10, "echo", 9)));
    return one_of(answers);
  });
}

TEST_F(Exhaustion, OthersWhileAClientTakesNothing) {
  start({"-ORBThreads", "2"});
  sweep("8 9", [&](const Arm& arm) {
    Client client(port(), 16'384);
    call_of_other();
    arm();
    const bool sent = client.send(request(8, "much", 8, fresh_key()));
    call_of_other();
    const std::string first = sent ? client.answer() : "not sent";
    call_of_other();
    return one_of({first, is_a_failure(first) ? first : client.ask(request(9, "echo", 9, key()))});
  });
}

TEST_F(Exhaustion, OthersWhileAClientSendsMoreThanItsShare) {
  start({"-ORBThreads", "2", "-ORBConnectionRequests", "2"});
  std::string many;
  for (uint32_t i = 2; i < 9; ++i) many += request(i, "echo", static_cast<int32_t>(i), key());
  sweep("9 answers", [&](const Arm& arm) {
    Client client(port());
    call_of_other();
    arm();
    const bool sent = client.send(request(1, "echo", 1, key()) + many + look_);
    call_of_other();
    int count = 0;
    for (std::string answer = sent ? client.answer() : "not sent";; answer = client.answer()) {
      if (is_a_failure(answer)) return answer;
      if (++count == 9) return std::string("9 answers");
      call_of_other();
    }
  });
}

/// A call by the library's own client, through the socket or in process.
std::string call_own(const std::string& key) try {
  const Counted this_thread;
  const auto target = zrsv::Reference::from_key(key);
  void* handle = nullptr;
  uint32_t kind = 0, status = 99;
  CDR* cdr = nullptr;
  int32_t value = 6;
  const auto failure = [&] {
    Outcome ev;
    SetStdExReqLib(CORBA_COMPLETED_NO, ev);
    if (handle) OM_req_lib_UNO_IIOP_initiator_request_complete(handle);
    const Counted not_this(false);
    return ev.name();
  };
  if (!target || !OM_req_lib_initiator_request_create(target.get(), "echo", 1, &handle, &kind))
    return failure();
  OM_req_lib_UNO_IIOP_get_cdr(handle, &cdr);
  if (!OM_cdr_long(cdr, &value)) return OM_req_lib_UNO_IIOP_initiator_request_complete(handle), "MARSHAL";
  if (!OM_req_lib_UNO_IIOP_send_request(handle) || !OM_req_lib_UNO_IIOP_recv_reply(handle) ||
      !OM_req_lib_UNO_IIOP_decode_reply_header(handle, &status))
    return failure();
  const bool right = status == ZR_REPLY_NO_EXCEPTION && OM_cdr_long(cdr, &value) && value == 6;
  OM_req_lib_UNO_IIOP_initiator_request_complete(handle);
  return right ? "6" : "NO_MEMORY of the server";
} catch (const std::bad_alloc&) {  // of the reference itself
  return "NO_MEMORY";
}

TEST_F(Exhaustion, OwnCalls) {
  for (const char* in_process : {"0", "1"}) {
    start({"-ORBInProcess", in_process});
    sweep("6", [&](const Arm& arm) {
      zrsv::close_client_connections();
      const std::string key = fresh_key();
      std::string seen;
      std::thread caller([&] {  // with nothing kept of earlier calls
        const Counted not_this(false);
        arm();
        seen = call_own(key);
        failing::end();
      });
      caller.join();
      return seen;
    });
    CORBA_ORB_destroy(std::exchange(orb_, nullptr), env_);
  }
}

TEST_F(Exhaustion, StartAndShutdown) {
  start();  // announces the name
  CORBA_ORB_destroy(std::exchange(orb_, nullptr), env_);
  const Texts failures{"NO_MEMORY", "INITIALIZE"};
  const auto failure = [&](const std::string& name) {
    EXPECT_NE(std::find(failures.begin(), failures.end(), name), failures.end()) << name;
    return "NO_MEMORY";
  };
  sweep("started 5 stopped", [&](const Arm& arm) {
    init({"-ORBThreads", "1"});
    arm();
    bool started = false;
    {
      const Counted these;
      started = resolve_root();
    }
    std::string seen = started ? "started" : failure(env_.name());
    if (started) {
      control_counted(ZR_QUEUE_RELEASE);
      seen = one_of({seen, Client(port()).ask(request(1, "echo", 5, fresh_key()))});
    }
    const auto end = [&] {
      const Counted these;
      CORBA_ORB_destroy(orb_, env_);
    };
    end();
    const std::string why = env_.name();
    failing::end();
    if (!why.empty()) end();  // nothing was ended: it can be, now
    EXPECT_EQ(env_.name(), "");
    orb_ = nullptr;
    return one_of({seen, why.empty() ? "stopped" : failure(why)});
  });
}

}  // namespace
