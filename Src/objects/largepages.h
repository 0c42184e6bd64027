// Memory that is large: the system gives it in pages of 2 MiB, where it can.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>

/// An allocator for a vector, whose elements begin with a line of the processor's cache. A page of the usual size costs
/// a fault when it is touched first, and a place in the processor's tables: half of the time of filling a large table.
template <class T>
struct LargePages {
  using value_type = T;
  static constexpr std::size_t PAGE = std::size_t{2} << 20;
  static constexpr std::align_val_t LINE{64};

  LargePages() = default;
  template <class U>
  explicit LargePages(const LargePages<U>&) {}

  T* allocate(std::size_t count) {
    const std::size_t octets = count * sizeof(T);
    char* const at = static_cast<char*>(::operator new(octets, LINE));
    // The whole pages in it. Refused: the usual pages do.
    const std::size_t before = (PAGE - reinterpret_cast<std::uintptr_t>(at) % PAGE) % PAGE;
    const std::size_t whole = octets > before ? (octets - before) / PAGE * PAGE : 0;
    if (whole != 0) ::madvise(at + before, whole, MADV_HUGEPAGE);
    return reinterpret_cast<T*>(at);
  }
  void deallocate(T* at, std::size_t) { ::operator delete(at, LINE); }
  bool operator==(const LargePages&) const { return true; }
};
