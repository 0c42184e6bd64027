// The active object map and the lists of servants.
#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "objects.h"

using namespace PortableServer;

namespace {

class ActiveMap : public ObjectTest {
 protected:
  void insert(std::string_view oid, ServantBase& s, ActiveObjectMap& into) {
    PoaSemaphoreGuard guard(__LINE__);
    into.insertActiveObjectMap(guard, oid, &s);
  }
  void insert(std::string_view oid, ServantBase& s) { insert(oid, s, map); }
  /// The id of the servant's first entry, or "none".
  std::string id_of(ServantBase& s, ActiveObjectMap& in) {
    PoaSemaphoreGuard guard(__LINE__);
    const _ActiveObjectEntry* entry = in.at(guard, in.findByServant(guard, &s));
    return entry ? std::string(std::string_view(entry->oid.octets())) : "none";
  }
  template <class... Servant>
  void remove(std::string_view oid, Servant*... only) {
    PoaSemaphoreGuard guard(__LINE__);
    map.removeById(guard, oid, only...);
  }
  /// Those of the servant that is found.
  void take(std::string_view oid) {
    PoaSemaphoreGuard guard(__LINE__);
    if (const ActiveObjectMap::Ticket found = map.findById(guard, oid)) map.takeById(guard, oid, found);
  }
  ServantBase* find(std::string_view oid) { return map.findServantById(oid); }
  static std::string system_id(CORBA::ULong process, const SystemIdTime& time) {
    char text[UNIQUE_ID_LENGTH + 1];
    print_unique_id(text, process, time);
    return text;
  }

  ActiveObjectMap map;
  PlainServant &one = servant, &two = other;
};

}  // namespace

// The slots of blocks from the 257th on stand in pages of 2 MiB, 64 blocks in each.
TEST_F(ActiveMap, LateBlocksShareLargePages) {
  constexpr int slots = ActiveObjectMap::SLOTS, own = 256, blocks = own + 65;
  for (int i = 0; i < blocks * slots; ++i) insert(std::to_string(i), one);
  std::vector<const _ActiveObjectEntry*> starts;
  for (const ActiveObjectMap* block = &map; block; block = block->next) {
    ASSERT_EQ(block->entries.size(), std::size_t{slots});
    starts.push_back(block->entries.data());
  }
  ASSERT_EQ(starts.size(), std::size_t{blocks});
  constexpr std::size_t page = std::size_t{2} << 20;
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(starts[own]) % page, 0u);
  for (std::size_t i = own + 1; i < own + 64; ++i) EXPECT_EQ(starts[i], starts[i - 1] + slots) << i;
  EXPECT_EQ(std::set(starts.begin(), starts.end()).size(), starts.size());
  const std::string in_page = std::to_string((own + 3) * slots + 7);
  for (const std::string& id : {std::string("0"), in_page, std::to_string(blocks * slots - 1)})
    EXPECT_EQ(find(id), &one);
  remove(in_page);
  EXPECT_EQ(find(in_page), nullptr);
  insert("again", two);
  EXPECT_EQ(starts[own + 3][7].p_servant, &two);
}

