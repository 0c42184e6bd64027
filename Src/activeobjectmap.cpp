#include "activeobjectmap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <new>

#include "adapteractivation.h"
#include "locks.h"
#include "minor_codes.h"
#include "servantreferences.h"
#include "trace.h"
#include "zrsocket.h"

using PortableServer::ObjectId;
using PortableServer::POA;
using PortableServer::ServantAccess;
using PortableServer::ServantBase;

ActiveObjectMap* _root_aom = nullptr;

// ---- The client of the request that the calling thread runs -------------------------------------

struct ActiveObjectMap::Client {
  bool known = false;
  unsigned char is_ipv6 = 0;
  CORBA::Long fd = 0;
  unsigned char host[16] = {};  // the first four octets for IPv4

  static Client current();
  static Client at(CORBA::Long fd, const void* host_addr, unsigned char is_ipv6);
  void store(_ActiveObjectEntry& entry) const;
  bool is_of(const _ActiveObjectEntry& entry) const;
  void trace() const;

 private:
  CORBA::Long host_ipv4() const {
    CORBA::Long address = 0;
    std::memcpy(&address, host, sizeof address);
    return address;
  }
};

ActiveObjectMap::Client ActiveObjectMap::Client::current() {
  Client client;
  if (OM_boa_lib_get_iswitch() != 1) return client;
  POA_TRACE("  OM_ext_get_client_info_ip6 call");
  CORBA::Environment core;
  if (OM_ext_get_client_info_ip6(&client.fd, &client.is_ipv6, client.host, nullptr, nullptr, core._evp)) {
    client.known = true;
    client.trace();
  } else {
    POA_TRACE("  No client data!!!");
  }
  return client;
}

ActiveObjectMap::Client ActiveObjectMap::Client::at(CORBA::Long fd, const void* host_addr,
                                                    unsigned char is_ipv6) {
  Client client;
  client.fd = fd;
  client.is_ipv6 = is_ipv6;
  std::memcpy(client.host, host_addr, is_ipv6 ? 16 : 4);
  return client;
}

void ActiveObjectMap::Client::store(_ActiveObjectEntry& entry) const {
  entry.fd = known ? fd : 0;
  entry.host_ipv4 = known && !is_ipv6 ? host_ipv4() : 0;
  std::memset(entry.host_ipv6, 0, sizeof entry.host_ipv6);
  if (known && is_ipv6) std::memcpy(entry.host_ipv6, host, sizeof host);
}

bool ActiveObjectMap::Client::is_of(const _ActiveObjectEntry& entry) const {
  if (entry.fd != fd) return false;
  return is_ipv6 ? std::memcmp(entry.host_ipv6, host, sizeof host) == 0 : entry.host_ipv4 == host_ipv4();
}

void ActiveObjectMap::Client::trace() const {
  if (!OM_TRACE_IS_ON) return;
  char text[65];
  const char* printed =
      is_ipv6 ? OM_inet_ntop(ZR_af_inet6, host, text, 65) : OM_inet_ntop(ZR_af_inet, host, text, 22);
  if (!printed) printed = "NULL";
  if (is_ipv6) {
    POA_TRACE("  fd = %d, host_ipv6 = %s", fd, printed);
  } else {
    POA_TRACE("  fd = %d, host_ipv4 = %s", fd, printed);
  }
}

// ---- Blocks -------------------------------------------------------------------------------------

namespace {
ActiveObjectMap* last_block = nullptr;  // of the list that starts at _root_aom; guarded by the POA semaphore
}  // namespace

ActiveObjectMap::ActiveObjectMap() : ActiveObjectMap(own_chain) { chain.blocks.push_back(this); }

ActiveObjectMap::ActiveObjectMap(Chain& of)
    : _next_aom(nullptr), _pre_aom(nullptr), entries{}, next(nullptr), chain(of) {
  static std::uint64_t last_number = 0;  // guarded by the POA semaphore
  PoaSemaphoreGuard guard(__LINE__);
  number = ++last_number;
  _pre_aom = last_block;
  (last_block ? last_block->_next_aom : _root_aom) = this;
  last_block = this;
}

