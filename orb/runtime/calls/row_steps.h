// The steps of a stub that other forms of calls take, too.
#pragma once

#include "corba/detail/row.h"

namespace CORBA::idl {

/// Encodes the in and inout arguments; false when one does not fit.
bool encode_in(CDR* cdr, const OperationInfo& operation, void* const* slots);
/// Decodes the result, the inout and the out arguments. MARSHAL, NO_MEMORY.
void read_out(CDR* cdr, const OperationInfo& operation, void* const* slots, Environment& ev);
/// Throws the user exception that the reply holds, UNKNOWN for one that the operation does not list.
[[noreturn]] void throw_listed(void* request, CDR* cdr, const OperationInfo& operation, Environment& ev);
/// Null for one that is not listed, and for null.
const ListedException* find_listed(const ExceptionList& list, const char* id);

}  // namespace CORBA::idl
