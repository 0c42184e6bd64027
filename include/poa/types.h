// Values of module PortableServer: object ids, policy values and type ids.
#pragma once

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
/// Servants are passed as plain pointers, and whose they are is said at each operation: the program's, unless it
/// hands one over by ServantBase::servant_delete or a servant counts (RefCountServantBase).
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
  CORBA::Octet& operator[](CORBA::Index auto i) { return Sequence::operator[](CORBA::sequence_index(i)); }
  const CORBA::Octet& operator[](CORBA::Index auto i) const {
    return Sequence::operator[](CORBA::sequence_index(i));
  }
};
/// Owns an id that was made with new, as all are that operations return; a fresh one holds a new empty id. `in()`
/// lends it, `_retn()` hands it over. One thread at a time.
POA_VAR_CLASS(ObjectId_var, CORBA::SequenceVar<ObjectId>)

// The values of the seven policies, as the standard names and numbers them. In a POA that says nothing of a kind the
// first value counts, but for SYSTEM_ID and NO_IMPLICIT_ACTIVATION. The root POA has these too, but for
// IMPLICIT_ACTIVATION.
//
// Four combinations are refused by POA::create_POA (InvalidPolicy):
//
//   NON_RETAIN            with USE_ACTIVE_OBJECT_MAP_ONLY: nobody would serve
//   USE_DEFAULT_SERVANT   with UNIQUE_ID: one servant is many objects there
//   IMPLICIT_ACTIVATION   with USER_ID: nobody would name the object
//   IMPLICIT_ACTIVATION   with SYSTEM_ID and NON_RETAIN: there is nothing to activate in

/// Whether requests of the POA run on many threads at once, also in one servant, or one after the other. With
/// SINGLE_THREAD_MODEL a request that finds another one running waits without holding a thread; one that the POA's
/// own servant makes of an object of the POA, on its thread, goes through. Upcalls to servant managers count as
/// part of their request; those of destroy and deactivate_object do not wait.
///
///   list.length(1);
///   list[0] = root->create_thread_policy(PortableServer::SINGLE_THREAD_MODEL);  // servants need no locks
enum POA_API ThreadPolicyValue : CORBA::ULong { ORB_CTRL_MODEL = 0, SINGLE_THREAD_MODEL = 1 };
/// Whether references are meant to outlive the process. It is a note of what the program means: with both values a
/// reference is good for as long as its POA's path, its object's id and the server's address are. A server with
/// PERSISTENT objects gives them ids of its own (USER_ID), listens at a fixed port and sets ZR_IMPLID, the name that
/// its references carry.
enum POA_API LifespanPolicyValue : CORBA::ULong { TRANSIENT = 0, PERSISTENT = 1 };
/// Whether a servant may be active under several ids of the POA. UNIQUE_ID lets the POA tell a servant's id and
/// reference (servant_to_id, servant_to_reference); with MULTIPLE_ID each question activates anew, or is refused.
enum POA_API IdUniquenessPolicyValue : CORBA::ULong { UNIQUE_ID = 0, MULTIPLE_ID = 1 };
/// Whether ids are the program's (activate_object_with_id, create_reference_with_id) or made up by the POA
/// (activate_object, create_reference). Ids that are meant for longer than one process are the program's.
enum POA_API IdAssignmentPolicyValue : CORBA::ULong { USER_ID = 0, SYSTEM_ID = 1 };
/// Whether a servant becomes active when its reference or its id is asked for, which `_this` does. The root POA
/// activates implicitly; others do when they are told so.
enum POA_API ImplicitActivationPolicyValue : CORBA::ULong {
  IMPLICIT_ACTIVATION = 0,
  NO_IMPLICIT_ACTIVATION = 1
};
/// Whether the POA keeps a map of active objects: what was activated, or made by a servant activator, serves until
/// it is deactivated. With NON_RETAIN a default servant or a servant locator is asked at each request.
enum POA_API ServantRetentionPolicyValue : CORBA::ULong { RETAIN = 0, NON_RETAIN = 1 };
/// Who serves requests for objects that are not in the map: nobody, the default servant, or one that a servant
/// manager makes or finds.
enum POA_API RequestProcessingPolicyValue : CORBA::ULong {
  USE_ACTIVE_OBJECT_MAP_ONLY = 0,
  USE_DEFAULT_SERVANT = 1,
  USE_SERVANT_MANAGER = 2
};

/// Policy type ids, as the standard numbers them: what CORBA::Policy::policy_type answers.
inline constexpr CORBA::PolicyType THREAD_POLICY_ID = 16;
inline constexpr CORBA::PolicyType LIFESPAN_POLICY_ID = 17;
inline constexpr CORBA::PolicyType ID_UNIQUENESS_POLICY_ID = 18;
inline constexpr CORBA::PolicyType ID_ASSIGNMENT_POLICY_ID = 19;
inline constexpr CORBA::PolicyType IMPLICIT_ACTIVATION_POLICY_ID = 20;
inline constexpr CORBA::PolicyType SERVANT_RETENTION_POLICY_ID = 21;
inline constexpr CORBA::PolicyType REQUEST_PROCESSING_POLICY_ID = 22;

/// A new deep copy, owned by the caller; null for null. std::bad_alloc without memory. Any thread.
POA_API ObjectId* ObjectId_duplicate(const ObjectId* oid, CORBA_ENV);

/// Text of an id, without quoting, empty for an empty one; freed with CORBA::string_free. BAD_PARAM (0x4B510000) when
/// an octet is not printable ASCII (0x20 to 0x7E), NO_MEMORY. Any thread.
POA_API char* ObjectId_to_string(const ObjectId& oid);
/// The id of a text: its characters without the NUL, owned by the caller; an empty id for an empty text, null without
/// memory. BAD_PARAM: 0x4B510007 for null, 0x4B510000 for a character that is not printable ASCII. Any thread.
POA_API ObjectId* string_to_ObjectId(const char* text);
/// The same rules on wide text: one octet a character, which is why nothing but printable ASCII fits here either; the
/// text is freed with CORBA::wstring_free.
POA_API CORBA::WChar* ObjectId_to_wstring(const ObjectId& oid);
POA_API ObjectId* wstring_to_ObjectId(const CORBA::WChar* text);

/// Raised by a servant manager to send the client elsewhere: from `incarnate` and `preinvoke` with the standard's
/// signatures the client gets a location forward and calls again there, OBJ_ADAPTER where the reference is nil. From
/// the forms with an environment, and from an adapter activator, it reaches the client as UNKNOWN.
///
///   class Moved : public PortableServer::ServantLocator, public CORBA::LocalObject {
///     PortableServer::Servant preinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*,
///                                       void*&) override {
///       throw PortableServer::ForwardRequest(new_home_.in());
///     }
///     CORBA::Object_var new_home_;
///   };
class POA_API ForwardRequest : public CORBA::UserExceptionOf<ForwardRequest> {
 public:
  static constexpr const char* repository_id = "IDL:omg.org/PortableServer/ForwardRequest:1.0";

  /// To nowhere: forward_reference is nil.
  ForwardRequest() = default;
  /// Keeps a duplicate of `to`, which stays the caller's; nil is allowed.
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
