// Lost clients: who decides which servants go.
//
// A client is a connection that others made to this process; it is lost when the connection ends, for whatever reason
// but our own shutdown. -ORBClientInfo 0 records no clients, and nobody is asked then. Calls that the process makes to
// its own objects have no client.
#pragma once

#include "poa/servant.h"

namespace PortableServer {

/// A program derives from this and registers one object. When a client's connection is lost, the library asks
/// it about the servants that this client activated or called last.
///
///   class Sessions : public PortableServer::POAdisconnect {
///     CORBA::Boolean release_instance(PortableServer::POA*, PortableServer::ServantBase* servant,
///                                     PortableServer::ObjectId&, CORBA::Environment&) override {
///       return dynamic_cast<Session*>(servant) != nullptr;  // sessions go with their client
///     }
///   };
///   Sessions sessions;
///   PortableServer::POAdisconnect::setDisconnect(&sessions);
class POA_API POAdisconnect {
 public:
  POAdisconnect() = default;
  POAdisconnect(const POAdisconnect&) = default;
  POAdisconnect& operator=(const POAdisconnect&) = default;
  virtual ~POAdisconnect();

  /// True to have the servant released: withdrawn from its POAs now, deleted on a later tick. False to keep
  /// it: it does not belong to the lost client any more. Asked about each servant, once a POA and id that a
  /// reference of it was made for, until it says true; again when a request of the lost client, which was
  /// running then, has ended. Called on a thread of the ORB core, no lock held; it may deactivate the object
  /// and delete the servant itself. An exception is logged and counts as false.
  virtual CORBA::Boolean release_instance(POA* poa, ServantBase* servant, ObjectId& oid,
                                          CORBA::Environment& ev) = 0;

  /// Registers `ptr` (null: none), which stays the program's and must outlive its registration, and calls of it that
  /// are under way. Takes the place of what was registered before. Raises nothing. Any thread.
  static void setDisconnect(POAdisconnect* ptr, CORBA_ENV);
  /// Replaces, or clears, the registered object. BAD_PARAM (0x4B510007) when none is registered. Any thread.
  static void resetDisconnect(POAdisconnect* disconnect, CORBA_ENV);
  static void resetDisconnect(CORBA_ENV);
};

}  // namespace PortableServer
