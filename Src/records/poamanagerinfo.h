// The record of a POA manager.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "objects/ownobject.h"
#include "poa.h"
#include "zrsv/gate.h"

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

  /// From now on requests wait at a gate of this manager while it holds, and not in the ORB core's queue group, which
  /// knows one manager only. poa_mutex is held.
  void hold_at_gate(CORBA::Environment& ev);
  /// That gate; null where the queue group holds the requests.
  const std::shared_ptr<zrsv::Gate>* gate() const { return gated ? &own_gate : nullptr; }

  const Identity identity;
  std::string id;  // of a manager that the program created
  PortableServer::POAManager* poamanager_object = nullptr;

 private:
  /// Into the table of those that live; else its object goes.
  void enter();
  struct Move;
  /// The one place where the state changes. False when it is the move's already; AdapterInactive, and the state
  /// as before, once the manager is INACTIVE or when the request queues refuse.
  bool move(const Move& to, CORBA::Environment& ev);
  void move_gate(State next, CORBA::Environment& ev);

  std::shared_ptr<zrsv::Gate> own_gate;  // set once, before `gated`
  std::atomic<bool> gated{false};
  std::atomic<State> state;  // changed under poa_mutex
};

// The manager that POAs share when they are given none; made at start-up.
extern POAManagerInfo* default_poa_manager_info;
extern PortableServer::POAManager* default_poa_manager;
