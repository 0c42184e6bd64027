// The one way in which the adapter reports a failure: trace the reason, store the exception in the caller's
// environment, throw a copy.
#pragma once

#include <memory>
#include <new>
#include <type_traits>

#include "base/minor_codes.h"
#include "base/trace.h"
#include "poa.h"

/// raise<PortableServer::POA::WrongPolicy>(ev, "POAInfo::activate_object [wrong policy.]").
/// System exceptions get the minor code (0x4B510007 unless another is given), completed NO. A null trace
/// writes no line.
template <class E>
[[noreturn]] void raise(CORBA::Environment& ev, const char* trace, CORBA::ULong minor = MINOR_BAD_PARAM) {
  if (trace) POA_TRACE("%s", trace);
  auto exception = std::make_unique<E>();
  if constexpr (std::is_base_of_v<CORBA::SystemException, E>) exception->minor(minor);
  E copy(*exception);
  ev.exception(exception.release());
  throw copy;
}

/// The same with a line before that tells the reason.
template <class E>
[[noreturn]] void raise(CORBA::Environment& ev, const char* reason, const char* trace,
                        CORBA::ULong minor = MINOR_BAD_PARAM) {
  POA_TRACE("%s", reason);
  raise<E>(ev, trace, minor);
}

/// Runs `work`; exceptions of the types Pass... go on unchanged, any other CORBA::Exception is traced with
/// `first` and replaced by an E raised with `last`.
template <class E, class... Pass, class Work>
auto replacing(CORBA::Environment& ev, const char* first, const char* last, Work&& work) -> decltype(work()) {
  try {
    return work();
  } catch (const CORBA::Exception& e) {
    if ((dynamic_cast<const Pass*>(&e) || ...)) throw;
    if (first) POA_TRACE("%s", first);
    raise<E>(ev, last);
  } catch (const std::bad_alloc&) {
    if (first) POA_TRACE("%s", first);
    raise<E>(ev, last);
  }
}

/// NO_MEMORY, which the environment has no copy of where there is no memory at all.
[[noreturn]] inline void raise_no_memory(CORBA::Environment& ev) {
  const CORBA::NO_MEMORY exception(MINOR_BAD_PARAM);
  try {
    ev.exception(exception._clone());
  } catch (const std::bad_alloc&) {
    ev.clear();
  }
  throw exception;
}

/// Runs `work`; memory that cannot be had is NO_MEMORY.
template <class Work>
auto with_memory(CORBA::Environment& ev, Work&& work) -> decltype(work()) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    raise_no_memory(ev);
  }
}