// Against a plain list of slots: equal ids and servants in many of them, over three blocks.
TEST_F(ActiveMap, TheFirstSlotCounts) {
  using Slot = std::pair<std::string, ServantBase*>;  // free: no servant
  constexpr std::size_t slots = ActiveObjectMap::SLOTS;
  std::vector<Slot> model(3 * slots);
  PlainServant third;
  ServantBase* const servants[] = {&one, &two, &third};
  std::mt19937 random(7);
  const auto first = [&](auto from, const auto& wanted) {
    return std::find_if(from, model.end(), [&](const Slot& s) { return s.second && wanted(s); });
  };
  const auto is_free = [](const Slot& s) { return !s.second; };
  for (int step = 0; step < 20'000; ++step) {
    const auto below = [&](CORBA::ULong end) { return static_cast<CORBA::ULong>(random() % end); };
    const CORBA::ULong length = 1 + below(9), letter = below(step % 2 ? 2 : 26);
    const std::string id = letter % 3 == 0   ? std::string(length, static_cast<char>('a' + letter))
                           : letter % 3 == 1 ? system_id(letter, {1000, length})
                                             : std::string(length + 20, static_cast<char>('a' + letter));
    ServantBase& s = *servants[random() % (step % 5 ? 2 : 3)];
    const auto same_id = [&](const Slot& slot) { return slot.first == id; };
    const auto by_id = first(model.begin(), same_id);
    ASSERT_EQ(find(id), by_id == model.end() ? nullptr : by_id->second) << id;
    const auto by_servant = first(model.begin(), [&](const Slot& slot) { return slot.second == &s; });
    ASSERT_EQ(id_of(s, map), by_servant == model.end() ? "none" : by_servant->first);
    if (step % 1500 > 1300) {
      const ServantBase* only = step % 3 == 0 ? &s : nullptr;  // null: of any servant
      if (step % 3 == 1 && by_id != model.end()) only = by_id->second;
      step % 3 == 0 ? remove(id, &s) : step % 3 == 1 ? take(id) : remove(id);
      const auto removed = [&](const Slot& slot) { return same_id(slot) && (!only || slot.second == only); };
      for (auto block = model.begin(); block != model.end(); block += slots)
        if (const auto at = first(block, removed); at < block + slots) at->second = nullptr;
    } else if (const auto free = std::find_if(model.begin(), model.end(), is_free); free != model.end()) {
      insert(id, s);
      *free = {id, &s};
    }
  }
  ASSERT_NE(map.next->next, nullptr);
  std::size_t position = 0;
  for (const ActiveObjectMap* block = &map; block; block = block->next)
    for (const _ActiveObjectEntry& entry : block->entries)
      ASSERT_EQ(entry.p_servant, model[position++].second);
  for (ServantBase* each : servants) {  // what is left is found until the last one goes
    ActiveObjectMap::forget_servant(each);
    EXPECT_EQ(id_of(*each, map), "none");
    for (Slot& slot : model)
      if (slot.second == each) slot.second = nullptr;
    for (const Slot& slot : model) {
      if (!slot.second) continue;
      const auto by_id =
          first(model.begin(), [&](const Slot& each_slot) { return each_slot.first == slot.first; });
      ASSERT_EQ(find(slot.first), by_id->second);
    }
  }
}

// Servants with no entry, one, two, in either of two maps or in both; now and then all of a map are etherealized.
TEST_F(ActiveMap, AServantIsFoundWhereItStandsFirst) {
  struct Slot {
    std::string id;
    ServantBase* servant = nullptr;  // null: free
    bool etherealized = false;
  };
  ActiveObjectMap second;
  ActiveObjectMap* const maps[] = {&map, &second};
  std::vector<Slot> models[2];
  std::array<PlainServant, 12> servants;
  Etherealizer activator;
  std::mt19937 random(11);
  const auto check = [&](int step) {
    for (PlainServant& s : servants)
      for (const std::size_t m : {0, 1}) {
        const auto is_active = [&](const Slot& slot) { return slot.servant == &s && !slot.etherealized; };
        const auto first = std::find_if(models[m].begin(), models[m].end(), is_active);
        ASSERT_EQ(id_of(s, *maps[m]), first == models[m].end() ? "none" : first->id) << m << ' ' << step;
      }
  };
  for (int step = 0; step < 4'000; ++step) {
    const std::size_t m = random() % 2;
    PlainServant& s = servants[random() % servants.size()];
    std::vector<Slot>& model = models[m];
    if (step % 400 == 399) {
      maps[m]->etherealize(top, 1, 0, &activator, own_ev);
      for (Slot& slot : model) slot.etherealized = slot.servant != nullptr;
    } else if (random() % 40 == 0) {
      if (ServantAccess::active_entries(s) == 0) continue;
      ActiveObjectMap::forget_servant(&s);
      for (std::vector<Slot>& each : models)
        for (Slot& slot : each)
          if (slot.servant == &s && !slot.etherealized) slot.servant = nullptr;
    } else if (random() % 2) {
      insert(std::to_string(step), s, *maps[m]);
      const auto free =
          std::find_if(model.begin(), model.end(), [](const Slot& slot) { return !slot.servant; });
      (free == model.end() ? model.emplace_back() : *free) = {std::to_string(step), &s};
    } else if (!model.empty()) {
      Slot& slot = model[random() % model.size()];
      if (!slot.servant || slot.etherealized) continue;
      PoaSemaphoreGuard guard(__LINE__);
      maps[m]->removeById(guard, slot.id);
      slot.servant = nullptr;
    }
    check(step);
  }
}

