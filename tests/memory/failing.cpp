#include "failing.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

namespace {

std::atomic<long> until{0};  // allocations that still succeed; below 0 they fail
std::atomic<long> last{0};
std::atomic<bool> armed{false}, failed{false};
thread_local bool counted = true;
std::atomic<long> allocated{0};

long size_of(void* block) { return static_cast<long>(::malloc_usable_size(block)); }
void* taken(void* block) {
  if (block) allocated.fetch_add(size_of(block), std::memory_order_relaxed);
  return block;
}

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

long live() { return allocated; }

Counted::Counted(bool now) : before_(std::exchange(counted, now)) {}
Counted::~Counted() { counted = before_; }

}  // namespace failing

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size) { return fails() ? nullptr : taken(__real_malloc(size)); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : taken(__real_calloc(count, size));
}
void* __wrap_realloc(void* block, std::size_t size) {
  if (fails()) return nullptr;
  const long before = size_of(block);
  void* const changed = __real_realloc(block, size);
  if (changed) allocated.fetch_sub(before, std::memory_order_relaxed);
  return taken(changed);
}
void __wrap_free(void* block) {
  allocated.fetch_sub(size_of(block), std::memory_order_relaxed);
  __real_free(block);
}
}

void* operator new(std::size_t size) {
  void* const block = __wrap_malloc(size ? size : 1);
  if (!block) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete[](void* block) noexcept { __wrap_free(block); }
void operator delete(void* block, std::size_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, std::size_t) noexcept { __wrap_free(block); }
