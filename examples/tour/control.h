// C++ mapping of control.idl. echo.h explains the pattern.
#pragma once

#include "poa.h"

namespace Demo {

class ControlOperations {
 public:
  virtual void hold_ms(CORBA::ULong ms, CORBA_ENV) = 0;
  virtual void discard_ms(CORBA::ULong ms, CORBA_ENV) = 0;
  virtual void lifespan(const char* name, CORBA::Long seconds, CORBA_ENV) = 0;
  virtual CORBA::Long incarnations(const char* name, CORBA_ENV) = 0;
  virtual CORBA::Long alive(CORBA_ENV) = 0;
  virtual void destroy_poa(const char* name, CORBA_ENV) = 0;
  virtual void deactivate(const char* name, CORBA_ENV) = 0;

 protected:
  ~ControlOperations() = default;
};

class Control : public virtual CORBA::Object, public virtual ControlOperations {
 public:
  static constexpr const char* repository_id = "IDL:Demo/Control:1.0";

  static Control* _nil() { return nullptr; }
  static Control* _duplicate(Control* p);
  static Control* _narrow(CORBA::Object* object);
};
using Control_ptr = Control*;
using Control_var = CORBA::ObjectVar<Control>;

class _st_Demo_Control : public virtual Control {
 public:
  void hold_ms(CORBA::ULong ms, CORBA_ENV) override;
  void discard_ms(CORBA::ULong ms, CORBA_ENV) override;
  void lifespan(const char* name, CORBA::Long seconds, CORBA_ENV) override;
  CORBA::Long incarnations(const char* name, CORBA_ENV) override;
  CORBA::Long alive(CORBA_ENV) override;
  void destroy_poa(const char* name, CORBA_ENV) override;
  void deactivate(const char* name, CORBA_ENV) override;
};

}  // namespace Demo

namespace POA_Demo {

class Control : public virtual PortableServer::ServantBase, public virtual Demo::ControlOperations {
 public:
  Control();
  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& env) override;
  Demo::Control* _this(CORBA_ENV);
};

}  // namespace POA_Demo

namespace Demo::control_rows {

using CORBA::idl::by_member::operation;

using hold_ms = operation<"hold_ms", &ControlOperations::hold_ms>;
using discard_ms = operation<"discard_ms", &ControlOperations::discard_ms>;
using lifespan = operation<"lifespan", &ControlOperations::lifespan>;
using incarnations = operation<"incarnations", &ControlOperations::incarnations>;
using alive = operation<"alive", &ControlOperations::alive>;
using destroy_poa = operation<"destroy_poa", &ControlOperations::destroy_poa>;
using deactivate = operation<"deactivate", &ControlOperations::deactivate>;

}  // namespace Demo::control_rows