// Ids that are kept in different ways, and such as could be taken for one another.
TEST_F(ActiveMap, AnIdIsFoundByItsOctetsAlone) {
  const std::string made = system_id(0x9abcdef0, {0xfedcba98, 999});
  std::vector<std::string> ids{"a",
                               std::string("a\0", 2),
                               std::string(12, 'x'),
                               std::string(13, 'x'),
                               std::string(300, 'x'),
                               made,
                               made + '\0',
                               made.substr(1),
                               system_id(0x9abcdef0, {0xfedcba99, 0}),
                               system_id(0, {0, 0})};
  for (std::size_t at = 0; at < made.size(); ++at)
    for (const char c : {'0', '9', ':', '@', 'A', 'F', '`', 'a', 'f', 'g', '\0', '\xb0', 'P', 'C'}) {
      std::string near = made;
      near[at] = c;
      if (std::find(ids.begin(), ids.end(), near) == ids.end()) ids.push_back(near);
    }
  std::vector<PlainServant> servants(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(find(ids[i]), nullptr) << ids[i];
    insert(ids[i], servants[i]);
  }
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(find(ids[i]), &servants[i]) << ids[i];
    EXPECT_EQ(id_of(servants[i], map), ids[i]);
    const PackedObjectId packed{SearchedId(ids[i])};
    for (std::size_t j = 0; j < ids.size(); ++j)
      ASSERT_EQ(packed.is(ids[j]), i == j) << ids[i] << ' ' << ids[j];
  }
  for (std::size_t i = 0; i < ids.size(); ++i) {
    remove(ids[i]);
    EXPECT_EQ(find(ids[i]), nullptr) << ids[i];
    EXPECT_EQ(find(ids.back()), i + 1 < ids.size() ? &servants.back() : nullptr);
  }
}

TEST_F(ActiveMap, ATicketIsForOneActivation) {
  PoaSemaphoreGuard guard(__LINE__);
  const std::string longer(PackedOctets::IN_PLACE + 1, 'x');
  for (const std::string& oid : {std::string("short"), longer}) {
    const auto first = map.insertActiveObjectMap(guard, oid, &one);
    for (int i = 0; i < 100; ++i)  // moves the slots
      map.insertActiveObjectMap(guard, oid + std::to_string(i), &two);
    const _ActiveObjectEntry* entry = map.at(guard, first);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(std::string_view(entry->oid.octets()), oid);
    map.removeById(guard, oid);
    EXPECT_EQ(map.at(guard, first), nullptr);
    map.insertActiveObjectMap(guard, oid, &one);  // the same id and servant in the same slot
    EXPECT_EQ(map.at(guard, first), nullptr);
    map.remove(first);
    EXPECT_EQ(find(oid), &one);
    ActiveObjectMap::forget_servant(&one);
  }
}

TEST_F(ActiveMap, ServantsOfAClient) {
  unsigned char v4[16] = {192, 0, 2, 1, 9, 9}, v6[16] = {0x20, 1, 0xd, 0xb8}, zero[16] = {};
  insert("free", one);
  insert("v4", one);
  insert("v6", two);
  {
    PoaSemaphoreGuard guard(__LINE__);
    map.entries[1].record_client(
        known_clients.enter(ClientData::at(5, v4, 0)));  // what is behind it does not count
    map.entries[2].record_client(known_clients.enter(ClientData::at(5, v6, 1)));
  }
  remove("free");
  const auto first_of = [&](CORBA::Long fd, const void* address, unsigned char is_ipv6) {
    const PoaSemaphoreGuard guard(__LINE__);
    ActiveObjectMap::Place at{map.number, -1};
    return ActiveObjectMap::next_of_client(guard, at, ClientData::at(fd, address, is_ipv6));
  };
  EXPECT_EQ(first_of(5, v4, 0), &one);
  EXPECT_EQ(first_of(5, v6, 1), &two);
  EXPECT_EQ(first_of(5, v4, 1), nullptr);
  EXPECT_EQ(first_of(0, zero, 0), nullptr) << "no free slot is taken for a client";
}

