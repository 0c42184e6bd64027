// Calls whose thread does not wait: the reply is taken later, or somebody is told of it.
#pragma once

#include <cstddef>

#include "zrsv/base.h"

namespace zrsv {

/// Hears of the reply to a request.
class ZRSV_API ReplyListener {
 public:
  /// Once, on a thread of the library that holds no lock: OM_req_lib_UNO_IIOP_recv_reply of the request does not wait
  /// from now on. Completing the request in here is allowed. Other replies wait meanwhile, but for those of calls
  /// with listeners that may block.
  virtual void reply_is_there() noexcept = 0;
  /// Whether reply_is_there may wait for something.
  virtual bool may_block() const { return false; }

 protected:
  ~ReplyListener() = default;
};

/// Sends the request as OM_req_lib_UNO_IIOP_send_request does, and `listener`, which may be null, is told when its reply,
/// its time limit or its failure has come. An object of this process is called on a thread of the ORB, or by
/// perform_work. Forwards are followed; one that the request cannot follow as it is encoded remains the reply, and the
/// object's next call goes there. On false nobody is told.
ZRSV_API bool send_deferred(void* request, ReplyListener* listener);
/// Whether recv_reply of a request that was so sent would not wait.
ZRSV_API bool has_reply(void* request);
/// Waits for that. A servant's slot is lent meanwhile.
ZRSV_API void await_reply(void* request);
/// The same for the first of several.
ZRSV_API void await_any_reply(void* const* requests, std::size_t count);
/// Sends a request without an answer; an object of this process is called on a thread of the ORB, or by perform_work.
ZRSV_API bool send_elsewhere(void* request);
/// Whether calls of the object stay in the process.
ZRSV_API bool is_here(void* object);

}  // namespace zrsv
