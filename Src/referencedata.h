// Reference data of the references that POAs make for servants: which POA, which object.
//
//   data      = ulong N, name part of N octets, zero octets up to a multiple of 4,
//               ulong id assignment policy tag, ulong M, object id of M octets
//   name part = adapter names, innermost first and without the root's, one 0xFF between two, a NUL at the end
//   ulong     = 32 bits, little-endian
#pragma once

#include <array>
#include <string_view>

#include "poa/types.h"

/// The octets of an id, in place.
inline std::string_view oid_view(const PortableServer::ObjectId& oid) {
  return {reinterpret_cast<const char*>(oid.get_buffer()), oid.length()};
}

/// A new id with these octets, owned by the caller; std::bad_alloc without memory.
PortableServer::ObjectId* make_oid(std::string_view octets);

/// The first four octets of an id as trace lines print them; 0 for those it lacks.
std::array<unsigned, 4> trace_octets(std::string_view oid);

/// Reference data read in place: the views live as long as the octets.
struct ReferenceDataView {
  std::string_view name_part;      // N octets, the NUL included; empty for N = 0, which no POA writes
  CORBA::ULong id_assignment = 0;  // policy tag
  std::string_view object_id;

  /// The path of the POA: the name part up to its NUL. Empty for the root POA.
  std::string_view path() const { return name_part.substr(0, name_part.find('\0')); }
  /// False, and nothing to be read from the views, when the data ends before what it claims.
  bool parse(const unsigned char* data, CORBA::ULong length);
  /// The data of a reference, which it then is a view of; false also when the reference has none or is not of
  /// this process.
  bool read(CORBA::Object* reference);
};

/// When an id was made, as its unique form prints it.
struct SystemIdTime {
  CORBA::ULong seconds = 0;  // since 1970
  CORBA::ULong millisecond = 0;
};
/// The time for the next id: `now`, or the millisecond after `last` when the clock has not moved past that.
SystemIdTime next_system_id_time(const SystemIdTime& last, const SystemIdTime& now);

inline constexpr CORBA::ULong UNIQUE_ID_LENGTH = 36;
/// "P%08xT%08x.%08xC%08x" of process, time and a constant, with its NUL.
void print_unique_id(char (&text)[UNIQUE_ID_LENGTH + 1], CORBA::ULong process, const SystemIdTime& time);
