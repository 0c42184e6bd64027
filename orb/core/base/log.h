// What the log is made of: which lines may pass, and how they get to standard error without waiting for it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zrsv {

/// Lets at most LINES lines of a kind pass in a second, so that whoever makes us log one thing again and again does
/// not fill a disk. A kind is the format of the line. Takes no lock.
class LogRate {
 public:
  static constexpr unsigned LINES = 10;

  /// Whether a line of that kind may pass in that second. `left_out` is then how many of its kind did not since the
  /// last one that did.
  bool admit(const void* kind, std::int64_t second, unsigned* left_out);

 private:
  struct Kind {
    const void* kind = nullptr;
    std::int64_t second = 0;
    unsigned lines = 0;
    unsigned left_out = 0;
  };
  Kind& of(const void* kind);

  std::array<Kind, 64> kinds_;
};

/// Each kind may have its lines of this second anew: a test counts none of those before it.
void forget_log_rate();

/// Copies text into `to`, which ends with NUL then, with control characters as \xNN; what does not fit is cut. Gives
/// the length.
std::size_t escape_controls(const char* text, char* to, std::size_t room);

/// One line to standard error as far as it takes it now: false when it is lost. Never waits, raises no SIGPIPE.
bool write_without_waiting(const char* line, std::size_t length);

}  // namespace zrsv