ActiveObjectMap* ActiveObjectMap::add_block() {
  chain.blocks.reserve(chain.blocks.size() + 1);
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
  for (_ActiveObjectEntry& entry : entries) {
    if (entry.oid && !entry.etherealized) --ServantAccess::active_entries(*entry.p_servant);
    delete entry.oid;
  }
  while (ActiveObjectMap* block = next) {  // one by one: a long chain is no deep recursion
    next = std::exchange(block->next, nullptr);
    delete block;
  }
}

/// A search for an id.
struct ActiveObjectMap::ById {
  explicit ById(std::string_view id) : oid(id), key(key_of(id)) {}
  explicit ById(const ObjectId& id) : ById(oid_view(id)) {}
  static const Keys& keys(const ActiveObjectMap& block) { return block.oid_keys; }
  static SlotIndex& index(Chain& chain) { return chain.ids; }
  bool is(const _ActiveObjectEntry& entry) const { return oid_view(*entry.oid) == oid; }
  static Key key_of(std::string_view oid);

  const std::string_view oid;
  const Key key;
};

/// A search for a servant.
struct ActiveObjectMap::ByServant {
  explicit ByServant(const ServantBase* s) : servant(s), key(key_of(s)) {}
  static const Keys& keys(const ActiveObjectMap& block) { return block.servant_keys; }
  static SlotIndex& index(Chain& chain) { return chain.servants; }
  bool is(const _ActiveObjectEntry& entry) const { return entry.p_servant == servant; }
  static Key key_of(const ServantBase* servant) {
    return static_cast<Key>(reinterpret_cast<std::uintptr_t>(servant) / alignof(ServantBase));
  }

  const ServantBase* const servant;
  const Key key;
};

ActiveObjectMap::Key ActiveObjectMap::ById::key_of(std::string_view oid) {
  constexpr std::uint64_t FACTOR = 0x9E3779B97F4A7C15;
  std::uint64_t key = oid.size();
  for (std::uint64_t octets; oid.size() >= sizeof octets; oid.remove_prefix(sizeof octets)) {
    std::memcpy(&octets, oid.data(), sizeof octets);
    key = (key ^ octets) * FACTOR;
  }
  for (char octet : oid) key = (key ^ static_cast<unsigned char>(octet)) * FACTOR;
  return static_cast<Key>(key >> 32);
}

namespace {
/// An etherealized servant may be gone: its entry answers nothing any more.
constexpr auto IN_USE = [](const _ActiveObjectEntry& e) { return !e.etherealized; };
}  // namespace

template <class Wanted, class Match>
_ActiveObjectEntry* ActiveObjectMap::find_here(const Wanted& wanted, Match&& match) {
  if (used == 0) return nullptr;
  const Keys& keys = Wanted::keys(*this);
  for (int first = 0; first < groups * GROUP; first += GROUP) {
    if (taken[first / GROUP] == 0) continue;
    Key found = 0;
    for (int i = 0; i < GROUP; ++i) found += keys[first + i] == wanted.key;  // compilers make vectors of sums
    for (int slot = first; found != 0 && slot < first + GROUP; ++slot) {
      _ActiveObjectEntry& entry = entries[slot];
      if (keys[slot] == wanted.key && entry.oid && wanted.is(entry) && match(entry)) return &entry;
    }
  }
  return nullptr;
}

// ---- The index ----------------------------------------------------------------------------------

template <class Wanted>
ActiveObjectMap::Position ActiveObjectMap::first_of(const Wanted& wanted) const {
  return Wanted::index(chain).find(wanted.key, [&](Position p) { return wanted.is(chain.entry(p)); });
}

template <class Wanted, class Match>
_ActiveObjectEntry* ActiveObjectMap::scan(std::size_t from, const Wanted& wanted, Match&& match) const {
  for (; from < chain.blocks.size(); ++from)
    if (_ActiveObjectEntry* entry = chain.blocks[from]->find_here(wanted, match)) return entry;
  return nullptr;
}

template <class Wanted>
void ActiveObjectMap::enter_index(const Wanted& wanted, Position p) {
  SlotIndex& places = Wanted::index(chain);
  const Position first = first_of(wanted);
  if (first == SlotIndex::NONE) return places.insert(wanted.key, p);
  ++places.further;
  if (p < first) places.move(wanted.key, first, p);
}

