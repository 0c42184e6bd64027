#include "objects/activeobjectmap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <new>

#include "base/trace.h"
#include "objects/adapteractivation.h"
#include "objects/servantreferences.h"

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantAccess;
using PortableServer::ServantBase;
using PortableServer::ServantUse;

ActiveObjectMap* _root_aom = nullptr;

namespace {

ActiveObjectMap* last_block ZR_GUARDED_BY(poa_semaphore) = nullptr;  // of the list that starts at _root_aom
std::uint64_t last_number ZR_GUARDED_BY(poa_semaphore) = 0;          // of a block

/// An etherealized servant may be gone: its entry answers nothing any more.
constexpr auto IN_USE = [](const _ActiveObjectEntry& e) { return !e.etherealized; };

/// For an entry that was found: outside requests it keeps the client that it has. std::bad_alloc, and nothing changed.
void refresh_client(_ActiveObjectEntry& entry) ZR_REQUIRES(poa_semaphore) {
  ClientData client;
  if (!client.become_current() || known_clients[entry.client] == client) return;
  entry.record_client(known_clients.enter(client));
}

bool is_of(const ClientData& client, const _ActiveObjectEntry& entry) ZR_REQUIRES(poa_semaphore) {
  constexpr unsigned char none[16] = {};
  const ClientData& own = known_clients[entry.client];
  if (own.fd != client.fd) return false;
  return client.is_ipv6 ? std::memcmp(own.is_ipv6 ? own.host : none, client.host, sizeof client.host) == 0
                        : own.host_ipv4() == client.host_ipv4();
}

}  // namespace

// ---- Blocks -------------------------------------------------------------------------------------

ActiveObjectMap::ActiveObjectMap() : ActiveObjectMap(own_chain) { chain.blocks.push_back(this); }

ActiveObjectMap::ActiveObjectMap(Chain& of) : chain(of) {
  chain.blocks.reserve(chain.blocks.size() + 1);
  PoaSemaphoreGuard guard(__LINE__);
  number = ++last_number;
  _pre_aom = last_block;
  (last_block ? last_block->_next_aom : _root_aom) = this;
  last_block = this;
}

ActiveObjectMap* ActiveObjectMap::add_block() {
  auto* block = new ActiveObjectMap(chain);
  block->index = static_cast<Position>(chain.blocks.size());
  chain.blocks.back()->next = block;
  chain.blocks.push_back(block);
  return block;
}

ActiveObjectMap::~ActiveObjectMap() {
  PoaSemaphoreGuard guard(__LINE__);
  (_pre_aom ? _pre_aom->_next_aom : _root_aom) = _next_aom;
  (_next_aom ? _next_aom->_pre_aom : last_block) = _pre_aom;
  for (const _ActiveObjectEntry& entry : entries) {
    if (entry.p_servant && !entry.etherealized) ServantAccess::count_entry(*entry.p_servant, -1);
    known_clients.leave(entry.client);
  }
  while (ActiveObjectMap* block = next) {  // one by one: a long chain is no deep recursion
    next = std::exchange(block->next, nullptr);
    delete block;
  }
}

/// A map's later blocks fill up, most likely; its first one starts small.
void ActiveObjectMap::grow() {
  if (index >= SHARING && entries.empty())
    entries = Entries(GivenMemory<_ActiveObjectEntry>{chain.pages.next()});
  if (entries.size() == entries.capacity())
    entries.reserve(index > 0 ? SLOTS : std::clamp<std::size_t>(entries.size() * 2, 4, SLOTS));
  entries.emplace_back();
}

// ---- Searching ----------------------------------------------------------------------------------

/// A search for an id.
struct ActiveObjectMap::ById {
  explicit ById(const SearchedId& of) : id(of), key(of.key) {}
  static SlotIndex& index(Chain& chain) { return chain.ids; }
  bool is(const _ActiveObjectEntry& entry) const { return entry.oid.is(id); }

