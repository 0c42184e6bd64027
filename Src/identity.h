// Identities of the library's own objects (POAs, POA managers, the Current): 8 octets of reference data in
// host order. A number is given out once in a process and looked up in a table of live records; it is never
// an address.
#pragma once

#include <cstdint>
#include <cstring>

#include "corba.h"

using Identity = std::uint64_t;

/// A number not given out before; never 0.
Identity new_identity();

/// What reading an object's reference data came to.
enum class DataRead { whole, too_short, failed };

/// Copies the first `count` octets of an object's reference data to `octets`, which stay as they are when
/// there are fewer or when the ORB core reports an exception (nil object, reference of another process);
/// `env`, if given, then holds it.
DataRead read_reference_data(CORBA::Object* object, void* octets, std::uint32_t count,
                             CORBA_Environment* env = nullptr);

/// The identity in an object's reference data; 0 when the data cannot be read or is shorter.
/// `failed` (may be null) is set when the ORB core reported an exception, which is then in `*env`.
Identity read_identity(CORBA::Object* object, bool* failed = nullptr, CORBA_Environment* env = nullptr);

/// Reference data over a value's own octets: for the length of a call.
template <class Value>
struct ValueReferenceData {
  Value value;
  CORBA_sequence_octet sequence;
  explicit ValueReferenceData(Value v)
      : value(v), sequence{sizeof(Value), sizeof(Value), reinterpret_cast<unsigned char*>(&value)} {}
  ValueReferenceData(const ValueReferenceData&) = delete;
  ValueReferenceData& operator=(const ValueReferenceData&) = delete;
};

/// Writes the diagnostic line of an ORB core error to standard error: "!!!Exception\t%d/%d [%s(%d)]:\t%s\n"
/// with process id, thread, source, line and "CORBA_USER_EXCEPTION:\t%s(%d)" of the exception id and
/// `number`.
void report_core_exception(const char* source, int line, const CORBA_Environment& env, int number);
