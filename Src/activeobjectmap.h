// The active object map of a POA: blocks of 1024 slots in order, and an index beside them.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "common_poa.h"
#include "ownobject.h"
#include "poa.h"
#include "servants.h"
#include "slotindex.h"

struct _ActiveObjectEntry {
  PortableServer::ObjectId* oid;           // owned; null marks a free slot
  PortableServer::ServantBase* p_servant;  // the program's
  unsigned char deactivated;
  unsigned char etherealized;   // handed to the activator's etherealize: the servant may be gone, nothing
                                // touches it any more
  CORBA::Long fd;               // descriptor of the client's connection, 0 when none
  CORBA::Long host_ipv4;        // as the ORB core delivers it; 0 for IPv6
  unsigned char host_ipv6[16];  // zero for IPv4
};

/// One block; a POA's map is the chain that starts at its active_object_map. Every block of the process is
/// also in the list that starts at _root_aom. All operations take the POA semaphore and are called on a map's
/// first block. Entries change through them only: beside each slot stand two keys, of its id and of its
/// servant, which a search reads instead of the entries; and the map's first block has an index that knows
/// where each id and each servant stands first. What is found by it is what a search from front to back finds.
class ActiveObjectMap {
 public:
  static constexpr int SLOTS = 1024;

  ActiveObjectMap();
  /// Frees the blocks behind it and the ids, and counts down the servants that are still active.
  ~ActiveObjectMap();
  ActiveObjectMap(const ActiveObjectMap&) = delete;
  ActiveObjectMap& operator=(const ActiveObjectMap&) = delete;

  /// Takes over `oid`, also when it throws (NO_MEMORY: no room for another block).
  ActiveObjectMap* insertActiveObjectMap(PortableServer::ObjectId* oid,
                                         PortableServer::ServantBase* p_servant);
  /// The servant is the program's, which may delete it once the semaphore is free.
  PortableServer::ServantBase* findServantById(std::string_view oid);
  PortableServer::ServantBase* findServantById(const PortableServer::ObjectId& oid) {
    return findServantById(oid_view(oid));
  }
  /// The same, in use before the semaphore is free. One that was etherealized cannot be had: none.
  PortableServer::ServantUse useServantById(std::string_view oid);
  /// The map's own id, valid until it is removed: see copyOidByServant for a copy made under the semaphore.
  PortableServer::ObjectId* findOidByServant(PortableServer::ServantBase* p_servant);
  /// A copy of the id found, or null; owned by the caller.
  PortableServer::ObjectId* copyOidByServant(PortableServer::ServantBase* p_servant);
  /// Whether the servant is active under that id.
  bool holds(std::string_view oid, const PortableServer::ServantBase* p_servant);
  /// Of entries in use only, as the look-ups: one whose servant was etherealized stays as it is.
  void deactivateByOid(const PortableServer::ObjectId& oid);
  void removeById(const PortableServer::ObjectId& oid);
  /// Only the entries of that servant; an id that went over to another servant stays.
  void removeById(const PortableServer::ObjectId& oid, const PortableServer::ServantBase* p_servant);
  /// Exactly one entry: the one that holds this very id for this servant. Nothing when it is gone.
  void removeInserted(const PortableServer::ObjectId* own_oid, const PortableServer::ServantBase* p_servant);
  PortableServer::ServantBase* searchServantByClientData(CORBA::Long fd, const void* host_addr,
                                                         unsigned char is_ipv6);
  /// Withdraws each servant's reference, one at a time under poa_svt_objref_mutex and the POA semaphore: a
  /// servant that another thread has deactivated is not touched.
  void clear_servants(PortableServer::POA* poa);
  /// Each servant is handed over once, one after the other, without the semaphore: the program's code may
  /// block and may delete the servant.
  void etherealize(PortableServer::POA* poa_ptr, CORBA::Boolean etherealize_objects,
                   CORBA::Boolean wait_for_completion_,
                   PortableServer::ServantActivator* servantActivator_ptr, CORBA::Environment& ev);

  /// Frees every slot of the process that holds `servant`: for a servant about to be deleted.
  static void forget_servant(PortableServer::ServantBase* servant);

