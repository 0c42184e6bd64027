// The active object map of a POA: blocks of 1024 slots, searched linearly.
#pragma once

#include "poa.h"

struct _ActiveObjectEntry {
  PortableServer::ObjectId* oid;           // owned; null marks a free slot
  PortableServer::ServantBase* p_servant;  // the program's
  unsigned char deactivated;
  CORBA::Long fd;              // descriptor of the client's connection, 0 when none
  CORBA::Long host_ipv4;       // as the ORB core delivers it; 0 for IPv6
  unsigned char host_ipv6[16]; // zero for IPv4
};

/// One block; a POA's map is the chain that starts at its active_object_map. Every block of the process is also in the list that starts at _root_aom.
/// All operations take the POA semaphore and are called on a map's first block.
class ActiveObjectMap {
 public:
  static constexpr int SLOTS = 1024;

  ActiveObjectMap();
  ~ActiveObjectMap();
  ActiveObjectMap(const ActiveObjectMap&) = delete;
  ActiveObjectMap& operator=(const ActiveObjectMap&) = delete;

  /// Takes over `oid`, also when it throws (NO_MEMORY: no room for another block).
  ActiveObjectMap* insertActiveObjectMap(PortableServer::ObjectId* oid, PortableServer::ServantBase* p_servant);
  /// With `hold`, the servant's request counter is raised before the semaphore is given back, so that it cannot be deleted meanwhile; the caller
  /// gives it back (remove_ref_counter).
  PortableServer::ServantBase* findServantById(const PortableServer::ObjectId& oid, bool hold = false);
  /// The map's own id, valid until it is removed: see copyOidByServant for a copy made under the semaphore.
  PortableServer::ObjectId* findOidByServant(PortableServer::ServantBase* p_servant);
  /// A copy of the id found, or null; owned by the caller.
  PortableServer::ObjectId* copyOidByServant(PortableServer::ServantBase* p_servant);
  void deactivateByOid(const PortableServer::ObjectId& oid);
  void removeById(const PortableServer::ObjectId& oid);
  PortableServer::ServantBase* searchServantByClientData(CORBA::Long fd, const void* host_addr, unsigned char is_ipv6);
  void clear_servants(PortableServer::POA* poa);
  void etherealize(PortableServer::POA* poa_ptr, CORBA::Boolean etherealize_objects, CORBA::Boolean wait_for_completion_,
                   PortableServer::ServantActivator* servantActivator_ptr, CORBA::Environment& _ev);

  /// Frees every slot of the process that holds `servant`: for a servant about to be deleted.
  static void forget_servant(PortableServer::ServantBase* servant);

  ActiveObjectMap* _next_aom;  // process-wide list; guarded by the POA semaphore
  ActiveObjectMap* _pre_aom;
  _ActiveObjectEntry entries[SLOTS];
  ActiveObjectMap* next;  // next block of the same map
};

extern ActiveObjectMap* _root_aom;  // guarded by the POA semaphore

/// Same length, same octets.
bool oid_is_equivalent(const PortableServer::ObjectId& a, const PortableServer::ObjectId& b);

/// A list of servants, handled through its head pointer. Takes no lock; its users do.
class POA_ServantList {
 public:
  static void add_servant(POA_ServantList*& list, PortableServer::ServantBase* svt);
  static void remove_servant(POA_ServantList*& list, PortableServer::ServantBase* svt);
  static bool search_servant(const POA_ServantList* list, const PortableServer::ServantBase* svt);
  POA_ServantList* get_next() const { return _next; }
  void set_next(POA_ServantList* next) { _next = next; }
  PortableServer::ServantBase* get_servant() const { return _svt; }

 private:
  PortableServer::ServantBase* _svt = nullptr;
  POA_ServantList* _next = nullptr;
};

extern POA_ServantList* servant_delete_list;    // guarded by poa_svt_delete_mutex
extern POA_ServantList* servant_lifespan_list;  // guarded by poa_svt_lifespan_mutex

namespace PortableServer {

/// A servant's list of the references made for it.
class ObjectRefList {
 public:
  ObjectRefList() = default;
  /// Frees the rest of the chain, nothing else.
  ~ObjectRefList();
  ObjectRefList(const ObjectRefList&) = delete;
  ObjectRefList& operator=(const ObjectRefList&) = delete;

  POA* get_poa() const { return _m_poa; }
  void set_poa(POA* poa) { _m_poa = poa; }
  ObjectId* get_oid() const { return _m_oid; }
  void set_oid(ObjectId* oid) { _m_oid = oid; }
  CORBA::Object* get_object_ref() const { return _m_object_ref; }
  void set_object_ref(CORBA::Object* ref) { _m_object_ref = ref; }
  ObjectRefList* get_next() const { return next; }
  void set_next(ObjectRefList* n) { next = n; }

 private:
  POA* _m_poa = nullptr;
  ObjectId* _m_oid = nullptr;
  CORBA::Object* _m_object_ref = nullptr;
  ObjectRefList* next = nullptr;
};

/// What the library may see of a servant beyond its public face.
struct ServantAccess {
  static ObjectRefList* references(const ServantBase& s) { return s._object_ref; }
  static ObjectRefList*& references(ServantBase& s) { return s._object_ref; }
  static CORBA::Object*& target(ServantBase& s) { return s._obj_ref; }
  static CORBA::ULong default_count(const ServantBase& s) { return s._default_servant; }
};

}  // namespace PortableServer
