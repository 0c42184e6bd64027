// Minor codes that the adapter sets: the vendor set 0x4B51.
#pragma once

#include "corba.h"

inline constexpr CORBA::ULong MINOR_ID_RANGE = 0x4B510000;    // ObjectId string conversion out of range
inline constexpr CORBA::ULong MINOR_TABLE_FULL = 0x4B510001;  // implementation table full
inline constexpr CORBA::ULong MINOR_BAD_PARAM =
    0x4B510007;  // bad parameter, unknown record, failed ORB core call
inline constexpr CORBA::ULong MINOR_DISCARDING = 0x4B510301;  // POA manager is discarding
inline constexpr CORBA::ULong MINOR_NO_MANAGER =
    0x4B510302;  // servant manager missing or of the wrong kind, nil or clashing servant
inline constexpr CORBA::ULong MINOR_MANAGER_SET =
    0x4B510303;  // servant manager set twice, or binding refused
inline constexpr CORBA::ULong MINOR_BIND_FAILED = 0x4B510304;   // other binding failure
inline constexpr CORBA::ULong MINOR_QUEUE_FULL = 0x4B510305;    // request ring full
inline constexpr CORBA::ULong MINOR_NO_OPERATION = 0x4B510306;  // the servant's invoke answered false
