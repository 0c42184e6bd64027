// Module PortableInterceptor: program code that sees every request on its way (CORBA, "Portable Interceptors"): for
// tracing, for who is asking, for what goes along with calls through many processes. Headers that poaidl makes do not
// include this one. Without any, requests cost what they cost before.
//
// A program writes interceptors, and an initializer that adds them to each ORB that is made; it registers the
// initializer before ORB_init. A request meets a starting point and one ending point of each interceptor:
//
//   client   send_request -> receive_reply | receive_exception | receive_other
//   server   receive_request_service_contexts -> receive_request -> send_reply | send_exception | send_other
#pragma once

#include "corba/orb.h"
#include "corba/policy.h"

/// Declares what every local interface has, and its _ptr and _var types.
#define CORBA_LOCAL_INTERFACE(X)                                                           \
 public:                                                                                   \
  static X* _nil() { return nullptr; }                                                     \
  static X* _duplicate(X* object) { return CORBA::idl::duplicate_local(object); }          \
  static X* _narrow(CORBA::Object* object) { return CORBA::idl::narrow_local<X>(object); } \
  static X* _unchecked_narrow(CORBA::Object* object) { return CORBA::idl::narrow_local<X>(object); }

namespace IOP {

using ServiceId = CORBA::ULong;

/// What goes along with a request or a reply, beside its arguments: octets under a number. Peers leave alone what
/// they do not know. The upper 20 bits of a number say who has given it out; with 0 it is the standard's own.
///
///   IOP::ServiceContext context;
///   context.context_id = 0x54455354;
///   context.context_data.length(1);
///   context.context_data[0] = 1;
struct ServiceContext {
  ServiceId context_id = 0;
  CORBA::OctetSeq context_data;
};
using ServiceContext_var = CORBA::ValueVar<ServiceContext>;
using ServiceContext_out = CORBA::ValueOut<ServiceContext>;

}  // namespace IOP

namespace PortableInterceptor {

/// Names a place of the PICurrent. Good in every ORB of the process.
using SlotId = CORBA::ULong;

/// How a request ended. TRANSPORT_RETRY does not come up here: a call that is sent again is the same call. UNKNOWN:
/// it was given up.
using ReplyStatus = CORBA::Short;
inline constexpr ReplyStatus SUCCESSFUL = 0, SYSTEM_EXCEPTION = 1, USER_EXCEPTION = 2, LOCATION_FORWARD = 3,
                             TRANSPORT_RETRY = 4, UNKNOWN = 5;

#pragma GCC visibility push(default)
/// A slot that allocate_slot_id has not given out.
using InvalidSlot = CORBA::PlainUserException<"IDL:omg.org/PortableInterceptor/InvalidSlot:1.0">;
#pragma GCC visibility pop

/// Thrown by an interception point: the request goes to that object instead, and the client makes it anew. From
/// receive_reply and send_reply, when it has been carried out, it counts as UNKNOWN.
class ZRSVCPP_API ForwardRequest : public CORBA::UserExceptionOf<ForwardRequest> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/PortableInterceptor/ForwardRequest:1.0";
  ForwardRequest() = default;
  /// `to` is duplicated.
  explicit ForwardRequest(CORBA::Object* to) : forward(CORBA::Object::_duplicate(to)) {}

  CORBA::Object_var forward;
};

// ---- What interceptors are told -----------------------------------------------------------------------------------

/// A request, as interceptors see it. Good during the interception points of that request only, on their thread. What
/// an operation has no answer for at the point raises BAD_INV_ORDER (minor code OMGVMCID | 14). Results are the
/// caller's.
class ZRSVCPP_API RequestInfo : public virtual CORBA::LocalObject {
  CORBA_LOCAL_INTERFACE(RequestInfo)

