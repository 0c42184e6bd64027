// Objects that each thread has one of.
#pragma once

#include <memory>
#include <new>

namespace zrsv {

namespace detail {

/// What a library has for each thread is to fit the room that the system keeps for libraries that a program opens
/// while it runs.
template <class T>
inline constexpr bool fits_thread = sizeof(T) <= 96;

template <class T, bool in_place>
struct OfThread {
  T object;
  T* get() { return &object; }
};

template <class T>
struct OfThread<T, false> {
  std::unique_ptr<T> object;
  T* get() {
    if (!object) [[unlikely]]
      object.reset(new (std::nothrow) T);
    return object.get();
  }
};

}  // namespace detail

/// The calling thread's T, made with the first call; null when it is gone, and when there is no memory for a large one.
/// Program code may call still while the objects of its thread, or of the process, are destroyed, in whatever order. One
/// T a thread and type: whoever wants one of its own wraps it in a type of its own.
template <class T>
T* of_thread() {
  static thread_local bool gone = false;
  struct Holder : detail::OfThread<T, detail::fits_thread<T>> {
    ~Holder() { gone = true; }
  };
  if (gone) return nullptr;
  static thread_local Holder holder;
  return holder.get();
}

}  // namespace zrsv
