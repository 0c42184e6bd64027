#include "echo.h"
#include "mapping_help.h"

namespace Demo {

Echo* Echo::_duplicate(Echo* p) { return mapping_help::refer<_st_Demo_Echo>(p); }

Echo* Echo::_narrow(CORBA::Object* object) {
  return object && object->_is_a(repository_id) ? mapping_help::refer<_st_Demo_Echo>(object) : nullptr;
}

char* _st_Demo_Echo::echo_string(const char* s, CORBA::Environment& env) {
  return echo_rows::echo_string::Roads::stub(this, s, env);
}

CORBA::Long _st_Demo_Echo::add(CORBA::Long a, CORBA::Long b, CORBA::Environment& env) {
  return echo_rows::add::Roads::stub(this, a, b, env);
}

Octets* _st_Demo_Echo::echo_octets(const Octets& data, CORBA::Environment& env) {
  return echo_rows::echo_octets::Roads::stub(this, data, env);
}

void _st_Demo_Echo::refuse(const char* why, CORBA::Long code, CORBA::Environment& env) {
  echo_rows::refuse::Roads::stub(this, why, code, env);
}

void _st_Demo_Echo::note(const char* s, CORBA::Environment& env) {
  echo_rows::note::Roads::stub(this, s, env);
}

CORBA::Long _st_Demo_Echo::notes(CORBA::Environment& env) { return echo_rows::notes::Roads::stub(this, env); }

char* _st_Demo_Echo::who(CORBA::Environment& env) { return echo_rows::who::Roads::stub(this, env); }

void _st_Demo_Echo::sleep_ms(CORBA::ULong ms, CORBA::Environment& env) {
  echo_rows::sleep_ms::Roads::stub(this, ms, env);
}

}  // namespace Demo
