// Wake-ups without which somebody sleeps for long. Each is waited for when its sleeper is known to sleep.
#include <future>
#include <list>

#include "base/options.h"
#include "connections/reply_threads.h"
#include "engine_fixture.h"
#include "failing.h"
#include "serving/listener.h"

namespace {

using namespace engine_test;
using failing::Counted;
using failing::wait_for_asleep;
using std::chrono::milliseconds;
using zrsv::Deferred;

/// Whether it is there soon. A thread that sleeps for good is left to itself.
template <class Result>
bool comes(const std::future<Result>& wanted) {
  return wanted.wait_for(milliseconds(2500)) == std::future_status::ready;
}
template <class Act>
std::future<void> begin(Act act) {
  std::promise<void> over;
  std::future<void> is_over = over.get_future();
  std::thread([act = std::move(act), over = std::move(over)]() mutable {
    act();
    over.set_value();
  }).detach();
  return is_over;
}

class Wakeups : public Engine {
 protected:
  static constexpr long idle =
      4;  // threads of a server with one slot: two, who watches the pinned, and who ticks
};

TEST_F(Wakeups, ARunEndsThoughNothingWasServed) {
  init({});
  auto ends = begin([orb = orb_] { CORBA_ORB_run(orb, nullptr); });
  ASSERT_TRUE(wait_for_asleep(1));
  CORBA_ORB_shutdown(orb_, 0, env_);
  EXPECT_TRUE(comes(ends));
}

TEST_F(Wakeups, WhatFollowsARequestIsReadWhileItRuns) {
  start({"-ORBThreads", "1"});
  ASSERT_TRUE(wait_for_asleep(idle));
  Client client(port());
  ASSERT_TRUE(client.send(call(1, "block", 5) + look_) && barrier_.wait_for(1));
  auto here = std::async(std::launch::async, [&] { return client.answer(); });
  EXPECT_TRUE(comes(here));
  barrier_.open(1);
  EXPECT_EQ(here.get(), "here");
  EXPECT_EQ(client.answer(), "5");
}

// Two connections are left to be read while one thread is on its way: it takes one of them, and stays with it.
TEST_F(Wakeups, WhoTakesOneOfTwoConnectionsWakesAnother) {
  start({"-ORBThreads", "3"});
  ASSERT_TRUE(wait_for_asleep(idle + 2));
  Client first(port()), second(port());
  failing::after_wake([&] { EXPECT_TRUE(second.send(call(3, "block", 3) + look_) && barrier_.wait_for(2)); });
  ASSERT_TRUE(first.send(call(1, "block", 1) + call(2, "block", 2)) && barrier_.wait_for(3));
  auto here = std::async(std::launch::async, [&] { return second.answer(); });
  EXPECT_TRUE(comes(here));
  barrier_.open(3);
  EXPECT_EQ(here.get(), "here");
  EXPECT_EQ(second.answer(), "3");
}

TEST_F(Wakeups, AServantHearsThatItsCallIsHeldNoMore) {
  operations["nest"] = [&](Upcalled& r) {
    control(ZR_QUEUE_HOLD);
    barrier_.add("in");
    board_.add(own_call(key(), "echo", r.argument));
    r.answer(r.argument);
  };
  start({"-ORBThreads", "1"});
  ASSERT_TRUE(wait_for_asleep(idle));
  Client client(port());
  ASSERT_TRUE(client.send(call(1, "nest", 5)) && barrier_.wait_for(1) && wait_for_asleep(idle));
  control(ZR_QUEUE_RELEASE);
  auto answer = std::async(std::launch::async, [&] { return client.answer(); });
  EXPECT_TRUE(comes(answer));
  EXPECT_EQ(answer.get(), "5");
  EXPECT_EQ(board_.lines(), Texts{"5"});
}

TEST_F(Wakeups, TheEndComesWithTheLastRequest) {
  start({"-ORBThreads", "1"});
  Client client(port());
  ASSERT_TRUE(client.send(call(1, "block", 5)) && barrier_.wait_for(1));
  CORBA_ORB_shutdown(orb_, 0, env_);
  ASSERT_TRUE(wait_for_asleep(idle));  // who closes instead of the thread in the servant
  barrier_.open(1);
  auto last = std::async(std::launch::async, [&] { return client.answers(2); });
  EXPECT_TRUE(comes(last));
  EXPECT_EQ(last.get(), (Texts{"5", "CloseConnection"}));
}

// The slot is free before the reply leaves.
TEST_F(Wakeups, AReplyOnItsWayIsWaitedForAtTheEnd) {
  start({"-ORBThreads", "1"});
  ASSERT_TRUE(wait_for_asleep(idle));
  Client client(port());
  std::future<void> ended;
  failing::before_send([&] {
    ended = std::async(std::launch::async, [&] {
      const Counted not_this(false);
      CORBA_ORB_shutdown(orb_, 1, env_);
    });
    EXPECT_TRUE(wait_for_asleep(idle));  // who closes instead of this thread
  });
  EXPECT_EQ(client.ask(call(1, "echo", 5)), "5");
  EXPECT_EQ(client.answer(), "CloseConnection");
  ended.get();
}

TEST_F(Wakeups, TicksEndAtOnce) {
  const auto stop = [](zrsv::Ticker& ticker) {
    return std::async(std::launch::async, [&ticker] {
      ticker.stop(std::chrono::steady_clock::now() + std::chrono::seconds(10));
    });
  };
  zrsv::Ticker between, during;
  between.start(std::chrono::seconds(10));
  ASSERT_TRUE(wait_for_asleep(1));
  EXPECT_TRUE(comes(stop(between)));

  tick = [&] { barrier_.pass(); };
  during.start(milliseconds(1));
  ASSERT_TRUE(barrier_.wait_for(1));
  const auto stopped = stop(during);
  EXPECT_TRUE(wait_for_asleep(1));
  barrier_.open(1);
  EXPECT_TRUE(comes(stopped));
}

/// A call that nobody waits for, made of what is to be done with it.
struct Scripted final : Deferred {
  explicit Scripted(zrsv::ReplyThreads& of, std::function<void()> finishes,
                    std::function<void()> gives_up = {})
      : threads(of), finishes_(std::move(finishes)), gives_up_(std::move(gives_up)) {}
  void send(zrsv::Deadline deadline = zrsv::Deadline::max()) {
    EXPECT_TRUE(threads.begin(*this, deadline));
    threads.attempt(*this);
    EXPECT_TRUE(threads.arm(*this));
  }
  zrsv::ReplyThreads& threads;

