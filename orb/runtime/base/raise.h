// How this library raises exceptions.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "corba/exception.h"

namespace CORBA {

/// Stores a new E, made from `arguments`, in the caller's environment and throws a copy.
template <class E, class... Arguments>
[[noreturn]] void raise(Environment& ev, Arguments... arguments) {
  const E exception(arguments...);
  ev.exception(new E(exception));
  throw exception;
}

/// Raises what a call of the ORB core left in `filled`, which is emptied.
[[noreturn]] inline void raise_record(CORBA_Environment& filled, Environment& ev) {
  ev.set_ref(&filled);
  raise_environment(ev);
}

/// Raises it when the call failed at all.
inline void check_record(CORBA_Environment& filled, Environment& ev) {
  if (filled._major != CORBA_NO_EXCEPTION) raise_record(filled, ev);
}

/// The name in the repository id (either form) of a standard system exception; "" when `id` is none.
std::string_view standard_exception_name(std::string_view id);

/// A new exception of the type that `id` (either form) names; null when it names no standard system
/// exception.
std::unique_ptr<SystemException> make_standard_exception(std::string_view id, ULong minor,
                                                         CompletionStatus status);

}  // namespace CORBA
