#include "trace_recorder.h"

#include <algorithm>
#include <mutex>

#include "zrsv.h"

namespace {

// Never destroyed: a thread may still be in the sink when the recorder is gone.
auto& mutex = *new std::mutex;
auto& collected = *new std::vector<std::string>;  // guarded by mutex

}  // namespace

TraceRecorder::TraceRecorder() {
  clear();
  const auto collect = [](const char* text, void*) {
    std::lock_guard lock(mutex);
    collected.emplace_back(text);
  };
  OM_trace_set_sink(collect, nullptr);
  OM_trace_switch(1);
}

TraceRecorder::~TraceRecorder() {
  OM_trace_switch(0);
  OM_trace_set_sink(nullptr, nullptr);
}

std::vector<std::string> TraceRecorder::lines() const {
  std::lock_guard lock(mutex);
  return collected;
}

std::size_t TraceRecorder::count(std::string_view line) const {
  return static_cast<std::size_t>(std::ranges::count(lines(), line));
}

std::size_t TraceRecorder::count_starting(std::string_view prefix) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(lines(), [&](const std::string& line) { return line.starts_with(prefix); }));
}

testing::AssertionResult TraceRecorder::in_order(std::initializer_list<std::string_view> wanted) const {
  const auto all = lines();
  auto next = all.begin();
  for (std::string_view line : wanted) {
    next = std::find(next, all.end(), line);
    if (next == all.end())
      return testing::AssertionFailure()
             << "no line \"" << line << "\" where it belongs in: " << testing::PrintToString(all);
    ++next;
  }
  return testing::AssertionSuccess();
}

void TraceRecorder::clear() {
  std::lock_guard lock(mutex);
  collected.clear();
}
