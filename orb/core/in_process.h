// Calls to objects of this very process: the same messages, without a socket.
#pragma once

#include <chrono>

#include "buffer.h"

namespace zrsv {

/// Runs a whole request message through the server's road: on the calling thread, unless the queue group
/// holds it or no thread may run (then it waits its turn). Blocks until the reply is there; `deadline` of
/// max() means no limit. `reply` gets the whole reply message (unfragmented); without response_expected it
/// returns when the request was run or queued. Null on success, else "TIMEOUT", "TRANSIENT" or
/// "OBJECT_NOT_EXIST".
const char* call_in_process(Buffer request, bool response_expected,
                            std::chrono::steady_clock::time_point deadline, Buffer* reply);

}  // namespace zrsv
