// Reference data of the references that POAs make for servants: which POA, which object.
//
//   data      = ulong N, name part of N octets, zero octets up to a multiple of 4,
//               ulong id assignment policy tag, ulong M, object id of M octets
//   name part = adapter names, innermost first and without the root's, one 0xFF between two, a NUL at the end
//   ulong     = 32 bits, little-endian
#pragma once

#include <optional>
#include <string_view>

#include "poa/types.h"

/// Upper bounds.
inline constexpr CORBA::ULong NAME_PART_MAXIMUM = 1024;
inline constexpr CORBA::ULong REFERENCE_DATA_MAXIMUM = 2056;
inline constexpr const char* poa_seperator = "\xFF";

// ---- Writing ----

/// Appends to a sequence whose maximum and buffer the caller has set. Each answers false when there is no room.
class SequenceWriter {
 public:
  explicit SequenceWriter(CORBA_sequence_octet& target) : target_(target) {}
  bool put(std::string_view octets);
  bool put_word(CORBA::ULong value);
  /// Zero octets up to a multiple of 4.
  bool pad();
  CORBA::ULong used() const { return used_; }
  /// Sets the sequence's length; true.
  bool finish();

 private:
  CORBA_sequence_octet& target_;
  CORBA::ULong used_ = 0;
};

/// Writes the data of an object; false when there is no room.
bool createPOAReferenceData(CORBA_sequence_octet* data, const CORBA_sequence_octet* name_part,
                            CORBA::ULong id_assignment, const PortableServer::ObjectId& oid);

// ---- Reading ----

/// Reference data read in place: the views live as long as the octets.
struct ReferenceDataView {
  std::string_view name_part;      // N octets, the NUL included; empty for N = 0, which no POA writes
  CORBA::ULong id_assignment = 0;  // policy tag
  std::string_view object_id;

  /// The path of the POA: the name part up to its NUL. Empty for the root POA.
  std::string_view path() const { return name_part.substr(0, name_part.find('\0')); }
  /// False, and nothing to be read from the views, when the data ends before what it claims.
  bool parse(const unsigned char* data, CORBA::ULong length);
  /// Of a part of such data, from the length of the object id on: reads that alone.
  bool parse_id(std::string_view rest);
  /// The data of a reference, which it then is a view of; false also when the reference has none or is not of
  /// this process.
  bool read(CORBA::Object* reference);
};

/// POA names of a path, outermost first: the path lists them innermost first.
class PathNames {
 public:
  explicit PathNames(std::string_view path) : rest_(path) {}
  std::optional<std::string_view> next();

 private:
  std::string_view rest_;
  bool done_ = false;
};

/// Stores a new id through `oid`, null without memory; BAD_PARAM when the data ends before what it claims.
void GetOid(const CORBA_sequence_octet* data, PortableServer::ObjectId*& oid, CORBA::Environment& ev);

/// Its trace lines, where the id is known.
void trace_get_oid(std::string_view oid);

/// 1 when the reference carries no reference data.
int checkEmptyReferenceData(CORBA::Object* reference);
