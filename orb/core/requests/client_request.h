// A call as the client side's C interface hands it out.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "connections/client_pool.h"
#include "connections/reply_threads.h"
#include "requests/request_base.h"
#include "zrsv/deferred.h"
#include "zrsv/request_watch.h"

namespace zrsv {

struct ClientRequest;
struct LocalCall;

/// What a call has beside itself that no thread waits for (deferral.cpp), a part of its request. Finishing it follows
/// forwards and sends again what a server did not take.
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

/// What comes with a call that somebody looks at.
struct Watched {
  std::unique_ptr<ClientWatch> watch;  // until the call has its end
  ServiceContexts contexts;            // of its message
};

/// One call, from create to complete. Each thread keeps a few that are done, with their memory, for its next
/// calls. `cdr` has the request on its encoding side, kept until the reply is there, and the reply on its
/// decoding side.
struct ClientRequest : RequestBase {
  enum class Phase : uint8_t {
    Created,
    Sent,      // over `connection`, or, for an object of this process, run with the result in `call`
    Answered,  // the reply is in `call`
    Over       // no more to come: failed, or sent without an answer wanted
  };

  ClientRequest() = default;
  ClientRequest(const ClientRequest&) = delete;
  ClientRequest& operator=(const ClientRequest&) = delete;
  ~ClientRequest() { OM_cdr_close(&cdr); }

  Reference* object = nullptr;  // what the caller asked for; outlives the request
  Ref<Reference> forward;       // where calls on it went when the request was made; null: to itself
  std::string operation;
  uint32_t kind = ZR_REQUEST_IIOP;
  bool response_expected = true;
  bool sent_again = false;
  bool nested = false;   // made by a servant while it serves a request
  bool bare = false;     // for an object of this process: `cdr` has the body alone, without a header
  bool one_off = false;  // its header has contexts that only this call has
  Phase phase = Phase::Created;
  Deadline deadline = Deadline::max();  // max: none, or not begun
  bool elsewhere = false;               // an object of this process runs it on a thread of the engine
  std::unique_ptr<Deferral> deferral;   // of a call that no thread waits for

  uint32_t next_id = 0;    // of the lot that it was given
  uint32_t id_in_lot = 0;  // 0: it has used up its lot, or was given none

  std::string_view key;  // in the request's header
  CodeSets code_sets;    // what its texts are in

  /// The header of the message in `cdr`. A kept request's stays for the next call, when that has the same.
  struct Head {
    std::string key, operation;
    std::size_t end = 0;   // from the message's start
    std::size_t body = 0;  // behind it, padding between
    uint8_t minor = 0;
    bool response_expected = true;
    bool whole = false;
    CodeSets code_sets;
  };
  Head head;

  std::unique_ptr<Watched> watched;  // as a rule null

  ClientCall call;
  ClientPool::Connection connection;
  std::weak_ptr<ClientConnection> last_connection;  // of the calls before

  Reference& target() const { return forward ? *forward : *object; }
};

/// What such a handle is.
inline ClientRequest* client_request(void* handle) {
  return static_cast<ClientRequest*>(static_cast<RequestBase*>(handle));
}

}  // namespace zrsv
