// The request that a servant sees (CORBA, "Dynamic Skeleton Interface").
#pragma once

#include "corba/nvlist.h"

namespace CORBA {

/// A request in progress. Wraps the ORB core's record, which outlives it; used on the thread of the upcall
/// only. Servants with a skeleton need none of this; dynamic ones read the arguments and set the result or
/// the exception, in the standard's order: arguments(), then set_result() or set_exception().
///
///   class Doubling : public PortableServer::DynamicImplementation {
///     void invoke(CORBA::ServerRequest_ptr request) override {
///       CORBA::NVList_ptr list = new CORBA::NVList;  // arguments() takes it over
///       CORBA::Any* amount = list->add(CORBA::ARG_IN)->value();
///       amount->replace(CORBA::_tc_long, nullptr);
///       request->arguments(list);
///       CORBA::Long number = 0;
///       *amount >>= number;
///       CORBA::Any result;
///       result <<= CORBA::Long(2 * number);
///       request->set_result(result);
///     }
///   };
class ZRSVCPP_API ServerRequest : public virtual Object {
 public:
  static ServerRequest* _nil() { return nullptr; }
  /// A fresh, detached request object; nil for nil. Only what the library hands to `invoke` refers to a request.
  static ServerRequest* _narrow(Object* object);
  ServerRequest() = default;
  /// Detaches: the record is the ORB core's.
  ~ServerRequest() override;

  /// The operation's name, in place: good until the upcall ends. "_get_NAME" and "_set_NAME" for attributes.
  const char* operation() const { return info()->operation; }
  /// Whether a client waits; what is said of a result is dropped else.
  Boolean response_expected() const { return info()->response_expected; }
  /// The ORB core's request (zrsv/request.h).
  void* request_handle() const { return info()->request; }

  /// Decodes the in and inout arguments by the TypeCodes of `list` and fills its values; `list` is taken
  /// over, one count of it. MARSHAL when the octets do not fit; BAD_INV_ORDER when called twice.
  void arguments(NVList* list, CORBA_ENV);
  /// The result, copied. BAD_INV_ORDER before arguments() or after set_exception().
  void set_result(const Any& value, CORBA_ENV);
  /// A user or system exception, copied: the reply, whatever was said of a result. Before arguments() as well, and
  /// the last one counts. BAD_PARAM when `value` holds none. CORBA::any_insert_exception (corba/detail/any_values.h)
  /// puts a user exception into an Any that no generated code has an operator for.
  void set_exception(const Any& value, CORBA_ENV);
  /// The same with a system exception at hand.
  void set_exception(const SystemException& exception, CORBA_ENV);

  struct Dynamic;  // what a dynamic servant has said so far
  Dynamic* dynamic() const { return dynamic_; }

 private:
  ZR_RequestInfo* info() const { return static_cast<ZR_ServerRequest*>(_ptr)->info; }
  Dynamic* dynamic_ = nullptr;
};
using ServerRequest_ptr = ServerRequest*;

}  // namespace CORBA

/// Writes the reply of a dynamic servant: the exception it set, or the result and the out arguments; a void
/// result when it set nothing. `request` is the ORB core's server request record. Nothing when the request
/// was served otherwise.
ZRSVCPP_API void OM_CORBA_ServerRequest_dsi_complete_cpp(void* request);
