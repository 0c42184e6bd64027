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
  const std::size_t own = waiting.size();  // its parts stand behind it
  waiting.push_back(&place);
  place.begun = true;
  ++depth;
  try {
    build(place);
  } catch (...) {  // without memory: whoever asks next builds it, and its parts, which may name it
    for (std::size_t i = own; i < waiting.size(); ++i) waiting[i]->begun = false;
    waiting.resize(own);
    --depth;
    throw;
  }
  if (--depth == 0) {
    for (TypeCodePlace* built : waiting) built->complete.store(true, std::memory_order_release);
    waiting.clear();
  }
  return &place.type;
}

}  // namespace CORBA::idl
