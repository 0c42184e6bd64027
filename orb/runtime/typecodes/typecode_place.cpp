#include "corba/detail/typecode_place.h"

#include <vector>

#include "zrsv/thread_safety.h"

namespace CORBA::idl {

TypeCode* const* build_typecode(TypeCodePlace& place, void (*build)(TypeCodePlace& place)) {
  static auto& building = *new zrsv::RecursiveMutex;  // asked for until the process ends
  static auto& waiting = *new std::vector<TypeCodePlace*>;
  static unsigned depth = 0;
  const zrsv::RecursiveMutexLock lock(building);
  if (place.begun) return &place.type;
  waiting.push_back(&place);
  place.begun = true;
  ++depth;
  try {
    build(place);
  } catch (...) {  // without memory: whoever asks next builds it
    place.begun = false;
    std::erase(waiting, &place);
    if (--depth == 0) waiting.clear();
    throw;
  }
  if (--depth == 0) {
    for (TypeCodePlace* built : waiting) built->complete.store(true, std::memory_order_release);
    waiting.clear();
  }
  return &place.type;
}

}  // namespace CORBA::idl
