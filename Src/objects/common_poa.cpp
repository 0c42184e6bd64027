#include "objects/common_poa.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "base/minor_codes.h"
#include "base/trace.h"
#include "zrsv/thread_safety.h"

using CORBA::ULong;
using PortableServer::ObjectId;

// ---- Octets -------------------------------------------------------------------------------------

bool oid_is_equivalent(const ObjectId& a, const ObjectId& b) { return oid_view(a) == oid_view(b); }

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

StoredObjectId::StoredObjectId(std::string_view octets) {
  char* at = place_;
  if (octets.size() > IN_PLACE) {
    at = new char[octets.size()];
    std::memcpy(place_, &at, sizeof at);
  }
  if (!octets.empty()) std::memcpy(at, octets.data(), octets.size());
  length_ = static_cast<ULong>(octets.size());
}

ObjectId* PortableServer::ObjectId_duplicate(const ObjectId* oid, CORBA::Environment&) {
  return oid ? make_oid(oid_view(*oid)) : nullptr;
}

void trace_oid_duplicate() { POA_TRACE("POAInfo::PortableServer_ObjectId_duplicate called..."); }

ObjectId* duplicate_oid(const ObjectId* oid) {
  trace_oid_duplicate();
  return oid ? make_oid(oid_view(*oid)) : nullptr;
}

// ---- System ids ---------------------------------------------------------------------------------

SystemIdTime next_system_id_time(const SystemIdTime& last, const SystemIdTime& now) {
  const bool moved =
      now.seconds > last.seconds || (now.seconds == last.seconds && now.millisecond > last.millisecond);
  if (moved) return now;
  return last.millisecond < 999 ? SystemIdTime{last.seconds, last.millisecond + 1}
                                : SystemIdTime{last.seconds + 1, 0};
}

namespace {

/// The two digits of each octet.
constexpr auto HEXADECIMAL = [] {
  std::array<char, 512> digits{};
  for (std::size_t octet = 0; octet < 256; ++octet) {
    digits[2 * octet] = "0123456789abcdef"[octet >> 4];
    digits[2 * octet + 1] = "0123456789abcdef"[octet & 15];
  }
  return digits;
}();

}  // namespace

void print_unique_id(char (&text)[UNIQUE_ID_LENGTH + 1], ULong process, const SystemIdTime& time) {
  char* at = text;
  const auto put = [&at](char letter, ULong number) {
    *at++ = letter;
    for (int shift = 24; shift >= 0; shift -= 8, at += 2)
      std::memcpy(at, &HEXADECIMAL[std::size_t{2} * (number >> shift & 0xFF)], 2);
  };
  put('P', process);
  put('T', time.seconds);
  put('.', time.millisecond);
  put('C', 0x1234567);
  *at = '\0';
}

namespace {

SystemIdTime system_time() {
  using namespace std::chrono;
  const auto since_1970 = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  return {static_cast<ULong>(since_1970 / 1000), static_cast<ULong>(since_1970 % 1000)};
}

zrsv::Mutex system_id_mutex;  // a leaf
ULong system_id ZR_GUARDED_BY(system_id_mutex) = 0;
SystemIdTime last_id_time ZR_GUARDED_BY(system_id_mutex);

ObjectId* make_unique_id() ZR_REQUIRES(system_id_mutex) {
  const SystemIdTime time = next_system_id_time(last_id_time, system_time());
  char text[UNIQUE_ID_LENGTH + 1];
  print_unique_id(text, static_cast<ULong>(getpid()), time);
  auto* const octets = ObjectId::allocbuf(sizeof text);  // the NUL behind the id lets programs print it
  if (!octets) throw std::bad_alloc();
  std::memcpy(octets, text, sizeof text);
  last_id_time = time;
  return new ObjectId(UNIQUE_ID_LENGTH, UNIQUE_ID_LENGTH, octets, 1);
}

ObjectId* make_counter_id(ULong counter) {
  char octets[4];
  for (int i = 0; i < 4; ++i) octets[i] = static_cast<char>(counter >> (8 * i));
  return make_oid({octets, sizeof octets});
}

/// Whether POA_UNIQUE_SYSID asks for the unique form.
bool unique_form() {
  const char* choice = std::getenv("POA_UNIQUE_SYSID");
  return !choice || std::strcmp(choice, "TRUE") == 0;
}

}  // namespace

