#include "objects/common_poa.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "base/minor_codes.h"
#include "base/trace.h"
#include "zrsv/of_thread.h"

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

void trace_oid_line(std::string_view oid) {
  const auto first = trace_octets(oid);
  POA_TRACE("  oid = 0x%02x%02x%02x%02x", first[0], first[1], first[2], first[3]);
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

std::uint64_t load_eight(const char* octets) {
  std::uint64_t word;
  std::memcpy(&word, octets, sizeof word);
  return word;
}

// A vector of the processor's, or what the compiler makes of it where there is none.
using Octets16 [[gnu::vector_size(16)]] = std::uint8_t;
using Octets8 [[gnu::vector_size(8)]] = std::uint8_t;
using Pairs [[gnu::vector_size(16)]] = std::uint16_t;

/// Two numbers of eight hexadecimal digits each, the way print_unique_id prints them, the first one in the upper half;
/// what is no digit has its bits set in `wrong`.
std::uint64_t read_digits(const char* one, const char* other, Octets16& wrong) {
  const std::uint64_t both[] = {load_eight(one), load_eight(other)};
  Octets16 text;
  std::memcpy(&text, both, sizeof text);
  const Octets16 from_0 = text - '0', from_a = text - 'a';
  const auto digits = reinterpret_cast<Octets16>(from_0 < 10),
             letters = reinterpret_cast<Octets16>(from_a < 6);
  const Octets16 values = (from_0 & digits) | ((from_a + 10) & letters);
  wrong |= ~(digits | letters);
  const auto pairs = reinterpret_cast<Pairs>(values);
  constexpr bool little = std::endian::native == std::endian::little;
  const Pairs joined = little ? pairs << 4 | pairs >> 8 : pairs >> 4 | pairs;
  const auto octets = __builtin_convertvector(joined & 0xFF, Octets8);
  std::uint64_t numbers;
  std::memcpy(&numbers, &octets, sizeof numbers);
  return little ? __builtin_bswap64(numbers) : numbers;
}

}  // namespace

bool read_unique_id(std::string_view id, std::array<std::uint32_t, 3>& numbers) {
  if (id.size() != UNIQUE_ID_LENGTH) return false;
  const char* const text = id.data();
  if (text[0] != 'P' || text[9] != 'T' || text[18] != '.' || text[35] != '7' ||
      load_eight(text + 27) != load_eight("C0123456"))
    return false;
  Octets16 wrong{};
  const std::uint64_t process_and_seconds = read_digits(text + 1, text + 10, wrong);
  const std::uint64_t milliseconds = read_digits(text + 19, text + 19, wrong);
  numbers = {static_cast<std::uint32_t>(process_and_seconds >> 32),
             static_cast<std::uint32_t>(process_and_seconds), static_cast<std::uint32_t>(milliseconds)};
  std::uint64_t bits[2];
  std::memcpy(bits, &wrong, sizeof bits);
  return (bits[0] | bits[1]) == 0;
}

namespace {

SystemIdTime time_of(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return {static_cast<ULong>(now.tv_sec), static_cast<ULong>(now.tv_nsec / 1'000'000)};
}

/// The time. Where `last` is ahead of it by seconds, because so many ids were made at once, the clock that is behind by
/// a tick of the system says enough, and costs less.
SystemIdTime time_beside(const SystemIdTime& last) {
  const SystemIdTime rough = time_of(CLOCK_REALTIME_COARSE);
  return last.seconds > rough.seconds + 1 ? rough : time_of(CLOCK_REALTIME);
}

std::atomic<ULong> system_id{0};
std::atomic<SystemIdTime> last_id_time{SystemIdTime{}};
static_assert(std::atomic<SystemIdTime>::is_always_lock_free);

/// One that no other id of the process has.
SystemIdTime claim_time() {
  SystemIdTime last = last_id_time.load(std::memory_order_relaxed), next;
  do next = next_system_id_time(last, time_beside(last));
  while (!last_id_time.compare_exchange_weak(last, next, std::memory_order_relaxed));
  return next;
}

std::atomic<ULong> known_process{0};

/// getpid without the system call. A child that is forked has a number of its own.
ULong process_number() {
  static const bool watched = ::pthread_atfork(nullptr, nullptr, [] { known_process = 0; }) == 0;
  if (const ULong known = known_process.load(std::memory_order_relaxed)) return known;
  const auto number = static_cast<ULong>(::getpid());
  if (watched) known_process = number;
  return number;
}

ObjectId* make_counter_id() {
  std::unique_ptr<ObjectId> oid(make_oid({"\0\0\0\0", 4}));
  const ULong counter = system_id++;
  for (ULong i = 0; i < 4; ++i) (*oid)[i] = static_cast<CORBA::Octet>(counter >> (8 * i));
  return oid.release();
}

/// An environment that has no POA_UNIQUE_SYSID, as the thread saw it: the strings are not compared again before one of
/// them is another.
class SeenEnvironment {
 public:
  bool is_the_same() const {
    return environ && environ == list_ && std::memcmp(strings_.data(), environ, octets_) == 0;
  }
  void keep() {
    list_ = nullptr;
    std::size_t count = 0;
    while (environ && environ[count] && count < strings_.size()) ++count;
    if (!environ || count == strings_.size()) return;  // asked each time
    octets_ = (count + 1) * sizeof *environ;
    std::memcpy(strings_.data(), environ, octets_);
    list_ = environ;
  }

 private:
  char** list_ = nullptr;
  std::size_t octets_ = 0;
  std::array<char*, 128> strings_{};  // with the null behind them
};

/// Whether POA_UNIQUE_SYSID asks for the unique form. It is looked at each time.
bool unique_form() {
  SeenEnvironment* const seen = zrsv::of_thread<SeenEnvironment>();
  if (seen && seen->is_the_same()) return true;
  if (const char* choice = std::getenv("POA_UNIQUE_SYSID")) return std::strcmp(choice, "TRUE") == 0;
  if (seen) seen->keep();
  return true;
}

}  // namespace

SystemId::SystemId() {
  POA_TRACE("POAInfo::genSystemId called...");
  if (!unique_form()) return;
  process_ = process_number();
  time_ = claim_time();
  print_unique_id(text_, process_, time_);
  length_ = UNIQUE_ID_LENGTH;
}

ObjectId* SystemId::make() try {
  std::unique_ptr<ObjectId> oid;
  if (length_ == 0) {
    oid.reset(make_counter_id());
  } else {
    oid = std::make_unique<ObjectId>();
    CORBA::Octet* const octets =
        ObjectId::allocbuf(sizeof text_);  // the NUL behind the id lets programs print it
    if (!octets) return nullptr;
    *oid = ObjectId(length_, length_, octets, 1);
    std::memcpy(octets, text_, sizeof text_);
    ++system_id;
  }
  trace_oid(oid_view(*oid));
  POA_TRACE("POAInfo::genSystemId end...");
  return oid.release();
} catch (const std::bad_alloc&) {
  return nullptr;
}

ObjectId* genSystemId() { return SystemId().make(); }

void set_system_id(ULong first) { system_id = first; }
ULong next_system_id() { return system_id; }

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
