// The steps of a request that is watched (zrsv/request_watch.h). All of it off the road of one that is not.
#pragma once

#include "requests/client_request.h"
#include "zrsv/request_watch.h"

namespace zrsv {

enum class Start : uint8_t { Goes, Failed, Forwarded };

/// Before the head of the message is made. Failed: the reason is the thread's last failure. Forwarded: the target knows
/// where; the call is to be made anew.
[[gnu::cold]] Start start_watch(ClientRequest* request);
/// It is sent, or the reason why not is the thread's last failure. What is returned: whether the caller may go on; the
/// request may have a reply of the watch's then.
[[gnu::cold]] bool end_sending(ClientRequest* request, bool sent);
/// It has no reply, and the reason is the thread's last failure. True when it has one of the watch's.
[[gnu::cold]] bool end_receiving(ClientRequest* request);
/// The reply is there, with that status; it may be another one afterwards. False: it fails.
[[gnu::cold]] bool end_answered(ClientRequest* request, uint32_t* status) noexcept;
/// The request is over: the last chance to have an end.
[[gnu::cold]] void end_watch(ClientRequest* request) noexcept;

}  // namespace zrsv
