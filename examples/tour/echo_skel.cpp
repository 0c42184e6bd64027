#include "echo.h"
#include "mapping_help.h"

namespace POA_Demo {
namespace {

namespace rows = Demo::echo_rows;

[[maybe_unused]] const bool registered = (ZR_register_interface(Demo::Echo::repository_id), true);

}  // namespace

Echo::Echo() { _intf = Demo::Echo::repository_id; }

CORBA::Boolean Echo::invoke(CORBA::ServerRequest* request, CORBA::Environment& env) {
  const mapping_help::Upcall upcall(this);
  return CORBA::idl::by_member::invoke<Echo, rows::echo_string, rows::add, rows::echo_octets, rows::refuse,
                                       rows::note, rows::notes, rows::who, rows::sleep_ms>(
             *this, request->operation(), request->request_handle(), request->response_expected()) ||
         ServantBase::invoke(request, env);
}

Demo::Echo* Echo::_this(CORBA::Environment& env) {
  const CORBA::Object_var object = mapping_help::reference_of(*this, env);
  return Demo::Echo::_narrow(object);
}

}  // namespace POA_Demo
