#include "control.h"
#include "mapping_help.h"

namespace POA_Demo {
namespace {

namespace rows = Demo::control_rows;

[[maybe_unused]] const bool registered = (ZR_register_interface(Demo::Control::repository_id), true);

}  // namespace

Control::Control() { _intf = Demo::Control::repository_id; }

CORBA::Boolean Control::invoke(CORBA::ServerRequest* request, CORBA::Environment& env) {
  const mapping_help::Upcall upcall(this);
  return CORBA::idl::by_member::invoke<Control, rows::hold_ms, rows::discard_ms, rows::lifespan,
                                       rows::incarnations, rows::alive, rows::destroy_poa, rows::deactivate>(
             *this, request->operation(), request->request_handle(), request->response_expected()) ||
         ServantBase::invoke(request, env);
}

Demo::Control* Control::_this(CORBA::Environment& env) {
  const CORBA::Object_var object = mapping_help::reference_of(*this, env);
  return Demo::Control::_narrow(object);
}

}  // namespace POA_Demo
