// Strangers that mean no good, and what the others see meanwhile: each of their calls is answered at once.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <list>
#include <thread>

#include "engine_fixture.h"

namespace {

using namespace engine_test;

/// On an idle machine a call takes a tenth of a millisecond; without the guard it takes as long as the attack.
constexpr auto answered_within = std::chrono::milliseconds(1000);

class Attacks : public Engine {
 protected:
  /// The ends of the strangers, which stay as they are until the others have been answered.
  std::list<Client> strangers_;

  Client& stranger(const std::string& octets = {}) {
    Client& client = strangers_.emplace_back(port(), 4096);
    EXPECT_TRUE(client.connected);
    // What is not taken is the guard at work.
    if (!octets.empty()) ::send(client.fd(), octets.data(), octets.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return client;
  }
  static std::string repeated(int count, const char* operation, int32_t argument) {
    std::string many;
    for (int i = 0; i < count; ++i) many += call(static_cast<uint32_t>(i), operation, argument);
    return many;
  }
  static std::string of_claimed_size(uint32_t size) {
    std::string octets = call(1, "echo", 1);
    std::memcpy(octets.data() + 8, &size, sizeof size);
    return octets;
  }
};

TEST_F(Attacks, LeaveOthersAnsweredAtOnce) {
  start({"-ORBThreads", "2", "-ORBQueue", "4096"});
  const std::pair<const char*, std::function<void()>> attacks[] = {
      {"take no replies",
       [&] {
         for (int i = 0; i < 8; ++i) stranger(repeated(4, "octets", 4'000'000));
       }},
      {"say nothing",
       [&] {
         for (int i = 0; i < 60; ++i) stranger();
       }},
      {"send half a header",
       [&] {
         for (int i = 0; i < 30; ++i) stranger(call(1, "echo").substr(0, 7));
       }},
      {"send half a message",
       [&] {
         for (int i = 0; i < 30; ++i) stranger(of_claimed_size(8'000'000));
       }},
      {"claim too much",
       [&] {
         for (int i = 0; i < 30; ++i) stranger(of_claimed_size(4'000'000'000));
       }},
      {"send nonsense",
       [&] {
         for (int i = 0; i < 30; ++i) stranger("nonsense, nonsense");
       }},
      {"ask without a pause",
       [&] {
         for (int i = 0; i < 8; ++i) stranger(repeated(2000, "echo", 1));
       }},
      {"come and go",
       [&] {
         for (int i = 0; i < 200; ++i) (stranger(call(1, "echo", 1)), strangers_.clear());
       }},
      {"have threads stay with them, and fall silent in a message",
       [&] {
         for (int i = 0; i < 80; ++i) {
           Client& client = stranger();
           for (uint32_t id = 0; id < 20; ++id) EXPECT_EQ(client.ask(call(id, "echo", 1)), "1");
           EXPECT_TRUE(client.send(call(20, "echo").substr(0, 40)));
         }
       }},
      {"begin fragments", [&] {
         const std::string part = fragments(request(1, "echo", 1, key() + std::string(300, 'k')), 64)[0];
         for (int i = 0; i < 30; ++i) stranger(part);
       }}};
  Client good(port());
  for (const auto& [name, attack] : attacks) {
    SCOPED_TRACE(name);
    attack();
    for (int32_t i = 0; i < 30; ++i) {
      const auto asked = std::chrono::steady_clock::now();
      EXPECT_EQ(good.ask(call(7, "echo", i)), std::to_string(i));
      EXPECT_LT(std::chrono::steady_clock::now() - asked, answered_within);
    }
    Client fresh(port());
    EXPECT_EQ(fresh.ask(call(7, "echo", 1)), "1");
    strangers_.clear();
  }
}

/// While one lives, this process opens no descriptor.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const int least = ::dup(0);  // the lowest that is free
    ::close(least);
    const rlimit none{static_cast<rlim_t>(least), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_;
};

// The listener pauses then, and says so once; who is connected sees nothing of it.
TEST_F(Attacks, WithoutDescriptorsOthersAreAnswered) {
  start({"-ORBMaxConnections", "100000"});
  OM_log_set_sink([](int, const char* text, void* board) { static_cast<Board*>(board)->add(text); }, &board_);
  Client good(port());
  // A thread is pinned to it meanwhile: a sanitizer that sees one begin wants a descriptor for a look at its memory.
  for (int i = 0; i < 20; ++i) EXPECT_EQ(good.ask(call(1, "echo", 1)), "1");
  const int waiting = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  Socket late(waiting);
  {
    const NoDescriptors none;
    EXPECT_TRUE(at_loopback(::connect, waiting, port()));
    EXPECT_TRUE(board_.wait_for(1));
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);  // some pauses
    while (std::chrono::steady_clock::now() < end) {
      const auto asked = std::chrono::steady_clock::now();
      EXPECT_EQ(good.ask(call(1, "echo", 1)), "1");
      EXPECT_LT(std::chrono::steady_clock::now() - asked, answered_within);
    }
  }
  zrsv::giop::Header header;
  std::string octets;
  EXPECT_TRUE(late.send(look_) && late.receive(&header, &octets));  // its turn has come
  OM_log_set_sink(nullptr, nullptr);
  EXPECT_THAT(board_.lines(),
              testing::ElementsAre(testing::StartsWith("no more connections can be accepted for now")));
}

// The slot is a slow servant's, and what the strangers ask for waits: who asks little has his turn all the same.
TEST_F(Attacks, WhoAsksMuchWaitsBehindHimself) {
  start({"-ORBThreads", "1", "-ORBConnectionRequests", "16"});
  Client busy(port()), good(port());
  ASSERT_TRUE(busy.send(call(1, "block", 1)) && barrier_.wait_for(1));
  std::list<Client> greedy;
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(greedy.emplace_back(port()).send(repeated(100, "echo", 1) + look_));
  EXPECT_EQ(good.ask(call(1, "echo", 2) + look_), "here");
  for (int i = 0; i < 50; ++i) EXPECT_EQ(good.ask(look_), "here");
  for (Client& client : greedy) {  // none of them is read to its end: over its share
    char octet = 0;
    EXPECT_LT(::recv(client.fd(), &octet, 1, MSG_PEEK | MSG_DONTWAIT), 0);
  }
  barrier_.open(1);
  EXPECT_EQ(good.answer(), "2");
}

}  // namespace