  const SearchedId& id;
  const SlotIndex::Key key;
};

/// A search for a servant among the entries of the index.
struct ActiveObjectMap::ByServant {
  explicit ByServant(const ServantBase* s) : servant(s), key(key_of(s)) {}
  static SlotIndex& index(Chain& chain) { return chain.servants; }
  bool is(const _ActiveObjectEntry& entry) const { return entry.p_servant == servant && entry.indexed; }
  static SlotIndex::Key key_of(const ServantBase* servant) {
    return static_cast<SlotIndex::Key>(reinterpret_cast<std::uintptr_t>(servant) / alignof(ServantBase));
  }

  const ServantBase* const servant;
  const SlotIndex::Key key;
};

template <class Wanted, class Match>
int ActiveObjectMap::find_here(int from, const Wanted& wanted, Match&& match) const {
  const int size = static_cast<int>(entries.size());
  for (int first = from / GROUP * GROUP; first < size; first += GROUP) {
    std::uint64_t left = taken[first / GROUP];
    if (from > first) left &= ~std::uint64_t{0} << (from - first);
    for (; left != 0; left &= left - 1) {
      const int slot = first + std::countr_zero(left);
      const _ActiveObjectEntry& entry = entries[static_cast<std::size_t>(slot)];
      if (wanted.is(entry) && match(entry)) return slot;
    }
  }
  return -1;
}

template <class Wanted, class Match>
ActiveObjectMap::Position ActiveObjectMap::scan(Position from, const Wanted& wanted, Match&& match) const {
  int slot = static_cast<int>(from % SLOTS);
  for (std::size_t at = from / SLOTS; at < chain.blocks.size(); ++at, slot = 0) {
    const ActiveObjectMap& block = *chain.blocks[at];
    if (const int hit = block.find_here(slot, wanted, match); hit >= 0) return block.position_of(hit);
  }
  return SlotIndex::NONE;
}

template <class Wanted>
ActiveObjectMap::Position ActiveObjectMap::first_of(const Wanted& wanted) const {
  return Wanted::index(chain).find(wanted.key, [&](Position p) { return wanted.is(chain.entry(p)); });
}

template <class Wanted, class Match>
ActiveObjectMap::Position ActiveObjectMap::find(const Wanted& wanted, Match&& match) const {
  const Position first = first_of(wanted);
  if (first == SlotIndex::NONE || match(chain.entry(first))) return first;
  return Wanted::index(chain).further == 0 ? SlotIndex::NONE : scan(first + 1, wanted, match);
}

// ---- The index ----------------------------------------------------------------------------------

template <class Wanted>
void ActiveObjectMap::enter_index(const Wanted& wanted, Position p) {
  SlotIndex& places = Wanted::index(chain);
  const Position first =
      places.find_or_insert(wanted.key, p, [&](Position at) { return wanted.is(chain.entry(at)); });
  if (first == SlotIndex::NONE) return;
  ++places.further;
  if (p < first) places.move(wanted.key, first, p);
}

/// The entry is still there.
template <class Wanted>
void ActiveObjectMap::leave_index(const Wanted& wanted, Position p) {
  SlotIndex& places = Wanted::index(chain);
  if (places.further == 0) return places.erase(wanted.key, p);
  if (first_of(wanted) != p) return void(--places.further);
  const Position following = scan(p + 1, wanted, [](const auto&) { return true; });
  if (following == SlotIndex::NONE) return places.erase(wanted.key, p);
  --places.further;
  places.move(wanted.key, p, following);
}

// Most servants are one object: such a one knows itself where its entry is. With its second entry, in any map, those
// come into the indexes of their maps, as does the first one where it is in the same map.

