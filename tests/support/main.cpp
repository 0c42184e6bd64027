#include <gmock/gmock.h>

#include <cstdlib>

#include "time_limit.h"

namespace {

/// How many times slower than usual this build, or the machine as TEST_SLOWNESS says, may be.
int slowness() {
  const char* told = std::getenv("TEST_SLOWNESS");
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  return told ? std::atoi(told) : 6;
#else
  return told ? std::atoi(told) : 1;
#endif
}

/// Holds each test to its time limit. What a lost wake-up or a wait for the wrong thing costs is mostly a time-out of
/// some seconds, after which the answers are right again.
class Clock : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { time_limit() = default_time_limit; }
  void OnTestEnd(const testing::TestInfo& test) override {
    const auto taken = std::chrono::milliseconds(test.result()->elapsed_time());
    const auto limit = time_limit() * slowness();
    if (taken > limit)
      ADD_FAILURE() << "took " << taken.count() << " ms, and its limit is " << limit.count() << " ms";
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new Clock);  // which owns it
  return RUN_ALL_TESTS();
}
