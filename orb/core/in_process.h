// Calls to objects of this very process, without a socket.
#pragma once

#include "client_request.h"

namespace zrsv {

/// Runs the call on an object of this process by the server's road: on the calling thread, unless the queue group
/// holds it or no thread may run (then it waits its turn, as a message). Blocks until the reply is there in
/// `call.call.reply`; without response_expected it returns when the request was run or queued. fault::none on success;
/// TIMEOUT when the call may be running still.
Fault call_in_process(ClientRequest& call, Reference& target);

}  // namespace zrsv
