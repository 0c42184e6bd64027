// Rows of the interfaces that the libraries themselves serve (POAs, managers, policies), by operation tables of the ORB
// core: such an object may be called without a message when it is of this process, and its stub has the IIOP part as an
// operation of its own. Rows of IDL files are plain ones (corba/detail/row.h).
#pragma once

#include "corba/detail/row.h"

namespace CORBA::idl {

/// A request, completed on every way out.
class ZRSVCPP_API OwnRequest {
 public:
  /// Throws what keeps it from being made: INV_OBJREF for an object without a handle, and the like.
  OwnRequest(Object* self, const OperationInfo& operation, Environment& ev);
  ~OwnRequest();
  OwnRequest(const OwnRequest&) = delete;
  OwnRequest& operator=(const OwnRequest&) = delete;

  /// The ORB core's request, still this one's.
  void* get() const { return request_; }
  /// The direct skeleton of the operation; null when the call goes over IIOP.
  ZR_method method(Environment& ev) const;

 private:
  void* request_ = nullptr;
  std::uint32_t kind_ = 0;
};

/// One exchange over IIOP. False: it was forwarded, and `ev` has _major 3. A user exception that the operation
/// does not list is left in `ev`.
ZRSVCPP_API bool call_iiop(Object* self, void* request, bool response_expected,
                           const OperationInfo& operation, void* const* slots, Environment& ev);

/// The row: an operation whose stub looks for the direct skeleton first.
template <class Class, class Signature>
struct own_operation;
template <class Class, class R, class... A>
struct own_operation<Class, R(A...)> : operation<Class, R(A...)> {
  using Row = operation<Class, R(A...)>;
  using Row::Row;
  using typename Row::Return;
  using Method = Return (*)(typename A::type..., Environment&);

  /// The stub: over IIOP, location forwards followed, or by the direct skeleton.
  Return operator()(Object* self, typename A::type... argument, Environment& ev) const {
    ev.clear();
    for (;;) {
      const OwnRequest request(self, *this, ev);
      if (const ZR_method method = request.method(ev))
        return reinterpret_cast<Method>(method)(static_cast<typename A::type>(argument)..., ev);
      typename Row::Result::Holder result;
      void* const slots[] = {result.slot(), A::address(argument)...};
      if (call_iiop(self, request.get(), !this->oneway, *this, slots, ev)) return result.give();
      ev.clear();
    }
  }
  /// The IIOP part of such a call: the caller made `request` and completes it.
  Return iiop(Object* self, void* request, bool response_expected, typename A::type... argument,
              Environment& ev) const {
    typename Row::Result::Holder result;
    void* const slots[] = {result.slot(), A::address(argument)...};
    call_iiop(self, request, response_expected, *this, slots, ev);
    return result.give();
  }
  /// The direct skeleton: the operation of a fresh, unattached Implementation.
  template <const auto& Row, class Implementation>
  static Return in_process(typename A::type... argument, Environment& ev) {
    Implementation implementation;
    return (implementation.*Row.with_environment)(static_cast<typename A::type>(argument)..., ev);
  }
};

/// The direct skeleton of a row as an operation table has it: untyped, called as Method.
template <const auto& Row, class Implementation>
ZR_method in_process_skeleton() {
  using Operation = std::remove_cvref_t<decltype(Row)>;
  const typename Operation::Method method = &Operation::template in_process<Row, Implementation>;
  return reinterpret_cast<ZR_method>(method);
}

}  // namespace CORBA::idl
