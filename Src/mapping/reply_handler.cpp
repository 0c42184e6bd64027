// The base interface of reply handlers, as poaidl would make it.
#include "poa/async.h"
#include "poa/mapping.h"

namespace Messaging {

ReplyHandler* ReplyHandler::_duplicate(ReplyHandler* reference) { return CORBA::idl::duplicate(reference); }
ReplyHandler* ReplyHandler::_narrow(CORBA::Object* object) {
  return CORBA::idl::narrow<ReplyHandler>(object);
}
ReplyHandler* ReplyHandler::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::unchecked_narrow<ReplyHandler>(object);
}

}  // namespace Messaging

namespace POA_Messaging {

constinit const CORBA::idl::InterfaceInfo ReplyHandler::_info = CORBA::idl::interface_info<ReplyHandler>(
    Messaging::ReplyHandler::repository_id, CORBA::idl::operations());

ReplyHandler::ReplyHandler() { _intf = Messaging::ReplyHandler::repository_id; }

const CORBA::idl::InterfaceInfo& ReplyHandler::_interface(void*& self) {
  self = this;
  return _info;
}

Messaging::ReplyHandler* ReplyHandler::_this(CORBA::Environment& ev) {
  return _this_as<Messaging::ReplyHandler>(ev);
}

}  // namespace POA_Messaging
