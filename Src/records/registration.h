// Announcing implementations to the ORB core: the whole process under one name, or interface by interface as
// servants are activated.
#pragma once

#include <atomic>

#include "poa/servant.h"
#include "zrsv/thread_safety.h"

struct ZRImplementationDef {
  const char* impl_id;  // not copied; null marks a free entry
  void* implDef;
  unsigned char is_ready;
};
inline constexpr int IMPL_DEF_CACHE_SIZE = 1024;
/// Guards the table, and one registration after the other. Nothing of the adapter is locked under it.
extern zrsv::RecursiveMutex& registration_mutex;
extern ZRImplementationDef implDef_cache[IMPL_DEF_CACHE_SIZE] ZR_GUARDED_BY(registration_mutex);
extern std::atomic<const char*> POA_impl_name;
extern std::atomic<int> POA_impl_is_ready_fl;

/// The table's entry, or null.
ZRImplementationDef* FindImplementationDef(const char* impl_id);
/// The same, entered when it was not there. NO_MEMORY when the table is full.
ZRImplementationDef* InsertImplementationDef(const char* impl_id, void* implDef);
void clear_implementation_table();

/// Announces the interface of a servant that has become active under `oid`, unless that was done. BAD_PARAM when
/// the ORB core refuses.
void POA_impl_is_ready(PortableServer::ServantBase* servant, const PortableServer::ObjectId* oid,
                       CORBA::Environment& ev);
/// Announces the whole process, once. BAD_PARAM when the ORB core refuses.
void _POA_impl_is_ready(void* boa, CORBA::Environment& ev);
