#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "no_leftovers.h"
#include "time_limit.h"

// Not every program has the library, or its inside.
extern "C" [[gnu::weak]] ZR_Leftovers ZR_leftovers(void);
namespace zrsv {
[[gnu::weak]] void forget_log_rate();
}

namespace {

/// For how long some thread of the machine has waited for a processor, since it was started; 0 where that is not told.
std::chrono::microseconds waited_for_processors() {
  std::ifstream told("/proc/pressure/cpu");
  const std::string line((std::istreambuf_iterator<char>(told)),
                         {});  // "some avg10=0.00 ... total=MICROSECONDS"
  const std::size_t at = line.find("total=");
  return std::chrono::microseconds(at == std::string::npos ? 0 : std::atoll(line.c_str() + at + 6));
}

/// Holds each test to its time limit, on a machine that has other things to do to what is left without those. What a lost wake-up or a wait for the wrong thing costs is mostly a time-out of
/// some seconds, after which the answers are right again. What earlier tests have logged keeps no line from a test.
class Clock : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    time_limit() = default_time_limit;
    waited_ = waited_for_processors();
    if (zrsv::forget_log_rate) zrsv::forget_log_rate();
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    const auto taken = std::chrono::milliseconds(test.result()->elapsed_time());
    const auto limit = time_limit() * slowness();
    if (taken <= limit) return;
    const auto others =
        std::chrono::duration_cast<std::chrono::milliseconds>(waited_for_processors() - waited_);
    if (taken - others > limit)
      ADD_FAILURE() << "took " << taken.count() << " ms, " << others.count()
                    << " of them for want of a processor, and its limit is " << limit.count() << " ms";
  }

  std::chrono::microseconds waited_{};
};

/// 0 when nothing is left of the library.
int left_behind() {
  if (!ZR_leftovers) return 0;
  const std::string left = leftovers_at_last();
  if (!left.empty()) std::fprintf(stderr, "left at the end of the program: %s\n", left.c_str());
  return left.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new Clock);  // which owns it
  const int failed = RUN_ALL_TESTS();
  return failed != 0 ? failed : left_behind();
}