  /// A slot of the process. Blocks may come and go while one is kept.
  struct Place {
    std::uint64_t block = 0;  // its number
    int slot = -1;
  };
  /// The servant of the next entry behind `at`, in any map, that is recorded for that client; null when there
  /// is none. `at` becomes the entry's place. The POA semaphore is held.
  static PortableServer::ServantBase* next_of_client(Place& at, CORBA::Long fd, const void* host_addr,
                                                     unsigned char is_ipv6);
  /// The servant's entries are recorded for that client no more. The POA semaphore is held.
  static void forget_client(PortableServer::ServantBase& servant, CORBA::Long fd, const void* host_addr,
                            unsigned char is_ipv6);
  /// Whether that servant is active in that place. The POA semaphore is held.
  static bool is_at(const Place& place, const PortableServer::ServantBase* servant);

  ActiveObjectMap* _next_aom;  // process-wide list; guarded by the POA semaphore
  ActiveObjectMap* _pre_aom;
  std::uint64_t number;  // rises along that list
  _ActiveObjectEntry entries[SLOTS];
  ActiveObjectMap* next;  // next block of the same map

 private:
  using Position = SlotIndex::Position;  // block * SLOTS + slot, counted from the map's first
  /// Of a whole map.
  struct Chain {
    std::vector<ActiveObjectMap*> blocks;
    std::size_t room = 0;  // no block before this one has a free slot
    SlotIndex ids, servants;

    _ActiveObjectEntry& entry(Position p) const { return blocks[p / SLOTS]->entries[p % SLOTS]; }
  };
  explicit ActiveObjectMap(Chain& of);
  ActiveObjectMap* add_block();
  /// Makes chain.room the first block with a free slot; false when that is a new one. NO_MEMORY.
  bool find_room();

  struct Cursor;
  struct Client;
  using Key = std::uint32_t;  // equal for equal ids, and for equal servants; else hardly ever
  using Keys = Key[SLOTS];
  static constexpr int GROUP = 64;  // slots to a word of `taken`, compared together

  struct ById;
  struct ByServant;
  /// The first entry of the chain that is `wanted` and matches, or null.
  template <class Wanted, class Match>
  _ActiveObjectEntry* find(const Wanted& wanted, Match&& match);
  template <class Wanted, class Match>
  void remove_first_of_each_block(const Wanted& wanted, Match&& match);
  /// Of this block, from that slot on; SLOTS when there is none.
  int find_client(const Client& client, int from) const;
  template <class Work>
  static void each_of_servant(PortableServer::ServantBase& servant, Work&& work);
  /// The next entry whose servant was not etherealized; the cursor moves past it.
  static _ActiveObjectEntry* next_active(Cursor& at);
  // Of one block:
  template <class Wanted, class Match>
  _ActiveObjectEntry* find_here(const Wanted& wanted, Match&& match);
  int fill_free_slot(PortableServer::ObjectId* oid, PortableServer::ServantBase* p_servant,
                     const Client& client);
  void vacate(_ActiveObjectEntry& entry);
  Position position_of(const _ActiveObjectEntry& entry) const {
    return index * SLOTS + static_cast<Position>(&entry - entries);
  }
  template <class Wanted>
  void enter_index(const Wanted& wanted, Position p);
  template <class Wanted>
  void leave_index(const Wanted& wanted, Position p);
  template <class Wanted>
  Position first_of(const Wanted& wanted) const;
  /// The first entry that is `wanted` and matches in the blocks from `from` on.
  template <class Wanted, class Match>
  _ActiveObjectEntry* scan(std::size_t from, const Wanted& wanted, Match&& match) const;

  Chain own_chain;                          // in use in a map's first block
  Chain& chain;                             // the map's
  Position index = 0;                       // of this block in the map
  int groups = 0;                           // words of `taken` that were ever in use
  int used = 0;                             // slots taken in this block
  std::uint64_t taken[SLOTS / GROUP] = {};  // a bit a slot
  Keys oid_keys = {}, servant_keys = {};    // those of free slots mean nothing
};

extern ActiveObjectMap* _root_aom;  // guarded by the POA semaphore
