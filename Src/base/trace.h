// Trace lines of the adapter. Off costs one test; texts are literals at the call site.
#pragma once

#include <cstdint>
#include <exception>

#include "zrsv.h"

/// POA_TRACE("text %d", n): a level 1 trace line.
#define POA_TRACE(...)                                   \
  do {                                                   \
    if (OM_TRACE_IS_ON) OM_trace_select(1, __VA_ARGS__); \
  } while (false)

/// The few lines that carry no level.
#define POA_TRACE_PLAIN(...)                   \
  do {                                         \
    if (OM_TRACE_IS_ON) OM_trace(__VA_ARGS__); \
  } while (false)

/// Runs something for its trace lines alone, while tracing is on: what it finds out is known by then.
template <class Work>
void trace_of(Work&& work) {
  if (!OM_TRACE_IS_ON) return;
  try {
    work();
  } catch (const std::exception&) {  // it has its lines
  }
}

/// A pointer as trace lines print it: hexadecimal digits, whole, after a "0x" in the text ("0x%lx").
inline unsigned long trace_address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
