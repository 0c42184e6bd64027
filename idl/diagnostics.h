// What the compiler tells its user.
#pragma once

#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "source.h"

namespace idl {

/// Ends the compilation: enough errors were reported, or going on makes no sense.
struct GiveUp : std::runtime_error {
  GiveUp() : std::runtime_error("too many errors") {}
};

/// Collects errors, warnings and notes with the line that each is about.
class Diagnostics {
 public:
  static constexpr unsigned most_errors = 20;

  explicit Diagnostics(Sources& sources, bool warnings_are_errors = false)
      : sources_(sources), warnings_are_errors_(warnings_are_errors) {}

  /// Reports; the same message about the same place only once. True when it was reported, so that a note may
  /// follow. Throws GiveUp after the twentieth error.
  bool error(const Location& at, const std::string& message);
  bool warning(const Location& at, const std::string& message);
  void note(const Location& at, const std::string& message);

  unsigned errors() const { return errors_; }
  /// All that was reported so far.
  const std::string& text() const { return text_; }

 private:
  bool report(const Location& at, const char* kind, const std::string& message);
  void show(const Location& at, const char* kind, const std::string& message);

  Sources& sources_;
  const bool warnings_are_errors_;
  unsigned errors_ = 0;
  std::string text_;
  std::set<std::string> reported_;
};

/// 'text' in the quotes of a message.
std::string quoted(std::string_view text);

/// The candidate that `word` was probably meant to be; empty when none is near.
std::string nearest(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace idl
