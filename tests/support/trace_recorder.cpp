#include "trace_recorder.h"

#include <algorithm>
#include <mutex>

#include "zrsv.h"

namespace {

// Never destroyed: a thread may still be in the sink when the recorder is gone.
struct Collector {
  std::mutex mutex;
  std::vector<std::string> lines;  // guarded by mutex
};

Collector& collector() {
  static Collector& one = *new Collector;
  return one;
}

void collect(const char* text, void*) {
  std::lock_guard lock(collector().mutex);
  collector().lines.emplace_back(text);
}

}  // namespace

TraceRecorder::TraceRecorder() {
  clear();
  OM_trace_set_sink(collect, nullptr);
  OM_trace_switch(1);
}

TraceRecorder::~TraceRecorder() {
  OM_trace_switch(0);
  OM_trace_set_sink(nullptr, nullptr);
}

std::vector<std::string> TraceRecorder::lines() const {
  std::lock_guard lock(collector().mutex);
  return collector().lines;
}

std::size_t TraceRecorder::count(std::string_view line) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
}

std::size_t TraceRecorder::count_starting(std::string_view prefix) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [&](const std::string& line) { return line.rfind(prefix, 0) == 0; }));
}

testing::AssertionResult TraceRecorder::in_order(std::initializer_list<std::string_view> wanted) const {
  const auto all = lines();
  auto next = all.begin();
  for (std::string_view line : wanted) {
    next = std::find(next, all.end(), line);
    if (next == all.end()) {
      auto failure = testing::AssertionFailure() << "no line \"" << line << "\" where it belongs in:\n";
      for (const std::string& have : all) failure << "  " << have << "\n";
      return failure;
    }
    ++next;
  }
  return testing::AssertionSuccess();
}

void TraceRecorder::clear() {
  std::lock_guard lock(collector().mutex);
  collector().lines.clear();
}