  /// The id in the message; the client's and the server's are the same.
  virtual CORBA::ULong request_id() = 0;
  /// The operation's name, as it travels ("_get_NAME" of an attribute).
  virtual char* operation() = 0;
  /// False for oneway operations.
  virtual CORBA::Boolean response_expected() = 0;
  /// At ending points.
  virtual ReplyStatus reply_status() = 0;
  /// Where the request was forwarded: where reply_status is LOCATION_FORWARD.
  virtual CORBA::Object* forward_reference() = 0;
  /// A copy; InvalidSlot.
  virtual CORBA::Any* get_slot(SlotId id) = 0;
  /// A copy; BAD_PARAM (OMGVMCID | 26) when there is none of that id. A client sees those that interceptors added.
  virtual IOP::ServiceContext* get_request_service_context(IOP::ServiceId id) = 0;
  virtual IOP::ServiceContext* get_reply_service_context(IOP::ServiceId id) = 0;
};
using RequestInfo_ptr = RequestInfo*;
using RequestInfo_var = CORBA::ObjectVar<RequestInfo>;

/// What client interceptors are told of a call.
class ZRSVCPP_API ClientRequestInfo : public virtual RequestInfo {
  CORBA_LOCAL_INTERFACE(ClientRequestInfo)

  /// What the program called, and where the call goes now.
  virtual CORBA::Object* target() = 0;
  virtual CORBA::Object* effective_target() = 0;
  /// In receive_exception. A user exception cannot be made here: it is UNKNOWN (OMGVMCID | 1), and its id says what it
  /// is.
  virtual CORBA::Any* received_exception() = 0;
  virtual char* received_exception_id() = 0;
  /// In send_request. BAD_INV_ORDER (OMGVMCID | 15) when there is one of that id and `replace` is false, BAD_PARAM for
  /// an id that the ORB itself uses.
  virtual void add_request_service_context(const IOP::ServiceContext& context, CORBA::Boolean replace) = 0;
};
using ClientRequestInfo_ptr = ClientRequestInfo*;
using ClientRequestInfo_var = CORBA::ObjectVar<ClientRequestInfo>;

/// What server interceptors are told of a request.
class ZRSVCPP_API ServerRequestInfo : public virtual RequestInfo {
  CORBA_LOCAL_INTERFACE(ServerRequestInfo)

  /// In send_exception; a user exception as in ClientRequestInfo.
  virtual CORBA::Any* sending_exception() = 0;
  /// From receive_request on. NO_RESOURCES (OMGVMCID | 1) when no servant was found. The octets of adapter_id name
  /// the POA among those of the process.
  virtual CORBA::OctetSeq* object_id() = 0;
  virtual CORBA::OctetSeq* adapter_id() = 0;
  /// Names of the POAs, from "RootPOA" on.
  virtual CORBA::StringSeq* adapter_name() = 0;
  /// The id of the ORB that serves.
  virtual char* orb_id() = 0;
  /// In receive_request: the servant's.
  virtual char* target_most_derived_interface() = 0;
  virtual CORBA::Boolean target_is_a(const char* repository_id) = 0;
  /// Sets the request's slot, which is the servant's PICurrent's. InvalidSlot.
  virtual void set_slot(SlotId id, const CORBA::Any& value) = 0;
  /// As ClientRequestInfo::add_request_service_context, at every point.
  virtual void add_reply_service_context(const IOP::ServiceContext& context, CORBA::Boolean replace) = 0;
};
using ServerRequestInfo_ptr = ServerRequestInfo*;
using ServerRequestInfo_var = CORBA::ObjectVar<ServerRequestInfo>;

// ---- What programs implement --------------------------------------------------------------------------------------

/// Interceptors are called on several threads at once, in the order in which they were added; ending points in the
/// reverse order, and only of those whose starting point returned. A system exception or, where it is allowed,
/// ForwardRequest takes the place of the request's end; any other exception counts as UNKNOWN. Calls that an
/// interceptor makes are seen by interceptors as well, so one that calls has to know its own calls. Counted as local
/// objects are.
class ZRSVCPP_API Interceptor : public virtual CORBA::LocalObject {
  CORBA_LOCAL_INTERFACE(Interceptor)

  /// The caller frees it. "" is nobody's name, else a name is taken once.
  virtual char* name() = 0;
  /// The ORB is gone: no other call comes. What it throws is dropped.
  virtual void destroy() = 0;
};
using Interceptor_ptr = Interceptor*;
using Interceptor_var = CORBA::ObjectVar<Interceptor>;

