#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "zrsv.h"
#include "zrsv/thread_safety.h"

unsigned char OM_sys_params[16] = {};

namespace {

/// Where trace lines go. Lines hold the lock shared while the sink runs, so that once a sink was taken away
/// no call of it is left.
struct Sink {
  zrsv::SharedMutex mutex;
  OM_trace_sink call ZR_GUARDED_BY(mutex) = nullptr;
  void* closure ZR_GUARDED_BY(mutex) = nullptr;
};

Sink& sink() {
  static Sink& one = *new Sink;  // never freed: other libraries trace while the process ends
  return one;
}

std::string formatted(const char* format, va_list arguments) {
  char small[512];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(small, sizeof small, format, arguments);
  std::string text;
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof small) {
    text.assign(small, static_cast<std::size_t>(length));
  } else if (length >= 0) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

/// "HH:MM:SS.mmm thread " of now.
std::string stamp() {
  thread_local const long thread = ::syscall(SYS_gettid);
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  char text[64];
  const int length = std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03ld %ld ", local.tm_hour,
                                   local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000, thread);
  return std::string(text, static_cast<std::size_t>(length));
}

/// One write, so that lines of several threads do not mix.
void write_line(std::string line) {
  line += '\n';
  std::string_view left = line;
  while (!left.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, left.data(), left.size());
    if (written > 0) {
      left.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;
    }
  }
}

void trace_line(const char* format, va_list arguments) {
  const int saved = errno;  // a trace line must not change what its caller sees
  const std::string text = formatted(format, arguments);
  Sink& to = sink();
  {
    const zrsv::SharedLock lock(to.mutex);
    if (to.call) {
      to.call(text.c_str(), to.closure);
      errno = saved;
      return;
    }
  }
  write_line(stamp() + text);
  errno = saved;
}

}  // namespace

void OM_trace_switch(unsigned char on) { __atomic_store_n(&OM_sys_params[0], on, __ATOMIC_RELAXED); }

void OM_trace_select(int /*level*/, const char* format, ...) {
  if (!OM_TRACE_IS_ON) return;
  va_list arguments;
  va_start(arguments, format);
  trace_line(format, arguments);
  va_end(arguments);
}

void OM_trace(const char* format, ...) {
  if (!OM_TRACE_IS_ON) return;
  va_list arguments;
  va_start(arguments, format);
  trace_line(format, arguments);
  va_end(arguments);
}

void OM_trace_set_sink(OM_trace_sink call, void* closure) {
  Sink& to = sink();
  const zrsv::SharedMutexLock lock(to.mutex);
  to.call = call;
  to.closure = closure;
}
