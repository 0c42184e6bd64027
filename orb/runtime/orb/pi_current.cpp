#include "orb/pi_current.h"

#include <atomic>

namespace CORBA {
namespace {

using PortableInterceptor::SlotId;

std::atomic<SlotId> slots_given{0};

void check_slot(SlotId id) {
  if (id >= slots_given) throw PortableInterceptor::InvalidSlot();
}

class PiCurrent : public PortableInterceptor::Current {
 public:
  Any* get_slot(SlotId id) override { return value_of(thread_slots(), id); }
  void set_slot(SlotId id, const Any& value) override { set_value(thread_slots(), id, value); }
};

}  // namespace

Slots& thread_slots() {
  thread_local Slots slots;
  return slots;
}

SlotId new_slot() { return slots_given++; }

Any* value_of(const Slots& slots, SlotId id) {
  check_slot(id);
  return id < slots.size() ? new Any(slots[id]) : new Any;
}

void set_value(Slots& slots, SlotId id, const Any& value) {
  check_slot(id);
  if (id >= slots.size()) slots.resize(id + 1);
  slots[id] = value;
}

PortableInterceptor::Current* pi_current() {
  static PiCurrent* const one = new PiCurrent;
  return PortableInterceptor::Current::_duplicate(one);
}

}  // namespace CORBA