ActiveObjectMap::Position ActiveObjectMap::home_of(ServantBase& servant) const {
  const Position p = ServantAccess::home(servant);
  if (p / SLOTS >= chain.blocks.size() || p % SLOTS >= chain.blocks[p / SLOTS]->entries.size())
    return SlotIndex::NONE;
  const _ActiveObjectEntry& entry = chain.entry(p);
  return entry.p_servant == &servant && !entry.indexed && !entry.etherealized ? p : SlotIndex::NONE;
}

void ActiveObjectMap::reserve_index(ServantBase& servant) {
  chain.ids.reserve(1);
  if (ServantAccess::active_entries(servant) != 0) chain.servants.reserve(2);
}

/// After reserve_index.
void ActiveObjectMap::enter_servant(_ActiveObjectEntry& entry, Position p) {
  ServantBase& servant = *entry.p_servant;
  const ByServant by_servant(&servant);
  if (ServantAccess::active_entries(servant) == 0) {
    ServantAccess::home(servant) = p;
    entry.indexed = 0;
  } else {
    const Position home = home_of(servant);
    for (const Position each : {home, p}) {
      if (each == SlotIndex::NONE) continue;
      enter_index(by_servant, each);
      chain.entry(each).indexed = 1;
    }
  }
  ServantAccess::count_entry(servant, 1);
}

// ---- Inserting ----------------------------------------------------------------------------------

int ActiveObjectMap::first_free() {
  while (~taken[first_room] == 0) ++first_room;
  return first_room * GROUP + std::countr_one(taken[first_room]);
}

bool ActiveObjectMap::find_room() {
  while (chain.room < chain.blocks.size() && chain.blocks[chain.room]->used == SLOTS) ++chain.room;
  const bool found = chain.room < chain.blocks.size();
  ActiveObjectMap& block = found ? *chain.blocks[chain.room] : *add_block();
  if (static_cast<std::size_t>(block.first_free()) == block.entries.size()) block.grow();
  return found;
}

int ActiveObjectMap::fill_free_slot(PackedObjectId&& oid, const SearchedId& id, ServantBase* p_servant,
                                    KnownClients::Number client) {
  const int slot = first_free();
  taken[slot / GROUP] |= std::uint64_t{1} << slot % GROUP;
  _ActiveObjectEntry& entry = entries[static_cast<std::size_t>(slot)];
  entry.oid = std::move(oid);
  entry.p_servant = p_servant;
  entry.deactivated = 0;
  entry.serial = ++chain.last_serial;
  entry.record_client(client);
  ++used;
  enter_index(ById(id), position_of(slot));
  enter_servant(entry, position_of(slot));
  return slot;
}

ActiveObjectMap::Ticket ActiveObjectMap::insertActiveObjectMap(const Held&, const SearchedId& id,
                                                               ServantBase* p_servant) {
  POA_TRACE("ActiveObjectMap::insertActiveObjectMap called...");
  PackedObjectId own(id);
  reserve_index(*p_servant);
  const bool found = find_room();
  ActiveObjectMap& block = *chain.blocks[chain.room];
  ClientData client;
  const auto counted = client.become_current() ? known_clients.enter(client) : KnownClients::NONE;
  const int slot = block.fill_free_slot(std::move(own), id, p_servant, counted);
  if (found) {
    POA_TRACE("  insert aom = 0x%lx oid = 0x%lx servant = 0x%lx", trace_address(this),
              trace_address(&block.entries[static_cast<std::size_t>(slot)].oid), trace_address(p_servant));
    POA_TRACE("ActiveObjectMap::insertActiveObjectMap end...[insert ActiveObjectMap[%d]]", slot);
  } else {
    POA_TRACE("ActiveObjectMap::insertActiveObjectMap end...[allocate new ActiveObjectMap]");
  }
  return {block.position_of(slot), chain.last_serial};
}

