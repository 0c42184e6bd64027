// The global operator new and delete of a test program, over a function of its own. For one source file of a program.
#pragma once

#include <cstdlib>
#include <new>

/// At least one octet, to be freed by free(); null: there is no memory.
void* allocate_for_new(std::size_t octets) noexcept;

void* operator new(std::size_t octets, const std::nothrow_t&) noexcept { return allocate_for_new(octets); }
void* operator new(std::size_t octets) {
  if (void* const block = allocate_for_new(octets)) return block;
  throw std::bad_alloc();
}
void* operator new[](std::size_t octets) { return operator new(octets); }
void* operator new[](std::size_t octets, const std::nothrow_t& nothrow) noexcept {
  return operator new(octets, nothrow);
}
// Not inlined: the compiler would see free() on what came from operator new.
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
