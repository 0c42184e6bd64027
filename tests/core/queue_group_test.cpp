#include <thread>

#include "engine_fixture.h"

namespace {

using namespace engine_test;
using zrsv::QueueGroup;
using Admission = QueueGroup::Admission;

std::vector<uint32_t> ids(const QueueGroup::Requests& requests) {
  std::vector<uint32_t> all;
  for (const auto& request : requests) all.push_back(request->head.id);
  return all;
}

Admission hold(QueueGroup& group, uint32_t id) {
  zrsv::ServerRequest request;
  request.head.id = id;
  return group.hold(&request, 100);
}

TEST(QueueGroupStates, WaitsOpensHoldsAndReleasesInOrder) {
  QueueGroup group;
  std::vector<uint32_t> delivered;
  EXPECT_EQ(hold(group, 1), Admission::Full);  // nobody could ever deliver it
  group.deliver_to([&](QueueGroup::Requests requests) {
    EXPECT_FALSE(group.is_open());  // nothing newer may overtake them
    for (uint32_t id : ids(requests)) delivered.push_back(id);
  });
  for (uint32_t id = 1; id <= 3; ++id) EXPECT_EQ(hold(group, id), Admission::Held);
  group.announce("a");
  EXPECT_TRUE(group.is_open());
  EXPECT_TRUE(group.is_announced("a"));
  EXPECT_FALSE(group.is_announced("b"));
  EXPECT_EQ(delivered, (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(hold(group, 4), Admission::Pass);

  group.close();
  EXPECT_EQ(hold(group, 5), Admission::Held);
  group.announce("b");  // does not release what is held
  group.open_if_unannounced();
  EXPECT_FALSE(group.is_open());
  EXPECT_EQ(hold(group, 6), Admission::Held);
  const uint32_t cancelled = 5;
  EXPECT_EQ(ids(group.withdraw(nullptr, &cancelled)), (std::vector<uint32_t>{5}));
  group.open();
  EXPECT_EQ(delivered.back(), 6u);
  EXPECT_EQ(delivered.size(), 4u);
}

TEST(QueueGroupStates, RunOpensAGroupWithoutNames) {
  QueueGroup group;
  group.deliver_to([](QueueGroup::Requests) {});
  group.open_if_unannounced();
  EXPECT_TRUE(group.is_open());
}

class Held : public Engine {};

TEST_F(Held, CodesAndNames) {
  start();
  const struct {
    const char* name;
    int code;
    const char* wanted;
  } rows[] = {{"unheard of", ZR_QUEUE_HOLD, "NO_IMPLEMENT"},
              {nullptr, ZR_QUEUE_HOLD, "BAD_PARAM"},
              {impl_name, 3, "BAD_PARAM"},
              {impl_name, 8, "BAD_PARAM"},
              {impl_name, ZR_QUEUE_DRAIN, ""},
              {impl_name, ZR_QUEUE_CLOSE, ""}};
  for (const auto& row : rows) {
    ZR_queue_control_queue_group(0, row.name, row.code, 0, env_);
    EXPECT_EQ(env_.name(), row.wanted) << row.code;
  }
  CORBA_BOA_impl_is_ready(nullptr, nullptr, env_);
  EXPECT_EQ(env_.name(), "BAD_PARAM");
}

TEST_F(Held, RequestsComeOutInTheOrderOfTheirConnection) {
  script().operations["note"] = [&](Upcalled& r) {
    board_.add(std::to_string(r.argument));
    r.answer(r.argument);
  };
  start({"-ORBThreads", "4", "-ORBQueue", "60"});
  Client a(port()), b(port()), gone(port());
  control(ZR_QUEUE_HOLD);
  for (int32_t i = 0; i < 25; ++i) {
    ASSERT_TRUE(a.send(call(static_cast<uint32_t>(i), "note", i)));
    ASSERT_TRUE(b.send(call(static_cast<uint32_t>(i), "note", 100 + i)));
  }
  const std::string look = short_request(zrsv::giop::Type::LocateRequest, 99, key());
  ASSERT_TRUE(a.send(short_request(zrsv::giop::Type::CancelRequest, 3, "") + look) && b.send(look));
  ASSERT_TRUE(gone.send(call(1, "note", 999) + look));
  for (Client* client : {&a, &b, &gone}) EXPECT_EQ(client->answer(), "here");  // all of it is held by now

  const std::string oneway = request(77, "note", 1, key(), 2, false);
  ASSERT_TRUE(b.send(oneway + oneway + look) && b.answer() == "here");
  for (int32_t i = 0; i < 10; ++i) ASSERT_TRUE(a.send(call(200, "note", 0)));
  EXPECT_EQ(a.answer(), "TRANSIENT 1");  // 60 may wait: 24, 27 and 1 do, so 8 of these
  EXPECT_EQ(a.answer(), "TRANSIENT 1");
  gone.close();
  control(ZR_QUEUE_DRAIN);  // nothing comes out yet
  ASSERT_TRUE(a.send(look));
  EXPECT_EQ(a.answer(), "here");
  EXPECT_TRUE(board_.lines().empty());

  control(ZR_QUEUE_RELEASE);
  for (int32_t i = 0; i < 25; ++i) {
    if (i != 3) {
      EXPECT_EQ(a.answer(), std::to_string(i));
    }
    EXPECT_EQ(b.answer(), std::to_string(100 + i));
  }
  ASSERT_TRUE(b.send(call(5, "note", 7)));
  EXPECT_EQ(b.answer(), "7");
}

TEST_F(Held, LaterRequestsOfAConnectionLineUpBehindReleasedOnes) {
  script().operations["note"] = [&](Upcalled& r) {
    if (r.argument == 0) {
      EXPECT_TRUE(board_.wait_for(1));  // until the later ones have been sent
    }
    board_.add(std::to_string(r.argument));
  };
  start({"-ORBThreads", "4"});
  Client client(port());
  const std::string look = short_request(zrsv::giop::Type::LocateRequest, 99, key());
  control(ZR_QUEUE_HOLD);
  std::string octets;
  for (int32_t i = 0; i < 5; ++i) octets += request(1, "note", i, key(), 2, false);
  ASSERT_TRUE(client.send(octets + look) && client.answer() == "here");
  control(ZR_QUEUE_RELEASE);
  octets.clear();
  for (int32_t i = 5; i < 10; ++i) octets += request(1, "note", i, key(), 2, false);
  ASSERT_TRUE(client.send(octets + look) && client.answer() == "here");
  board_.add("go");
  ASSERT_TRUE(board_.wait_for(11));
  EXPECT_EQ(board_.lines(),
            (std::vector<std::string>{"go", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}));
}

}  // namespace
