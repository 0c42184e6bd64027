// Memory that is large: the system gives it in pages of 2 MiB, where it can.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

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

/// Memory for the tables of N elements that one owner has, many of them in a large page. All of it goes with the owner.
template <class T, std::size_t N>
class SharedPages {
 public:
  /// For one more table; null when there is no memory for a large page.
  T* next() {
    if (used_ == pages_.size() * TABLES) {
      pages_.reserve(pages_.size() + 1);
      Page page(static_cast<T*>(::operator new(PAGE, ALIGNED, std::nothrow)));
      if (!page) return nullptr;
      ::madvise(page.get(), PAGE, MADV_HUGEPAGE);
      pages_.push_back(std::move(page));
    }
    return pages_.back().get() + used_++ % TABLES * N;
  }

 private:
  static constexpr std::size_t PAGE = LargePages<T>::PAGE, TABLES = PAGE / (N * sizeof(T));
  static constexpr std::align_val_t ALIGNED{PAGE};
  struct Free {
    void operator()(T* page) const { ::operator delete(page, ALIGNED); }
  };
  using Page = std::unique_ptr<T, Free>;
  std::vector<Page> pages_;
  std::size_t used_ = 0;  // tables
};

/// An allocator for a vector that has memory given to it for its one allocation, or else takes its own.
template <class T>
struct GivenMemory {
  using value_type = T;
  using propagate_on_container_move_assignment = std::true_type;
  static constexpr std::align_val_t ALIGNED{alignof(T)};

  T* given = nullptr;

  T* allocate(std::size_t count) {
    return given ? given : static_cast<T*>(::operator new(count * sizeof(T), ALIGNED));
  }
  void deallocate(T* at, std::size_t) {
    if (at != given) ::operator delete(at, ALIGNED);
  }
  bool operator==(const GivenMemory& other) const { return given == other.given; }
};
