// What the C++ mapping of an IDL file includes: the headers that poaidl generates start with it, so programs
// include those and nothing else. It brings the whole public interface of the libraries: module CORBA with its types,
// Any and TypeCode, and module PortableServer with the skeletons' base.
#pragma once

#include "corba.h"
#include "corba/detail/any_operators.h"
#include "corba/detail/describe.h"
#include "corba/detail/union.h"
#include "corba/standard_sequences.h"
#include "poa.h"
#include "poa/skeleton.h"