/// Sees calls of the ORB's references: plain, oneway, dynamic and asynchronous ones, over a socket or in the process.
///
///   class Tag : public PortableInterceptor::ClientRequestInterceptor {
///     char* name() override { return CORBA::string_dup("tag"); }
///     void destroy() override {}
///     void send_request(PortableInterceptor::ClientRequestInfo_ptr info) override {
///       IOP::ServiceContext context;
///       context.context_id = 0x54455354;
///       info->add_request_service_context(context, false);
///     }
///     void send_poll(PortableInterceptor::ClientRequestInfo_ptr) override {}
///     void receive_reply(PortableInterceptor::ClientRequestInfo_ptr) override {}
///     void receive_exception(PortableInterceptor::ClientRequestInfo_ptr) override {}
///     void receive_other(PortableInterceptor::ClientRequestInfo_ptr) override {}
///   };
class ZRSVCPP_API ClientRequestInterceptor : public virtual Interceptor {
  CORBA_LOCAL_INTERFACE(ClientRequestInterceptor)

  /// The starting point: before the message is made.
  virtual void send_request(ClientRequestInfo_ptr info) = 0;
  /// For polls of time-independent calls, which there are none of here: never called.
  virtual void send_poll(ClientRequestInfo_ptr info) = 0;
  /// Ending points. receive_other: the call was forwarded and is made anew, wants no reply, or was given up (UNKNOWN).
  virtual void receive_reply(ClientRequestInfo_ptr info) = 0;
  virtual void receive_exception(ClientRequestInfo_ptr info) = 0;
  virtual void receive_other(ClientRequestInfo_ptr info) = 0;
};
using ClientRequestInterceptor_ptr = ClientRequestInterceptor*;
using ClientRequestInterceptor_var = CORBA::ObjectVar<ClientRequestInterceptor>;

/// Sees requests for the objects of the ORB that has the server side, also those that the process makes itself.
///
///   class Log : public PortableInterceptor::ServerRequestInterceptor {
///     char* name() override { return CORBA::string_dup("log"); }
///     void destroy() override {}
///     void receive_request_service_contexts(PortableInterceptor::ServerRequestInfo_ptr) override {}
///     void receive_request(PortableInterceptor::ServerRequestInfo_ptr) override {}
///     void send_reply(PortableInterceptor::ServerRequestInfo_ptr info) override {
///       CORBA::String_var operation = info->operation();
///       std::clog << operation.in() << " went well" << std::endl;
///     }
///     void send_exception(PortableInterceptor::ServerRequestInfo_ptr) override {}
///     void send_other(PortableInterceptor::ServerRequestInfo_ptr) override {}
///   };
class ZRSVCPP_API ServerRequestInterceptor : public virtual Interceptor {
  CORBA_LOCAL_INTERFACE(ServerRequestInterceptor)

  /// The starting point: before a POA and a servant are looked for. A request that a POA manager holds meets it before
  /// it waits.
  virtual void receive_request_service_contexts(ServerRequestInfo_ptr info) = 0;
  /// Before the servant runs it, on the same thread.
  virtual void receive_request(ServerRequestInfo_ptr info) = 0;
  /// Ending points. send_other: it is forwarded, or wants no reply.
  virtual void send_reply(ServerRequestInfo_ptr info) = 0;
  virtual void send_exception(ServerRequestInfo_ptr info) = 0;
  virtual void send_other(ServerRequestInfo_ptr info) = 0;
};
using ServerRequestInterceptor_ptr = ServerRequestInterceptor*;
using ServerRequestInterceptor_var = CORBA::ObjectVar<ServerRequestInterceptor>;

/// Values that go along with a thread's work (initial reference "PICurrent"): a client interceptor sees those of the
/// calling thread, a servant those that server interceptors set for its request. One object answers all threads.
///
///   CORBA::Object_var found = orb->resolve_initial_references("PICurrent");
///   PortableInterceptor::Current_var current = PortableInterceptor::Current::_narrow(found.in());
///   PortableInterceptor::SlotId slot = 0;  // that ORBInitInfo::allocate_slot_id gave
///   CORBA::Any_var value = current->get_slot(slot);
class ZRSVCPP_API Current : public virtual CORBA::Current, public virtual CORBA::LocalObject {
  CORBA_LOCAL_INTERFACE(Current)

