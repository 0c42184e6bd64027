// Object ids: octets, system ids, copies and comparison. Their text forms are the module's public functions.
#pragma once

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "poa/types.h"
#include "zrsv.h"

/// The octets of an id, in place.
inline std::string_view oid_view(const PortableServer::ObjectId& oid) {
  return {reinterpret_cast<const char*>(oid.get_buffer()), oid.length()};
}

/// Same length, same octets.
bool oid_is_equivalent(const PortableServer::ObjectId& a, const PortableServer::ObjectId& b);

/// A new id with these octets, owned by the caller; std::bad_alloc without memory.
PortableServer::ObjectId* make_oid(std::string_view octets);

/// The same of an id, traced; null for null.
PortableServer::ObjectId* duplicate_oid(const PortableServer::ObjectId* oid);
/// Its trace line, where the copy is made elsewhere.
void trace_oid_duplicate();

/// An ObjectId over octets that somebody else keeps, for the length of a call.
class BorrowedObjectId {
 public:
  explicit BorrowedObjectId(std::string_view octets)
      : oid_(static_cast<CORBA::ULong>(octets.size()), static_cast<CORBA::ULong>(octets.size()),
             reinterpret_cast<CORBA::Octet*>(const_cast<char*>(octets.data())), 0) {}
  const PortableServer::ObjectId& get() const { return oid_; }

 private:
  PortableServer::ObjectId oid_;
};

/// An id's octets, in one place: up to IN_PLACE of them within the object.
class StoredObjectId {
 public:
  static constexpr std::size_t IN_PLACE = 36;  // a system id's unique form

  StoredObjectId() = default;
  /// std::bad_alloc without memory.
  explicit StoredObjectId(std::string_view octets);
  StoredObjectId(StoredObjectId&& other) noexcept { swap(other); }
  StoredObjectId& operator=(StoredObjectId&& other) noexcept {
    StoredObjectId(std::move(other)).swap(*this);
    return *this;
  }
  ~StoredObjectId() {
    if (length_ > IN_PLACE) delete[] elsewhere();
  }
  std::string_view view() const { return {length_ > IN_PLACE ? elsewhere() : place_, length_}; }

 private:
  void swap(StoredObjectId& other) noexcept {
    std::swap(length_, other.length_);
    std::swap(place_, other.place_);
  }
  char* elsewhere() const {
    char* at;
    std::memcpy(&at, place_, sizeof at);
    return at;
  }

  CORBA::ULong length_ = 0;
  char place_[IN_PLACE] = {};  // the octets, or their address
};
inline std::string_view oid_view(const StoredObjectId& oid) { return oid.view(); }

/// The first four octets of an id as trace lines print them; 0 for those it lacks.
std::array<unsigned, 4> trace_octets(std::string_view oid);
/// The line with them alone, with tracing on.
void trace_oid_line(std::string_view oid);
inline void trace_oid(std::string_view oid) {
  if (OM_TRACE_IS_ON) trace_oid_line(oid);
}

// ---- System ids ----

/// A new id that this process has given out to nobody, owned by the caller; null without memory. Its form is
/// chosen by POA_UNIQUE_SYSID. Any thread.
PortableServer::ObjectId* genSystemId();

/// Where the ids that count begin, and how many system ids were made since. For start-up and tests.
void set_system_id(CORBA::ULong first);
CORBA::ULong next_system_id();

/// When an id was made, as its unique form prints it. Aligned, so that every compiler exchanges it whole in place.
struct alignas(8) SystemIdTime {
  CORBA::ULong seconds = 0;  // since 1970
  CORBA::ULong millisecond = 0;
};
/// The time for the next id: `now`, or the millisecond after `last` when the clock has not moved past that.
SystemIdTime next_system_id_time(const SystemIdTime& last, const SystemIdTime& now);

inline constexpr CORBA::ULong UNIQUE_ID_LENGTH = 36;
/// "P%08xT%08x.%08xC%08x" of process, time and a constant, with its NUL.
void print_unique_id(char (&text)[UNIQUE_ID_LENGTH + 1], CORBA::ULong process, const SystemIdTime& time);
/// The three numbers of an id that is exactly what print_unique_id prints; false, and nothing said of them, for any
/// other.
bool read_unique_id(std::string_view id, std::array<std::uint32_t, 3>& numbers);

/// A system id in two steps: its octets, and then the id itself.
class SystemId {
 public:
  SystemId();
  /// Of the unique form, whose octets are known at once; the others are in the id only.
  bool is_unique() const { return length_ != 0; }
  std::string_view octets() const { return {text_, length_}; }
  CORBA::ULong process() const { return process_; }
  const SystemIdTime& time() const { return time_; }
  /// Once. What genSystemId gives.
  PortableServer::ObjectId* make();

 private:
  CORBA::ULong length_ = 0, process_ = 0;
  SystemIdTime time_;
  char text_[UNIQUE_ID_LENGTH + 1];
};
