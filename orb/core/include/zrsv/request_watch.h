// Who looks at the requests that this process sends and serves: the runtime's interceptors. As long as there are none,
// a request pays for a look at a flag.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zrsv/request.h"

namespace zrsv {

/// A service context of a message that is there, in place.
struct ContextView {
  uint32_t id = 0;
  std::string_view octets;
};
using ContextViews = std::vector<ContextView>;

/// One that goes into a message.
struct ServiceContext {
  uint32_t id = 0;
  std::string octets;
};
using ServiceContexts = std::vector<ServiceContext>;

/// How a request ended. The first four are ZR_REPLY_... values.
enum class Ending : uint32_t {
  Result = ZR_REPLY_NO_EXCEPTION,
  UserException = ZR_REPLY_USER_EXCEPTION,
  SystemException = ZR_REPLY_SYSTEM_EXCEPTION,
  Forward = ZR_REPLY_LOCATION_FORWARD,
  NoReply,  // none is wanted
  Unknown   // it was given up before it had an end
};

struct RequestOutcome {
  RequestOutcome() = default;
  explicit RequestOutcome(Ending how) : ending(how) {}
  /// A system exception.
  RequestOutcome(std::string id, uint32_t code, uint32_t status)
      : ending(Ending::SystemException), exception(std::move(id)), minor(code), completed(status) {}

  Ending ending = Ending::Unknown;
  std::string exception;  // its repository id, in the public form
  uint32_t minor = 0;     // of a system exception, as the next one
  uint32_t completed = CORBA_COMPLETED_NO;
  std::shared_ptr<void> forward;  // a handle to where it goes
};

/// A request that is about to be made. Handles and texts are the caller's.
struct OutgoingRequest {
  uint32_t id = 0;
  const char* operation = "";
  bool response_expected = true;
  void* target = nullptr;
  void* effective_target = nullptr;  // where the target was forwarded
};

/// Looks at one request of a client. Called by one thread at a time; may throw std::bad_alloc only.
class ClientWatch {
 public:
  virtual ~ClientWatch() = default;
  /// Before the message is made. What it puts into `contexts` goes along. False: it is not sent, and ends as `outcome`
  /// says, by a system exception or a forward; nothing more is called then.
  virtual bool start(const OutgoingRequest& request, ServiceContexts* contexts, RequestOutcome* outcome) = 0;
  /// Once, at the end, with the contexts of the reply. True when it made another `outcome` of it, a system exception
  /// or a forward.
  virtual bool end(const ContextViews& contexts, RequestOutcome* outcome) = 0;
};

/// A request that has come.
struct IncomingRequest {
  uint32_t id = 0;
  const char* operation = "";
  bool response_expected = true;
  ContextViews contexts;
};

/// The servant that is about to run a request, as the object adapter knows it.
class ServantView {
 public:
  virtual ~ServantView() = default;
  virtual std::string_view object_id() const = 0;
  /// Names of the POAs from the root's on.
  virtual std::vector<std::string> adapter() const = 0;
  /// A repository id.
  virtual std::string interface() const = 0;
  virtual bool is_a(const char* repository_id) const = 0;
};

/// Looks at one request of a server. Called by one thread at a time; may throw std::bad_alloc only.
class ServerWatch {
 public:
  virtual ~ServerWatch() = default;
  /// Before a servant is looked for. False: it goes no further, and ends as `outcome` says, by a system exception or a
  /// forward, with these contexts; nothing more is called then.
  virtual bool arrive(const IncomingRequest& request, ServiceContexts* contexts, RequestOutcome* outcome) = 0;
  /// Before the servant runs it, on that thread. False as above, but end() follows.
  virtual bool ready(const ServantView& servant, RequestOutcome* outcome) = 0;
  /// Once the reply stands, on the thread of ready(). What it puts into `contexts` goes along. True as in ClientWatch.
  virtual bool end(ServiceContexts* contexts, RequestOutcome* outcome) = 0;
};

/// Make the watch of a request; null for a request that nobody wants to see.
using WatchOutgoing = std::unique_ptr<ClientWatch> (*)(void* target);
using WatchIncoming = std::unique_ptr<ServerWatch> (*)();
/// Has requests watched from now on; null for requests of a kind that nobody wants to see. Those that are under way go
/// unseen. Any thread.
ZRSV_API void watch_requests(WatchOutgoing outgoing, WatchIncoming incoming);
/// False until then: all that a request asks.
extern ZRSV_API std::atomic<bool> requests_watched;

/// For the object adapter, while requests are watched: before it has the servant run the request. False: the request
/// has its reply, and the servant does not run it.
ZRSV_API bool servant_is_ready(void* request, const ServantView& servant);

}  // namespace zrsv
