// What objects, servants and their references know of a POA.
#pragma once

#include <atomic>
#include <memory>

#include "objects/ownobject.h"
#include "poa.h"

class ActiveObjectMap;
struct ObjectHome;
using ObjectHomePtr = std::shared_ptr<ObjectHome>;

/// The part of a POA's record that they see. Whoever holds it holds the record, and the POA object with it.
struct ObjectHome {
  virtual ~ObjectHome() = default;
  virtual ObjectHomePtr share() = 0;
  /// A new reference of an object of the POA. Takes no lock.
  virtual CORBA::Object* POACreateReference(const PortableServer::ObjectId& oid, const char* intf,
                                            CORBA::Environment& ev) = 0;

  const Identity identity = new_identity();                  // reference data of the POA object
  PortableServer::POA* poa_object = nullptr;                 // owned by the record
  std::atomic<ActiveObjectMap*> active_object_map{nullptr};  // likewise; made at the first activation
};