ActiveObjectMap::Ticket ActiveObjectMap::insertIncarnated(const Held& held, const SearchedId& id,
                                                          ServantBase* p_servant) {
  if (!chain.incarnated) return insertActiveObjectMap(held, id, p_servant);
  chain.incarnated->reserve(static_cast<Position>(chain.blocks.size() + 1) * SLOTS);
  const Ticket ticket = insertActiveObjectMap(held, id, p_servant);
  chain.incarnated->enter(ticket.position);
  return ticket;
}

// ---- Objects that an activator made ----------------------------------------------------------------

void ActiveObjectMap::limit_incarnated(const Held&, std::size_t most) {
  chain.incarnated = most == 0 ? nullptr : std::make_unique<UseOrder>(most);
}

ActiveObjectMap::Ticket ActiveObjectMap::unused_over_limit(const Held&) {
  if (!chain.incarnated || !chain.incarnated->over_limit()) return {};
  const auto is_free = [](const _ActiveObjectEntry& e) {
    const ServantBase& servant = *e.p_servant;
    return servant.get_ref_counter() == 0 && !servant.get_to_be_deleted() && !servant.get_deleted() &&
           !PortableServer::ServantInCall::has(&servant);
  };
  Position p = chain.incarnated->first();
  while (p != UseOrder::NONE && (chain.entry(p).etherealized || !is_free(chain.entry(p))))
    p = chain.incarnated->after(p);
  if (p == UseOrder::NONE) return {};
  if (!std::exchange(chain.incarnated->told, true))
    OM_log("a POA has %zu objects that its servant activator made, its limit: the longest unused ones go",
           chain.incarnated->limit);
  return {p, chain.entry(p).serial};
}

// ---- Finding ------------------------------------------------------------------------------------

// On the road of each request.
[[gnu::flatten]] ActiveObjectMap::Hit ActiveObjectMap::look_up(const SearchedId& id) {
  POA_TRACE("ActiveObjectMap::findServantById called...");
  const Position p = find(ById(id), IN_USE);
  if (p == SlotIndex::NONE) {
    POA_TRACE("ActiveObjectMap::findServantById end...[return NULL]");
    return {};
  }
  _ActiveObjectEntry& entry = chain.entry(p);
  refresh_client(entry);
  if (chain.incarnated) chain.incarnated->touch(p);
  POA_TRACE("ActiveObjectMap::findServantById end...[return Servant]");
  return {&entry, p};
}

ActiveObjectMap::Hit ActiveObjectMap::look_up(ServantBase* p_servant) {
  POA_TRACE("ActiveObjectMap::findOidByServant called...[p_servant = 0x%lx]", trace_address(p_servant));
  Position p = SlotIndex::NONE;
  if (ServantAccess::active_entries(*p_servant) != 0) {
    p = home_of(*p_servant);
    if (p == SlotIndex::NONE) p = find(ByServant(p_servant), IN_USE);
  }
  if (p == SlotIndex::NONE) {
    POA_TRACE("ActiveObjectMap::findOidByServant end...[return NULL]");
    return {};
  }
  POA_TRACE("  found oid. svt = 0x%lx", trace_address(p_servant));
  _ActiveObjectEntry& entry = chain.entry(p);
  refresh_client(entry);
  POA_TRACE("ActiveObjectMap::findOidByServant end...[return oid]");
  return {&entry, p};
}

ActiveObjectMap::Ticket ActiveObjectMap::findById(const Held&, const SearchedId& id) {
  return look_up(id).ticket();
}

ActiveObjectMap::Ticket ActiveObjectMap::findByServant(const Held&, ServantBase* p_servant) {
  return look_up(p_servant).ticket();
}

const _ActiveObjectEntry* ActiveObjectMap::at(const Held&, const Ticket& ticket) const {
  if (ticket.position == SlotIndex::NONE) return nullptr;
  const _ActiveObjectEntry& entry = chain.entry(ticket.position);
  return entry.p_servant && entry.serial == ticket.serial && IN_USE(entry) ? &entry : nullptr;
}