/// The entry is still there.
template <class Wanted>
void ActiveObjectMap::leave_index(const Wanted& wanted, Position p) {
  SlotIndex& places = Wanted::index(chain);
  if (first_of(wanted) != p) return void(--places.further);
  const ActiveObjectMap* block = nullptr;
  const _ActiveObjectEntry* following = nullptr;
  for (std::size_t at = index; places.further != 0 && !following && at < chain.blocks.size(); ++at) {
    block = chain.blocks[at];
    following = chain.blocks[at]->find_here(wanted, [&](const auto& e) { return block->position_of(e) > p; });
  }
  if (!following) return places.erase(wanted.key, p);
  --places.further;
  places.move(wanted.key, p, block->position_of(*following));
}

template <class Wanted, class Match>
_ActiveObjectEntry* ActiveObjectMap::find(const Wanted& wanted, Match&& match) {
  const Position first = first_of(wanted);
  if (first == SlotIndex::NONE) return nullptr;
  _ActiveObjectEntry& entry = chain.entry(first);
  if (match(entry)) return &entry;
  return Wanted::index(chain).further == 0 ? nullptr : scan(first / SLOTS, wanted, match);
}

int ActiveObjectMap::fill_free_slot(ObjectId* oid, ServantBase* p_servant, const Client& client) {
  int word = 0;
  while (~taken[word] == 0) ++word;
  const int bit = std::countr_one(taken[word]);
  const int slot = word * GROUP + bit;
  taken[word] |= std::uint64_t{1} << bit;
  groups = std::max(groups, word + 1);
  oid_keys[slot] = ById::key_of(oid_view(*oid));
  servant_keys[slot] = ByServant::key_of(p_servant);
  entries[slot].oid = oid;
  entries[slot].p_servant = p_servant;
  entries[slot].deactivated = 0;
  client.store(entries[slot]);
  ++used;
  const Position p = position_of(entries[slot]);
  enter_index(ById(*oid), p);
  enter_index(ByServant(p_servant), p);
  ++ServantAccess::active_entries(*p_servant);
  return slot;
}

void ActiveObjectMap::vacate(_ActiveObjectEntry& entry) {
  if (!entry.etherealized) --ServantAccess::active_entries(*entry.p_servant);
  leave_index(ById(*entry.oid), position_of(entry));
  leave_index(ByServant(entry.p_servant), position_of(entry));
  chain.room = std::min<std::size_t>(chain.room, index);
  delete std::exchange(entry.oid, nullptr);
  entry.p_servant = nullptr;
  entry.etherealized = 0;
  Client().store(entry);
  const auto slot = &entry - entries;
  taken[slot / GROUP] &= ~(std::uint64_t{1} << slot % GROUP);
  --used;
}

// ---- Inserting and finding ----------------------------------------------------------------------

bool ActiveObjectMap::find_room() {
  try {
    chain.ids.reserve_one();
    chain.servants.reserve_one();
    while (chain.room < chain.blocks.size() && chain.blocks[chain.room]->used == SLOTS) ++chain.room;
    if (chain.room < chain.blocks.size()) return true;
    add_block();
    return false;
  } catch (const std::bad_alloc&) {
    throw CORBA::NO_MEMORY(MINOR_BAD_PARAM);
  }
}

ActiveObjectMap* ActiveObjectMap::insertActiveObjectMap(ObjectId* oid, ServantBase* p_servant) {
  POA_TRACE("ActiveObjectMap::insertActiveObjectMap called...");
  std::unique_ptr<ObjectId> own(oid);
  PoaSemaphoreGuard guard(__LINE__);
  const Client client = Client::current();
  const bool found = find_room();
  ActiveObjectMap* const block = chain.blocks[chain.room];
  if (found) {
    const int slot = block->fill_free_slot(own.release(), p_servant, client);
    POA_TRACE("  insert aom = 0x%lx oid = 0x%lx servant = 0x%lx", trace_address(this), trace_address(oid),
              trace_address(p_servant));
    POA_TRACE("ActiveObjectMap::insertActiveObjectMap end...[insert ActiveObjectMap[%d]]", slot);
    return this;
  }
  block->fill_free_slot(own.release(), p_servant, client);
  POA_TRACE("ActiveObjectMap::insertActiveObjectMap end...[allocate new ActiveObjectMap]");
  return this;
}

PortableServer::ServantUse ActiveObjectMap::useServantById(std::string_view oid) {
  PoaSemaphoreGuard guard(__LINE__);
  return PortableServer::ServantUse(findServantById(oid));
}

