// The active object map of a POA: blocks of 1024 slots in order, and an index beside them.
#pragma once

#include <memory>
#include <vector>

#include "base/locks.h"
#include "objects/clientdata.h"
#include "objects/largepages.h"
#include "objects/packedoid.h"
#include "objects/servants.h"
#include "objects/slotindex.h"
#include "objects/useorder.h"
#include "poa.h"

/// A slot: two of them to a line of the processor's cache.
struct alignas(32) _ActiveObjectEntry {
  PackedObjectId oid;
  PortableServer::ServantBase* p_servant = nullptr;  // the program's; null marks a free slot
  CORBA::ULong serial = 0;                           // of the activation, in its map
  CORBA::ULong client : KnownClients::BITS = KnownClients::NONE;
  CORBA::ULong deactivated : 1 = 0;
  CORBA::ULong etherealized : 1 =
      0;                         // handed to the activator's etherealize: the servant may be gone, nothing
                                 // touches it any more
  CORBA::ULong indexed : 1 = 0;  // in the index of servants; else the servant knows where the entry is

  /// `counted` has been counted for the entry; the one before is counted no more.
  void record_client(KnownClients::Number counted) ZR_REQUIRES(poa_semaphore) {
    known_clients.leave(client);
    client = counted & ((CORBA::ULong{1} << KnownClients::BITS) - 1);
  }
};
static_assert(sizeof(_ActiveObjectEntry) == 32);

/// One block; a POA's map is the chain that starts at its active_object_map. Every block of the process is
/// also in the list that starts at _root_aom. All operations are called on a map's first block and take the
/// POA semaphore, or show that the caller has it. Entries change through them only: the map's first block has an
/// index that knows where each id and each servant stands first. What is found by it is what a search from front to
/// back finds. Slots that no object was in yet are not touched.
class ActiveObjectMap {
 public:
  static constexpr int SLOTS = 1024;
  using Held = PoaSemaphoreGuard;  // the proof that the caller has the semaphore

  /// One activation: an entry for as long as nobody takes it out.
  struct Ticket {
    SlotIndex::Position position = SlotIndex::NONE;
    CORBA::ULong serial = 0;

    /// Of an activation that was found. Whether it is still there says `at`.
    explicit operator bool() const { return position != SlotIndex::NONE; }
  };

  ActiveObjectMap();
  /// Frees the blocks behind it and the ids, and counts down the servants that are still active.
  ~ActiveObjectMap();
  ActiveObjectMap(const ActiveObjectMap&) = delete;
  ActiveObjectMap& operator=(const ActiveObjectMap&) = delete;

  /// Into the first free slot. std::bad_alloc, and nothing changed.
  Ticket insertActiveObjectMap(const Held& held, const SearchedId& id, PortableServer::ServantBase* p_servant)
      ZR_REQUIRES(poa_semaphore);
  /// The same for an object that an activator made: it counts towards the limit.
  Ticket insertIncarnated(const Held& held, const SearchedId& id, PortableServer::ServantBase* p_servant)
      ZR_REQUIRES(poa_semaphore);
  /// Any thread, without the semaphore: a search for that id, or for those of that key, comes soon. It will find what it
  /// reads in the cache.
  void expect(SearchedId::Key key) const { chain.ids.prefetch(key); }
  /// How many objects that an activator makes from now on may be active; 0: any number. std::bad_alloc.
  void limit_incarnated(const Held& held, std::size_t most) ZR_REQUIRES(poa_semaphore);
  /// When there are more, the one of them that was used longest ago, but for those that somebody is in.
  Ticket unused_over_limit(const Held& held) ZR_REQUIRES(poa_semaphore);
  /// The first entry in use that has that id, or that servant. It is recorded for the calling thread's client.
  Ticket findById(const Held& held, const SearchedId& id) ZR_REQUIRES(poa_semaphore);
  Ticket findByServant(const Held& held, PortableServer::ServantBase* p_servant) ZR_REQUIRES(poa_semaphore);
  /// The entry, if it is still the same activation and in use; else null. Good until the map changes.
  const _ActiveObjectEntry* at(const Held& held, const Ticket& ticket) const ZR_REQUIRES(poa_semaphore);

