// The record of one POA: its place in the tree, its policies, its objects. A source file a concern:
// poainfo.cpp (life, proof of life), poainfo_tree.cpp, poainfo_references.cpp, poainfo_activation.cpp,
// poainfo_conversion.cpp.
#pragma once

#include <unordered_map>
#include <vector>

#include "objects/activeobjectmap.h"
#include "objects/objecthome.h"
#include "records/defaultservant.h"
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
class POAInfo : public ObjectHome, public std::enable_shared_from_this<POAInfo> {
 public:
  POAInfo();
  /// A record for a new POA, not yet in the tree and without a POA object.
  POAInfo(const char* _adapter_name, PortableServer::POAManager* a_POAManager, const CORBA::PolicyList& list,
          CORBA::Environment& ev);
  ~POAInfo();
  POAInfo(const POAInfo&) = delete;
  POAInfo& operator=(const POAInfo&) = delete;

  // ---- The record (poainfo.cpp) ----
  /// Makes the record's POA object.
  PortableServer::POA* createObject(CORBA::Environment& ev);
  /// The live record of a POA object, or null. Never raises.
  static POAInfoPtr findPOAInfo(PortableServer::POA* _this, CORBA::Environment& ev);
  static bool is_existent(const POAInfo* target);
  /// Unlinks the record from its parent's children and from the table of live records.
  static void remove_from_list(POAInfo* target);
  /// Enters the record into the table of live records, which holds it.
  static void enter_live(const POAInfoPtr& record) ZR_REQUIRES(poa_mutex);

  // ---- The tree (poainfo_tree.cpp) ----
  /// The caller's own reference to the child, which is in the tree only when everything has worked.
  PortableServer::POA_var create_POA(const char* _adapter_name, PortableServer::POAManager* a_POAManager,
                                     const CORBA::PolicyList& list, CORBA::Environment& ev);
  POAObjectPtr find_POA(const char* _adapter_name, CORBA::Boolean activate_it, CORBA::Environment& ev);
  /// Never null: AdapterNonExistent, or BAD_PARAM for a null name. With `act`, a missing child is asked of
  /// the adapter activator, which is called with no lock held.
  POAInfoPtr findChildByName(const char* _adapter_name, CORBA::Environment& ev, CORBA::Boolean act);
  /// The child, or null.
  POAInfo* child_named(std::string_view name) const ZR_REQUIRES(poa_mutex);
  POAInfo* the_first_child() const ZR_REQUIRES(poa_mutex) { return first_child; }
  const char* the_adapter_name() const { return adapter_name; }
  char* the_name(CORBA::Environment& ev);
  PortableServer::POA* the_parent(CORBA::Environment& ev);
  PortableServer::POAList* the_children(CORBA::Environment& ev);
  PortableServer::POAManager* the_POAManager(CORBA::Environment& ev);
  PortableServer::AdapterActivator* the_activator(CORBA::Environment& ev);
  void the_activator(PortableServer::AdapterActivator* adapterActivator_ptr, CORBA::Environment& ev);
  void destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
               CORBA::Environment& ev);

  // ---- References (poainfo_references.cpp) ----
  /// Writes the name part of the POA's references; false when there is no room.
  bool createNameReferenceData(CORBA_sequence_octet* referenceData) const;
  CORBA::Object* POACreateReference(const PortableServer::ObjectId& oid, const char* intf,
                                    CORBA::Environment& ev);
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
  std::shared_ptr<zrsv::Gate> turnstile;  // of a POA that runs one request at a time
  std::vector<CORBA::Object_var> counted ZR_GUARDED_BY(poa_mutex);  // managers and activators that count
  std::unique_ptr<Queue> requestCache;                              // never made by the library
  POAInfo* first_child ZR_GUARDED_BY(poa_mutex) = nullptr;
  POAInfo* siblings ZR_GUARDED_BY(poa_mutex) = nullptr;  // the next child of the same parent; newest first
  POAInfo* newer_sibling ZR_GUARDED_BY(poa_mutex) = nullptr;
  std::unordered_map<std::string_view, POAInfo*> children ZR_GUARDED_BY(poa_mutex);  // by name
  POAInfo* parent = nullptr;           // set before the record is linked, and kept when it is unlinked
  POAInfoPtr parent_record;            // holds `parent` for as long as someone may follow it
  std::atomic<bool> destroyed{false};  // being destroyed, or gone; written under poa_mutex
  PortableServer::POAManager* poa_manager = nullptr;  // the manager record's
  POAManagerInfo* poa_managerInfo_ptr = nullptr;
  std::atomic<PortableServer::AdapterActivator*> adapter_activator{nullptr};  // as given; not owned
  char* adapter_name = nullptr;                                               // owned
  PolicySet policies;
  std::atomic<PortableServer::ServantManager*> servantManager_ptr{nullptr};  // as given; not owned
  DefaultServant default_servant;

  static PortableServer::POA* root_poa;
  /// Counts the POAs that came, began to go, and went. While it stands, what was found in the tree is there.
  /// Written under poa_mutex.
  static std::atomic<std::uint64_t> tree_changes;

 private:
  static bool is_below(const POAInfo* parent, const POAInfo* target) ZR_REQUIRES(poa_mutex);
  static bool is_live(const POAInfo& record) ZR_REQUIRES(poa_mutex);
  void share_manager(PortableServer::POAManager* manager, CORBA::Environment& ev);
  POAInfoPtr ask_activator(PortableServer::AdapterActivator& activator, const char* name,
                           CORBA::Environment& ev);

  /// Takes a record out of its parent's children and out of the table of live records; false, and nothing
  /// changed, when its parent has no such child.
  static bool unlink(const POAInfo& child) ZR_REQUIRES(poa_mutex);
  /// Octets of the name part in the references of a child of that name.
  std::size_t name_part_length(std::string_view name) const;
  PortableServer::POA_var add_child(const char* name, PortableServer::POAManager* manager,
                                    const CORBA::PolicyList& list, CORBA::Environment& ev)
      ZR_REQUIRES(poa_mutex);
  void _destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                CORBA::Environment& ev) ZR_REQUIRES(poa_mutex);
  void destroy_children(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                        CORBA::Environment& ev) ZR_REQUIRES(poa_mutex);
  void etherealize_destroyed(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                             CORBA::Environment& ev);

  /// Of a servant that was taken out of the map, in use: withdraws its reference, and gives it to the activator.
  void hand_back(const PortableServer::ObjectId& oid, PortableServer::ServantUse use, CORBA::Environment& ev);

  /// Installs a default servant (null: none) and takes the one before out, with the references kept for it.
  void exchange_default(PortableServer::ServantBase* servant, DefaultServant::Oid oid,
                        PortableServer::LeavingServant& leaving) ZR_REQUIRES(poa_default_servant_ref_mutex);
};

extern POAInfo* root_poa_info;
