// What a client's connections do at moments that are otherwise hard to meet.
#include <future>

#include "base/options.h"
#include "client_call.h"
#include "failing.h"

namespace {

using failing::Counted;
using std::chrono::milliseconds;

Result echoed(const zrsv::Ref<zrsv::Reference>& target, uint64_t argument) {
  const Counted this_thread;
  return Call(target, argument).run();
}

class Connections : public testing::Test {
 protected:
  ~Connections() override {
    zrsv::close_client_connections();
    CORBA_ORB_destroy(orb_, ev_);
  }

 private:
  int argc_ = 0;
  Outcome ev_;
  void* const orb_ = CORBA_ORB_init(&argc_, nullptr, "", ev_);
};

// The server closed it while nobody looked: the next call is made over another one.
TEST_F(Connections, AreLookedAtBeforeTheyAreUsed) {
  Server server({[](Peer& peer, const Got& got) {  // the next request would still be taken
                   peer.echo(got);
                   return ::shutdown(peer.fd(), SHUT_WR) == 0;
                 },
                 echo_each});
  const auto target = reference_to({{server.port()}});
  EXPECT_EQ(echoed(target, 1), "1");
  failing::begin(failing::What::clock, 1);
  EXPECT_EQ(echoed(target, 2), "2");
  EXPECT_TRUE(failing::end());
}

// Each single thing that a client asks of the system fails once, on the whole road of its call.
TEST_F(Connections, AreInOrderWhateverFails) {
  zrsv::Options o;
  o.fragment_size = 1000;
  zrsv::set_options(o);
  int asked = 0, forwards = 0;
  const Answer count = [&](Peer& peer, const Got& got) {
    ++asked;
    const auto value = encoded([&](auto& out) { out.u32(static_cast<uint32_t>(got.argument)); });
    for (const std::string& part :
         fragments(reply(got, ZR_REPLY_NO_EXCEPTION, value + std::string(500, 'x')), 200))
      peer.send(part);
    return true;
  };
  Server there({count}, true);
  Server here({[&](Peer& peer, const Got& got) {
                if (forwards == 0) return count(peer, got);
                --forwards;
                return peer.send(reply(got, ZR_REPLY_LOCATION_FORWARD, ior({{there.port()}})));
              }},
              true);
  const auto sweep = [&](failing::What what, long more, bool forwarded, std::size_t filler) {
    const bool costs = what != failing::What::interrupted && what != failing::What::shortened;
    bool failed = true;
    for (long n = 1; failed && !HasFailure(); ++n) {
      SCOPED_TRACE(std::to_string(static_cast<int>(what)) + " " + std::to_string(n));
      ASSERT_LT(n, 300);
      zrsv::close_client_connections();
      const auto target = reference_to({{here.port()}});
      asked = 0, forwards = forwarded;
      Result seen;
      std::thread([&] {  // with nothing kept of earlier calls
        const Counted this_thread;
        failing::begin(what, n, more);
        seen = call_and_follow(target, 1, filler);
        failed = failing::end();
      })
          .join();
      EXPECT_TRUE(seen == "1" || (failed && costs)) << seen;
      EXPECT_LE(asked, seen.starts_with("TRANSIENT") ? 0 : 1) << seen;
      forwards = 0;
      EXPECT_EQ(call_and_follow(target, 2), "2") << "after " << seen;
    }
  };
  using enum failing::What;
  for (const auto& [what, more] : {std::pair(allocation, 0),
                                   {allocation, 2},
                                   {socket, 0},
                                   {socket, 2},
                                   {interrupted, 0},
                                   {interrupted, 3},
                                   {shortened, 0},
                                   {full, 1},
                                   {clock, 0}})
    for (const bool forwarded : {false, true})
      for (const std::size_t filler : {0, 5000}) sweep(what, more, forwarded, filler);
}

// Short requests are left for the thread of a long one.
TEST_F(Connections, SendWhatWasLeftWhateverASendComesTo) {
  zrsv::Options one;
  one.client_connections = 1;
  one.timeout_ms = 2000;
  zrsv::set_options(one);
  for (const auto what : {failing::What::full, failing::What::shortened, failing::What::interrupted}) {
    bool failed = true;
    for (long n = 1; failed; ++n) {
      ASSERT_LT(n, 200);
      std::promise<void> begun, go_on;
      Server server({[&](Peer& peer) {
        const Counted not_this(false);
        peer.await_input();
        begun.set_value();
        go_on.get_future().wait_for(bound);
        peer.echo_all();
      }});
      const auto target = reference_to({{server.port()}});
      auto first = std::async(std::launch::async,
                              [&] { return Call(target, 1, true, 4 * memory_network::room).run(); });
      begun.get_future().wait_for(bound);
      const Counted this_thread;
      Call left(target, 2), too(target, 3);
      EXPECT_TRUE(left.send() && too.send());
      auto second = std::async(std::launch::async, [&] { return left.result(); });
      auto third = std::async(std::launch::async, [&] { return too.result(); });
      failing::begin(what, n, 6);
      go_on.set_value();
      EXPECT_EQ(first.get() + second.get() + third.get(), "123");
      failed = failing::end();
      EXPECT_EQ(server.accepted, 1u);
    }
  }
}

TEST_F(Connections, AreMadeByOneThreadForAllThatWait) {
  zrsv::Options one;
  one.client_connections = 1;
  one.timeout_ms = 5000;
  zrsv::set_options(one);
  Server server({echo_each});
  const auto target = reference_to({{server.port()}});
  std::future<Result> second;
  auto first = std::async(std::launch::async, [&] {
    failing::at(failing::Moment::connecting, [&] {
      const Counted not_this(false);
      second = std::async(std::launch::async, [&] { return echoed(target, 2); });
      EXPECT_EQ(second.wait_for(milliseconds(20)), std::future_status::timeout);
    });
    return echoed(target, 1);
  });
  EXPECT_EQ(first.get(), "1");
  EXPECT_EQ(second.wait_for(milliseconds(3000)), std::future_status::ready);
  zrsv::close_client_connections();
  EXPECT_EQ(second.get(), "2");
  EXPECT_EQ(server.accepted, 1u);
}

// Two wait for their turn to write, behind one whose server takes no more: each gets it when that one is through. When the
// connection breaks instead, all send over the next one.
TEST_F(Connections, WakeThoseThatWaitToWrite) {
  zrsv::Options one;
  one.client_connections = 1;
  one.timeout_ms = 10'000;
  zrsv::set_options(one);
  for (const bool breaks : {false, true}) {
    std::promise<void> begun, waiting;
    std::vector<Play> plays{[&](Peer& peer) {
      const Counted not_this(false);
      peer.await_input();
      begun.set_value();
      waiting.get_future().wait();
      if (!breaks) peer.echo_all();
    }};
    if (breaks) plays.push_back(echo_each);
    Server server(plays);
    const auto target = reference_to({{server.port()}});
    const auto call = [&target](uint64_t n, std::size_t octets) {
      return std::async(std::launch::async, [=, &target] { return Call(target, n, true, octets).run(); });
    };
    auto large = call(1, 4 * memory_network::room);
    ASSERT_EQ(begun.get_future().wait_for(milliseconds(3000)), std::future_status::ready);
    auto second = call(2, 5000), third = call(3, 5000);  // too long to be left to another thread
    EXPECT_TRUE(failing::wait_for_asleep(2));
    waiting.set_value();
    for (const auto& call_that_waits : {&second, &third})
      EXPECT_EQ(call_that_waits->wait_for(milliseconds(5000)), std::future_status::ready);
    EXPECT_EQ(large.get() + ", " + second.get() + ", " + third.get(), "1, 2, 3");
    EXPECT_EQ(server.accepted, breaks ? 2u : 1u);
  }
}

}  // namespace