  /// The servant is the program's, which may delete it once the semaphore is free.
  PortableServer::ServantBase* findServantById(const SearchedId& id);
  /// The same, in use before the semaphore is free. One that was etherealized cannot be had: none.
  PortableServer::ServantUse useServantById(const SearchedId& id);
  PortableServer::ServantUse useServantById(const Held& held, const SearchedId& id)
      ZR_REQUIRES(poa_semaphore);
  /// Whether an object of that id is active. No look-up: it has no trace line, and records no client.
  bool has(const Held& held, const SearchedId& id) const ZR_REQUIRES(poa_semaphore);
  /// Whether the servant is active under that id.
  bool holds(const Held& held, const SearchedId& id, const PortableServer::ServantBase* p_servant)
      ZR_REQUIRES(poa_semaphore);

  /// Of entries in use only, as the look-ups: one whose servant was etherealized stays as it is.
  void deactivateByOid(const Held& held, const SearchedId& id) ZR_REQUIRES(poa_semaphore);
  /// In each block the first one.
  void removeById(const Held& held, const SearchedId& id) ZR_REQUIRES(poa_semaphore);
  /// Only the entries of that servant; an id that went over to another servant stays.
  void removeById(const Held& held, const SearchedId& id, const PortableServer::ServantBase* p_servant)
      ZR_REQUIRES(poa_semaphore);
  /// Both for one that findById found just now, and its servant: without a look-up.
  void takeById(const Held& held, const SearchedId& id, const Ticket& found) ZR_REQUIRES(poa_semaphore);
  /// Exactly that one. Nothing when it is gone.
  void remove(const Ticket& ticket);

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
  /// Gives back the counts of the servants that a POA still has when it is destroyed.
  void let_go_of_servants();

  /// A slot of the process. Blocks may come and go while one is kept.
  struct Place {
    std::uint64_t block = 0;  // its number
    int slot = -1;
  };
  /// The servant of the next entry behind `at`, in any map, that is recorded for that client; null when there
  /// is none. `at` becomes the entry's place.
  static PortableServer::ServantBase* next_of_client(const Held& held, Place& at, const ClientData& client)
      ZR_REQUIRES(poa_semaphore);
  /// The servant's entries are recorded for that client no more.
  static void forget_client(const Held& held, PortableServer::ServantBase& servant, const ClientData& client)
      ZR_REQUIRES(poa_semaphore);
  /// Whether that servant is active in that place.
  static bool is_at(const Held& held, const Place& place, const PortableServer::ServantBase* servant)
      ZR_REQUIRES(poa_semaphore);

  ActiveObjectMap* _next_aom ZR_GUARDED_BY(poa_semaphore) = nullptr;  // process-wide list
  ActiveObjectMap* _pre_aom ZR_GUARDED_BY(poa_semaphore) = nullptr;
  std::uint64_t number;  // rises along that list
  using Entries = std::vector<_ActiveObjectEntry, GivenMemory<_ActiveObjectEntry>>;
  Entries entries ZR_GUARDED_BY(poa_semaphore);                  // those that were ever in use; at most SLOTS
  ActiveObjectMap* next ZR_GUARDED_BY(poa_semaphore) = nullptr;  // next block of the same map

 private:
  using Position = SlotIndex::Position;  // block * SLOTS + slot, counted from the map's first
  /// Of a whole map.
  struct Chain {
    std::vector<ActiveObjectMap*> blocks;
    std::size_t room = 0;                          // no block before this one has a free slot
    SharedPages<_ActiveObjectEntry, SLOTS> pages;  // of the blocks from SHARING on
    CORBA::ULong last_serial = 0;
    SlotIndex ids, servants;
    std::unique_ptr<UseOrder> incarnated;  // of objects that an activator made, where they are limited

    /// Not checked, because the index calls it back; who has a chain to ask has the semaphore.
    _ActiveObjectEntry& entry(Position p) const ZR_NOT_CHECKED {
      return blocks[p / SLOTS]->entries[p % SLOTS];
    }
  };
  explicit ActiveObjectMap(Chain& of);
  ActiveObjectMap* add_block() ZR_REQUIRES(poa_semaphore);
  /// Makes chain.room the first block with a free slot; false when that is a new one. std::bad_alloc.
  bool find_room() ZR_REQUIRES(poa_semaphore);

