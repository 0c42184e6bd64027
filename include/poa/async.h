// What poaidl --async adds to a generated header: asynchronous calls, and the base of the objects that take their replies.
#pragma once

#include "corba/async.h"
#include "poa/skeleton.h"

namespace Messaging {

/// Base of the interfaces of reply handlers (CORBA Messaging, "Asynchronous Method Invocation"). Interface I has
/// AMI_IHandler: for each operation f one that takes what f gives, and f_excep that takes an ExceptionHolder. Programs
/// implement it as they do any interface, with a servant of POA_M::AMI_IHandler, and its POA says on which threads
/// it runs. The library calls it without waiting for it.
class POA_API ReplyHandler : public virtual CORBA::Object {
 public:
  using _ptr_type = ReplyHandler*;
  using _var_type = CORBA::ObjectVar<ReplyHandler>;
  static constexpr const char* repository_id = "IDL:omg.org/Messaging/ReplyHandler:1.0";
  static constexpr const char* interface_name = "ReplyHandler";
  static ReplyHandler* _nil() { return nullptr; }
  static ReplyHandler* _duplicate(ReplyHandler* reference);
  static ReplyHandler* _narrow(CORBA::Object* object);
  static ReplyHandler* _unchecked_narrow(CORBA::Object* object);
};
using ReplyHandler_ptr = ReplyHandler*;
using ReplyHandler_var = CORBA::ObjectVar<ReplyHandler>;

}  // namespace Messaging

namespace POA_Messaging {

class POA_API ReplyHandler : public virtual PortableServer::Skeleton {
 public:
  static const CORBA::idl::InterfaceInfo _info;
  ReplyHandler();
  Messaging::ReplyHandler* _this(CORBA_ENV);

 protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
};

}  // namespace POA_Messaging
