#include "base/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "zrsv.h"

namespace {

using ::testing::HasSubstr;

/// Standard error as a pipe, for as long as one lives.
class ErrorPipe {
 public:
  ErrorPipe() : before_(::dup(STDERR_FILENO)) {
    EXPECT_EQ(::pipe(ends_.data()), 0);
    ::dup2(ends_[1], STDERR_FILENO);
  }
  ~ErrorPipe() {
    ::dup2(before_, STDERR_FILENO);
    for (const int fd : {before_, ends_[0], ends_[1]}) ::close(fd);
  }
  /// Nobody will read it any more.
  void close_reader() { ::close(std::exchange(ends_[0], ::open("/dev/null", O_RDONLY))); }
  void fill() {
    ::fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    const std::string block(4096, '.');
    while (::write(ends_[1], block.data(), block.size()) > 0) continue;
    while (::write(ends_[1], ".", 1) > 0) continue;
    ::fcntl(ends_[1], F_SETFL, 0);
  }
  /// What is in it now.
  std::string read() {
    ::fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    std::string all;
    char some[4096];
    for (ssize_t n; (n = ::read(ends_[0], some, sizeof some)) > 0;)
      all.append(some, static_cast<std::size_t>(n));
    return all;
  }

 private:
  int before_;
  std::array<int, 2> ends_{};
};

TEST(Log, AnUndrainedStandardErrorLosesLinesAndNotTime) {
  ErrorPipe pipe;
  pipe.fill();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([] { OM_log("nobody reads this"); });
  for (std::thread& thread : threads) thread.join();  // the test's limit: it would hang
  pipe.read();
  OM_log("and then %s", "somebody does");
  const std::string said = pipe.read();
  EXPECT_THAT(said, HasSubstr("zrsv: 4 lines were lost"));
  EXPECT_THAT(said, HasSubstr("zrsv: and then somebody does\n"));
}

TEST(Log, AClosedStandardErrorKillsNobody) {
  ErrorPipe pipe;
  pipe.close_reader();
  OM_log("into the void");
  sigset_t pending;
  ::sigpending(&pending);
  EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
}

TEST(Log, LinesAreSafeToPrintAndTakeNoMemory) {
  ErrorPipe pipe;
  const struct mallinfo2 before = ::mallinfo2();
  OM_log("peer says %s", "a\nb\x1b[31m\x7f\xc2\x9b\xc3\xa4");
  OM_log("long: %s", std::string(5000, 'x').c_str());
  const struct mallinfo2 after = ::mallinfo2();
  EXPECT_EQ(after.uordblks, before.uordblks);
  const std::string said = pipe.read();
  EXPECT_THAT(said, HasSubstr("peer says a\\x0ab\\x1b[31m\\x7f\\xc2\x9b\xc3\xa4\n"));
  EXPECT_THAT(said, HasSubstr("xxx...\n"));
}

TEST(Log, AtMostTenLinesOfAKindPassInASecond) {
  zrsv::LogRate rate;
  const char kinds[] = "ab";
  unsigned left_out = 0;
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(rate.admit(&kinds[0], 7, &left_out));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(rate.admit(&kinds[0], 7, &left_out));
  EXPECT_TRUE(rate.admit(&kinds[1], 7, &left_out));
  EXPECT_EQ(left_out, 0u);
  EXPECT_TRUE(rate.admit(&kinds[0], 8, &left_out));
  EXPECT_EQ(left_out, 3u);
  EXPECT_TRUE(rate.admit(&kinds[0], 8, &left_out));
  EXPECT_EQ(left_out, 0u);
}

TEST(Log, ManyKindsNeverShareACount) {
  zrsv::LogRate rate;
  static const char kinds[4096] = {};
  for (std::size_t i = 0; i < sizeof kinds; ++i) {
    unsigned left_out = 99;
    EXPECT_TRUE(rate.admit(&kinds[i], 1, &left_out));
    EXPECT_EQ(left_out, 0u);
  }
}

TEST(Log, AProgramMayTakeTheLines) {
  ErrorPipe pipe;
  std::vector<std::pair<int, std::string>> lines;
  const auto sink = [](int level, const char* text, void* closure) {
    static_cast<decltype(lines)*>(closure)->emplace_back(level, text);
  };
  OM_log_set_sink(sink, &lines);
  OM_log("a warning of %d", 1);
  OM_log_at(ZR_LOG_ERROR, "an error");
  OM_log_set_sink(nullptr, nullptr);
  OM_log("back again");
  EXPECT_EQ(lines, (decltype(lines){{ZR_LOG_WARNING, "a warning of 1"}, {ZR_LOG_ERROR, "an error"}}));
  const std::string said = pipe.read();
  EXPECT_THAT(said, HasSubstr("back again"));
  EXPECT_THAT(said, ::testing::Not(HasSubstr("an error")));
}

}  // namespace
