// What interceptors are told of a request.
#pragma once

#include "corba/portable_interceptor.h"
#include "orb/pi_current.h"
#include "zrsv/request_watch.h"

namespace CORBA {

/// Where a request is, as bits of a set.
namespace point {
inline constexpr unsigned none = 0, starting = 1, ready = 2, reply = 4, exception = 8, other = 16,
                          ending = reply | exception | other, any = starting | ready | ending;
}  // namespace point

/// The ending point for such an end.
unsigned ending_point(zrsv::Ending ending);

/// What both kinds of info are made of.
struct RequestFacts {
  unsigned at = point::none;
  ULong id = 0;
  std::string operation;
  bool response_expected = true;
  zrsv::RequestOutcome outcome;
  zrsv::ServiceContexts request_contexts, reply_contexts;
  Slots slots;
};

zrsv::ServiceContexts copied(const zrsv::ContextViews& contexts);

/// A new reference of that handle, which stays whose it is.
Object* another_reference(void* handle);

/// The operations that both have; each checks that it is allowed at the point.
template <class Interface>
class InfoOf : public virtual Interface {
 public:
  RequestFacts facts;

  ULong request_id() override { return at(point::any).id; }
  char* operation() override { return string_dup(at(point::any).operation.c_str()); }
  Boolean response_expected() override { return at(point::any).response_expected; }
  PortableInterceptor::ReplyStatus reply_status() override;
  Object* forward_reference() override;
  Any* get_slot(PortableInterceptor::SlotId id) override { return value_of(at(point::any).slots, id); }
  IOP::ServiceContext* get_request_service_context(IOP::ServiceId id) override;
  IOP::ServiceContext* get_reply_service_context(IOP::ServiceId id) override;

 protected:
  /// The facts, where they may be asked for; else BAD_INV_ORDER.
  RequestFacts& at(unsigned points);
};

class ClientInfo : public InfoOf<PortableInterceptor::ClientRequestInfo> {
 public:
  void* called = nullptr;  // handles that outlive the request's points
  void* goes_to = nullptr;

  Object* target() override { return at(point::any), another_reference(called); }
  Object* effective_target() override { return at(point::any), another_reference(goes_to); }
  Any* received_exception() override;
  char* received_exception_id() override;
  void add_request_service_context(const IOP::ServiceContext& context, Boolean replace) override;
};

class ServerInfo : public InfoOf<PortableInterceptor::ServerRequestInfo> {
 public:
  std::string orb;
  const zrsv::ServantView* servant = nullptr;  // in receive_request
  bool found = false;                          // what follows is known
  std::string object;
  std::vector<std::string> adapter;

  Any* sending_exception() override;
  OctetSeq* object_id() override;
  OctetSeq* adapter_id() override;
  StringSeq* adapter_name() override;
  char* orb_id() override { return at(point::any), string_dup(orb.c_str()); }
  char* target_most_derived_interface() override;
  Boolean target_is_a(const char* repository_id) override;
  void set_slot(PortableInterceptor::SlotId id, const Any& value) override;
  void add_reply_service_context(const IOP::ServiceContext& context, Boolean replace) override;

 private:
  void check_found();
};

}  // namespace CORBA
