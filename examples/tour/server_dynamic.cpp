#include "server_dynamic.h"

#include <chrono>
#include <string_view>
#include <thread>

namespace {

/// A request whose arguments were read.
struct Call {
  CORBA::ServerRequest& request;
  CORBA::NVList& arguments;
  Shared& shared;

  template <class T>
  T argument(CORBA::ULong index) const {
    T value{};
    if (!(*arguments.item(index)->value() >>= value)) throw CORBA::MARSHAL();
    return value;
  }
  template <class T>
  void answer(const T& value) const {
    CORBA::Any result;
    result <<= value;
    request.set_result(result);
  }
};

CORBA::TypeCode_ptr octets_type() {
  static const CORBA::TypeCode_var type = CORBA::TypeCode::create_sequence_tc(0, CORBA::_tc_octet);
  return type;
}

void echo_string(const Call& call) { call.answer(call.argument<const char*>(0)); }

void add(const Call& call) {
  const auto sum = static_cast<CORBA::ULong>(call.argument<CORBA::Long>(0)) +
                   static_cast<CORBA::ULong>(call.argument<CORBA::Long>(1));
  call.answer(static_cast<CORBA::Long>(sum));
}

void echo_octets(const Call& call) { call.request.set_result(*call.arguments.item(0)->value()); }

void refuse(const Call& call) {
  CORBA::Any exception;
  exception <<= Demo::Refused(call.argument<const char*>(0), call.argument<CORBA::Long>(1));
  call.request.set_exception(exception);
}

void note(const Call& call) { call.shared.add_note(called_object()); }
void notes(const Call& call) { call.answer(call.shared.notes(called_object())); }
void who(const Call& call) { call.answer(called_object().c_str()); }

void sleep_ms(const Call& call) {
  std::this_thread::sleep_for(std::chrono::milliseconds(call.argument<CORBA::ULong>(0)));
}

struct Operation {
  std::string_view name;
  void (*run)(const Call& call);
  std::vector<CORBA::TypeCode_ptr> arguments;
};

const Operation* find(std::string_view name) {
  static const Operation operations[] = {
      {"echo_string", echo_string, {CORBA::_tc_string}},
      {"add", add, {CORBA::_tc_long, CORBA::_tc_long}},
      {"echo_octets", echo_octets, {octets_type()}},
      {"refuse", refuse, {CORBA::_tc_string, CORBA::_tc_long}},
      {"note", note, {CORBA::_tc_string}},
      {"notes", notes, {}},
      {"who", who, {}},
      {"sleep_ms", sleep_ms, {CORBA::_tc_ulong}},
  };
  for (const Operation& operation : operations) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

/// Reads the arguments. The request keeps them.
CORBA::NVList& read_arguments(CORBA::ServerRequest& request, const Operation& operation) {
  auto list = std::make_unique<CORBA::NVList>();
  CORBA::NVList& read = *list;
  for (CORBA::TypeCode_ptr type : operation.arguments) {
    CORBA::Any of_type;
    of_type.replace(type, nullptr, 0);
    list->add_value("", of_type, CORBA::ARG_IN);
  }
  request.arguments(list.release());
  return read;
}

}  // namespace

void DynamicEcho::invoke(CORBA::ServerRequest_ptr request) {
  const Operation* operation = find(request->operation());
  if (!operation) throw CORBA::BAD_OPERATION();
  operation->run({*request, read_arguments(*request, *operation), shared_});
}
