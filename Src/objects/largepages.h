// Memory that is large: the system gives it in pages of 2 MiB, where it can.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>

/// An allocator for a vector. A page of the usual size costs a fault when it is touched first, and a place in the
/// processor's tables: half of the time of filling a large table.
template <class T>
struct LargePages {
  using value_type = T;
  static constexpr std::size_t PAGE = std::size_t{2} << 20;

  LargePages() = default;
  template <class U>
  explicit LargePages(const LargePages<U>&) {}

  T* allocate(std::size_t count) {
    const std::size_t octets = count * sizeof(T);
    if (octets < PAGE) return static_cast<T*>(::operator new(octets));
    void* const at = ::operator new (octets, std::align_val_t{PAGE});
    ::madvise(at, octets / PAGE * PAGE, MADV_HUGEPAGE);  // refused: the usual pages do
    return static_cast<T*>(at);
  }
  void deallocate(T* at, std::size_t count) {
    if (count * sizeof(T) < PAGE) return ::operator delete(at);
    ::operator delete (at, std::align_val_t{PAGE});
  }
  bool operator==(const LargePages&) const { return true; }
};