ObjectId* genSystemId() {
  POA_TRACE("POAInfo::genSystemId called...");
  const bool unique = unique_form();
  std::unique_ptr<ObjectId> oid;
  try {
    const zrsv::MutexLock lock(system_id_mutex);
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

void set_system_id(ULong first) {
  const zrsv::MutexLock lock(system_id_mutex);
  system_id = first;
}

ULong next_system_id() {
  const zrsv::MutexLock lock(system_id_mutex);
  return system_id;
}

// ---- Text ---------------------------------------------------------------------------------------

namespace {

[[noreturn]] void refuse(const char* trace, CORBA::ULong minor) {
  POA_TRACE("%s", trace);
  throw CORBA::BAD_PARAM(minor);
}

template <class Char>
bool printable(Char c) {
  return c >= 0x20 && c <= 0x7E;
}

/// Copies the octets into `text`, which has room for them; false, and `text` freed by the caller, for one
/// that is no printable ASCII.
template <class Char>
bool copy_printable(const ObjectId& oid, Char* text) {
  for (CORBA::ULong i = 0; i < oid.length(); ++i) {
    if (!printable(oid[i])) return false;
    text[i] = static_cast<Char>(oid[i]);
  }
  text[oid.length()] = 0;
  return true;
}

template <class Char>
Char* to_text(const ObjectId& oid, Char* (*alloc)(CORBA::Long), void (*free)(Char*),
              const char* range_trace) {
  Char* text = alloc(static_cast<CORBA::Long>(oid.length()));
  if (!text) throw CORBA::NO_MEMORY(MINOR_BAD_PARAM);
  if (copy_printable(oid, text)) return text;
  free(text);
  refuse(range_trace, MINOR_ID_RANGE);
}

template <class Char>
ObjectId* to_oid(const Char* text, const char* range_trace) {
  if (!text) refuse("PortableServer::string_to_ObjectId [str is null.]", MINOR_BAD_PARAM);
  const std::basic_string_view<Char> characters(text);
  for (Char c : characters)
    if (!printable(c)) refuse(range_trace, MINOR_ID_RANGE);
  try {
    auto oid = std::make_unique<ObjectId>();
    oid->length(static_cast<CORBA::ULong>(characters.size()));
    CORBA::ULong at = 0;
    for (Char c : characters) (*oid)[at++] = static_cast<CORBA::Octet>(c);
    return oid.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

namespace PortableServer {

char* ObjectId_to_string(const ObjectId& oid) {
  POA_TRACE("PortableServer::ObjectId_to_string");
  return to_text(oid, CORBA::string_alloc, CORBA::string_free,
                 "PortableServer::ObjectId_to_string [Range over.]");
}

ObjectId* string_to_ObjectId(const char* text) {
  POA_TRACE("PortableServer::string_to_ObjectId");
  return to_oid(text, "PortableServer::string_to_ObjectId [Range over.]");
}

CORBA::WChar* ObjectId_to_wstring(const ObjectId& oid) {
  POA_TRACE("PortableServer::ObjectId_to_wstring");
  return to_text(oid, CORBA::wstring_alloc, CORBA::wstring_free,
                 "PortableServer::ObjectId_to_wstring [Range over.]");
}

ObjectId* wstring_to_ObjectId(const CORBA::WChar* text) {
  POA_TRACE("PortableServer::wstring_to_ObjectId");
  return to_oid(text, "PortableServer::wstring_to_ObjectId [Range over.]");
}

}  // namespace PortableServer
