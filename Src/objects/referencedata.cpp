#include "objects/referencedata.h"

#include <cstring>
#include <new>

#include "base/raise.h"
#include "objects/common_poa.h"

using CORBA::ULong;
using PortableServer::ObjectId;

// ---- Writing ------------------------------------------------------------------------------------

bool SequenceWriter::put(std::string_view octets) {
  if (octets.size() > target_._maximum - used_) return false;
  if (!octets.empty()) std::memcpy(target_._buffer + used_, octets.data(), octets.size());
  used_ += static_cast<ULong>(octets.size());
  return true;
}

bool SequenceWriter::put_word(ULong value) {
  char octets[4];
  for (int i = 0; i < 4; ++i) octets[i] = static_cast<char>(value >> (8 * i));
  return put({octets, sizeof octets});
}

bool SequenceWriter::pad() { return put(std::string_view("\0\0\0", (4 - used_ % 4) % 4)); }

bool SequenceWriter::finish() {
  target_._length = used_;
  return true;
}

bool createPOAReferenceData(CORBA_sequence_octet* data, const CORBA_sequence_octet* name_part,
                            ULong id_assignment, const ObjectId& oid) {
  POA_TRACE("POAInfo::createPOAReferenceData called...");
  const std::string_view name(reinterpret_cast<const char*>(name_part->_buffer), name_part->_length);
  SequenceWriter out(*data);
  const bool fits = out.put_word(name_part->_length) && out.put(name) && out.pad() &&
                    out.put_word(id_assignment) && out.put_word(oid.length()) && out.put(oid_view(oid));
  if (!fits) return false;
  POA_TRACE("createPOAReferenceData end...[length = %d]", static_cast<int>(out.used()));
  return out.finish();
}

// ---- Reading ------------------------------------------------------------------------------------

namespace {

ULong get_ulong(const unsigned char* at) {
  return at[0] | static_cast<ULong>(at[1]) << 8 | static_cast<ULong>(at[2]) << 16 |
         static_cast<ULong>(at[3]) << 24;
}

}  // namespace

bool ReferenceDataView::parse(const unsigned char* data, ULong length) {
  const auto* octets = reinterpret_cast<const char*>(data);
  if (length < 4) return false;
  const std::uint64_t name_length = get_ulong(data);
  const std::uint64_t policy_at = (4 + name_length + 3) / 4 * 4;
  if (policy_at + 8 > length) return false;
  if (!parse_id({octets + policy_at + 4, static_cast<std::size_t>(length - policy_at - 4)})) return false;
  name_part = {octets + 4, static_cast<std::size_t>(name_length)};
  id_assignment = get_ulong(data + policy_at);
  return true;
}

bool ReferenceDataView::parse_id(std::string_view rest) {
  if (rest.size() < 4) return false;
  const ULong length = get_ulong(reinterpret_cast<const unsigned char*>(rest.data()));
  if (length > rest.size() - 4) return false;
  object_id = rest.substr(4, length);
  return true;
}

bool ReferenceDataView::read(CORBA::Object* reference) {
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  return reference && ZR_object_peek_id(reference->get_ref(), &octets, &length) && parse(octets, length);
}

std::optional<std::string_view> PathNames::next() {
  if (done_) return std::nullopt;
  const auto separator = rest_.rfind(poa_seperator[0]);
  done_ = separator == std::string_view::npos;
  const auto name = done_ ? rest_ : rest_.substr(separator + 1);
  if (!done_) rest_ = rest_.substr(0, separator);
  return name;
}

namespace {

void trace_got(std::string_view oid) {
  const auto first = trace_octets(oid);
  POA_TRACE("GetOid oid=%02x%02x%02x%02x", first[0], first[1], first[2], first[3]);
  POA_TRACE("POAInfo::GetOid end...");
}

}  // namespace

void GetOid(const CORBA_sequence_octet* data, ObjectId*& oid, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::GetOid called...");
  ReferenceDataView view;
  if (!view.parse(data->_buffer, data->_length))
    raise<CORBA::BAD_PARAM>(ev, "POAInfo::GetOid [reference_data is invalid.]");
  try {
    oid = make_oid(view.object_id);
  } catch (const std::bad_alloc&) {
    oid = nullptr;
  }
  trace_got(view.object_id);
}

void trace_get_oid(std::string_view oid) {
  POA_TRACE("POAInfo::GetOid called...");
  trace_got(oid);
}

int checkEmptyReferenceData(CORBA::Object* reference) {
  POA_TRACE("checkEmptyReferenceData called...");
  if (CORBA::is_nil(reference)) return 1;
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  if (!ZR_object_peek_id(reference->get_ref(), &octets, &length)) return 1;
  if (length == 0) {
    POA_TRACE("checkEmptyReferenceData len=%d return(1)", 0);
    return 1;
  }
  POA_TRACE("checkEmptyReferenceData len=%d return(0)", static_cast<int>(length));
  POA_TRACE("checkEmptyReferenceData end...");
  return 0;
}
