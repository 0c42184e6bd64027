// The record of one POA: its place in the tree, its policies, its objects. A source file a concern:
//   poainfo.cpp (record, registry), poainfo_tree.cpp, poainfo_references.cpp, poainfo_activation.cpp,
//   poainfo_conversion.cpp, poainfo_dispatch.cpp (upcall), poainfo_managers.cpp (servant managers),
//   poainfo_lookup.cpp (from a reference to its POA), poainfo_registration.cpp; poamanagerinfo.cpp has what a
//   manager does to records.
#pragma once

#include <memory>

#include "activeobjectmap.h"
#include "corehandles.h"
#include "currentinfo.h"
#include "locks.h"
#include "ownobject.h"
#include "poamanagerinfo.h"
#include "policyset.h"
#include "queue.h"
#include "raise.h"

class POAInfo;
struct RequestTarget;
/// A record in use: it stays until the last holder lets go, also when its POA is destroyed meanwhile.
using POAInfoPtr = std::shared_ptr<POAInfo>;
/// A record's POA object; whoever holds it holds the record.
using POAObjectPtr = std::shared_ptr<PortableServer::POA>;

class POAInfo : public std::enable_shared_from_this<POAInfo> {
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
  static bool is_existent_sub(const POAInfo* parent, const POAInfo* target);
  /// Unlinks the record from its parent's children and from the table of live records.
  static void remove_from_list(POAInfo* target);
  /// Enters the record into the table of live records, which holds it. poa_mutex is held.
  static void enter_live(const POAInfoPtr& record);
  POAInfo* the_first_child() const { return first_child; }
  const char* the_adapter_name() const { return adapter_name; }
  POAManagerInfo* get_poa_manager_info() const { return poa_managerInfo_ptr; }

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
  void _destroy(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
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
  PortableServer::ServantManager* get_servant_manager(CORBA::Environment& ev);
  void set_servant_manager(PortableServer::ServantManager* imgr, CORBA::Environment& ev);
  PortableServer::ServantBase* get_servant(CORBA::Environment& ev);
  void set_servant(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  /// The map, made when there is none yet. NO_MEMORY.
  ActiveObjectMap* map_for_insert();
  /// Enters a copy of `id`; under UNIQUE_ID only when neither the servant nor the id is active. Gives the
  /// map's own id, to be compared only.
  const PortableServer::ObjectId* enter_active(const PortableServer::ObjectId& id,
                                               PortableServer::ServantBase& servant, CORBA::Environment& ev);
  /// Registers the servant's implementation; when that fails, the entry just made is withdrawn.
  void register_active(const PortableServer::ObjectId& id, PortableServer::ServantBase& servant,
                       const PortableServer::ObjectId* own_id, CORBA::Environment& ev);

  // ---- Conversions (poainfo_conversion.cpp) ----
  PortableServer::ObjectId* servant_to_id(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  CORBA::Object* servant_to_reference(PortableServer::ServantBase* p_servant, CORBA::Environment& ev);
  PortableServer::ServantBase* reference_to_servant(CORBA::Object* reference, CORBA::Environment& ev);
  PortableServer::ObjectId* reference_to_id(CORBA::Object* reference, CORBA::Environment& ev);
  PortableServer::ServantBase* id_to_servant(const PortableServer::ObjectId& oid, CORBA::Environment& ev);
  CORBA::Object* id_to_reference(const PortableServer::ObjectId& oid, CORBA::Environment& ev);
  /// Activates under `id` and returns that; the id it is active under already (UNIQUE_ID) when another thread
  /// was first.
  std::unique_ptr<PortableServer::ObjectId> activate_implicitly(std::unique_ptr<PortableServer::ObjectId> id,
                                                                PortableServer::ServantBase& servant,
                                                                const char* ready_trace,
                                                                CORBA::Environment& ev);
  /// A new reference, kept by the servant and bound in the ORB core.
  CORBA::Object* make_bound_reference(const PortableServer::ObjectId& oid,
                                      PortableServer::ServantBase& servant, CORBA::Environment& ev);

  // ---- Servant managers at dispatch (poainfo_managers.cpp) ----
  PortableServer::ServantBase* incarnate(CORBA::Object* target, CORBA::Environment& ev);
  PortableServer::ServantBase* preinvoke(CORBA::Object* target, const char* operation, CORBA::ULong& cookie,
                                         CORBA::Environment& ev);
  void postinvoke(CORBA::Object* target, const char* operation, CORBA::ULong cookie,
                  PortableServer::ServantBase* servant, CORBA::Environment& ev);

  // The same for a request's target, read once (dispatch.h). `incarnate_held` raises the servant's request
  // counter before it can be deleted; `find_servant` gives the active or default servant, held when asked, or
  // null.
  PortableServer::ServantBase* find_servant(const RequestTarget& target, bool hold);
  PortableServer::ServantBase* incarnate_held(const RequestTarget& target, CORBA::Environment& ev);
  PortableServer::ServantBase* enter_incarnated(const PortableServer::ObjectId& oid,
                                                PortableServer::ServantBase& servant, CORBA::Environment& ev);
  PortableServer::ServantBase* preinvoke(const RequestTarget& target, const char* operation,
                                         CORBA::ULong& cookie, CORBA::Environment& ev);
  void postinvoke(const RequestTarget& target, const char* operation, CORBA::ULong cookie,
                  PortableServer::ServantBase* servant, CORBA::Environment& ev);

  // ---- POA managers (poamanagerinfo.cpp) ----
  void activate(POAManagerInfo* poaManagerInfo_ptr, CORBA::Environment& ev);
  void deactivate(POAManagerInfo* poaManagerInfo_ptr, CORBA::Boolean etherealize_objects,
                  CORBA::Boolean wait_for_completion_, CORBA::Environment& ev);
  void deactivate(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                  CORBA::Environment& ev);

  /// Hands every active servant to the servant activator, when the POA has one and that is asked for.
  void etherealize_active(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                          CORBA::Environment& ev);

  // ---- Registration (poainfo_registration.cpp) ----
  static void POA_impl_is_ready(PortableServer::ServantBase* servant, const PortableServer::ObjectId* oid,
                                CORBA::Environment& ev);

  // ---- Fields ----
  const Identity identity;                                   // reference data of the POA object
  PortableServer::POA* poa_object = nullptr;                 // owned
  std::unique_ptr<Queue> requestCache;                       // never made by the library
  std::atomic<ActiveObjectMap*> active_object_map{nullptr};  // owned; made at the first activation
  POAInfo* first_child = nullptr;                            // links: guarded by poa_mutex
  POAInfo* siblings = nullptr;
  POAInfo* parent = nullptr;           // set before the record is linked, and kept when it is unlinked
  POAInfoPtr parent_record;            // holds `parent` for as long as someone may follow it
  std::atomic<bool> destroyed{false};  // being destroyed, or gone; written under poa_mutex
  PortableServer::POAManager* poa_manager = nullptr;  // as given; not owned
  POAManagerInfo* poa_managerInfo_ptr = nullptr;
  std::atomic<PortableServer::AdapterActivator*> adapter_activator{nullptr};  // as given; not owned
  char* adapter_name = nullptr;                                               // owned
  PolicySet policies;
  std::atomic<PortableServer::ServantManager*> servantManager_ptr{nullptr};  // as given; not owned
  std::atomic<PortableServer::ServantBase*> servant_default{nullptr};        // the program's
  std::shared_ptr<const PortableServer::ObjectId> oid_default;               // guarded by default_mutex
  mutable std::mutex default_mutex;  // installation of the default servant

  std::shared_ptr<const PortableServer::ObjectId> default_oid() const {
    std::lock_guard lock(default_mutex);
    return oid_default;
  }

  // ---- Statics ----
  static PortableServer::POA* root_poa;
  /// Counts the POAs that came, began to go, and went. While it stands, what was found in the tree is there.
  /// Written under poa_mutex.
  static std::atomic<std::uint64_t> tree_changes;

 private:
  /// Takes a record out of its parent's children and out of the table of live records; false, and nothing
  /// changed, when its parent has no such child. poa_mutex is held.
  static bool unlink(const POAInfo& child);
  static bool is_live(const POAInfo& record);
  /// Installs a default servant (null: none) and gives the one before. Its id is freed after the lock.
  PortableServer::ServantBase* exchange_default(PortableServer::ServantBase* servant,
                                                std::shared_ptr<const PortableServer::ObjectId> oid);
  /// Gives the record the shared default manager, which is made here the first time.
  void share_default_manager(CORBA::Environment& ev);
  POAInfoPtr ask_activator(PortableServer::AdapterActivator& activator, const char* name,
                           CORBA::Environment& ev);

  // poa_mutex is held.
  POAInfo* child_named(const char* name) const;
  /// Octets of the name part in the references of a child of that name.
  std::size_t name_part_length(std::string_view name) const;
  PortableServer::POA_var add_child(const char* name, PortableServer::POAManager* manager,
                                    const CORBA::PolicyList& list, CORBA::Environment& ev);
  void destroy_children(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                        CORBA::Environment& ev);
  void withdraw_default_servant();
  void etherealize_destroyed(CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                             CORBA::Environment& ev);
};

// ---- State of the process (poainfo.cpp; start-up sets it) ----
extern POAInfo* root_poa_info;
extern bool initialised;
extern CurrentInfo* current_info;
extern PortableServer::Current* poa_current;
extern POAManagerInfo* default_poa_manager_info;
extern PortableServer::POAManager* default_poa_manager;
extern std::atomic<PortableServer::POAdisconnect*> _disc_instance;

/// The POA that made a reference; missing POAs on its path are asked of adapter activators. Null when the ORB
/// core gives no reference data.
POAInfoPtr findPOAInfoByReference(CORBA::Object* reference, CORBA::Environment& ev);

// ---- Registration with the ORB core (poainfo_registration.cpp) ----
struct ZRImplementationDef {
  const char* impl_id;  // not copied; null marks a free entry
  void* implDef;
  unsigned char is_ready;
};
inline constexpr int IMPL_DEF_CACHE_SIZE = 1024;
extern ZRImplementationDef
    implDef_cache[IMPL_DEF_CACHE_SIZE];  // guarded by a mutex of poainfo_registration.cpp
extern std::atomic<const char*> POA_impl_name;
extern std::atomic<int> POA_impl_is_ready_fl;
ZRImplementationDef* FindImplementationDef(const char* impl_id);
ZRImplementationDef* InsertImplementationDef(const char* impl_id, void* implDef);
void _POA_impl_is_ready(void* _boa, CORBA::Environment& ev);
void clear_implementation_table();

// ---- Upcalls (exported) ----
extern "C" {
POA_API void* _poa_init(void* orb, void* boa);
POA_API void call_cpp_handler(void* target, void* request, CORBA_Environment* env);
POA_API void call_disconnect_cpp_handler(long fd, void* host_addr, unsigned char is_ipv6);
POA_API void call_poa_inst_lifespan(void);
}
