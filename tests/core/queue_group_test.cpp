#include <gmock/gmock.h>

#include "engine_fixture.h"

namespace {

using namespace engine_test;
using zrsv::QueueGroup;
using Admission = QueueGroup::Admission;

TEST(QueueGroup, WaitsOpensHoldsAndReleasesInOrder) {
  QueueGroup group;
  std::vector<uint32_t> delivered;
  const auto hold = [&](uint32_t id) {
    zrsv::ServerRequest request;
    request.head.id = id;
    return group.hold(&request, 2);
  };
  EXPECT_EQ(hold(1), Admission::Full);  // nobody could ever deliver it
  group.deliver_to([&](zrsv::Requests requests) {
    EXPECT_FALSE(group.is_open());  // nothing newer may overtake them
    while (const auto request = requests.pop_front()) delivered.push_back(request->head.id);
  });
  EXPECT_EQ(hold(2), Admission::Held);
  group.announce("a");  // that it is there does not mean that it wants to be called
  const auto soon = std::chrono::steady_clock::now() + bound;
  EXPECT_EQ(group.waiting_in_vain(soon - 2 * bound), 0u);
  EXPECT_EQ(group.waiting_in_vain(soon), 1u);
  EXPECT_EQ(group.waiting_in_vain(soon), 0u);  // told once
  group.begin();
  EXPECT_EQ(hold(3), Admission::Pass);
  group.close();
  EXPECT_EQ(hold(4), Admission::Held);
  group.announce("b");  // does not release what is held
  group.begin();
  EXPECT_EQ(hold(5), Admission::Held);
  EXPECT_EQ(hold(6), Admission::Full);
  group.open();
  EXPECT_EQ(delivered, (std::vector<uint32_t>{2, 4, 5}));
}

class Held : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    operations["note"] = [&](Upcalled& r) {
      if (r.argument == 0) barrier_.pass();
      board_.add(std::to_string(r.argument));
      r.answer(r.argument);
    };
  }
  void start_with(const std::string& threads) { start({"-ORBThreads", threads, "-ORBQueue", "60"}); }
};

TEST_F(Held, CodesAndNames) {
  start_with("1");
  const auto wrong = [&](const char* name, int code) {
    ZR_queue_control_queue_group(0, name, code, 0, env_);
    return env_.name();
  };
  EXPECT_EQ(wrong("unheard of", ZR_QUEUE_HOLD), "NO_IMPLEMENT");
  EXPECT_EQ(wrong(nullptr, ZR_QUEUE_HOLD), "BAD_PARAM");
  for (int code : {3, 8}) EXPECT_EQ(wrong(impl_name, code), "BAD_PARAM");
}

TEST_F(Held, RequestsComeOutInTheOrderOfTheirConnection) {
  start_with("1");
  Client a(port()), b(port()), gone(port());
  control(ZR_QUEUE_HOLD);
  for (int32_t i = 1; i <= 25; ++i) {
    ASSERT_TRUE(a.send(call(static_cast<uint32_t>(i), "note", i)));
    ASSERT_TRUE(b.send(call(static_cast<uint32_t>(i), "note", 100 + i)));
  }
  EXPECT_EQ(a.ask(cancel(3) + look_), "here");
  EXPECT_EQ(b.ask(request(77, "note", 1, key(), 2, false) + look_), "here");  // has no answer
  EXPECT_EQ(gone.ask(call(1, "note", 999) + look_), "here");
  for (int32_t i = 0; i < 10; ++i) ASSERT_TRUE(a.send(call(200, "note", 1)));
  // 60 may wait: 24, 26 and 1 do, so 9 of these.
  EXPECT_EQ(a.answer(), "TRANSIENT 1");
  gone.close();
  control(ZR_QUEUE_DRAIN);  // nothing comes out yet
  EXPECT_EQ(a.ask(look_), "here");
  EXPECT_TRUE(board_.lines().empty());

  control(ZR_QUEUE_RELEASE);
  for (int32_t i = 1; i <= 25; ++i) {
    EXPECT_TRUE(i == 3 || a.answer() == std::to_string(i)) << i;
    EXPECT_EQ(b.answer(), std::to_string(100 + i));
  }
}

TEST_F(Held, AClientMayGoOnceItHasSentWhatWantsNoAnswer) {
  disconnect = [&](long, const void*, bool) { board_.add("lost"); };
  start_with("1");
  Client gone(port()), other(port());
  control(ZR_QUEUE_HOLD);
  EXPECT_EQ(gone.ask(request(1, "note", 7, key(), 2, false) + call(2, "note", 8) + look_), "here");
  gone.close();
  ASSERT_TRUE(board_.wait_for(1)) << "the loss";
  control(ZR_QUEUE_RELEASE);
  EXPECT_EQ(other.ask(call(3, "note", 9)), "9");
  ASSERT_TRUE(board_.wait_for(4));  // the loss is told again once the client's last request has run
  EXPECT_THAT(board_.lines(), ::testing::UnorderedElementsAre("lost", "7", "lost", "9"));
}

// Each waits for the one that came after it: they all run at once.
TEST_F(Held, AConnectionIsAsBusyAfterAHoldAsBefore) {
  operations["meet"] = [&](Upcalled& r) {
    board_.add("in");
    EXPECT_TRUE(board_.wait_for(static_cast<std::size_t>(r.argument)));
    r.answer(r.argument);
  };
  start_with("4");
  Client client(port());
  control(ZR_QUEUE_HOLD);
  ASSERT_TRUE(client.send(call(1, "meet", 3) + call(2, "meet", 3)));
  EXPECT_EQ(client.ask(look_), "here");
  control(ZR_QUEUE_RELEASE);
  EXPECT_TRUE(client.send(call(3, "meet", 3)));
  EXPECT_EQ(client.answers(3), (Texts{"3", "3", "3"}));
  ASSERT_TRUE(client.send(call(4, "meet", 5) + call(5, "meet", 5)));
  EXPECT_EQ(client.answers(2), (Texts{"5", "5"}));
}

TEST_F(Held, LaterRequestsOfAConnectionLineUpBehindReleasedOnes) {
  start_with("1");
  Client client(port());
  Texts wanted;
  for (int32_t i = 0; i < 10; ++i) {
    if (i == 0) control(ZR_QUEUE_HOLD);
    ASSERT_TRUE(client.send(request(1, "note", i, key(), 2, false)));
    EXPECT_EQ(client.ask(look_), "here");  // it is in
    if (i == 4) control(ZR_QUEUE_RELEASE);
    wanted.push_back(std::to_string(i));
  }
  barrier_.open(1);
  ASSERT_TRUE(board_.wait_for(10));
  EXPECT_EQ(board_.lines(), wanted);
}

}  // namespace
