// The record behind the POA Current, and the context that each thread's upcall sets.
#pragma once

#include <string_view>

#include "objects/ownobject.h"
#include "poa.h"

/// One per process. The context it answers from is the calling thread's.
class CurrentInfo {
 public:
  CurrentInfo();
  explicit CurrentInfo(CORBA::Environment& ev);
  CurrentInfo(PortableServer::Current* object, CORBA::Environment& ev);
  ~CurrentInfo();
  CurrentInfo(const CurrentInfo&) = delete;
  CurrentInfo& operator=(const CurrentInfo&) = delete;

  PortableServer::Current* createObject(CORBA::Environment& ev);
  static CurrentInfo* findCurrentInfo(PortableServer::Current* current, CORBA::Environment& ev);
  PortableServer::POA* get_POA(CORBA::Environment& ev);
  PortableServer::ObjectId* get_object_id(CORBA::Environment& ev);

  const Identity identity;
  PortableServer::Current* current_object = nullptr;
};

/// The context of one upcall: set on construction, gone on destruction, when the outer upcall's (if any) is
/// in force again.
class CurrentContext {
 public:
  /// Neither is copied: both outlive the context. `oid` is a view of the id's octets in the request's
  /// reference data.
  CurrentContext(PortableServer::POA* poa, std::string_view oid, bool oid_known,
                 CORBA::Object* target = nullptr, PortableServer::ServantBase* servant = nullptr);
  ~CurrentContext();
  CurrentContext(const CurrentContext&) = delete;
  CurrentContext& operator=(const CurrentContext&) = delete;

  PortableServer::POA* const poa_ptr;
  const std::string_view object_id;
  const bool has_object_id;
  CORBA::Object* const target;
  PortableServer::ServantBase* const servant;
  /// The context in force on this thread; null outside upcalls.
  static CurrentContext* innermost();
  /// A new copy of the id, owned by the caller.
  PortableServer::ObjectId* copy_object_id() const;

 private:
  CurrentContext* outer_;
};

// The process's, made at start-up.
extern CurrentInfo* current_info;
extern PortableServer::Current* poa_current;
