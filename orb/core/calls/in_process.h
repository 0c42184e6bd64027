// Calls to objects of this very process, without a socket.
#pragma once

#include <memory>

#include "requests/client_request.h"

namespace zrsv {

/// Runs the call on an object of this process by the server's road: on the calling thread, unless the queue group
/// holds it or no thread may run (then it waits its turn, as a message). Blocks until the reply is there in
/// `call.call.reply`; without response_expected it returns when the request was run or queued. fault::none on success;
/// TIMEOUT when the call may be running still. `operation` need not be the call's own text.
Fault call_in_process(ClientRequest& call, Reference& target, const char* operation);

struct LocalCall;

/// The same on a thread of the engine, with a message of its own: returns at once, and what becomes of it is told to
/// `waiter`. Where the program runs the requests by perform_work, so does this one; but a deferred call runs now: its
/// thread may wait for it next, and be the only one.
Fault call_in_process_later(ClientRequest& call, Reference& target, Buffer message,
                            std::shared_ptr<LocalCall> waiter);
/// Reads the head of a whole reply message.
Fault open_reply(Reply* reply);

}  // namespace zrsv
