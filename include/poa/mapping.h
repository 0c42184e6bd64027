// What the C++ mapping of an IDL file includes.
#pragma once

#include "corba.h"
#include "corba/any_operators.h"
#include "corba/describe.h"
#include "corba/standard_sequences.h"
#include "corba/union.h"
#include "poa.h"
#include "poa/skeleton.h"
