// Servants that call, over a socket, servants of their own process: each call needs a slot while those that led to it
// have theirs.
#include <thread>

#include "engine_fixture.h"
#include "requests/call_chain.h"
#include "time_limit.h"

namespace {

using namespace engine_test;

class Nested : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    // So deep a call; each gives how deep it came.
    operations["nest"] = [this](Upcalled& r) {
      r.answer(r.argument > 1 ? std::max(deeper("nest", r.argument), 0) + 1 : 1);
    };
    // The same, with a servant at the end that waits.
    operations["nest and wait"] = [this](Upcalled& r) {
      if (r.argument <= 1) barrier_.pass();
      r.answer(r.argument <= 1 ? 1 : deeper("nest and wait", r.argument) + 1);
    };
  }
  /// How deep the call from there came, or -1 with what is wrong on the board.
  int32_t deeper(const char* operation, int32_t depth) {
    const auto asked = std::chrono::steady_clock::now();
    const std::string said = own_call(key(), operation, depth - 1);
    if (said.find_first_not_of("0123456789") == said.npos) return std::stoi(said);
    refused_after_ = std::chrono::steady_clock::now() - asked;
    board_.add(said);
    return -1;
  }
  std::chrono::steady_clock::duration refused_after_{};

  static Texts over_sockets(const char* threads) { return {"-ORBInProcess", "0", "-ORBThreads", threads}; }
};

TEST_F(Nested, CallsCompleteWithFullPools) {
  start(over_sockets("1"));
  EXPECT_EQ(Client(port()).ask(call(1, "nest", 30)), "30");
  std::vector<std::thread> callers;
  for (int i = 0; i < 6; ++i)
    callers.emplace_back([this] { EXPECT_EQ(Client(port()).ask(call(1, "nest", 8)), "8"); });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(board_.lines(), Texts{});
}

TEST_F(Nested, WhenNoSlotIsLeftToLendTheYoungestFailsAtOnce) {
  start(over_sockets("2"));
  testing::internal::CaptureStderr();
  const int deep = std::stoi(Client(port()).ask(call(1, "nest", 90)));
  EXPECT_GT(refused_after_.count(), 0);
  EXPECT_LT(refused_after_, std::chrono::milliseconds(200) * slowness());
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_GE(deep, 64);
  EXPECT_LT(deep, 70);
  EXPECT_EQ(board_.lines(), Texts{"TRANSIENT"});
  EXPECT_NE(log.find("nest is refused, which came of nest > nest > nest"), log.npos) << log;
  EXPECT_EQ(Client(port()).ask(call(1, "nest", 30)), "30");
}

TEST_F(Nested, UnrelatedCallsGoOn) {
  start(over_sockets("2"));
  Client waits(port()), other(port());
  ASSERT_TRUE(waits.send(call(1, "nest and wait", 60)) && barrier_.wait_for(1));
  for (int i = 0; i < 20; ++i) {
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(other.ask(call(1, "echo", i)), std::to_string(i));
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(1));
  }
  barrier_.open(1);
  EXPECT_EQ(waits.answer(), "60");
}

TEST(CallChain, IsReadWithCare) {
  using zrsv::describe_chain;
  const std::string other("\1\2\3\4\5\6\7\1\4from", 13);
  const std::pair<std::string, const char*> rows[] = {{"", ""},
                                                      {other, "from (elsewhere)"},
                                                      {other + other, "from (elsewhere) > from (elsewhere)"},
                                                      {other + other.substr(0, 12), "from (elsewhere)"},
                                                      {other.substr(0, 8), ""}};
  for (const auto& [chain, wanted] : rows) {
    char text[40];
    describe_chain(chain, text, sizeof text);
    EXPECT_STREQ(text, wanted);
    EXPECT_FALSE(zrsv::leads_back(chain));
  }
  char little[10];
  describe_chain(other + other, little, sizeof little);
  EXPECT_STREQ(little, "from (els");
  EXPECT_EQ(zrsv::chain_of_call(), "");
}

}  // namespace
