#include "control.h"
#include "mapping_help.h"

namespace Demo {

namespace rows = control_rows;

Control* Control::_duplicate(Control* p) { return mapping_help::refer<_st_Demo_Control>(p); }

Control* Control::_narrow(CORBA::Object* object) {
  return object && object->_is_a(repository_id) ? mapping_help::refer<_st_Demo_Control>(object) : nullptr;
}

void _st_Demo_Control::hold_ms(CORBA::ULong ms, CORBA::Environment& env) {
  rows::hold_ms::Roads::stub(this, ms, env);
}

void _st_Demo_Control::discard_ms(CORBA::ULong ms, CORBA::Environment& env) {
  rows::discard_ms::Roads::stub(this, ms, env);
}

void _st_Demo_Control::lifespan(const char* name, CORBA::Long seconds, CORBA::Environment& env) {
  rows::lifespan::Roads::stub(this, name, seconds, env);
}

CORBA::Long _st_Demo_Control::incarnations(const char* name, CORBA::Environment& env) {
  return rows::incarnations::Roads::stub(this, name, env);
}

CORBA::Long _st_Demo_Control::alive(CORBA::Environment& env) { return rows::alive::Roads::stub(this, env); }

void _st_Demo_Control::destroy_poa(const char* name, CORBA::Environment& env) {
  rows::destroy_poa::Roads::stub(this, name, env);
}

void _st_Demo_Control::deactivate(const char* name, CORBA::Environment& env) {
  rows::deactivate::Roads::stub(this, name, env);
}

}  // namespace Demo
