// C++ mapping of echo.idl: the interface as clients see it, its servant base class, its stub.
//
// A pattern for an interface of your own: an operation is declared in EchoOperations, described by one row
// below, and overridden in the stub class by one line that names the row. The skeleton (echo_skel.cpp) lists
// the rows.
#pragma once

#include "poa.h"

namespace Demo {

class Refused : public CORBA::UserExceptionOf<Refused> {
 public:
  static constexpr const char* repository_id = "IDL:Demo/Refused:1.0";
  Refused() = default;
  Refused(const char* reason, CORBA::Long number) : why(reason), code(number) {}

  CORBA::String_var why;
  CORBA::Long code = 0;
};

using Octets = CORBA::OctetSeq;
using Octets_var = CORBA::OctetSeq_var;

/// The operations, which a stub and a servant share. Results are new and the caller's; arguments stay the
/// caller's.
class EchoOperations {
 public:
  virtual char* echo_string(const char* s, CORBA_ENV) = 0;
  virtual CORBA::Long add(CORBA::Long a, CORBA::Long b, CORBA_ENV) = 0;
  virtual Octets* echo_octets(const Octets& data, CORBA_ENV) = 0;
  /// Raises Refused.
  virtual void refuse(const char* why, CORBA::Long code, CORBA_ENV) = 0;
  virtual void note(const char* s, CORBA_ENV) = 0;
  virtual CORBA::Long notes(CORBA_ENV) = 0;
  virtual char* who(CORBA_ENV) = 0;
  virtual void sleep_ms(CORBA::ULong ms, CORBA_ENV) = 0;

 protected:
  ~EchoOperations() = default;
};

/// A reference to an Echo object.
class Echo : public virtual CORBA::Object, public virtual EchoOperations {
 public:
  static constexpr const char* repository_id = "IDL:Demo/Echo:1.0";

  static Echo* _nil() { return nullptr; }
  static Echo* _duplicate(Echo* p);
  /// Asks the object for its interface, by a call where its reference does not tell; nil when it is another
  /// one.
  static Echo* _narrow(CORBA::Object* object);
};
using Echo_ptr = Echo*;
using Echo_var = CORBA::ObjectVar<Echo>;

class _st_Demo_Echo : public virtual Echo {
 public:
  char* echo_string(const char* s, CORBA_ENV) override;
  CORBA::Long add(CORBA::Long a, CORBA::Long b, CORBA_ENV) override;
  Octets* echo_octets(const Octets& data, CORBA_ENV) override;
  void refuse(const char* why, CORBA::Long code, CORBA_ENV) override;
  void note(const char* s, CORBA_ENV) override;
  CORBA::Long notes(CORBA_ENV) override;
  char* who(CORBA_ENV) override;
  void sleep_ms(CORBA::ULong ms, CORBA_ENV) override;
};

}  // namespace Demo

namespace POA_Demo {

/// Base of the servants of Demo::Echo.
class Echo : public virtual PortableServer::ServantBase, public virtual Demo::EchoOperations {
 public:
  Echo();
  CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& env) override;
  /// In an operation of this servant the reference of the object that was called, else of the object that the
  /// servant is, or with implicit activation becomes, in its default POA. The caller releases it.
  Demo::Echo* _this(CORBA_ENV);
};

}  // namespace POA_Demo

/// How the members of Refused travel.
template <>
struct CORBA::idl::Wire<Demo::Refused> {
  static bool move(CDR* cdr, Demo::Refused& e) {
    return Wire<char*>::move(cdr, e.why.inout()) && Wire<Long>::move(cdr, e.code);
  }
};

/// One row an operation; stub and skeleton come from it.
namespace Demo::echo_rows {

using CORBA::idl::by_member::operation;
using CORBA::idl::by_member::raises;

using echo_string = operation<"echo_string", &EchoOperations::echo_string>;
using add = operation<"add", &EchoOperations::add>;
using echo_octets = operation<"echo_octets", &EchoOperations::echo_octets>;
using refuse = operation<"refuse", &EchoOperations::refuse, raises<Refused>>;
using note = operation<"note", &EchoOperations::note, raises<>, true>;
using notes = operation<"notes", &EchoOperations::notes>;
using who = operation<"who", &EchoOperations::who>;
using sleep_ms = operation<"sleep_ms", &EchoOperations::sleep_ms>;

}  // namespace Demo::echo_rows
