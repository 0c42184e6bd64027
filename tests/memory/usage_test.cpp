// What connections and messages cost, and what is given back.
#include <unistd.h>

#include <list>

#include "base/memory.h"
#include "engine_fixture.h"
#include "failing.h"
#include "scratch.h"
#include "time_limit.h"

namespace {

using namespace engine_test;

class Usage : public Engine {
 protected:
  void SetUp() override {
    time_limit() = std::chrono::seconds(20);
    Engine::SetUp();
  }
  /// A request with so many octets behind its argument.
  static std::string large(uint32_t id, const char* operation, std::size_t octets) {
    return with_more(call(id, operation, 7), octets);
  }
};

TEST_F(Usage, AnIdleConnectionKeepsLittle) {
  start();
  constexpr std::size_t count = 200;
  std::list<Client> clients;
  const auto connect = [&] {
    Client& client = clients.emplace_back(port());
    EXPECT_EQ(client.ask(large(1, "echo", 10'000)), "7");
    client.forget();
  };
  for (int i = 0; i < 8; ++i) connect();  // what threads and the log keep is there
  const long before = failing::live();
  for (std::size_t i = 0; i < count; ++i) connect();
  const long own = static_cast<long>(count * (sizeof(Client) + 32));  // the test's ends
  EXPECT_TRUE(comes_true([&] { return failing::live() - before - own < static_cast<long>(count) * 4096; }))
      << (failing::live() - before - own) / static_cast<long>(count);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep what was freed
long resident() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * ::sysconf(_SC_PAGESIZE);
}

TEST_F(Usage, ABurstGoesBackToTheSystem) {
  std::size_t burst = 0;
  for (const auto& [messages, octets] : {std::pair(1, 2'000'000), std::pair(60, 30'000)}) {  // of each client
    start({"-ORBThreads", "1", "-ORBQueue", "4096"});
    const long before = resident();
    std::list<Client> clients;
    Client first(port());
    ASSERT_TRUE(first.send(call(1, "block", 1)) && barrier_.wait_for(++burst));
    std::string many;
    for (int i = 0; i < messages; ++i) many += large(1, "echo", static_cast<std::size_t>(octets));
    for (int i = 0; i < 60; ++i) ASSERT_TRUE(clients.emplace_back(port()).send(many + look_));
    for (Client& client : clients) EXPECT_EQ(client.answer(), "here");
    EXPECT_GE(resident() - before, 50'000'000);
    barrier_.open(1);
    for (Client& client : clients) EXPECT_EQ(client.answers(messages), Texts(messages, "7"));
    EXPECT_TRUE(comes_true([&] { return resident() - before < 25'000'000; })) << resident() - before;
    CORBA_ORB_destroy(orb_, env_);
    orb_ = nullptr;
  }
}
#endif

// Strangers fill the memory with messages that they never end, small steps at a time.
TEST_F(Usage, WhoHoldsTheMostIsNotReadAndThenClosed) {
  start({"-ORBMaxMemory", "8", "-ORBThreads", "1", "-ORBReadTimeout", "700"});
  Client good(port()), other(port());
  ASSERT_TRUE(other.send(call(1, "block", 1)) && barrier_.wait_for(1));
  std::list<Client> greedy;
  const std::string octets = large(2, "echo", 4'000'000), some = look_ + octets.substr(0, 3'900'000);
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i)
    threads.emplace_back([&some, client = &greedy.emplace_back(port())] { client->send(some); });
  ASSERT_TRUE(comes_true([] { return zrsv::over_memory(); }));
  EXPECT_EQ(good.ask(large(3, "echo", 20'000)), "TRANSIENT 1");  // would have to wait
  ASSERT_TRUE(good.send(call(4, "echo", 4)));                    // that one may
  std::size_t most = 0;
  EXPECT_TRUE(comes_true([&] {
    most = std::max(most, zrsv::memory_used());
    return !zrsv::over_memory();
  }));
  EXPECT_LT(most, 20'000'000u);  // not 25,000,000, and back within the budget: some were closed
  barrier_.open(1);
  EXPECT_EQ(good.answer(), "4");
  EXPECT_EQ(other.answer(), "1");
  for (Client& client : greedy) ::shutdown(client.fd(), SHUT_RDWR);
  for (std::thread& thread : threads) thread.join();
}

// Bursts of 64 MiB that end in steps between two looks: those that end slowly go back, too, and none again and again.
TEST(MemoryReturn, FollowsBurstsThatEndAtOnceAndSlowly) {
  constexpr std::size_t burst = 64 << 20;
  for (const std::size_t step : {burst, burst / 4, burst / 16, burst / 64}) {
    zrsv::MemoryReturn memory;
    memory.look(false);
    const long before = failing::trims();
    zrsv::count_memory(0, burst);
    for (std::size_t left = burst; left > 0; left -= step) {
      memory.look(false);
      zrsv::count_memory(left, left - step);
    }
    for (int i = 0; i < 3; ++i) memory.look(false);
    EXPECT_GE(failing::trims() - before, 1) << step;
    EXPECT_LE(failing::trims() - before, 8) << step;
    const long at_rest = failing::trims();
    memory.look(false);
    EXPECT_EQ(failing::trims(), at_rest) << step;
  }
}

TEST(MemoryLimit, IsTheLeastOfMachineAndGroups) {
  const Scratch scratch;
  const std::filesystem::path root = scratch.path;
  const auto write = [&](const char* file, const std::string& text) { scratch.write(file, text + '\n'); };
  write("memory.max", "max");
  write("a/memory.max", "3000");
  write("a/b/memory.max", "max");
  write("memory/c/memory.limit_in_bytes", "2000");
  write("memory/memory.limit_in_bytes", "9223372036854771712");
  const std::pair<const char*, uint64_t> rows[] = {{"0::/", 5000},
                                                   {"0::/a/b", 3000},
                                                   {"0::/nowhere/a", 5000},
                                                   {"4:cpu,memory:/c/d", 2000},
                                                   {"4:cpu:/c\n0::/", 5000},
                                                   {"4:memory:/", 5000},
                                                   {"1:name=x:/c\n0::/a", 3000},
                                                   {"", 5000},
                                                   {"0::a", 5000},
                                                   {"nonsense", 5000}};
  for (const auto& [groups, wanted] : rows) {
    write("self", groups);
    EXPECT_EQ(zrsv::memory_limit(5000, root / "self", root), wanted) << groups;
  }
  EXPECT_EQ(zrsv::memory_limit(5000, root / "none", root), 5000u);
}

}  // namespace