ServantUse ActiveObjectMap::useServantById(const Held&, const SearchedId& id) {
  const Hit hit = look_up(id);
  return hit.entry ? ServantUse(hit.entry->p_servant) : ServantUse();
}

ServantUse ActiveObjectMap::useServantById(const SearchedId& id) {
  PoaSemaphoreGuard guard(__LINE__);
  return useServantById(guard, id);
}

ServantBase* ActiveObjectMap::findServantById(const SearchedId& id) {
  PoaSemaphoreGuard guard(__LINE__);
  const Hit hit = look_up(id);
  return hit.entry ? hit.entry->p_servant : nullptr;
}

bool ActiveObjectMap::has(const Held&, const SearchedId& id) const {
  return find(ById(id), IN_USE) != SlotIndex::NONE;
}

bool ActiveObjectMap::holds(const Held&, const SearchedId& id, const ServantBase* p_servant) {
  return find(ById(id), [&](const auto& e) { return e.p_servant == p_servant && IN_USE(e); }) !=
         SlotIndex::NONE;
}

// ---- Deactivating and removing ------------------------------------------------------------------

void ActiveObjectMap::vacate(int slot) {
  _ActiveObjectEntry& entry = entries[static_cast<std::size_t>(slot)];
  if (!entry.etherealized) ServantAccess::count_entry(*entry.p_servant, -1);
  leave_index(ById(entry.oid.searched()), position_of(slot));
  if (entry.indexed) leave_index(ByServant(entry.p_servant), position_of(slot));
  entry.indexed = 0;
  chain.room = std::min<std::size_t>(chain.room, index);
  first_room = std::min(first_room, slot / GROUP);
  if (chain.incarnated) chain.incarnated->leave(position_of(slot));
  entry.oid = PackedObjectId();
  entry.p_servant = nullptr;
  entry.etherealized = 0;
  entry.record_client(KnownClients::NONE);
  taken[slot / GROUP] &= ~(std::uint64_t{1} << slot % GROUP);
  --used;
}

void ActiveObjectMap::deactivate_at(Position p) {
  POA_TRACE("ActiveObjectMap::deactivateByOid called...");
  if (p == SlotIndex::NONE) {
    POA_TRACE("ActiveObjectMap::deactivateByOid end...");
    return;
  }
  chain.entry(p).deactivated = 1;
  POA_TRACE("ActiveObjectMap::deactivateByOid end...[servant is deactivated.]");
}

void ActiveObjectMap::deactivateByOid(const Held&, const SearchedId& id) {
  deactivate_at(find(ById(id), IN_USE));
}

template <class Wanted, class Match>
void ActiveObjectMap::remove_first_of_each_block(Position first, const Wanted& wanted, Match&& match) {
  POA_TRACE("ActiveObjectMap::removeById called...");
  const bool only_one = Wanted::index(chain).further == 0;
  for (Position p = first; p != SlotIndex::NONE;) {
    chain.blocks[p / SLOTS]->vacate(static_cast<int>(p % SLOTS));
    POA_TRACE("  data is removed.");
    p = only_one ? SlotIndex::NONE : scan((p / SLOTS + 1) * SLOTS, wanted, match);
  }
  POA_TRACE("ActiveObjectMap::removeByOid end...");
}

void ActiveObjectMap::removeById(const Held&, const SearchedId& id) {
  remove_first_of_each_block(find(ById(id), IN_USE), ById(id), IN_USE);
}

void ActiveObjectMap::removeById(const Held&, const SearchedId& id, const ServantBase* p_servant) {
  const auto is_its = [&](const auto& e) { return e.p_servant == p_servant && IN_USE(e); };
  remove_first_of_each_block(find(ById(id), is_its), ById(id), is_its);
}

