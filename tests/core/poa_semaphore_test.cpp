// The POA semaphore: one thread at a time, which may take it again.
#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "zrsv.h"

namespace {

struct Held {
  Held() { ZR_poa_sem_reserve(0, __LINE__); }
  ~Held() { ZR_poa_sem_release(0, __LINE__); }
};

TEST(PoaSemaphore, IsGivenBackAsOftenAsItWasTaken) {
  std::future<void> other;
  {
    const Held held;
    {
      const Held again;
      other = std::async(std::launch::async, [] { const Held once; });
      EXPECT_EQ(other.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    }
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  }
  ASSERT_EQ(other.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(PoaSemaphore, LetsOneThreadInAtATimeAndForgetsNone) {
  constexpr int threads = 4, times = 20'000;
  int count = 0, inside = 0;  // guarded by it
  std::vector<std::future<void>> all;
  for (int i = 0; i < threads; ++i)
    all.push_back(std::async(std::launch::async, [&] {
      for (int n = 0; n < times; ++n) {
        const Held held;
        ASSERT_EQ(++inside, 1);
        if (n % 64 == 0) std::this_thread::yield();  // others come to wait
        const Held again;
        ++count;
        --inside;
      }
    }));
  for (auto& thread : all) ASSERT_EQ(thread.wait_for(std::chrono::seconds(60)), std::future_status::ready);
  EXPECT_EQ(count, threads * times);
}

}  // namespace
