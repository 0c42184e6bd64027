#include "orb/request_info.h"

#include <algorithm>

#include "base/raise.h"

namespace CORBA {
namespace {

using zrsv::Ending;

constexpr ULong wrong_point = OMGVMCID | 14, context_exists = OMGVMCID | 15, no_such_context = OMGVMCID | 26,
                unlisted = OMGVMCID | 1, no_servant = OMGVMCID | 1;
// Contexts of the ORB itself: the code sets, and those of this library alone (docs/wire.md).
constexpr ULong own_contexts[] = {1, 0x4B510001, 0x4B510002};

bool is_own(ULong id) { return std::ranges::find(own_contexts, id) != std::end(own_contexts); }

OctetSeq sequence_of(std::string_view from) {
  OctetSeq made;
  made.length(static_cast<ULong>(from.size()));
  if (!from.empty()) std::memcpy(made.get_buffer(), from.data(), from.size());
  return made;
}

IOP::ServiceContext* find(const zrsv::ServiceContexts& contexts, IOP::ServiceId id) {
  const auto found = std::ranges::find(contexts, id, &zrsv::ServiceContext::id);
  if (found == contexts.end()) throw BAD_PARAM(no_such_context);
  auto made = std::make_unique<IOP::ServiceContext>();
  made->context_id = id;
  made->context_data = sequence_of(found->octets);
  return made.release();
}

void add(zrsv::ServiceContexts& contexts, const IOP::ServiceContext& context, bool replace) {
  const ULong id = context.context_id;
  if (is_own(id)) throw BAD_PARAM(no_such_context);
  const auto place = std::ranges::find(contexts, id, &zrsv::ServiceContext::id);
  if (place != contexts.end() && !replace) throw BAD_INV_ORDER(context_exists);
  const auto* data = reinterpret_cast<const char*>(context.context_data.get_buffer());
  std::string octets(data ? data : "", context.context_data.length());
  if (place == contexts.end()) {
    contexts.push_back({id, std::move(octets)});
  } else {
    place->octets = std::move(octets);
  }
}

/// The exception in an Any: a user exception is known by its id only.
Any* as_any(const zrsv::RequestOutcome& outcome) {
  std::unique_ptr<SystemException> exception;
  if (outcome.ending == Ending::SystemException)
    exception = make_standard_exception(outcome.exception, outcome.minor,
                                        static_cast<CompletionStatus>(outcome.completed));
  if (!exception) exception = std::make_unique<CORBA::UNKNOWN>(unlisted, COMPLETED_MAYBE);
  auto any = std::make_unique<Any>();
  *any <<= *exception;
  return any.release();
}

}  // namespace

unsigned ending_point(Ending ending) {
  if (ending == Ending::Result) return point::reply;
  return ending == Ending::UserException || ending == Ending::SystemException ? point::exception
                                                                              : point::other;
}

zrsv::ServiceContexts copied(const zrsv::ContextViews& contexts) {
  zrsv::ServiceContexts all;
  for (const zrsv::ContextView& context : contexts)
    if (!is_own(context.id)) all.push_back({context.id, std::string(context.octets)});
  return all;
}

Object* another_reference(void* handle) {
  auto made = std::make_unique<Object>();
  made->set_ref(CORBA_object_duplicate(handle, nullptr));
  return made.release();
}

// ---- Both -----------------------------------------------------------------------------------------------------------

template <class Interface>
RequestFacts& InfoOf<Interface>::at(unsigned points) {
  if (!(facts.at & points)) throw BAD_INV_ORDER(wrong_point);
  return facts;
}

template <class Interface>
PortableInterceptor::ReplyStatus InfoOf<Interface>::reply_status() {
  using namespace PortableInterceptor;
  constexpr ReplyStatus statuses[] = {SUCCESSFUL,       USER_EXCEPTION, SYSTEM_EXCEPTION,
                                      LOCATION_FORWARD, SUCCESSFUL,     PortableInterceptor::UNKNOWN};
  return statuses[static_cast<unsigned>(at(point::ending).outcome.ending)];
}

template <class Interface>
Object* InfoOf<Interface>::forward_reference() {
  const zrsv::RequestOutcome& outcome = at(point::other).outcome;
  if (outcome.ending != Ending::Forward) throw BAD_INV_ORDER(wrong_point);
  return another_reference(outcome.forward.get());
}

template <class Interface>
IOP::ServiceContext* InfoOf<Interface>::get_request_service_context(IOP::ServiceId id) {
  return find(at(point::any).request_contexts, id);
}

template <class Interface>
IOP::ServiceContext* InfoOf<Interface>::get_reply_service_context(IOP::ServiceId id) {
  return find(at(point::ending).reply_contexts, id);
}

template class InfoOf<PortableInterceptor::ClientRequestInfo>;
template class InfoOf<PortableInterceptor::ServerRequestInfo>;

// ---- Clients --------------------------------------------------------------------------------------------------------

Any* ClientInfo::received_exception() { return as_any(at(point::exception).outcome); }

char* ClientInfo::received_exception_id() {
  return string_dup(at(point::exception).outcome.exception.c_str());
}

void ClientInfo::add_request_service_context(const IOP::ServiceContext& context, Boolean replace) {
  add(at(point::starting).request_contexts, context, replace);
}

// ---- Servers --------------------------------------------------------------------------------------------------------

void ServerInfo::check_found() {
  at(point::ready | point::ending);
  if (!found) throw NO_RESOURCES(no_servant);
}

Any* ServerInfo::sending_exception() { return as_any(at(point::exception).outcome); }

OctetSeq* ServerInfo::object_id() { return check_found(), new OctetSeq(sequence_of(object)); }

OctetSeq* ServerInfo::adapter_id() {
  check_found();
  std::string joined;
  for (const std::string& name : adapter) (joined += name) += '\0';  // which no name has
  return new OctetSeq(sequence_of(joined));
}

StringSeq* ServerInfo::adapter_name() {
  check_found();
  auto names = std::make_unique<StringSeq>();
  names->length(static_cast<ULong>(adapter.size()));
  for (ULong i = 0; i < names->length(); ++i) (*names)[i] = adapter[i].c_str();
  return names.release();
}

char* ServerInfo::target_most_derived_interface() {
  at(point::ready);
  return string_dup(servant->interface().c_str());
}

Boolean ServerInfo::target_is_a(const char* repository_id) {
  at(point::ready);
  return servant->is_a(repository_id);
}

void ServerInfo::set_slot(PortableInterceptor::SlotId id, const Any& value) {
  set_value(at(point::any).slots, id, value);
}

void ServerInfo::add_reply_service_context(const IOP::ServiceContext& context, Boolean replace) {
  add(at(point::any).reply_contexts, context, replace);
}

}  // namespace CORBA
