// Trace lines, recorded for a scope.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// Switches the trace on and collects its lines, of all threads, until it goes. One at a time.
class TraceRecorder {
 public:
  TraceRecorder();
  ~TraceRecorder();
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;

  std::vector<std::string> lines() const;
  /// How many lines are, or with `prefix` start with, that text.
  std::size_t count(std::string_view line) const;
  std::size_t count_starting(std::string_view prefix) const;
  bool has(std::string_view line) const { return count(line) != 0; }
  /// These lines were written, in this order, others perhaps between them.
  testing::AssertionResult in_order(std::initializer_list<std::string_view> wanted) const;
  /// Forgets what was collected.
  void clear();
};
