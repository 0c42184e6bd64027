// The interception points: which interceptor is called when, and what becomes of what it raises.
#include "orb/interceptors.h"

#include <new>

#include "orb/request_info.h"

namespace CORBA {
namespace {

using zrsv::Ending;
using zrsv::RequestOutcome;

RequestOutcome unknown() { return {StExcep::UNKNOWN()._rep_id(), 0, COMPLETED_MAYBE}; }

/// Runs one interception point. True when it raised something, which is the outcome then.
template <class Call>
bool raises(Call&& call, bool may_forward, RequestOutcome* outcome) {
  try {
    call();
    return false;
  } catch (const SystemException& e) {
    *outcome = {e._rep_id(), e.minor(), e.completed()};
  } catch (const PortableInterceptor::ForwardRequest& e) {
    void* const to = e.forward.in() ? e.forward.in()->get_ref() : nullptr;
    *outcome = may_forward ? RequestOutcome(Ending::Forward) : unknown();
    if (may_forward && !to) *outcome = {INV_OBJREF()._rep_id(), 0, COMPLETED_NO};
    if (to) outcome->forward = {CORBA_object_duplicate(to, nullptr), CORBA_object_release};
  } catch (const std::bad_alloc&) {
    *outcome = {NO_MEMORY()._rep_id(), 0, COMPLETED_MAYBE};
  } catch (...) {
    *outcome = unknown();
  }
  return true;
}

/// The interceptors of one kind on the way of one request. `Info` is what they are told.
template <class Interceptor, class Info, class Told>
class Flow {
 public:
  using Member = void (Interceptor::*)(Told*);
  struct Points {
    Member start, reply, exception, other;
  };
  using List = std::vector<ObjectVar<Interceptor>>;

  Flow(std::shared_ptr<const Interceptors> owner, const List& list, const Points& points)
      : info(new Info), owner_(std::move(owner)), list_(list), points_(points) {}
  Flow(const Flow&) = delete;
  Flow& operator=(const Flow&) = delete;
  /// A request that nobody ended.
  ~Flow() {
    RequestOutcome outcome;
    try {
      end(&outcome);
    } catch (const std::bad_alloc&) {
      OM_log("out of memory: not all interceptors heard of the end of %s", info->facts.operation.c_str());
    }
  }

  /// False when a starting point raised; those before it have had their ending point then.
  bool start(RequestOutcome* outcome) {
    info->facts.at = point::starting;
    for (const auto& interceptor : list_) {
      if (raises([&] { (interceptor.in()->*points_.start)(info.in()); }, true, outcome))
        return end(outcome), false;
      ++entered_;
    }
    info->facts.at = point::none;
    return true;
  }
  /// A point between start and end, of all.
  bool pass(unsigned at, Member member, RequestOutcome* outcome) {
    info->facts.at = at;
    bool passed = true;
    for (std::size_t i = 0; i < entered_ && passed; ++i)
      passed = !raises([&] { (list_[i].in()->*member)(info.in()); }, true, outcome);
    info->facts.at = point::none;
    return passed;
  }
  /// The ending points, the last first. True when one of them changed the outcome.
  bool end(RequestOutcome* outcome) {
    bool changed = false;
    while (entered_ > 0) {
      Interceptor* const next = list_[--entered_].in();
      const unsigned at = info->facts.at = ending_point(outcome->ending);
      info->facts.outcome = *outcome;
      const Member member = at == point::reply       ? points_.reply
                            : at == point::exception ? points_.exception
                                                     : points_.other;
      changed |= raises([&] { (next->*member)(info.in()); }, at != point::reply, outcome);
    }
    info->facts.at = point::none;
    return changed;
  }

  const ObjectVar<Info> info;

 private:
  const std::shared_ptr<const Interceptors> owner_;
  const List& list_;
  const Points& points_;
  std::size_t entered_ = 0;
};

// ---- Clients --------------------------------------------------------------------------------------------------------

using PortableInterceptor::ClientRequestInfo;
using PortableInterceptor::ClientRequestInterceptor;
using ClientFlow = Flow<ClientRequestInterceptor, ClientInfo, ClientRequestInfo>;
constexpr ClientFlow::Points client_points = {
    &ClientRequestInterceptor::send_request, &ClientRequestInterceptor::receive_reply,
    &ClientRequestInterceptor::receive_exception, &ClientRequestInterceptor::receive_other};

class ClientCall : public zrsv::ClientWatch {
 public:
  explicit ClientCall(const std::shared_ptr<const Interceptors>& all)
      : flow_(all, all->client, client_points) {}

