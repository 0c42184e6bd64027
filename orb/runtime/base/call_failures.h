// What becomes of calls that end without a result: the environment is filled from the ORB core's reason, and thrown.
#pragma once

#include "corba/object.h"

namespace CORBA::idl {

/// Records that a value did not fit the stream.
void set_marshal(const CDR* cdr, std::uint32_t completed, Environment& ev);
/// The same, thrown.
[[noreturn]] void fail_marshal(const CDR* cdr, std::uint32_t completed, Environment& ev);
[[noreturn]] void fail_request(std::uint32_t completed, Environment& ev);
/// No memory for what the reply holds.
[[noreturn]] void fail_memory(Environment& ev);
/// The reply holds a system exception.
[[noreturn]] void throw_reply_exception(void* request, Environment& ev);
/// The reply forwards: records the new location for `self`; `ev` then has _major 3.
void follow_forward(Object* self, CDR* cdr, Environment& ev);

}  // namespace CORBA::idl
