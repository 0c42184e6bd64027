// Asynchronous calls (CORBA Messaging, "Asynchronous Method Invocation"): what poaidl --async makes of operations
// stands on this. A call is sent and goes on without a thread; its reply is taken by a thread of the library. Programs
// name Messaging::ExceptionHolder of all this, and call the functions that the generated code has:
//
//   std::future<CORBA::Long> later = account->async_get_balance();
//   balance = later.get();  // waits, and throws what the call ended with
#pragma once

#include "corba/detail/row.h"

namespace CORBA {
class ExceptionList;
}  // namespace CORBA

namespace Messaging {

/// The exception that a call ended with, as its reply handler gets it. Counted, as local objects are; used by one
/// thread at a time. What a handler's f_excep gets is the library's, and good for the length of the call.
///
///   void report(Messaging::ExceptionHolder* holder) {
///     try {
///       holder->raise_exception();
///     } catch (const Bank::Overdrawn& e) {
///       std::cout << e.missing << " are missing" << std::endl;
///     } catch (const CORBA::SystemException& e) {
///       std::cerr << e << std::endl;
///     }
///   }
class ZRSVCPP_API ExceptionHolder : public virtual CORBA::LocalObject {
 public:
  static ExceptionHolder* _nil() { return nullptr; }
  static ExceptionHolder* _duplicate(ExceptionHolder* p) { return CORBA::idl::duplicate_local(p); }
  /// Made by the library: of an exception, which is UNKNOWN where `listed` does not have it, and for one that is to be
  /// decoded.
  ExceptionHolder(const CORBA::Exception& exception, const CORBA::idl::ExceptionList& listed);
  explicit ExceptionHolder(const CORBA::idl::ExceptionList& listed) : listed_(listed) {}
  ~ExceptionHolder() override;

  /// Throws it: a system exception, or a user exception of the operation. As often as one likes; MARSHAL where it does
  /// not decode.
  [[noreturn]] void raise_exception();
  /// The same; a user exception that the list has as an UnknownUserException. Others are UNKNOWN.
  [[noreturn]] void raise_exception_with_list(CORBA::ExceptionList* exceptions);

  /// Of the library: as it travels, by the stream's direction.
  bool _move(CDR* cdr);

 private:
  CDR reader() const;
  [[noreturn]] void raise_system(CDR& cdr, const char* id) const;

  bool is_system_ = true;
  bool little_endian_ = false;
  CORBA::OctetSeq octets_;
  CORBA::idl::ExceptionList listed_;
};
using ExceptionHolder_ptr = ExceptionHolder*;
using ExceptionHolder_var = CORBA::ObjectVar<ExceptionHolder>;

}  // namespace Messaging
