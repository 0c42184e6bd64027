#include "failing.h"

#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

namespace {

std::atomic<long> until{0};  // allocations that still succeed; below 0 they fail
std::atomic<long> last{0};
std::atomic<bool> armed{false}, failed{false};
thread_local bool counted = true;

bool fails() {
  if (!armed.load(std::memory_order_relaxed) || !counted) return false;
  const long left = until.fetch_sub(1);
  if (left > 0 || left < last.load()) return false;
  return failed = true;
}

}  // namespace

namespace failing {

void begin(long n, long more) {
  until = n - 1;
  last = -more;
  failed = false;
  armed = true;
}

bool end() {
  armed = false;
  return failed;
}

Counted::Counted(bool now) : before_(std::exchange(counted, now)) {}
Counted::~Counted() { counted = before_; }

}  // namespace failing

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size) { return fails() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  return fails() ? nullptr : __real_realloc(block, size);
}
void __wrap_free(void* block) { __real_free(block); }
}

void* operator new(std::size_t size) {
  void* const block = fails() ? nullptr : __real_malloc(size ? size : 1);
  if (!block) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { __real_free(block); }
void operator delete[](void* block) noexcept { __real_free(block); }
void operator delete(void* block, std::size_t) noexcept { __real_free(block); }
void operator delete[](void* block, std::size_t) noexcept { __real_free(block); }