  struct Cursor;
  static constexpr int GROUP = 64;  // slots to a word of `taken`
  /// From this block on a map takes memory for many at once: what of that is not used is little beside the rest.
  static constexpr Position SHARING = 256;

  struct ById;
  struct ByServant;
  /// The first entry of the chain that is `wanted` and matches, or NONE.
  template <class Wanted, class Match>
  Position find(const Wanted& wanted, Match&& match) const ZR_REQUIRES(poa_semaphore);
  /// An entry and where it stands; null: none.
  struct Hit {
    _ActiveObjectEntry* entry = nullptr;
    Position position = SlotIndex::NONE;

    Ticket ticket() const { return {position, entry ? entry->serial : 0}; }
  };
  Hit look_up(const SearchedId& id) ZR_REQUIRES(poa_semaphore);
  Hit look_up(PortableServer::ServantBase* p_servant) ZR_REQUIRES(poa_semaphore);
  /// The entry that the servant knows, if it is one of this map; else NONE. Then it has no other one here in use.
  Position home_of(PortableServer::ServantBase& servant) const ZR_REQUIRES(poa_semaphore);
  void reserve_index(PortableServer::ServantBase& servant) ZR_REQUIRES(poa_semaphore);
  void enter_servant(_ActiveObjectEntry& entry, Position p) ZR_REQUIRES(poa_semaphore);
  template <class Wanted, class Match>
  void remove_first_of_each_block(Position first, const Wanted& wanted, Match&& match)
      ZR_REQUIRES(poa_semaphore);
  void deactivate_at(Position p) ZR_REQUIRES(poa_semaphore);
  /// Of this block, from that slot on; entries.size() when there is none.
  int find_client(const ClientData& client, int from) const ZR_REQUIRES(poa_semaphore);
  template <class Work>
  static void each_of_servant(PortableServer::ServantBase& servant, Work&& work) ZR_REQUIRES(poa_semaphore);
  /// The next entry whose servant was not etherealized; the cursor moves past it.
  static _ActiveObjectEntry* next_active(Cursor& at) ZR_REQUIRES(poa_semaphore);
  // Of one block:
  /// The first slot from `from` on that is `wanted` and matches, or -1.
  template <class Wanted, class Match>
  int find_here(int from, const Wanted& wanted, Match&& match) const ZR_REQUIRES(poa_semaphore);
  int first_free() ZR_REQUIRES(poa_semaphore);
  void grow() ZR_REQUIRES(poa_semaphore);
  int fill_free_slot(PackedObjectId&& oid, const SearchedId& id, PortableServer::ServantBase* p_servant,
                     KnownClients::Number client) ZR_REQUIRES(poa_semaphore);
  void vacate(int slot) ZR_REQUIRES(poa_semaphore);
  Position position_of(int slot) const { return index * SLOTS + static_cast<Position>(slot); }
  template <class Wanted>
  void enter_index(const Wanted& wanted, Position p) ZR_REQUIRES(poa_semaphore);
  template <class Wanted>
  void leave_index(const Wanted& wanted, Position p) ZR_REQUIRES(poa_semaphore);
  template <class Wanted>
  Position first_of(const Wanted& wanted) const ZR_REQUIRES(poa_semaphore);
  /// The first entry that is `wanted` and matches from that position on, or NONE.
  template <class Wanted, class Match>
  Position scan(Position from, const Wanted& wanted, Match&& match) const ZR_REQUIRES(poa_semaphore);

  Chain own_chain;                                                       // in use in a map's first block
  Chain& chain;                                                          // the map's
  Position index = 0;                                                    // of this block in the map
  int used ZR_GUARDED_BY(poa_semaphore) = 0;                             // slots taken in this block
  std::uint64_t taken[SLOTS / GROUP] ZR_GUARDED_BY(poa_semaphore) = {};  // a bit a slot
  int first_room ZR_GUARDED_BY(poa_semaphore) = 0;                       // no word before it has a free slot
};

extern ActiveObjectMap* _root_aom ZR_GUARDED_BY(poa_semaphore);
