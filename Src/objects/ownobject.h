// The library's own objects (POAs, POA managers, the Current, policies): references of the ORB core whose
// reference data is a value in host order. Of POAs, managers and the Current it is an identity: given out once
// in a process and looked up in a table of live records, never an address. Of a policy it is its tag.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "corba.h"

using Identity = std::uint64_t;

/// A number not given out before; never 0.
Identity new_identity();

// ---- Making ----

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

/// The one place that asks the ORB core for a new reference. Null when it makes none; what it raised is in
/// `*core`.
void* create_reference_handle(const CORBA_sequence_octet* reference_data, const char* impl_name,
                              const char* intf_name, CORBA_Environment* core);

/// Whether the ORB core had no memory for what it was asked.
bool is_no_memory(const CORBA_Environment& core);

/// A new Impl with a reference of that value and repository id; the caller owns it. Null when the ORB core
/// makes no reference; std::bad_alloc without memory.
template <class Impl, class Value>
Impl* own_object(Value value, const char* repository_id) {
  ValueReferenceData<Value> data(value);
  CORBA::Environment core;
  auto object = std::make_unique<Impl>();
  void* handle = create_reference_handle(&data.sequence, repository_id, repository_id, core._evp);
  if (!handle && is_no_memory(*core._evp)) throw std::bad_alloc();
  if (!handle) return nullptr;
  object->set_ref(handle);
  return object.release();
}

// ---- Reading ----

/// What reading an object's reference data came to.
enum class DataRead { whole, too_short, failed };

/// Copies the first `count` octets of an object's reference data to `octets`, which stay as they are when
/// there are fewer or when the ORB core reports an exception (nil object, reference of another process);
/// `core`, if given, then holds it.
DataRead read_reference_data(CORBA::Object* object, void* octets, std::uint32_t count,
                             CORBA_Environment* core = nullptr);

/// The identity in an object's reference data; 0 when the data cannot be read or is shorter.
/// `failed` (may be null) is set when the ORB core reported an exception, which is then in `*core`.
Identity read_identity(CORBA::Object* object, bool* failed = nullptr, CORBA_Environment* core = nullptr);

/// Writes the diagnostic line of an ORB core error to standard error: "!!!Exception\t%d/%d [%s(%d)]:\t%s\n"
/// with process id, thread, source, line and "CORBA_USER_EXCEPTION:\t%s(%d)" of the exception id and
/// `number`.
void report_core_exception(const char* source, int line, const CORBA_Environment& core, int number);
