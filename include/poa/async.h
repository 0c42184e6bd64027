// What poaidl --async adds to a generated header: asynchronous calls, and the base of the objects that take their
// replies (CORBA Messaging, "Asynchronous Method Invocation").
//
// For each operation f of an interface that has an answer there are two more in its reference class:
// `sendc_f(handler, in arguments...)`, whose reply becomes a call of `handler`, and `async_f(in arguments...)`, which
// gives a std::future of the results. Neither waits for the reply. What the call ends with is a call of f_excep, or
// the exception of the future; what keeps it from being sent at all is thrown by sendc_f, and is the exception of the
// future of async_f. docs/mapping.md shows both.
#pragma once

#include "corba/async.h"
#include "corba/detail/async_row.h"
#include "poa/skeleton.h"

namespace Messaging {

/// Base of the interfaces of reply handlers (CORBA Messaging, "Asynchronous Method Invocation"). Interface I has
/// AMI_IHandler: for each operation f one that takes what f gives, and f_excep that takes an ExceptionHolder. Programs
/// implement it as they do any interface, with a servant of POA_M::AMI_IHandler, and its POA says on which threads
/// it runs. The library calls it without waiting for it. A nil handler is allowed: the reply is dropped then.
///
///   class Balance : public POA_Bank::AMI_AccountHandler {
///     void get_balance(CORBA::Long ami_return_val) override { std::cout << ami_return_val << std::endl; }
///     void get_balance_excep(Messaging::ExceptionHolder* holder) override {
///       try {
///         holder->raise_exception();
///       } catch (const CORBA::Exception& e) {
///         std::cerr << e << std::endl;
///       }
///     }
///   };
///   Balance handler;
///   Bank::AMI_AccountHandler_var taker = handler._this();
///   account->sendc_get_balance(taker.in());
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
