// The record of a POA manager.
#pragma once

#include <atomic>

#include "objects/ownobject.h"
#include "poa.h"

/// One a POA manager; lives until the process ends. Any thread; reading the state takes no lock.
class POAManagerInfo {
 public:
  using State = PortableServer::POAManager::State;

  /// In HOLDING, unless a test wants it elsewhere.
  explicit POAManagerInfo(State initial = PortableServer::POAManager::HOLDING);
  explicit POAManagerInfo(CORBA::Environment& ev);
  ~POAManagerInfo();
  POAManagerInfo(const POAManagerInfo&) = delete;
  POAManagerInfo& operator=(const POAManagerInfo&) = delete;

  PortableServer::POAManager* createObject(CORBA::Environment& ev);
  /// The record behind a manager object; null when it names none that lives in this process.
  static POAManagerInfo* findPOAManagerInfo(PortableServer::POAManager* manager, CORBA::Environment& ev);

  void activate(CORBA::Environment& ev);
  void hold_requests(CORBA::Boolean wait_for_completion, CORBA::Environment& ev);
  void discard_requests(CORBA::Boolean wait_for_completion, CORBA::Environment& ev);
  void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion,
                  CORBA::Environment& ev);
  State get_state() const { return state; }

  /// The object of the manager that POAs share when they are given none, made at the first call.
  /// BAD_PARAM when the ORB core makes no reference. poa_mutex is held, or the process has one thread.
  static PortableServer::POAManager* default_object(CORBA::Environment& ev);

  const Identity identity;
  PortableServer::POAManager* poamanager_object = nullptr;

 private:
  struct Move;
  /// The one place where the state changes. False when it is the move's already; AdapterInactive, and the state
  /// as before, once the manager is INACTIVE or when the request queues refuse.
  bool move(const Move& to, CORBA::Environment& ev);

  std::atomic<State> state;  // changed under poa_mutex
};

// The manager that POAs share when they are given none; made at start-up.
extern POAManagerInfo* default_poa_manager_info;
extern PortableServer::POAManager* default_poa_manager;