void ActiveObjectMap::takeById(const Held&, const SearchedId& id, const Ticket& found) {
  POA_TRACE("  ActiveObjectMap::deactivateByOid call");
  deactivate_at(found.position);
  POA_TRACE("  ActiveObjectMap::removeById call");
  const ServantBase* const servant = chain.entry(found.position).p_servant;
  remove_first_of_each_block(found.position, ById(id),
                             [&](const auto& e) { return e.p_servant == servant && IN_USE(e); });
}

void ActiveObjectMap::remove(const Ticket& ticket) {
  POA_TRACE("ActiveObjectMap::removeById called...");
  PoaSemaphoreGuard guard(__LINE__);
  if (at(guard, ticket)) {
    chain.blocks[ticket.position / SLOTS]->vacate(static_cast<int>(ticket.position % SLOTS));
    POA_TRACE("  data is removed.");
  }
  POA_TRACE("ActiveObjectMap::removeByOid end...");
}

template <class Work>
void ActiveObjectMap::each_of_servant(ServantBase& servant, Work&& work) {
  const ByServant wanted(&servant);
  const auto& left = ServantAccess::active_entries(servant);
  for (ActiveObjectMap* map = _root_aom; map && left != 0; map = map->_next_aom) {
    if (map->index != 0) continue;
    if (const Position home = map->home_of(servant); home != SlotIndex::NONE)
      work(*map->chain.blocks[home / SLOTS], static_cast<int>(home % SLOTS));
    const bool only_one = map->chain.servants.further == 0;
    for (Position p = map->find(wanted, IN_USE); p != SlotIndex::NONE;) {
      work(*map->chain.blocks[p / SLOTS], static_cast<int>(p % SLOTS));
      p = only_one ? SlotIndex::NONE : map->scan(p + 1, wanted, IN_USE);
    }
  }
}

void ActiveObjectMap::forget_servant(ServantBase* servant) {
  PoaSemaphoreGuard guard(__LINE__);
  each_of_servant(*servant,
                  [](ActiveObjectMap& block, int slot) ZR_REQUIRES(poa_semaphore) { block.vacate(slot); });
}

// ---- Clients ------------------------------------------------------------------------------------

int ActiveObjectMap::find_client(const ClientData& client, int from) const {
  const int size = static_cast<int>(entries.size());
  const auto matches = [&](const _ActiveObjectEntry& e)
                           ZR_REQUIRES(poa_semaphore) { return e.p_servant && is_of(client, e); };
  int slot = from;
  while (slot < size && !matches(entries[static_cast<std::size_t>(slot)])) ++slot;
  return slot;
}

namespace {

ServantBase* trace_client_search(ServantBase* found, bool is_ipv6) {
  if (!found) {
    POA_TRACE("ActiveObjectMap::searchServantByClientData end...[return NULL]");
  } else if (is_ipv6) {
    POA_TRACE("ActiveObjectMap::searchServantByClientData end...[return Servant : ipv6]");
  } else {
    POA_TRACE("ActiveObjectMap::searchServantByClientData end...[return Servant : ipv4]");
  }
  return found;
}

}  // namespace

ServantBase* ActiveObjectMap::next_of_client(const Held&, Place& at, const ClientData& client) {
  for (ActiveObjectMap* block = _root_aom; block; block = block->_next_aom) {
    if (block->number < at.block) continue;
    at = {block->number, block->number == at.block ? at.slot : -1};
    POA_TRACE("ActiveObjectMap::searchServantByClient called...");
    client.trace();
    const _ActiveObjectEntry* entry = nullptr;
    do {
      at.slot = block->find_client(client, at.slot + 1);
      const auto slot = static_cast<std::size_t>(at.slot);
      entry = slot < block->entries.size() ? &block->entries[slot] : nullptr;
    } while (entry && !IN_USE(*entry));
    if (trace_client_search(entry ? entry->p_servant : nullptr, client.is_ipv6)) return entry->p_servant;
  }
  return nullptr;
}

