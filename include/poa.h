// Module PortableServer of the C++ mapping: what a server program includes.
#pragma once

#include "poa/disconnect.h"
#include "poa/implementation.h"
#include "poa/interfaces.h"
#include "poa/servant.h"
#include "poa/standard_managers.h"
#include "poa/stubs.h"
#include "poa/types.h"
