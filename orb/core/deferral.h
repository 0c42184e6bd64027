// What a call has beside itself that no thread waits for.
#pragma once

#include <memory>

#include "reply_threads.h"
#include "zrsv/deferred.h"

namespace zrsv {

struct ClientRequest;
struct LocalCall;

/// A part of its request. Finishing it follows forwards and sends again what a server did not take.
class Deferral final : public Deferred {
 public:
  Deferral(ClientRequest& request, ReplyListener* listener) : request_(request), listener_(listener) {}

  /// Sends the request. A fault: nobody is told.
  Fault send();
  /// An attempt to send begins: within the process by that call.
  void attempt(std::shared_ptr<LocalCall> local = nullptr);
  /// The request is completed: nothing comes any more.
  void end();

 private:
  void give_up(Fault why) noexcept override;
  void finish() noexcept override;
  bool may_block() const override;
  void let_go();
  Fault take_outcome();
  Fault take_local_outcome();
  bool follow();
  bool send_again(Fault* why);

  ClientRequest& request_;
  ReplyListener* const listener_;
  std::shared_ptr<LocalCall> local_;  // null: it went over a connection
  Fault given_up_;
};

}  // namespace zrsv
