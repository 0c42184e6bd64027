// Values that go along with a thread's work, by slot.
#pragma once

#include <vector>

#include "corba/any.h"
#include "corba/portable_interceptor.h"

namespace CORBA {

/// Those that were never set may be missing.
using Slots = std::vector<Any>;

/// The calling thread's.
Slots& thread_slots();
PortableInterceptor::SlotId new_slot();
/// A copy; InvalidSlot.
Any* value_of(const Slots& slots, PortableInterceptor::SlotId id);
void set_value(Slots& slots, PortableInterceptor::SlotId id, const Any& value);
/// Counted once more.
PortableInterceptor::Current* pi_current();

}  // namespace CORBA