TEST_F(ActiveMap, AClientHasANumberWhileSomebodyCountsIt) {
  KnownClients clients;
  const unsigned char v4[16] = {192, 0, 2, 1}, other_v4[16] = {192, 0, 2, 2}, v6[16] = {192, 0, 2, 1};
  const ClientData all[] = {ClientData::at(5, v4, 0), ClientData::at(6, v4, 0),
                            ClientData::at(5, other_v4, 0), ClientData::at(5, v6, 1)};
  std::set<KnownClients::Number> numbers;
  for (const ClientData& each : all) {
    const KnownClients::Number number = clients.enter(each);
    EXPECT_EQ(clients.enter(each), number);
    EXPECT_EQ(clients[number], each);
    numbers.insert(number);
  }
  EXPECT_EQ(numbers.size(), std::size(all));
  EXPECT_EQ(numbers.count(KnownClients::NONE), 0u);
  const KnownClients::Number first = clients.enter(all[0]);
  for (int i = 0; i < 2; ++i) clients.leave(first);
  EXPECT_EQ(clients.enter(all[0]), first) << "one was left";
  for (int i = 0; i < 2; ++i) clients.leave(first);
  for (int fd = 100; fd < 1000; ++fd) {  // as many as come and go
    const KnownClients::Number number = clients.enter(ClientData::at(fd, v4, 0));
    EXPECT_EQ(number, first);
    clients.leave(number);
  }
  const KnownClients::Number again = clients.enter(ClientData::at(999, v4, 0));
  EXPECT_NE(clients.enter(all[0]), again);
}

TEST_F(ActiveMap, AForgottenServantIsInNoMap) {
  auto between = std::make_unique<ActiveObjectMap>();
  ActiveObjectMap second;
  for (ActiveObjectMap* each : {between.get(), &second})
    for (int i = 0; i <= ActiveObjectMap::SLOTS; ++i) insert("same", i % 2 ? one : two, *each);
  between.reset();  // both its blocks leave the list of all blocks
  insert("a", one);
  ActiveObjectMap::forget_servant(&one);
  EXPECT_EQ(ServantAccess::active_entries(one), 0u);
  EXPECT_EQ(find("a"), nullptr);
  EXPECT_EQ(id_of(one, second), "none");
  EXPECT_EQ(second.findServantById("same"), &two);
}

TEST_F(ActiveMap, EtherealizeHandsOverEachServantOnce) {
  insert("a", *new PlainServant);
  insert("b", *new PlainServant);
  Etherealizer activator;
  activator.work = [&](POA*, ServantBase* handed_over) {
    std::thread([&] { EXPECT_EQ(find("a"), nullptr); }).join();  // the semaphore is free
    delete handed_over;
  };
  for (int i = 0; i < 2; ++i) map.etherealize(top, 1, 0, &activator, own_ev);
  EXPECT_EQ(activator.calls.size(), 2u);
  // The entries stay, but answer nothing and touch the servants no more.
  EXPECT_NE(map.entries[0].p_servant, nullptr);
  EXPECT_EQ(map.useServantById("a").get(), nullptr);
  remove("b");
}

TEST_F(ActiveMap, ClearingOneWayAndDeactivatingTheOtherDoNotBlockEachOther) {
  const POAInfoPtr record = record_of(top);
  std::vector<PlainServant> servants(8);
  const uint32_t bound = ZR_bound_objects();
  for (int round = 0; round < 20; ++round) {
    for (PlainServant& each : servants)
      CORBA::release(
          record->id_to_reference(ObjectId_var(record->activate_object(&each, own_ev)).in(), own_ev));
    run_together(2, [&](std::size_t i) {
      if (i == 0) return record->active_object_map.load()->clear_servants(top);
      for (PlainServant& each : servants) each.deactivate_ObjectReference();
    });
    for (PlainServant& each : servants) ActiveObjectMap::forget_servant(&each);
    EXPECT_EQ(ZR_bound_objects(), bound);
  }
  for (PlainServant& each : servants) {
    EXPECT_EQ(entries_of(*record, each), 0);
    EXPECT_EQ(each.get_ref_counter(), 0u);
    EXPECT_TRUE(PortableServer::list_references(each).empty());
  }
}