ServantBase* ActiveObjectMap::findServantById(std::string_view oid) {
  POA_TRACE("ActiveObjectMap::findServantById called...");
  PoaSemaphoreGuard guard(__LINE__);
  _ActiveObjectEntry* entry = find(ById(oid), IN_USE);
  if (!entry) {
    POA_TRACE("ActiveObjectMap::findServantById end...[return NULL]");
    return nullptr;
  }
  if (const Client client = Client::current(); client.known) client.store(*entry);
  POA_TRACE("ActiveObjectMap::findServantById end...[return Servant]");
  return entry->p_servant;
}

ObjectId* ActiveObjectMap::findOidByServant(ServantBase* p_servant) {
  POA_TRACE("ActiveObjectMap::findOidByServant called...[p_servant = 0x%lx]", trace_address(p_servant));
  PoaSemaphoreGuard guard(__LINE__);
  _ActiveObjectEntry* entry = nullptr;
  if (ServantAccess::active_entries(*p_servant) != 0) entry = find(ByServant(p_servant), IN_USE);
  if (!entry) {
    POA_TRACE("ActiveObjectMap::findOidByServant end...[return NULL]");
    return nullptr;
  }
  POA_TRACE("  found oid. svt = 0x%lx", trace_address(p_servant));
  if (const Client client = Client::current(); client.known) client.store(*entry);
  POA_TRACE("ActiveObjectMap::findOidByServant end...[return oid]");
  return entry->oid;
}

ObjectId* ActiveObjectMap::copyOidByServant(ServantBase* p_servant) {
  PoaSemaphoreGuard guard(__LINE__);
  const ObjectId* own = findOidByServant(p_servant);
  return own ? make_oid(oid_view(*own)) : nullptr;
}

bool ActiveObjectMap::holds(std::string_view oid, const ServantBase* p_servant) {
  PoaSemaphoreGuard guard(__LINE__);
  return find(ById(oid), [&](const auto& e) { return e.p_servant == p_servant && IN_USE(e); }) != nullptr;
}

// ---- Deactivating and removing ------------------------------------------------------------------

void ActiveObjectMap::deactivateByOid(const ObjectId& oid) {
  POA_TRACE("ActiveObjectMap::deactivateByOid called...");
  PoaSemaphoreGuard guard(__LINE__);
  _ActiveObjectEntry* entry = find(ById(oid), IN_USE);
  if (!entry) {
    POA_TRACE("ActiveObjectMap::deactivateByOid end...");
    return;
  }
  entry->deactivated = 1;
  POA_TRACE("ActiveObjectMap::deactivateByOid end...[servant is deactivated.]");
}

template <class Wanted, class Match>
void ActiveObjectMap::remove_first_of_each_block(const Wanted& wanted, Match&& match) {
  POA_TRACE("ActiveObjectMap::removeById called...");
  PoaSemaphoreGuard guard(__LINE__);
  const bool all_blocks = Wanted::index(chain).further != 0;
  const Position first = first_of(wanted);
  const std::size_t begin = first == SlotIndex::NONE ? chain.blocks.size() : first / SLOTS;
  const std::size_t end = all_blocks ? chain.blocks.size() : std::min(begin + 1, chain.blocks.size());
  for (std::size_t at = begin; at < end; ++at) {
    _ActiveObjectEntry* entry =
        all_blocks || match(chain.entry(first)) ? chain.blocks[at]->find_here(wanted, match) : nullptr;
    if (!entry) continue;
    chain.blocks[at]->vacate(*entry);
    POA_TRACE("  data is removed.");
  }
  POA_TRACE("ActiveObjectMap::removeByOid end...");
}

void ActiveObjectMap::removeById(const ObjectId& oid) { remove_first_of_each_block(ById(oid), IN_USE); }

void ActiveObjectMap::removeById(const ObjectId& oid, const ServantBase* p_servant) {
  remove_first_of_each_block(ById(oid), [&](const auto& e) { return e.p_servant == p_servant && IN_USE(e); });
}

void ActiveObjectMap::removeInserted(const ObjectId* own_oid, const ServantBase* p_servant) {
  remove_first_of_each_block(ByServant(p_servant), [&](const auto& e) { return e.oid == own_oid; });
}

