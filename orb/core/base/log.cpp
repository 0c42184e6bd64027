#include "base/log.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "zrsv.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

LogRate::Kind& LogRate::of(const void* kind) {
  constexpr std::size_t TRIES = 8;
  const std::size_t home = reinterpret_cast<std::uintptr_t>(kind) / 8;
  Kind* oldest = nullptr;
  for (std::size_t i = 0; i < TRIES; ++i) {
    Kind& one = kinds_[(home + i) % kinds_.size()];
    if (one.kind == kind) return one;
    if (!oldest || !one.kind || (oldest->kind && one.second < oldest->second)) oldest = &one;
  }
  *oldest = {kind, 0, 0, 0};
  return *oldest;
}

bool LogRate::admit(const void* kind, std::int64_t second, unsigned* left_out) {
  Kind& one = of(kind);
  if (one.second != second) {
    one.second = second;
    one.lines = 0;
  }
  if (one.lines == LINES) {
    ++one.left_out;
    return false;
  }
  ++one.lines;
  *left_out = one.left_out;
  one.left_out = 0;
  return true;
}

std::size_t escape_controls(const char* text, char* to, std::size_t room) {
  std::size_t length = 0;
  for (; *text; ++text) {
    const auto octet = static_cast<unsigned char>(*text);
    const bool control = octet < 0x20 || octet == 0x7f ||
                         (octet == 0xc2 && (static_cast<unsigned char>(text[1]) & 0xe0) == 0x80);
    if (length + (control ? 4 : 1) >= room) break;
    if (control) {
      length += static_cast<std::size_t>(std::snprintf(to + length, 5, "\\x%02x", unsigned{octet}));
    } else {
      to[length++] = *text;
    }
  }
  to[length] = '\0';
  return length;
}

namespace {

/// Keeps the SIGPIPE that a write may raise from this thread.
class NoSigpipe {
 public:
  NoSigpipe() {
    ::sigemptyset(&pipe_);
    ::sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    was_pending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~NoSigpipe() {
    const timespec now{};
    if (!was_pending_) ::sigtimedwait(&pipe_, nullptr, &now);
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  NoSigpipe(const NoSigpipe&) = delete;
  NoSigpipe& operator=(const NoSigpipe&) = delete;

 private:
  sigset_t pipe_, before_;
  bool was_pending_;
};

/// Kernels and kinds of files that cannot promise not to wait have just been asked whether they would.
ssize_t write_now(const char* line, std::size_t length) {
  iovec piece{const_cast<char*>(line), length};
  const ssize_t written = ::pwritev2(STDERR_FILENO, &piece, 1, -1, RWF_NOWAIT);
  if (written >= 0 || errno == EPIPE) return written;
  if (errno == EAGAIN) {
    struct stat file {};
    if (::fstat(STDERR_FILENO, &file) != 0 || !S_ISREG(file.st_mode)) return -1;
  }
  return ::write(STDERR_FILENO, line, length);
}

}  // namespace

bool write_without_waiting(const char* line, std::size_t length) {
  pollfd out{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&out, 1, 0) != 1 || !(out.revents & POLLOUT)) return false;
  const NoSigpipe guard;
  return write_now(line, length) == static_cast<ssize_t>(length);
}

namespace {

constexpr std::size_t TEXT = 1024;  // octets of a line at most, less than what a pipe takes in one piece

/// All that lines share. Nothing here allocates: the log must work when there is no memory.
struct Log {
  Mutex mutex;
  LogRate rate ZR_GUARDED_BY(mutex);
  unsigned long lost ZR_GUARDED_BY(mutex) = 0;  // lines that standard error did not take
  SharedMutex sink_mutex;                       // held shared while the sink runs
  ZR_log_sink sink ZR_GUARDED_BY(sink_mutex) = nullptr;
  void* closure ZR_GUARDED_BY(sink_mutex) = nullptr;

  Log() {
    ::tzset();  // reads the time zone, which takes memory, before a line is written
  }
};

Log& the_log() {
  static Log& one = *new Log;  // never freed: other libraries log while the process ends
  return one;
}
[[maybe_unused]] const Log& made_early = the_log();

/// "HH:MM:SS.mmm thread zrsv: " of now; gives the length.
std::size_t stamp(char (&to)[64], const timespec& now) {
  thread_local const long thread = ::syscall(SYS_gettid);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  return static_cast<std::size_t>(std::snprintf(to, sizeof to,
                                                "%02d:%02d:%02d.%03ld %ld zrsv: ", local.tm_hour,
                                                local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000, thread));
}

void write_text(Log& log, const timespec& now, const char* text) ZR_REQUIRES(log.mutex) {
  char line[64 + TEXT];
  char front[64];
  stamp(front, now);
  const int length = std::snprintf(line, sizeof line, "%s%s\n", front, text);
  if (!write_without_waiting(line, static_cast<std::size_t>(length))) ++log.lost;
}

/// Says first how many lines were lost, when lines can be written again.
void write_line(Log& log, const timespec& now, const char* text) ZR_REQUIRES(log.mutex) {
  if (log.lost != 0) {
    const unsigned long lost = std::exchange(log.lost, 0);
    char told[64];
    std::snprintf(told, sizeof told, "%lu lines were lost: standard error took none", lost);
    write_text(log, now, told);
    if (log.lost != 0) log.lost = lost;
  }
  write_text(log, now, text);
}

/// True when a sink has taken the line. What it throws ends here: lines are written where nothing may be thrown.
bool given_to_sink(Log& log, int level, const char* text) {
  const SharedLock lock(log.sink_mutex);
  if (!log.sink) return false;
  try {
    log.sink(level, text, log.closure);
  } catch (...) {
    return true;
  }
  return true;
}

void log_line(int level, const char* format, va_list arguments) {
  const int saved = errno;  // a line must not change what its caller sees
  Log& log = the_log();
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  unsigned left_out = 0;
  {
    const MutexLock lock(log.mutex);
    if (!log.rate.admit(format, now.tv_sec, &left_out)) {
      errno = saved;
      return;
    }
  }
  char raw[TEXT / 2], text[TEXT];
  int length = std::vsnprintf(raw, sizeof raw, format, arguments);
  if (length >= static_cast<int>(sizeof raw)) std::memcpy(raw + sizeof raw - 4, "...", 4);
  const std::size_t used = escape_controls(length < 0 ? format : raw, text, sizeof text - 64);
  if (left_out != 0) std::snprintf(text + used, 64, " (%u more like this were left out)", left_out);
  if (!given_to_sink(log, level, text)) {
    const MutexLock lock(log.mutex);
    write_line(log, now, text);
  }
  errno = saved;
}

}  // namespace

void forget_log_rate() {
  const MutexLock lock(the_log().mutex);
  the_log().rate = {};
}

}  // namespace zrsv

void OM_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  zrsv::log_line(ZR_LOG_WARNING, format, arguments);
  va_end(arguments);
}

void OM_log_at(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  zrsv::log_line(level, format, arguments);
  va_end(arguments);
}

void OM_log_set_sink(ZR_log_sink sink, void* closure) {
  zrsv::Log& log = zrsv::the_log();
  const zrsv::SharedMutexLock lock(log.sink_mutex);
  log.sink = sink;
  log.closure = closure;
}
