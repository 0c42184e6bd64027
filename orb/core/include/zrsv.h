/* ZRSV: the ORB core. Umbrella over its C interface; see the headers below for contracts. */
#ifndef ZRSV_H
#define ZRSV_H

#include "zrsv/base.h"
#include "zrsv/boa.h"
#include "zrsv/cdr.h"
#include "zrsv/leftovers.h"
#include "zrsv/reference.h"
#include "zrsv/request.h"

#endif
