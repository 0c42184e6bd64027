// Stub classes.
#pragma once
#include "poa/interfaces.h"
