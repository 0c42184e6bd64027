// Calls that no thread waits for.
#include "zrsv/deferred.h"

#include <future>

#include "base/options.h"
#include "client_call.h"
#include "zrsv/leftovers.h"

namespace {

using namespace zrsv;
using giop::Type;

/// Hears of a reply, and takes it on the thread that says so.
class Listening final : public ReplyListener {
 public:
  explicit Listening(Ref<Reference> object, uint64_t argument = 42)
      : object_(std::move(object)), call_(object_, argument) {}
  bool send() { return send_deferred(call_.get(), this); }
  Result result() {
    const auto soon = std::chrono::seconds(20);
    return heard_.wait_for(soon) == std::future_status::ready ? heard_.get() : "nothing";
  }

 private:
  void reply_is_there() noexcept override { said_.set_value(call_.result()); }

  const Ref<Reference> object_;
  Call call_;
  std::promise<Result> said_;
  std::future<Result> heard_ = said_.get_future();
};

/// The same call with nobody who listens, asked for later.
Result later(const Ref<Reference>& object) {
  Call call(object);
  if (!send_deferred(call.get(), nullptr)) return failure();
  await_reply(call.get());
  EXPECT_TRUE(has_reply(call.get()));
  return call.result();
}

class DeferredCalls : public testing::Test {
 protected:
  ~DeferredCalls() override {
    close_client_connections();
    set_options({});
    const ZR_Leftovers left = ZR_leftovers();
    EXPECT_EQ(left.threads + left.descriptors + left.connections, 0u);
  }
};

/// What a server does, and what the call ends with.
struct Row {
  const char* what;
  std::vector<Play> plays;
  Result expected;
  uint32_t time_limit = 0;
};

TEST_F(DeferredCalls, EndAsOthersDo) {
  const auto close = [](Peer& peer, const Got&) { return peer.send(message(Type::CloseConnection)), false; };
  const auto break_off = [](Peer&, const Got&) { return false; };
  const auto be_silent = [](Peer& peer) {
    const uint32_t id = peer.read().id;
    const Got cancel = peer.read();
    EXPECT_EQ(cancel.header.type, Type::CancelRequest);
    EXPECT_EQ(cancel.id, id);
  };
  const Row rows[] = {{"answered", {echo_each}, "42"},
                      {"not taken, sent again", {close, echo_each}, "42"},
                      {"not taken twice", {close, close}, "TRANSIENT 3"},
                      {"broken off", {break_off}, "COMM_FAILURE 1"},
                      {"no answer in time", {be_silent}, "TIMEOUT 1", 50}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Options wanted;
    if (row.time_limit) wanted.timeout_ms = row.time_limit;
    set_options(wanted);
    for (const bool listens : {true, false}) {
      Server server(row.plays);
      const auto object = reference_to({{server.port()}});
      Listening listening(object);
      EXPECT_EQ(listens ? (listening.send() ? listening.result() : failure()) : later(object), row.expected);
      server.join();
    }
  }
}

TEST_F(DeferredCalls, FollowForwards) {
  Server there({echo_each});
  // A server of an older version would have to get the second in another form.
  Server here({[&, forwards = std::list<Address>{{there.port(), "another key"}, {there.port(), "k", 0}}](
                   Peer& peer, const Got& got) mutable {
    peer.send(reply(got, ZR_REPLY_LOCATION_FORWARD, ior({forwards.front()})));
    return forwards.pop_front(), true;
  }});
  Listening first(reference_to({{here.port()}})), second(reference_to({{here.port()}}));
  EXPECT_TRUE(first.send());
  EXPECT_EQ(first.result(), "42");
  EXPECT_TRUE(second.send());
  EXPECT_EQ(second.result(), "forward");
}

// The thread that waits reads for those that do not, and leaves them to others when it has its own.
TEST_F(DeferredCalls, ShareTheConnectionWithThoseThatWait) {
  std::vector<std::unique_ptr<Listening>> calls;
  std::promise<void> answered;
  Server server({[&](Peer& peer) {
    std::vector<Got> deferred;
    for (int i = 0; i < 100; ++i) deferred.push_back(peer.read());
    const Got waiting = peer.read();
    for (int i = 0; i < 50; ++i) peer.echo(deferred[static_cast<std::size_t>(i)]);
    peer.echo(waiting);
    answered.get_future().wait();
    for (int i = 50; i < 100; ++i) peer.echo(deferred[static_cast<std::size_t>(i)]);
    peer.echo_all();
  }});
  const auto object = reference_to({{server.port()}});
  for (uint64_t i = 0; i < 100; ++i) {
    calls.push_back(std::make_unique<Listening>(object, i));
    ASSERT_TRUE(calls.back()->send());
  }
  EXPECT_EQ(Call(object).run(), "42");
  answered.set_value();
  for (uint64_t i = 0; i < 100; ++i) EXPECT_EQ(calls[i]->result(), std::to_string(i));
}

TEST_F(DeferredCalls, MayBeGivenUp) {
  std::promise<void> gone;
  Server server({[&](Peer& peer) {
    const Got first = peer.read();
    gone.get_future().wait();
    peer.echo(first);  // nobody wants it any more
    EXPECT_EQ(peer.read().header.type, Type::CancelRequest);
    peer.echo_all();
  }});
  const auto object = reference_to({{server.port()}});
  {
    Call call(object);
    ASSERT_TRUE(send_deferred(call.get(), nullptr));
    EXPECT_FALSE(has_reply(call.get()));
  }
  gone.set_value();
  EXPECT_EQ(later(object), "42");
}

TEST_F(DeferredCalls, EndWithTheOrb) {
  std::promise<void> taken;
  Server server({[&](Peer& peer) {
    peer.read();
    taken.set_value();
    peer.echo_all();
  }});
  Listening listening(reference_to({{server.port()}}));
  ASSERT_TRUE(listening.send());
  taken.get_future().wait();
  close_client_connections();
  EXPECT_EQ(listening.result(), "COMM_FAILURE 3");
  Server again({echo_each});
  EXPECT_EQ(later(reference_to({{again.port()}})), "42") << "the threads start again";
}

}  // namespace
