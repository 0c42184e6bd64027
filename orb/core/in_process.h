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

class Connection;
class Engine;

/// While one lives, the slot of the request that this thread runs is lent to another: its servant waits for a
/// reply, which may depend on that one. Nothing outside of servants, and when too many slots are lent.
class SlotLoan {
 public:
  SlotLoan();
  ~SlotLoan();
  SlotLoan(const SlotLoan&) = delete;
  SlotLoan& operator=(const SlotLoan&) = delete;

 private:
  Engine* const lender_;
  bool lent_ = false;
  Connection* connection_ = nullptr;  // of the request
};

}  // namespace zrsv
