// The ORB of the test program.
#pragma once

#include "corba.h"

/// Made on first use, destroyed after the last test.
CORBA::ORB_ptr orb();
