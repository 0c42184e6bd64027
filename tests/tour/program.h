// A program run by a test.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "scratch.h"

/// Runs a command of the shell from construction on; killed after 30 s, told to end when it goes before that.
class Program {
 public:
  explicit Program(const std::string& command)
      : out_(::popen(("echo $$; exec timeout --foreground -s KILL 30 " + command + " 2>&1").c_str(), "re")) {
    pid_ = std::atoi(next_line().c_str());
  }
  ~Program() {
    if (!out_) return;
    signal(SIGTERM);
    ::pclose(out_);
  }
  /// Waits for a line of output that starts so; "" when the program ended before.
  std::string line(const std::string& start) {
    std::string found;
    do {
      found = next_line();
    } while (!found.empty() && !found.starts_with(start));
    return found.substr(0, found.find('\n'));
  }
  void signal(int number) const { ::kill(pid_, number); }
  /// Waits for the end: the exit status, more than 128 after a signal.
  int finish() {
    while (!next_line().empty()) {
    }
    const int status = ::pclose(std::exchange(out_, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  /// Standard output and error so far.
  const std::string& output() const { return output_; }

 private:
  std::string next_line() {
    char text[4096] = "";
    if (std::fgets(text, sizeof text, out_)) output_ += text;
    return text;
  }

  std::FILE* out_;
  pid_t pid_ = 0;
  std::string output_;
};
