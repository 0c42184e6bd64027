// Whether initial references still lead where they led.
#pragma once

#include <cstdint>

#include "zrsv/base.h"

namespace zrsv {

/// Counts what may change them: ORBs that come and go, the start and the shutdown of the server side, names that are
/// registered. As long as it stands, a name resolves to what it resolved to. Any thread.
ZRSV_API uint64_t initial_reference_changes();
/// One more, once the change can be seen.
ZRSV_API void count_initial_reference_change();

}  // namespace zrsv
