// Values of module PortableServer: object ids, policy values and type ids.
#pragma once

#include <concepts>
#include <cstdint>

#include "corba.h"

/// What the library exports.
#define POA_API __attribute__((visibility("default")))

/// A class of its own for an instance of a `_var` template: it can be declared ahead and befriended.
#define POA_VAR_CLASS(Name, ...)    \
  class Name : public __VA_ARGS__ { \
    using Holder = __VA_ARGS__;     \
                                    \
   public:                          \
    using Holder::Holder;           \
    using Holder::operator=;        \
  };

namespace PortableServer {

class ServantBase;
/// Servants are passed as plain pointers; the program owns them.
using Servant = ServantBase*;

/// An object's identity within its POA: any octets, compared by length and content. A sequence of octets with all
/// that sequences have; an empty one names nothing.
///
///   PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId("4711");
///   CORBA::String_var text = PortableServer::ObjectId_to_string(id.in());
///
///   PortableServer::ObjectId binary;
///   binary.length(4);
///   for (CORBA::ULong i = 0; i < 4; ++i) binary[i] = octets[i];
///
/// Ids that POAs make up have 36 printable characters, or 4 octets when the variable POA_UNIQUE_SYSID is set to
/// anything but TRUE; a process gives out none twice.
class ObjectId : public CORBA::OctetSeq {
 public:
  using Sequence::Sequence;
  /// The buffer itself; null when empty.
  operator unsigned char*() { return get_buffer(); }
  /// With an index of any integral type, which would else fit the buffer as well; a negative one is past the
  /// length.
  template <std::integral Index>
  CORBA::Octet& operator[](Index i) {
    return Sequence::operator[](position(i));
  }
  template <std::integral Index>
  const CORBA::Octet& operator[](Index i) const {
    return Sequence::operator[](position(i));
  }

 private:
  template <class Index>
  static CORBA::ULong position(Index i) {
    constexpr CORBA::ULong past = 0xFFFFFFFF;  // no sequence is so long that this is an element
    return i < 0 || static_cast<std::uint64_t>(i) > past ? past : static_cast<CORBA::ULong>(i);
  }
};
/// Owns an id; `in()` lends it, `_retn()` hands it over.
POA_VAR_CLASS(ObjectId_var, CORBA::SequenceVar<ObjectId>)

// The values of the seven policies; the first is the default but for SYSTEM_ID and NO_IMPLICIT_ACTIVATION.

/// Both serve the requests of a POA on many threads at once: SINGLE_THREAD_MODEL is taken note of only.
enum POA_API ThreadPolicyValue : CORBA::ULong { ORB_CTRL_MODEL = 0, SINGLE_THREAD_MODEL = 1 };
/// Whether references are meant to outlive the process. A reference is good for as long as its POA's path, its
/// object's id and the server's address are.
enum POA_API LifespanPolicyValue : CORBA::ULong { TRANSIENT = 0, PERSISTENT = 1 };
/// Whether a servant may be active under several ids of the POA.
enum POA_API IdUniquenessPolicyValue : CORBA::ULong { UNIQUE_ID = 0, MULTIPLE_ID = 1 };
/// Whether ids are the program's or made up by the POA.
enum POA_API IdAssignmentPolicyValue : CORBA::ULong { USER_ID = 0, SYSTEM_ID = 1 };
/// Whether a servant becomes active when its reference, or its id, is asked for. The root POA activates implicitly.
enum POA_API ImplicitActivationPolicyValue : CORBA::ULong {
  IMPLICIT_ACTIVATION = 0,
  NO_IMPLICIT_ACTIVATION = 1
};
/// Whether active objects are kept in a map.
enum POA_API ServantRetentionPolicyValue : CORBA::ULong { RETAIN = 0, NON_RETAIN = 1 };
/// Who serves requests for objects that are not in the map: nobody, the default servant, or one that a servant
/// manager makes or finds.
enum POA_API RequestProcessingPolicyValue : CORBA::ULong {
  USE_ACTIVE_OBJECT_MAP_ONLY = 0,
  USE_DEFAULT_SERVANT = 1,
  USE_SERVANT_MANAGER = 2
};

/// Policy type ids, as the standard numbers them.
inline constexpr CORBA::PolicyType THREAD_POLICY_ID = 16;
inline constexpr CORBA::PolicyType LIFESPAN_POLICY_ID = 17;
inline constexpr CORBA::PolicyType ID_UNIQUENESS_POLICY_ID = 18;
inline constexpr CORBA::PolicyType ID_ASSIGNMENT_POLICY_ID = 19;
inline constexpr CORBA::PolicyType IMPLICIT_ACTIVATION_POLICY_ID = 20;
inline constexpr CORBA::PolicyType SERVANT_RETENTION_POLICY_ID = 21;
inline constexpr CORBA::PolicyType REQUEST_PROCESSING_POLICY_ID = 22;

/// A new deep copy, owned by the caller; null for null.
POA_API ObjectId* ObjectId_duplicate(const ObjectId* oid, CORBA_ENV);

/// Text of an id, without quoting, empty for an empty one; freed with CORBA::string_free. BAD_PARAM (0x4B510000) when an octet is not printable ASCII
/// (0x20 to 0x7E).
POA_API char* ObjectId_to_string(const ObjectId& oid);
/// The id of a text: its characters without the NUL, owned by the caller. BAD_PARAM: 0x4B510007 for null,
/// 0x4B510000 for a character that is not printable ASCII.
POA_API ObjectId* string_to_ObjectId(const char* text);
/// The same rules on wide text: one octet a character; the text is freed with CORBA::wstring_free.
POA_API CORBA::WChar* ObjectId_to_wstring(const ObjectId& oid);
POA_API ObjectId* wstring_to_ObjectId(const CORBA::WChar* text);

/// Raised by a servant manager to send the client elsewhere. The adapter sends no location forward of its own: what a
/// servant manager throws here reaches the client as UNKNOWN.
class POA_API ForwardRequest : public CORBA::UserExceptionOf<ForwardRequest> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/PortableServer/ForwardRequest:1.0";

  /// To nowhere.
  ForwardRequest() = default;
  /// Keeps a duplicate of `to`.
  explicit ForwardRequest(CORBA::Object* to) { forward_reference(to); }

  /// Where to: a member of the mapping that is an accessor too.
  ///
  ///   forward.forward_reference(object);                        // stores
  ///   CORBA::Object_ptr to = forward.forward_reference();       // lends
  class POA_API Target : public CORBA::Object_var {
   public:
    using CORBA::Object_var::operator=;
    /// The reference held, not duplicated.
    CORBA::Object* operator()() const { return in(); }
    /// Stores a duplicate and releases the old one, unless both are the same pointer.
    void operator()(CORBA::Object* to) {
      if (to != in()) *this = CORBA::Object::_duplicate(to);
    }
  };
  Target forward_reference;
};
POA_VAR_CLASS(ForwardRequest_var, CORBA::ExceptionVar<ForwardRequest>)

}  // namespace PortableServer
