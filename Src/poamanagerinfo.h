// The record of a POA manager.
#pragma once

#include <atomic>

#include "ownobject.h"
#include "poa.h"

/// One a POA manager; lives until the process ends. State changes are made under poa_mutex; reading the state
/// takes no lock.
class POAManagerInfo {
 public:
  using State = PortableServer::POAManager::State;

  POAManagerInfo();
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
  void set_state(State s) { state = s; }

  const Identity identity;
  PortableServer::POAManager* poamanager_object = nullptr;

 private:
  std::atomic<State> state{PortableServer::POAManager::HOLDING};
};