  /// A copy of this thread's value, empty (tk_null) when none was set. InvalidSlot.
  virtual CORBA::Any* get_slot(SlotId id) = 0;
  /// For this thread, copied. InvalidSlot.
  virtual void set_slot(SlotId id, const CORBA::Any& value) = 0;
};
using Current_ptr = Current*;
using Current_var = CORBA::ObjectVar<Current>;

// ---- Registration -------------------------------------------------------------------------------------------------

/// The ORB that is being made; OBJECT_NOT_EXIST once that is over.
class ZRSVCPP_API ORBInitInfo : public virtual CORBA::LocalObject {
  CORBA_LOCAL_INTERFACE(ORBInitInfo)

  /// An interceptor of the kind has that name.
  class ZRSVCPP_API DuplicateName : public CORBA::UserExceptionOf<DuplicateName> {
   public:
    static constexpr const char* repository_id =
        "IDL:omg.org/PortableInterceptor/ORBInitInfo/DuplicateName:1.0";
    DuplicateName() = default;
    explicit DuplicateName(const char* text) : name(CORBA::string_dup(text)) {}

    CORBA::String_var name;
  };
#pragma GCC visibility push(default)
  using InvalidName =
      CORBA::PlainUserException<"IDL:omg.org/PortableInterceptor/ORBInitInfo/InvalidName:1.0">;
#pragma GCC visibility pop

  /// The command line that ORB_init was given.
  virtual CORBA::StringSeq* arguments() = 0;
  /// The id of the ORB.
  virtual char* orb_id() = 0;
  /// As the ORB's own, with InvalidName of this interface. resolve_initial_references is for post_init: BAD_INV_ORDER
  /// (OMGVMCID | 14) in pre_init.
  virtual void register_initial_reference(const char* id, CORBA::Object* object) = 0;
  virtual CORBA::Object* resolve_initial_references(const char* id) = 0;
  /// Counted once more. DuplicateName for a name that an interceptor of the kind has; BAD_PARAM for nil.
  virtual void add_client_request_interceptor(ClientRequestInterceptor_ptr interceptor) = 0;
  virtual void add_server_request_interceptor(ServerRequestInterceptor_ptr interceptor) = 0;
  /// A slot of the PICurrent that nobody has yet.
  virtual SlotId allocate_slot_id() = 0;
};
using ORBInitInfo_ptr = ORBInitInfo*;
using ORBInitInfo_var = CORBA::ObjectVar<ORBInitInfo>;

/// What a program has run for each ORB that is made: here interceptors are added.
///
///   class Setup : public PortableInterceptor::ORBInitializer {
///     void pre_init(PortableInterceptor::ORBInitInfo_ptr info) override { slot_ = info->allocate_slot_id(); }
///     void post_init(PortableInterceptor::ORBInitInfo_ptr) override {}
///     PortableInterceptor::SlotId slot_ = 0;
///   };
///   PortableInterceptor::ORBInitializer_var setup = new Setup;
///   PortableInterceptor::register_orb_initializer(setup);
///   CORBA::ORB_var with_it = CORBA::ORB_init(argc, argv);
class ZRSVCPP_API ORBInitializer : public virtual CORBA::LocalObject {
  CORBA_LOCAL_INTERFACE(ORBInitializer)

  /// Called by the ORB_init that makes an ORB, on its thread: pre_init of all initializers, then post_init of all. A
  /// system exception ends the ORB and is ORB_init's; any other one is INITIALIZE.
  virtual void pre_init(ORBInitInfo_ptr info) = 0;
  virtual void post_init(ORBInitInfo_ptr info) = 0;
};
using ORBInitializer_ptr = ORBInitializer*;
using ORBInitializer_var = CORBA::ObjectVar<ORBInitializer>;

/// For the ORBs that are made from now on, as long as the process lives. Counted once more; BAD_PARAM for nil. Any
/// thread.
ZRSVCPP_API void register_orb_initializer(ORBInitializer_ptr initializer);

}  // namespace PortableInterceptor

#undef CORBA_LOCAL_INTERFACE
