// Zrsvcpp: module CORBA of the C++ mapping. What a program includes; poa.h includes it too.
#pragma once

#include "corba/any.h"
#include "corba/detail/any_values.h"
#include "corba/detail/wire.h"
#include "corba/exception.h"
#include "corba/local_object.h"
#include "corba/messaging.h"
#include "corba/nvlist.h"
#include "corba/object.h"
#include "corba/orb.h"
#include "corba/policy.h"
#include "corba/request.h"
#include "corba/sequence.h"
#include "corba/server_request.h"
#include "corba/strings.h"
#include "corba/types.h"
