// Calls that are put together at run time (CORBA, "Dynamic Invocation Interface"): for bridges, scripts and tools that
// know an interface only when they run, and for calls whose reply is wanted later. For a call of a known interface the
// reference class of the generated code is shorter and faster.
#pragma once

#include "corba/nvlist.h"
#include "corba/orb.h"

namespace CORBA {

class CoreRequest;

/// A user exception that a dynamic call ended with: one of those that the request lists. Found in the request's env().
///
///   const auto* user = CORBA::UnknownUserException::_downcast(request->env()->exception());
///   const Bank::Overdrawn* overdrawn = nullptr;
///   if (user && (user->exception() >>= overdrawn)) std::cout << overdrawn->missing << std::endl;
class ZRSVCPP_API UnknownUserException : public UserExceptionOf<UnknownUserException> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/CORBA/UnknownUserException:1.0";
  UnknownUserException() = default;
  explicit UnknownUserException(const Any& value) : exception_(value) {}
  /// The exception, to be taken out with >>=.
  Any& exception() { return exception_; }
  const Any& exception() const { return exception_; }

 private:
  Any exception_;
};

/// The types of the user exceptions that a request may end with. One that is not listed ends it with UNKNOWN. Counted
/// as local objects are; belongs to one thread at a time. System exceptions need no list.
///
///   request->exceptions()->add(Bank::_tc_Overdrawn);
class ZRSVCPP_API ExceptionList : public virtual LocalObject {
 public:
  ~ExceptionList() override;
  static ExceptionList* _nil() { return nullptr; }
  static ExceptionList* _duplicate(ExceptionList* p) { return idl::duplicate_local(p); }

  /// How many types there are.
  ULong count() const { return static_cast<ULong>(types_.size()); }
  /// Counts the type once more; add_consume takes it over, whatever happens. BAD_PARAM for nil; a type that is no exception's
  /// lists nothing.
  void add(TypeCode* type, CORBA_ENV);
  void add_consume(TypeCode* type, CORBA_ENV);
  /// A new reference. Bounds for an index at or past the count.
  TypeCode* item(ULong index, CORBA_ENV) const;
  /// Those behind it move up; the type is released. Bounds as above.
  void remove(ULong index, CORBA_ENV);

 private:
  std::vector<TypeCode_var> types_;
};
using ExceptionList_ptr = ExceptionList*;
using ExceptionList_var = ObjectVar<ExceptionList>;

/// One call, made by Object::_request or _create_request. The arguments are added in the order of the IDL, each with
/// its type: that of the value put in, or `replace(type, nullptr)` for what comes back.
///
///   CORBA::Request_var request = account->_request("deposit");
///   request->add_in_arg() <<= CORBA::Long(100);
///   request->set_return_type(CORBA::_tc_long);
///   request->invoke();
///   request->return_value() >>= balance;
///
/// System exceptions are thrown, and kept in env(). A user exception that exceptions() lists is kept there as an
/// UnknownUserException, and not thrown; another one is UNKNOWN. A request belongs to one thread at a time and may be
/// sent again. Objects of the library itself (POAs and the like) answer NO_IMPLEMENT.
class ZRSVCPP_API Request : public virtual LocalObject {
 public:
  /// `arguments`, `result` and `exceptions` are counted once more; null for new ones.
  Request(Object* target, const char* operation, NVList* arguments = nullptr, NamedValue* result = nullptr,
          ExceptionList* exceptions = nullptr);
  ~Request() override;
  static Request* _nil() { return nullptr; }
  static Request* _duplicate(Request* p) { return idl::duplicate_local(p); }

  /// All are the request's own, and good as long as it is. What the call ended with is in env(), empty where it went
  /// well; the list and the result may be filled before the call and are read after it.
  Object* target() const { return target_.in(); }
  const char* operation() const { return operation_.in(); }
  NVList* arguments() const { return arguments_.in(); }
  NamedValue* result() const { return result_.in(); }
  ExceptionList* exceptions() const { return exceptions_.in(); }
  Environment* env() { return &env_; }

  /// Append an argument, and give its value: to be put in with <<=, or, where it comes back, to be given its type by
  /// `replace(type, nullptr)`. It stays the request's.
  Any& add_in_arg(const char* name = "") { return *arguments_->add_item(name, ARG_IN)->value(); }
  Any& add_inout_arg(const char* name = "") { return *arguments_->add_item(name, ARG_INOUT)->value(); }
  Any& add_out_arg(const char* name = "") { return *arguments_->add_item(name, ARG_OUT)->value(); }
  /// The type of the result, which is void unless it is said. The type is counted once more. BAD_TYPECODE for nil.
  void set_return_type(TypeCode* type) { return_value().replace(type, nullptr); }
  /// What the call gave, after its end, still the request's.
  Any& return_value() const { return *result_->value(); }

  /// Sends the call and waits for its end. MARSHAL for an argument that has a type and no value (completed NO), and for
  /// results that do not fit the types that were said (completed YES). A user exception that is not listed is UNKNOWN
  /// (OMGVMCID | 1). BAD_INV_ORDER (OMGVMCID | 10) while the request is under way.
  void invoke();
  /// Sends it, and nobody will hear of its end, nor of results. What keeps it from being sent is thrown.
  void send_oneway();
  /// Sends it and returns. It goes on without a thread of the program; its time limit runs. BAD_INV_ORDER while it is
  /// under way, as for the two above. The request has to live until its reply was taken; one that ends before drops it.
  ///
  ///   request->send_deferred();
  ///   balance = account->balance();  // meanwhile
  ///   request->get_response();       // waits
  void send_deferred();
  /// Whether get_response would not wait. Both: BAD_INV_ORDER (OMGVMCID | 11) when the call was not sent by
  /// send_deferred.
  Boolean poll_response();
  /// Waits for its end, and ends as invoke() does. Again: the same.
  void get_response();

  /// Of the library: the call under way, or null; takes its reply, with what it ends with in env().
  void* _sent() const;
  void _finish() noexcept;

 private:
  CoreRequest* encode(bool response_expected);
  bool take_reply(const CoreRequest& call);
  void refuse_while_sent() const;
  void read_results(CDR* cdr);
  void read_user_exception(void* request, CDR* cdr);

  Object_var target_;
  const String_var operation_;
  NVList_var arguments_;
  NamedValue_var result_;
  ExceptionList_var exceptions_;
  Environment env_;
  CoreRequest* sent_ = nullptr;  // owned, while a deferred call is under way
  bool taken_ = false;           // the reply of one was taken
};
using Request_ptr = Request*;
using Request_var = ObjectVar<Request>;

/// Requests for ORB::send_multiple_requests_oneway and _deferred: an element owns its reference, and a plain pointer
/// that is assigned is taken over.
///
///   CORBA::RequestSeq several;
///   several.length(2);
///   several[0] = account->_request("_get_balance");
///   several[1] = account->_request("_get_balance");
///   orb->send_multiple_requests_deferred(several);
///   CORBA::Request_var first;
///   orb->get_next_response(first.out());  // whichever has its reply first
class RequestSeq : public Sequence<Request_var> {
 public:
  using Sequence::Sequence;
};

}  // namespace CORBA
