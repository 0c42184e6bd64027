// CORBA::Any, CORBA::TypeCode and named value lists.
#pragma once

#include "corba/object.h"

namespace CORBA {

enum TCKind : ULong {
  tk_null = 0, tk_void = 1, tk_short = 2, tk_long = 3, tk_ushort = 4, tk_ulong = 5, tk_float = 6, tk_double = 7,
  tk_boolean = 8, tk_char = 9, tk_octet = 10, tk_any = 11, tk_TypeCode = 12, tk_Principal = 13, tk_objref = 14,
  tk_struct = 15, tk_union = 16, tk_enum = 17, tk_string = 18, tk_sequence = 19, tk_array = 20, tk_alias = 21,
  tk_except = 22, tk_longlong = 23, tk_ulonglong = 24
};

class TypeCode;
class Any;
class NVList;
using TypeCode_ptr = TypeCode*;
using NVList_ptr = NVList*;

}  // namespace CORBA
