// The record of one POA: its policies and its objects, beside its place in the tree. A source file a concern:
// poainfo.cpp (life), poainfo_tree.cpp, poainfo_references.cpp, poainfo_activation.cpp, poainfo_conversion.cpp.
#pragma once

#include <vector>

#include "objects/activeobjectmap.h"
#include "records/defaultservant.h"
#include "records/poanode.h"
#include "records/policyset.h"
#include "zrsv/gate.h"

class POAInfo;
class POAManagerInfo;
class Queue;
/// A record in use: it stays until the last holder lets go, also when its POA is destroyed meanwhile.
using POAInfoPtr = std::shared_ptr<POAInfo>;
/// A record's POA object; whoever holds it holds the record.
using POAObjectPtr = std::shared_ptr<PortableServer::POA>;

/// Functions whose names an operation of the POA has do its work: see include/poa/interfaces.h for what they
/// answer and raise. Any thread.
class POAInfo : public POANode {
 public:
  POAInfo();
  /// A record for a new POA, not yet in the tree and without a POA object.
  POAInfo(const char* _adapter_name, PortableServer::POAManager* a_POAManager, const CORBA::PolicyList& list,
          CORBA::Environment& ev);
  ~POAInfo() override;

  // ---- The record (poainfo.cpp) ----
  /// Makes the record's POA object.
  PortableServer::POA* createObject(CORBA::Environment& ev);
  /// The live record of a POA object, or null. Never raises.
  static POAInfoPtr findPOAInfo(PortableServer::POA* _this, CORBA::Environment& ev);

  // ---- The tree (poainfo_tree.cpp) ----
  /// The caller's own reference to the child, which is in the tree only when everything has worked.
  PortableServer::POA_var create_POA(const char* _adapter_name, PortableServer::POAManager* a_POAManager,
                                     const CORBA::PolicyList& list, CORBA::Environment& ev);
  POAObjectPtr find_POA(const char* _adapter_name, CORBA::Boolean activate_it, CORBA::Environment& ev);
  /// Never null: AdapterNonExistent, or BAD_PARAM for a null name. With `act`, a missing child is asked of
  /// the adapter activator, which is called with no lock held.
  POAInfoPtr findChildByName(const char* _adapter_name, CORBA::Environment& ev, CORBA::Boolean act);
  char* the_name(CORBA::Environment& ev);
  PortableServer::POA* the_parent(CORBA::Environment& ev);
  PortableServer::POAList* the_children(CORBA::Environment& ev);
  PortableServer::POAManager* the_POAManager(CORBA::Environment& ev);
  PortableServer::AdapterActivator* the_activator(CORBA::Environment& ev);
  void the_activator(PortableServer::AdapterActivator* adapterActivator_ptr, CORBA::Environment& ev);
  void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
               CORBA::Environment& ev);

  // ---- References (poainfo_references.cpp) ----
  CORBA::Object* POACreateReference(const PortableServer::ObjectId& oid, const char* intf,
                                    CORBA::Environment& ev) override;
  CORBA::Object* create_reference(const char* intf, CORBA::Environment& ev);
  CORBA::Object* create_reference_with_id(const PortableServer::ObjectId& oid, const char* intf,
                                          CORBA::Environment& ev);

  // ---- Activation (poainfo_activation.cpp) ----
  PortableServer::ObjectId* activate_object(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  void activate_object_with_id(const PortableServer::ObjectId& id, PortableServer::ServantBase* p_servant,
                               CORBA::Environment& ev);
  void deactivate_object(const PortableServer::ObjectId& oid, CORBA::Environment& ev);
  void set_incarnation_limit(CORBA::ULong most, CORBA::Environment& ev);
  /// Hands the longest unused objects that the activator made back to it until they are within the limit. What the
  /// activator throws is logged.
  void evict_unused();
  PortableServer::ServantManager* get_servant_manager(CORBA::Environment& ev);
  void set_servant_manager(PortableServer::ServantManager* imgr, CORBA::Environment& ev);
  PortableServer::ServantBase* get_servant(CORBA::Environment& ev);
  void set_servant(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  /// The map, made when there is none yet. NO_MEMORY.
  ActiveObjectMap* map_for_insert(const PoaSemaphoreGuard& held) ZR_REQUIRES(poa_semaphore);
  /// Announces the servant's implementation; when that fails, the entry just made is withdrawn.
  void register_active(const PortableServer::ObjectId& id, PortableServer::ServantBase& servant,
                       const ActiveObjectMap::Ticket& entry, CORBA::Environment& ev);

  // ---- Conversions (poainfo_conversion.cpp) ----
  PortableServer::ObjectId* servant_to_id(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  CORBA::Object* servant_to_reference(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  PortableServer::ServantBase* reference_to_servant(CORBA::Object* reference, CORBA::Environment& ev);
  PortableServer::ObjectId* reference_to_id(CORBA::Object* reference, CORBA::Environment& ev);
  PortableServer::ServantBase* id_to_servant(const PortableServer::ObjectId& oid, CORBA::Environment& ev);
  CORBA::Object* id_to_reference(const PortableServer::ObjectId& oid, CORBA::Environment& ev);

  // ---- Fields ----
  std::shared_ptr<zrsv::Gate> one_at_a_time;  // of a POA that runs one request at a time
  std::unique_ptr<Queue> requestCache;        // never made by the library
  POAManagerInfo* poa_managerInfo_ptr = nullptr;
  PolicySet policies;
  DefaultServant default_servant;

 private:
  void share_manager(PortableServer::POAManager* manager, CORBA::Environment& ev);
  POAInfoPtr ask_activator(PortableServer::AdapterActivator& activator, const char* name,
                           CORBA::Environment& ev);

  PortableServer::POA_var add_child(const char* name, PortableServer::POAManager* manager,
                                    const CORBA::PolicyList& list, CORBA::Environment& ev)
      ZR_REQUIRES(poa_mutex);
  void _destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                CORBA::Environment& ev) ZR_REQUIRES(poa_mutex);
  void destroy_children(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                        CORBA::Environment& ev) ZR_REQUIRES(poa_mutex);
  void etherealize_destroyed(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                             CORBA::Environment& ev);

  /// activate_object_with_id, for who has the id as one to search for, too.
  void activate_under(const PortableServer::ObjectId& id, const SearchedId& searched,
                      PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  /// Of a servant that was taken out of the map, in use: withdraws its reference, and gives it to the activator.
  void hand_back(const PortableServer::ObjectId& oid, PortableServer::ServantUse use, CORBA::Environment& ev);

  /// Installs a default servant (null: none) and takes the one before out, with the references kept for it.
  void exchange_default(PortableServer::ServantBase* servant, DefaultServant::Oid oid,
                        PortableServer::LeavingServant& leaving) ZR_REQUIRES(poa_default_servant_ref_mutex);

  PortableServer::POAManager* poa_manager = nullptr;                          // the manager record's
  std::atomic<PortableServer::AdapterActivator*> adapter_activator{nullptr};  // as given; not owned
  std::atomic<PortableServer::ServantManager*> servantManager_ptr{nullptr};   // likewise
  std::vector<CORBA::Object_var> counted ZR_GUARDED_BY(poa_mutex);            // those of them that count
};

/// The record of a node, which each node is part of; null for none.
inline POAInfoPtr record_of(POANodePtr node) { return std::static_pointer_cast<POAInfo>(std::move(node)); }
