// How a failing operation reports: it throws, and stores the same in the environment.
#pragma once

#include <gtest/gtest.h>

#include <type_traits>
#include <typeinfo>

#include "corba.h"

/// `fn(ev)` throws exactly an E, with that minor code if it is a system exception, and leaves an exception
/// of the same type, id and minor code in `ev`. Gives the exception thrown.
template <class E, class Fn>
E expect_raised(Fn&& fn, CORBA::ULong minor = 0x4B510007) {
  constexpr bool is_system = std::is_base_of_v<CORBA::SystemException, E>;
  CORBA::Environment ev;
  try {
    fn(ev);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const E& thrown) {
    const CORBA::Exception* stored = ev.exception();
    EXPECT_TRUE(stored && typeid(thrown) == typeid(E) && typeid(*stored) == typeid(E)) << thrown.id();
    if (!stored) return thrown;
    EXPECT_STREQ(stored->id(), thrown.id());
    EXPECT_EQ(ev._evp->_major, uint32_t{is_system ? CORBA_SYSTEM_EXCEPTION : CORBA_USER_EXCEPTION});
    if constexpr (is_system) {
      EXPECT_EQ(thrown.minor(), minor);
      EXPECT_EQ(static_cast<const E*>(stored)->minor(), minor);
    }
    return thrown;
  } catch (const CORBA::Exception& other) {
    ADD_FAILURE() << "thrown was " << other.id() << " (" << typeid(other).name() << ")";
  }
  return E();
}