  bool start(const zrsv::OutgoingRequest& request, zrsv::ServiceContexts* contexts,
             RequestOutcome* outcome) override {
    RequestFacts& facts = flow_.info->facts;
    facts.id = request.id;
    facts.operation = request.operation;
    facts.response_expected = request.response_expected;
    facts.slots = thread_slots();
    flow_.info->called = request.target;
    flow_.info->goes_to = request.effective_target;
    if (!flow_.start(outcome)) return false;
    *contexts = facts.request_contexts;
    return true;
  }
  bool end(const zrsv::ContextViews& contexts, RequestOutcome* outcome) override {
    flow_.info->facts.reply_contexts = copied(contexts);
    return flow_.end(outcome);
  }

 private:
  ClientFlow flow_;
};

// ---- Servers --------------------------------------------------------------------------------------------------------

using PortableInterceptor::ServerRequestInfo;
using PortableInterceptor::ServerRequestInterceptor;
using ServerFlow = Flow<ServerRequestInterceptor, ServerInfo, ServerRequestInfo>;
constexpr ServerFlow::Points server_points = {
    &ServerRequestInterceptor::receive_request_service_contexts, &ServerRequestInterceptor::send_reply,
    &ServerRequestInterceptor::send_exception, &ServerRequestInterceptor::send_other};

class ServerCall : public zrsv::ServerWatch {
 public:
  ServerCall(const std::shared_ptr<const Interceptors>& all, const std::string& orb)
      : flow_(all, all->server, server_points) {
    flow_.info->orb = orb;
  }

  bool arrive(const zrsv::IncomingRequest& request, zrsv::ServiceContexts* contexts,
              RequestOutcome* outcome) override {
    RequestFacts& facts = flow_.info->facts;
    facts.id = request.id;
    facts.operation = request.operation;
    facts.response_expected = request.response_expected;
    facts.request_contexts = copied(request.contexts);
    if (flow_.start(outcome)) return true;
    *contexts = facts.reply_contexts;
    return false;
  }
  bool ready(const zrsv::ServantView& servant, RequestOutcome* outcome) override {
    ServerInfo& info = *flow_.info.in();
    info.object = servant.object_id();
    info.adapter = servant.adapter();
    info.found = true;
    info.servant = &servant;
    const bool passed = flow_.pass(point::ready, &ServerRequestInterceptor::receive_request, outcome);
    info.servant = nullptr;
    if (passed) outer_ = std::exchange(thread_slots(), info.facts.slots), runs_ = true;
    return passed;
  }
  bool end(zrsv::ServiceContexts* contexts, RequestOutcome* outcome) override {
    if (std::exchange(runs_, false)) thread_slots() = std::move(outer_);
    const bool changed = flow_.end(outcome);
    *contexts = flow_.info->facts.reply_contexts;
    return changed;
  }

 private:
  ServerFlow flow_;
  bool runs_ = false;
  Slots outer_;  // the thread's, while the servant runs
};

// ---- Whose requests -------------------------------------------------------------------------------------------------

std::shared_ptr<const Interceptors> interceptors_of(const OrbPointer& orb) {
  if (!orb) return nullptr;
  const zrsv::MutexLock lock(orb->mutex);
  return orb->interceptors;
}

std::unique_ptr<zrsv::ClientWatch> watch_call(void* target) {
  const auto all = interceptors_of(orb_of(target));
  if (!all || all->client.empty()) return nullptr;
  return std::make_unique<ClientCall>(all);
}

std::unique_ptr<zrsv::ServerWatch> watch_request() {
  const OrbPointer orb = orbs().standard();
  const auto all = interceptors_of(orb);
  if (!all || all->server.empty()) return nullptr;
  return std::make_unique<ServerCall>(all, orb->id);
}

template <class List>
void destroy_all(const List& list) {
  for (const auto& interceptor : list) {
    RequestOutcome ignored;
    raises([&] { interceptor.in()->destroy(); }, false, &ignored);
  }
}

}  // namespace

void use_interceptors(const OrbPointer& orb, std::shared_ptr<const Interceptors> interceptors) {
  const bool any_client = !interceptors->client.empty(), any_server = !interceptors->server.empty();
  {
    const zrsv::MutexLock lock(orb->mutex);
    orb->interceptors = std::move(interceptors);
  }
  if (any_client || any_server)
    zrsv::watch_requests(any_client ? watch_call : nullptr, any_server ? watch_request : nullptr);
}

void destroy_interceptors(const OrbPointer& orb) {
  const auto all = interceptors_of(orb);
  if (!all) return;
  destroy_all(all->client);
  destroy_all(all->server);
}

}  // namespace CORBA