template <class Work>
void ActiveObjectMap::each_of_servant(ServantBase& servant, Work&& work) {
  const ByServant wanted(&servant);
  for (ActiveObjectMap* block = _root_aom; block; block = block->_next_aom) {
    const Position first = block->first_of(wanted);
    const bool may_have_one = first / SLOTS == block->index || block->chain.servants.further != 0;
    if (first == SlotIndex::NONE || !may_have_one) continue;
    block->find_here(wanted, [&](_ActiveObjectEntry& entry) {
      work(*block, entry);
      return false;  // on to the next one
    });
  }
}

void ActiveObjectMap::forget_servant(ServantBase* servant) {
  PoaSemaphoreGuard guard(__LINE__);
  if (ServantAccess::active_entries(*servant) == 0) return;
  each_of_servant(*servant, [](ActiveObjectMap& block, _ActiveObjectEntry& entry) { block.vacate(entry); });
  ServantAccess::active_entries(*servant) = 0;  // a map that is gone has counted nothing down
}

// ---- Clients ------------------------------------------------------------------------------------

int ActiveObjectMap::find_client(const Client& client, int from) const {
  int slot = from;
  while (slot < SLOTS && !(entries[slot].oid && client.is_of(entries[slot]))) ++slot;
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

ServantBase* ActiveObjectMap::searchServantByClientData(CORBA::Long fd, const void* host_addr,
                                                        unsigned char is_ipv6) {
  POA_TRACE("ActiveObjectMap::searchServantByClient called...");
  const Client client = Client::at(fd, host_addr, is_ipv6);
  client.trace();
  PoaSemaphoreGuard guard(__LINE__);
  ServantBase* found = nullptr;
  for (ActiveObjectMap* block = this; block && !found; block = block->next) {
    const int slot = block->find_client(client, 0);
    if (slot < SLOTS) found = block->entries[slot].p_servant;
  }
  return trace_client_search(found, is_ipv6);
}

ServantBase* ActiveObjectMap::next_of_client(Place& at, CORBA::Long fd, const void* host_addr,
                                             unsigned char is_ipv6) {
  const Client client = Client::at(fd, host_addr, is_ipv6);
  for (ActiveObjectMap* block = _root_aom; block; block = block->_next_aom) {
    if (block->number < at.block) continue;
    at = {block->number, block->number == at.block ? at.slot : -1};
    POA_TRACE("ActiveObjectMap::searchServantByClient called...");
    client.trace();
    do {
      at.slot = block->find_client(client, at.slot + 1);
    } while (at.slot < SLOTS && !IN_USE(block->entries[at.slot]));
    ServantBase* const found = at.slot < SLOTS ? block->entries[at.slot].p_servant : nullptr;
    if (trace_client_search(found, is_ipv6)) return found;
  }
  return nullptr;
}

void ActiveObjectMap::forget_client(ServantBase& servant, CORBA::Long fd, const void* host_addr,
                                    unsigned char is_ipv6) {
  const Client client = Client::at(fd, host_addr, is_ipv6);
  each_of_servant(servant, [&](ActiveObjectMap&, _ActiveObjectEntry& entry) {
    if (client.is_of(entry)) Client().store(entry);
  });
}

bool ActiveObjectMap::is_at(const Place& place, const ServantBase* servant) {
  const ActiveObjectMap* block = _root_aom;
  while (block && block->number != place.block) block = block->_next_aom;
  if (!block) return false;
  const _ActiveObjectEntry& entry = block->entries[place.slot];
  return entry.p_servant == servant && IN_USE(entry);
}

// ---- Walks over all servants: the semaphore is given back for each ------------------------------

struct ActiveObjectMap::Cursor {
  ActiveObjectMap* block;  // lives as long as the map
  int slot = 0;
};

_ActiveObjectEntry* ActiveObjectMap::next_active(Cursor& at) {
  for (; at.block; at = {at.block->next}) {
    while (at.slot < SLOTS) {
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
    withdraw_reference(*entry->p_servant, poa, *entry->oid);
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
      oid.reset(make_oid(oid_view(*entry->oid)));  // without memory for it the servant is not handed over
      servant = entry->p_servant;
      call.enter(servant);
      entry->etherealized = 1;
      --ServantAccess::active_entries(*servant);
    }
    const AdapterActivation::NoWaiting with_the_tree_locked;
    servantActivator_ptr->etherealize(*oid, poa_ptr, servant, etherealize_objects, wait_for_completion_, ev);
  }
  POA_TRACE("ActiveObjectMap::etherealize end...");
}