void ActiveObjectMap::forget_client(const Held&, ServantBase& servant, const ClientData& client) {
  each_of_servant(servant, [&](ActiveObjectMap& block, int slot) ZR_REQUIRES(poa_semaphore) {
    _ActiveObjectEntry& entry = block.entries[static_cast<std::size_t>(slot)];
    if (is_of(client, entry)) entry.record_client(KnownClients::NONE);
  });
}

bool ActiveObjectMap::is_at(const Held&, const Place& place, const ServantBase* servant) {
  const ActiveObjectMap* block = _root_aom;
  while (block && block->number != place.block) block = block->_next_aom;
  if (!block) return false;
  const _ActiveObjectEntry& entry = block->entries[static_cast<std::size_t>(place.slot)];
  return entry.p_servant == servant && IN_USE(entry);
}

// ---- Walks over all servants: the semaphore is given back for each ------------------------------

struct ActiveObjectMap::Cursor {
  ActiveObjectMap* block;  // lives as long as the map
  std::size_t slot = 0;
};

_ActiveObjectEntry* ActiveObjectMap::next_active(Cursor& at) {
  for (; at.block; at = {at.block->next}) {
    while (at.slot < at.block->entries.size()) {
      _ActiveObjectEntry& entry = at.block->entries[at.slot++];
      if (entry.p_servant && !entry.etherealized) return &entry;
    }
  }
  return nullptr;
}

void ActiveObjectMap::clear_servants(POA* poa) {
  POA_TRACE("ActiveObjectMap::clear_servants called...[POA_ptr = 0x%lx]", trace_address(poa));
  for (Cursor at{this};;) {
    MutexGuard references(poa_svt_objref_mutex);
    PoaSemaphoreGuard guard(__LINE__);
    const _ActiveObjectEntry* entry = next_active(at);
    if (!entry) break;
    withdraw_reference(*entry->p_servant, poa, entry->oid.octets());
  }
  POA_TRACE("ActiveObjectMap::clear_servants end...");
}

void ActiveObjectMap::etherealize(POA* poa_ptr, CORBA::Boolean etherealize_objects,
                                  CORBA::Boolean wait_for_completion_,
                                  PortableServer::ServantActivator* servantActivator_ptr,
                                  CORBA::Environment& ev) {
  POA_TRACE("ActiveObjectMap::etherealize called...[POA_ptr = 0x%lx, ServantActivator_ptr = 0x%lx]",
            trace_address(poa_ptr), trace_address(servantActivator_ptr));
  clear_servants(poa_ptr);
  for (Cursor at{this}; servantActivator_ptr;) {
    std::unique_ptr<ObjectId> oid;
    ServantBase* servant = nullptr;
    PortableServer::ServantInCall call;
    {
      PoaSemaphoreGuard guard(__LINE__);
      _ActiveObjectEntry* entry = next_active(at);
      if (!entry) break;
      oid.reset(make_oid(entry->oid.octets()));  // without memory for it the servant is not handed over
      servant = entry->p_servant;
      ServantAccess::count_entry(*servant, -1);
      call.enter(servant);
      entry->etherealized = 1;
    }
    const PortableServer::LeavingServant leaving(servant);
    const AdapterActivation::NoWaiting with_the_tree_locked;
    servantActivator_ptr->etherealize(*oid, poa_ptr, servant, etherealize_objects, wait_for_completion_, ev);
  }
  POA_TRACE("ActiveObjectMap::etherealize end...");
}

void ActiveObjectMap::let_go_of_servants() {
  for (Cursor at{this};;) {
    PortableServer::LeavingServant leaving;
    PoaSemaphoreGuard guard(__LINE__);
    _ActiveObjectEntry* entry = next_active(at);
    if (!entry) break;
    if (!ServantAccess::counts(*entry->p_servant)) continue;
    leaving.leave(entry->p_servant);
    entry->etherealized = 1;
    ServantAccess::count_entry(*entry->p_servant, -1);
  }
}
