// A program run by a test, and a directory for it.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

/// A fresh directory, removed with all that is in it.
class Scratch {
 public:
  Scratch();
  ~Scratch() { std::filesystem::remove_all(path); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::filesystem::path path;
};

/// Runs from construction on; killed at the end if it did not finish. Everything it is waited for has to come
/// within 30 s.
class Program {
 public:
  /// No file that the program writes may get longer than `file_limit` octets.
  explicit Program(const std::vector<std::string>& command, rlim_t file_limit = RLIM_INFINITY);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits for a line of output that starts so; "" when the program ended before.
  std::string line(const std::string& start);
  void signal(int number) const;
  /// Waits for the end: the exit status, or 128 and the signal that ended the program, as in a shell.
  int finish();
  /// Standard output and error so far.
  const std::string& output() const { return output_; }

 private:
  bool read_more();

  const std::chrono::steady_clock::time_point deadline_;
  pid_t pid_ = -1;
  int out_ = -1;
  std::string output_;
};
