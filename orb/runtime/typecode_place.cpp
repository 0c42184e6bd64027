#include "corba/typecode_place.h"

#include <mutex>
#include <vector>

namespace CORBA::idl {

TypeCode* const* build_typecode(TypeCodePlace& place, void (*build)(TypeCodePlace& place)) {
  static std::recursive_mutex& building = *new std::recursive_mutex;  // asked for until the process ends
  static auto& waiting = *new std::vector<TypeCodePlace*>;            // guarded by building
  static unsigned depth = 0;                                          // guarded by building
  std::lock_guard lock(building);
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
