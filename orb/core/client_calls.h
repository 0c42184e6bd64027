// The road of a call, and the C interface to it.
#pragma once

#include "client_request.h"

namespace zrsv {

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
