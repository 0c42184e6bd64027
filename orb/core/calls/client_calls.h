// The road of a call, and the C interface to it.
#pragma once

#include "requests/client_request.h"

namespace zrsv {

/// One of the requests that the thread keeps, or a new one; and back, when its call has its end.
std::unique_ptr<ClientRequest> take_kept();
void keep_for_later(ClientRequest* done);
/// Makes it that of a new call, but for the operation and the message.
void begin_call(ClientRequest* request, Reference* object, bool response_expected);
/// Makes the reply's body the decoding side of the request's stream.
void show_reply(ClientRequest* request);
/// Keeps the reason for the thread. False.
[[gnu::cold]] bool fail(Fault why);

// Steps of a call, for those that are deferred. On false the reason is kept for the thread.
/// Makes the message whole, and starts the clock.
bool finish_message(ClientRequest* request);
/// Sends to where the object was forwarded, and to the object itself when nobody is there any more.
Fault dispatch(ClientRequest* request);
/// Why no connection came about: the time limit when it has passed meanwhile.
Fault or_time_limit(const ClientRequest& request, Fault why);
/// Calls made from now on start at the object itself again, which may know a better place.
void drop_forward(ClientRequest* request);
/// The request goes to that forward of its object next. False when it would have to be encoded anew for it.
bool redirect(ClientRequest* request);

}  // namespace zrsv