 private:
  void give_up(zrsv::Fault) noexcept override {
    if (gives_up_) gives_up_();
  }
  void finish() noexcept override { finishes_(); }
  bool may_block() const override { return true; }
  const std::function<void()> finishes_, gives_up_;
};

// Who withdraws a call that a thread sends again sleeps until that is done with it.
TEST(Withdrawal, EndsWhenTheCallIsSentAgain) {
  for (const bool begun : {false, true}) {
    zrsv::ReplyThreads threads;
    std::promise<std::future<void>> withdrawing;
    Scripted* again = nullptr;
    bool first = true;
    Scripted call(threads, [&] {
      if (!std::exchange(first, false)) return threads.over(*again);  // where it was not withdrawn
      for (int address = 0; begun && address < 2; ++address) threads.attempt(*again);
      auto withdrawn = begin([&] { threads.withdraw(*again); });
      EXPECT_TRUE(wait_for_asleep(2));  // the other one watches
      if (!begun) threads.attempt(*again);
      EXPECT_TRUE(threads.arm(*again));
      withdrawing.set_value(std::move(withdrawn));
    });
    again = &call;
    call.send();
    threads.settled(call);
    EXPECT_TRUE(comes(withdrawing.get_future().get()));
    threads.stop(zrsv::fault::shut_down);
  }
}

// Two calls are settled while one thread is on its way: it takes the first, and leaves the other to who watches.
TEST(Replies, AreFinishedWhileAnotherFinishBlocks) {
  for (int round = 0; round < 10; ++round) {
    zrsv::ReplyThreads threads;
    std::promise<void> last_begun;
    Scripted* all[3];
    Scripted alone(threads, [&] { threads.over(*all[0]); });
    Scripted blocks(threads, [&] {
      EXPECT_TRUE(comes(last_begun.get_future()));
      threads.over(*all[1]);
    });
    Scripted last(threads, [&] {
      last_begun.set_value();
      threads.over(*all[2]);
    });
    all[0] = &alone, all[1] = &blocks, all[2] = &last;
    for (Scripted* call : all) call->send();
    threads.settled(alone);
    ASSERT_TRUE(wait_for_asleep(2));  // another thread watches since that one
    for (Scripted* call : {&blocks, &last}) threads.settled(*call);
    for (const Scripted* call : all) threads.wait_for_any({call});
    threads.stop(zrsv::fault::shut_down);
  }
}

// Who withdraws a call while it is given up need not wait for those before it, though they have all the threads.
TEST(Withdrawal, EndsWhenTheCallIsGivenUp) {
  zrsv::ReplyThreads threads;
  std::counting_semaphore<> begun(0), go_on(0);
  std::list<Scripted> busy;
  for (int i = 0; i < 7; ++i) {
    Scripted& one = busy.emplace_back(threads, [&, i] {
      begun.release();
      EXPECT_TRUE(go_on.try_acquire_for(bound));
      threads.over(*std::next(busy.begin(), i));
    });
    one.send();
    threads.settled(one);
    ASSERT_TRUE(begun.try_acquire_for(bound));
  }
  std::future<void> withdrawn;
  std::promise<bool> seen;
  Scripted* early = nullptr;
  Scripted* late = nullptr;
  Scripted second(
      threads, [&] { threads.over(*late); },
      [&] {
        withdrawn = begin([&] { threads.withdraw(*late); });
        EXPECT_TRUE(wait_for_asleep(1));
      });
  Scripted first(
      threads,
      [&] {
        seen.set_value(comes(withdrawn));
        threads.over(*early);
      },
      [&] { second.send(zrsv::Clock::now() - milliseconds(1)); });
  early = &first;
  late = &second;
  first.send(zrsv::Clock::now());
  EXPECT_TRUE(seen.get_future().get());
  go_on.release(7);
  threads.stop(zrsv::fault::shut_down);
}

}  // namespace
