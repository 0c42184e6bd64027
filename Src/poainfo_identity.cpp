// Object ids made by the system, reference data, and the references made of them.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <new>

#include "poainfo.h"

using CORBA::ULong;
using PortableServer::ObjectId;

// ---- System ids ---------------------------------------------------------------------------------

SystemIdTime next_system_id_time(const SystemIdTime& last, const SystemIdTime& now) {
  const bool moved =
      now.seconds > last.seconds || (now.seconds == last.seconds && now.millisecond > last.millisecond);
  if (moved) return now;
  return last.millisecond < 999 ? SystemIdTime{last.seconds, last.millisecond + 1}
                                : SystemIdTime{last.seconds + 1, 0};
}

void print_unique_id(char (&text)[UNIQUE_ID_LENGTH + 1], ULong process, const SystemIdTime& time) {
  std::snprintf(text, sizeof text, "P%08xT%08x.%08xC%08x", process, time.seconds, time.millisecond,
                0x1234567u);
}

namespace {

SystemIdTime system_time() {
  using namespace std::chrono;
  const auto since_1970 = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  return {static_cast<ULong>(since_1970 / 1000), static_cast<ULong>(since_1970 % 1000)};
}

/// poa_mutex is held.
ObjectId* make_unique_id() {
  static SystemIdTime last;  // guarded by poa_mutex
  const SystemIdTime time = next_system_id_time(last, system_time());
  char text[UNIQUE_ID_LENGTH + 1];
  print_unique_id(text, static_cast<ULong>(getpid()), time);
  auto* const octets = ObjectId::allocbuf(sizeof text);  // the NUL behind the id lets programs print it
  if (!octets) throw std::bad_alloc();
  std::memcpy(octets, text, sizeof text);
  last = time;
  return new ObjectId(UNIQUE_ID_LENGTH, UNIQUE_ID_LENGTH, octets, 1);
}

void put_ulong(unsigned char* at, ULong value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

ULong get_ulong(const unsigned char* at) {
  ULong value = 0;
  for (int i = 0; i < 4; ++i) value |= static_cast<ULong>(at[i]) << (8 * i);
  return value;
}

ObjectId* make_counter_id(ULong counter) {
  unsigned char octets[4];
  put_ulong(octets, counter);
  return make_oid({reinterpret_cast<const char*>(octets), sizeof octets});
}

/// Whether POA_UNIQUE_SYSID asks for the unique form.
bool unique_form() {
  const char* choice = std::getenv("POA_UNIQUE_SYSID");
  return !choice || std::strcmp(choice, "TRUE") == 0;
}

}  // namespace

ObjectId* make_oid(std::string_view octets) {
  auto oid = std::make_unique<ObjectId>();
  oid->length(static_cast<ULong>(octets.size()));
  if (!octets.empty()) std::memcpy(oid->get_buffer(), octets.data(), octets.size());
  return oid.release();
}

std::array<unsigned, 4> trace_octets(std::string_view oid) {
  std::array<unsigned, 4> octets{};
  for (std::size_t i = 0; i < octets.size() && i < oid.size(); ++i)
    octets[i] = static_cast<unsigned char>(oid[i]);
  return octets;
}

ObjectId* POAInfo::genSystemId() {
  POA_TRACE("POAInfo::genSystemId called...");
  const bool unique = unique_form();
  std::unique_ptr<ObjectId> oid;
  try {
    MutexGuard guard(poa_mutex);
    oid.reset(unique ? make_unique_id() : make_counter_id(system_id));
    ++system_id;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  const auto first = trace_octets(oid_view(*oid));
  POA_TRACE("  oid = 0x%02x%02x%02x%02x", first[0], first[1], first[2], first[3]);
  POA_TRACE("POAInfo::genSystemId end...");
  return oid.release();
}

// ---- Writing reference data ---------------------------------------------------------------------

namespace {

/// Appends to a sequence whose maximum and buffer the caller has set.
class SequenceWriter {
 public:
  explicit SequenceWriter(CORBA_sequence_octet& target) : target_(target) {}
  bool put(std::string_view octets) {
    if (octets.size() > target_._maximum - used_) return false;
    if (!octets.empty()) std::memcpy(target_._buffer + used_, octets.data(), octets.size());
    used_ += static_cast<ULong>(octets.size());
    return true;
  }
  bool put_word(ULong value) {
    unsigned char octets[4];
    put_ulong(octets, value);
    return put({reinterpret_cast<const char*>(octets), sizeof octets});
  }
  bool pad() { return put(std::string_view("\0\0\0", (4 - used_ % 4) % 4)); }
  ULong used() const { return used_; }
  bool finish() {
    target_._length = used_;
    return true;
  }

 private:
  CORBA_sequence_octet& target_;
  ULong used_ = 0;
};

}  // namespace

bool POAInfo::createNameReferenceData(CORBA_sequence_octet* referenceData) const {
  POA_TRACE("POAInfo::createNameReferenceData called...");
  SequenceWriter out(*referenceData);
  for (const POAInfo* poa = this; poa && poa != root_poa_info; poa = poa->parent) {
    if (out.used() != 0 && !out.put(poa_seperator)) return false;
    if (!out.put(poa->adapter_name)) return false;
  }
  POA_TRACE("createNameReferenceData end...[length = %d]", static_cast<int>(out.used()));
  return out.put(std::string_view("\0", 1)) && out.finish();
}

bool POAInfo::createPOAReferenceData(CORBA_sequence_octet* referenceData,
                                     const CORBA_sequence_octet* nameReferenceData,
                                     const ObjectId& oid) const {
  POA_TRACE("POAInfo::createPOAReferenceData called...");
  const std::string_view name(reinterpret_cast<const char*>(nameReferenceData->_buffer),
                              nameReferenceData->_length);
  SequenceWriter out(*referenceData);
  const bool fits = out.put_word(nameReferenceData->_length) && out.put(name) && out.pad() &&
                    out.put_word(id_assignment_policy) && out.put_word(oid.length()) &&
                    out.put(oid_view(oid));
  if (!fits) return false;
  POA_TRACE("createPOAReferenceData end...[length = %d]", static_cast<int>(out.used()));
  return out.finish();
}

// ---- Making references --------------------------------------------------------------------------

namespace {

/// A new handle of the ORB core, or null.
void* create_handle(const CORBA_sequence_octet& data, const char* impl_name, const char* intf) {
  CORBA::Environment core;
  return POAInfo::createObject(&data, impl_name, intf, nullptr, core._evp);
}

/// Under the name of ZR_IMPLID where that is set and taken, else under the POA's own.
void* create_handle(const CORBA_sequence_octet& data, const POAInfo& poa, const char* intf) {
  if (const char* impl = std::getenv("ZR_IMPLID")) {
    POA_TRACE("createObject by getenv(ZR_IMPLID)=%s", impl);
    if (void* handle = create_handle(data, impl, intf)) return handle;
  }
  POA_TRACE("createObject by adapter_name=%s", poa.adapter_name);
  return create_handle(data, poa.adapter_name, intf);
}

CORBA::Object* create_reference_of(const POAInfo& poa, const ObjectId& oid, const char* intf,
                                   CORBA::Environment& ev) {
  unsigned char qualified_name[NAME_PART_MAXIMUM];
  CORBA_sequence_octet name{sizeof qualified_name, 0, qualified_name};
  if (!poa.createNameReferenceData(&name))
    raise<CORBA::BAD_PARAM>(ev, "createNameReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [createNameReferenceData.]");
  POA_TRACE("%s", reinterpret_cast<const char*>(qualified_name));
  unsigned char ref_data[REFERENCE_DATA_MAXIMUM];
  CORBA_sequence_octet data{sizeof ref_data, 0, ref_data};
  if (!poa.createPOAReferenceData(&data, &name, oid))
    raise<CORBA::BAD_PARAM>(ev, "createPOAReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [createPOAReferenceData.]");
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(create_handle(data, poa, intf));
  if (!object->get_ref())
    raise<CORBA::BAD_PARAM>(ev, "obj = NULL, throw CORBA::StExcep::BAD_PARAM",
                            "POAInfo::POACreateReference [obj is nil.]");
  return object._retn();
}

}  // namespace

CORBA::Object* POAInfo::POACreateReference(const ObjectId& oid, const char* intf, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::POACreateReference called...[intf = %s]", intf ? intf : "");
  return replacing<CORBA::BAD_PARAM>(ev, nullptr, "POAInfo::POACreateReference [other exception.]", [&] {
    CORBA::Object* object = create_reference_of(*this, oid, intf, ev);
    POA_TRACE("POAInfo::POACreateReference end...");
    return object;
  });
}

// ---- Reading reference data ---------------------------------------------------------------------

bool ReferenceDataView::parse(const unsigned char* data, ULong length) {
  const auto* octets = reinterpret_cast<const char*>(data);
  if (length < 4) return false;
  const std::uint64_t name_length = get_ulong(data);
  const std::uint64_t policy_at = (4 + name_length + 3) / 4 * 4;
  if (policy_at + 8 > length) return false;
  const std::uint64_t oid_length = get_ulong(data + policy_at + 4);
  if (policy_at + 8 + oid_length > length) return false;
  name_part = {octets + 4, static_cast<std::size_t>(name_length)};
  id_assignment = get_ulong(data + policy_at);
  object_id = {octets + policy_at + 8, static_cast<std::size_t>(oid_length)};
  return true;
}

bool ReferenceDataView::read(CORBA::Object* reference) {
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  return reference && ZR_object_peek_id(reference->get_ref(), &octets, &length) && parse(octets, length);
}

void POAInfo::GetOid(const CORBA_sequence_octet* referenceData, ObjectId*& oid, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::GetOid called...");
  ReferenceDataView view;
  if (!view.parse(referenceData->_buffer, referenceData->_length))
    raise<CORBA::BAD_PARAM>(ev, "POAInfo::GetOid [reference_data is invalid.]");
  try {
    oid = make_oid(view.object_id);
  } catch (const std::bad_alloc&) {
    oid = nullptr;
  }
  const auto first = trace_octets(view.object_id);
  POA_TRACE("GetOid oid=%02x%02x%02x%02x", first[0], first[1], first[2], first[3]);
  POA_TRACE("POAInfo::GetOid end...");
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

// ---- Copies -------------------------------------------------------------------------------------

ObjectId* PortableServer::ObjectId_duplicate(const ObjectId* oid, CORBA::Environment&) {
  return oid ? make_oid(oid_view(*oid)) : nullptr;
}

ObjectId* POAInfo::PortableServer_ObjectId_duplicate(const ObjectId* oid, CORBA::Environment& ev) {
  POA_TRACE("POAInfo::PortableServer_ObjectId_duplicate called...");
  return PortableServer::ObjectId_duplicate(oid, ev);
}
