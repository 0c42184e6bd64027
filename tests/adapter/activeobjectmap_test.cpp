// The active object map and the lists of servants.
#include <arpa/inet.h>

#include "objects.h"

using namespace PortableServer;

namespace {

class ActiveMap : public ObjectTest {
 protected:
  void insert(std::string_view oid, ServantBase& s) { map.insertActiveObjectMap(make_oid(oid), &s); }
  ServantBase* find(std::string_view oid) { return map.findServantById(oid); }

  ActiveObjectMap map;
  PlainServant &one = servant, &two = other;
};

}  // namespace

TEST_F(ActiveMap, GrowsByBlocksAndUsesTheFirstFreeSlot) {
  for (int i = 0; i < ActiveObjectMap::SLOTS; ++i) insert(std::to_string(i), one);
  EXPECT_EQ(map.next, nullptr);
  insert("next", two);
  ASSERT_NE(map.next, nullptr);
  EXPECT_EQ(map.next->entries[0].p_servant, &two);
  for (int slot : {700, 7}) {
    map.removeById(oid_of(std::to_string(slot)));
    EXPECT_TRUE(!map.entries[slot].oid && !map.entries[slot].p_servant);
    EXPECT_EQ(find(std::to_string(slot)), nullptr);
  }
  for (int slot : {7, 700}) {
    insert("again" + std::to_string(slot), two);
    EXPECT_EQ(map.entries[slot].p_servant, &two);
  }
  for (const char* oid : {"again7", "again700", "next"}) EXPECT_EQ(find(oid), &two);
}

TEST_F(ActiveMap, RemovingTakesTheFirstOfEachBlock) {
  insert("twice", one);
  insert("twice", two);
  for (int i = 2; i < ActiveObjectMap::SLOTS; ++i) insert(std::to_string(i), one);
  insert("twice", two);
  map.removeById(oid_of("twice"));
  EXPECT_TRUE(!map.entries[0].oid && !map.next->entries[0].oid);
  map.removeById(oid_of("twice"), &one);
  map.removeInserted(map.entries[1].oid, &one);
  EXPECT_EQ(find("twice"), &two);
  const ObjectId_var copy(map.copyOidByServant(&two));
  EXPECT_NE(&copy.in(), map.entries[1].oid);
  EXPECT_EQ(text_of(copy.in()), "twice");
  map.removeInserted(map.entries[1].oid, &two);
  EXPECT_EQ(find("twice"), nullptr);
  EXPECT_TRUE(!map.findOidByServant(&two) && !map.copyOidByServant(&two));
}

TEST_F(ActiveMap, ServantsOfAClient) {
  unsigned char v4[16], v6[16], other_v6[16], zero[16] = {};
  ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::1", v6), 1);
  ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::2", other_v6), 1);
  std::memcpy(v4, v6, sizeof v4);
  ASSERT_EQ(inet_pton(AF_INET, "192.0.2.1", v4),
            1);  // then twelve octets that do not count
  insert("first", one);
  insert("v4", one);
  insert("v6", two);
  map.entries[1].fd = map.entries[2].fd = 5;
  std::memcpy(&map.entries[1].host_ipv4, v4, 4);
  std::memcpy(map.entries[2].host_ipv6, v6, 16);
  map.removeById(oid_of("first"));
  const struct {
    CORBA::Long fd;
    const unsigned char* host;
    unsigned char is_ipv6;
    ServantBase* found;
  } rows[] = {{5, v4, 0, &one},
              {5, v6, 1, &two},
              {6, v4, 0, nullptr},
              {5, other_v6, 1, nullptr},
              {0, zero, 0, nullptr}};  // no free slot is taken for a client
  for (const auto& row : rows)
    EXPECT_EQ(map.searchServantByClientData(row.fd, row.host, row.is_ipv6), row.found) << &row - rows;
  find("v4");
  EXPECT_EQ(map.entries[1].fd,
            5);          // outside a request a found entry keeps its client
  insert("local", one);  // takes the free slot: fd 0 and no address
  EXPECT_EQ(map.searchServantByClientData(0, zero, 0), &one);
}

TEST_F(ActiveMap, AForgottenServantIsInNoMap) {
  auto between = std::make_unique<ActiveObjectMap>();
  ActiveObjectMap second;
  for (ActiveObjectMap* each : {between.get(), &second})
    for (int i = 0; i <= ActiveObjectMap::SLOTS; ++i)
      each->insertActiveObjectMap(make_oid(i < ActiveObjectMap::SLOTS ? "same" : "last"),
                                  i % 2 ? &one : &two);
  between.reset();  // both its blocks leave the list of all blocks
  insert("a", one);
  insert("b", two);
  ActiveObjectMap::forget_servant(&one);
  EXPECT_EQ(ServantAccess::active_entries(one), 0u);
  EXPECT_EQ(find("a"), nullptr);
  EXPECT_EQ(second.findOidByServant(&one), nullptr);
  for (ServantBase* s : {find("b"), second.findServantById("same"), second.findServantById("last")})
    EXPECT_EQ(s, &two);
}

TEST_F(ActiveMap, EtherealizeHandsOverEachServantOnce) {
  ServantBase *const first = new PlainServant, *const second = new PlainServant;
  insert("a", *first);
  insert("b", *second);
  Etherealizer activator;
  activator.work = [&](POA*, ServantBase* handed_over) {
    std::thread([&] { EXPECT_EQ(find("a"), nullptr); }).join();  // the semaphore is free
    delete handed_over;
  };
  for (int i = 0; i < 2; ++i) {
    map.etherealize(top, 1, 0, &activator, env);
    EXPECT_THAT(activator.calls, testing::ElementsAre(Etherealizer::Call("a", top, first, true, false),
                                                      Etherealizer::Call("b", top, second, true, false)));
  }
  // The entries stay, but answer nothing and touch the servants no more.
  EXPECT_NE(map.entries[0].oid, nullptr);
  for (bool hold : {false, true}) EXPECT_EQ(map.findServantById("a", hold), nullptr);
  map.removeById(b);
}

TEST_F(ActiveMap, ClearingOneWayAndDeactivatingTheOtherDoNotBlockEachOther) {
  const POAInfoPtr record = record_of(top);
  std::vector<PlainServant> servants(8);
  const uint32_t bound = ZR_bound_objects();
  for (int round = 0; round < 20; ++round) {
    for (PlainServant& each : servants)
      CORBA::release(record->id_to_reference(ObjectId_var(record->activate_object(&each, env)).in(), env));
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
    EXPECT_TRUE(ServantAccess::list_references(each).empty());
  }
}
