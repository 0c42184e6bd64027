// One request to an object of this process: read, run, answered.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>

#include "base/buffer.h"
#include "base/clock.h"
#include "connections/connection.h"
#include "connections/requests.h"
#include "references/reference.h"
#include "requests/request_base.h"
#include "requests/upcall.h"
#include "wire/giop.h"
#include "zrsv/gate.h"
#include "zrsv/request_watch.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

struct ServerRequest;
class Deferred;

/// A call of this process that waits until another thread has run it.
struct LocalCall {
  explicit LocalCall(bool in_upcall) : caller_in_upcall(in_upcall) {}
  ~LocalCall();

  std::atomic<bool> given_up{false};
  Mutex mutex;
  Condition over;
  bool done ZR_GUARDED_BY(mutex) = false;
  const char* error ZR_GUARDED_BY(mutex) = nullptr;  // "TRANSIENT": it was not run
  Buffer reply ZR_GUARDED_BY(mutex);
  Deferred* deferred ZR_GUARDED_BY(mutex) = nullptr;  // told when it is done; null: a thread waits
  Line line;                                          // while it waits for a slot
  /// The caller is in a servant: it runs its held call itself when that is released, with the slot that it
  /// has. All slots may be taken by servants that wait like this one.
  const bool caller_in_upcall;
  std::unique_ptr<ServerRequest> released ZR_GUARDED_BY(mutex);

  /// Gives a released request back to the thread that waits for it.
  static void hand_back(std::unique_ptr<ServerRequest> request);
  void finish(Buffer message, const char* why = nullptr);
};

/// A request's place at a gate.
struct AtGate {
  std::shared_ptr<Gate> gate;
  bool wanted = false;   // it is to wait there
  bool granted = false;  // it has waited, and the mutex is shut for it

  AtGate() = default;
  AtGate(AtGate&& o) noexcept
      : gate(std::move(o.gate)), wanted(o.wanted), granted(std::exchange(o.granted, false)) {}
  AtGate& operator=(AtGate&&) = delete;
  ~AtGate() {
    if (granted) give_up();
  }
  [[gnu::cold]] void give_up();
};

/// The status of a bare reply that there was no memory for.
inline constexpr uint32_t no_status = UINT32_MAX;

/// Lives on the stack of the thread that read it; one that must wait is moved to the heap. The views in
/// `head` and the stream point into the memory of `message`, which moves along.
struct ServerRequest : RequestBase {
  Buffer message;
  uint8_t minor = 2;
  giop::RequestHead head;
  Borrowed<Reference> target;         // the last of the thread that read it
  Borrowed<Connection> connection;    // of that thread; null: it came from this process
  InFlight in_flight;                 // of the connection; gone before it
  std::shared_ptr<LocalCall> waiter;  // of a call of this process that another thread runs
  AtGate waits;
  std::unique_ptr<ServerWatch> watch;  // as a rule null
  bool replied = false;                // a reply was begun
  bool bare = false;                   // no messages: the body alone, both ways
  uint32_t reply_status = 0;           // of a bare one that has replied
  ServerRequest* next = nullptr;       // in its Requests
  Clock::time_point since;             // of its wait for a slot
  ZR_RequestInfo info{};

  ServerRequest() = default;
  ServerRequest(ServerRequest&&) = default;
  ServerRequest& operator=(ServerRequest&&) = delete;

  /// Reads the head of `message`. False when the body is not what the header says.
  bool read_head(const giop::Header& header);
  /// Makes this the request of a whole message, which it owns from now on. False when that is none.
  bool own(Buffer whole);
  /// Its texts are in what it says, which then holds for its connection, or in what was said there before.
  void use_code_sets(CodeSets* of_connection) {
    if (head.code_sets.said) *of_connection = head.code_sets;
    cdr.narrow = of_connection->narrow;
    cdr.wide = of_connection->wide;
  }
  /// The client is gone, or waits no longer: there is nobody to run it for. A client that wants no answer may
  /// go at once.
  bool orphaned() const {
    return connection ? head.response_expected && !connection->registered()
                      : waiter && waiter->given_up.load();
  }
};

/// While one lives, the slot of the upcall that this thread runs is lent to another request: its servant waits for a
/// reply, which may depend on that one. Nothing outside of servants, and when too many slots are lent.
class SlotLoan {
 public:
  SlotLoan();
  ~SlotLoan();
  SlotLoan(const SlotLoan&) = delete;
  SlotLoan& operator=(const SlotLoan&) = delete;

 private:
  SlotLender* const lender_;
  bool lent_ = false;
  Connection* connection_ = nullptr;  // of the request
};

/// Runs the request in the object adapter, or where its target belongs, on this thread, as an upcall (upcall.h) with a
/// slot of that lender, or none. Afterwards its stream
/// holds the whole reply message, of a bare one its body, empty when the client expects none, when there was no memory
/// for it, or when it has to wait (`waits.wanted`). `reply` lends the memory for it; a body
/// over `max_message` octets becomes IMP_LIMIT.
void execute(ServerRequest& request, SlotLender* slot_of, uint32_t max_message, Buffer* reply) noexcept;
/// What has the object adapter run a request (`run`) with its watch around it; null as long as none is watched.
using RunWatched = void (*)(ServerRequest& request, void (*run)(ServerRequest&));
extern std::atomic<RunWatched> run_watched;
/// Makes a system exception, by its short name, the reply.
[[gnu::cold]] void answer_exception(ServerRequest& request, const char* name,
                                    uint32_t completed = CORBA_COMPLETED_NO, uint32_t minor = 0);
/// Of IMP_LIMIT: the message is over -ORBMaxMessage.
inline constexpr uint32_t minor_over_max_message = 0x4B510401;

/// Makes "call that one instead" the reply.
[[gnu::cold]] void answer_forward(ServerRequest& request, const Reference& to);

}  // namespace zrsv
