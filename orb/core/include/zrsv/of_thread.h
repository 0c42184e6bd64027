// Objects that each thread has one of.
#pragma once

namespace zrsv {

/// The calling thread's T, made with the first call; null when it is gone. Program code may call still while the objects
/// of its thread, or of the process, are destroyed, in whatever order. One T a thread and type: whoever wants one of
/// its own wraps it in a type of its own.
template <class T>
T* of_thread() {
  static thread_local bool gone = false;
  struct Holder {
    T object;
    ~Holder() { gone = true; }
  };
  if (gone) return nullptr;
  static thread_local Holder holder;
  return &holder.object;
}

}  // namespace zrsv
