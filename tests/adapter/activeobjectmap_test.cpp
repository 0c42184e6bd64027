// The active object map and the lists of servants.
#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "objects.h"

using namespace PortableServer;

namespace {

class ActiveMap : public AdapterTest {
 protected:
  void insert(std::string_view oid, ServantBase& servant) {
    map.insertActiveObjectMap(make_oid(oid), &servant);
  }
  ServantBase* find(std::string_view oid) { return map.findServantById(oid_of(oid)); }

  ActiveObjectMap map;
  PlainServant one, two;
  CORBA::Environment env;
};

class DeletingActivator : public PortableServer_ServantActivator_impl {
 public:
  explicit DeletingActivator(ActiveObjectMap& map) : map_(map) {}
  void etherealize(const ObjectId& oid, POA* poa, ServantBase* servant, CORBA::Boolean cleanup,
                   CORBA::Boolean remaining, CORBA::Environment&) override {
    calls.emplace_back(text_of(oid), poa, servant, cleanup != 0, remaining != 0);
    std::thread([&] { EXPECT_EQ(map_.findServantById(oid), nullptr); }).join();  // the semaphore is free
    delete servant;
  }
  std::vector<std::tuple<std::string, POA*, ServantBase*, bool, bool>> calls;

 private:
  ActiveObjectMap& map_;
};

}  // namespace

TEST_F(ActiveMap, GrowsByBlocksAndUsesTheFirstFreeSlot) {
  for (int i = 0; i < ActiveObjectMap::SLOTS; ++i) insert(std::to_string(i), one);
  EXPECT_EQ(map.next, nullptr);
  const std::vector<_ActiveObjectEntry> before(map.entries, map.entries + ActiveObjectMap::SLOTS);
  insert("next", two);
  ASSERT_NE(map.next, nullptr);
  EXPECT_EQ(map.next->entries[0].p_servant, &two);
  for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(map.entries[i].oid, before[i].oid);

  map.removeById(oid_of("700"));
  map.removeById(oid_of("7"));
  EXPECT_EQ(map.entries[7].oid, nullptr);
  EXPECT_EQ(map.entries[7].p_servant, nullptr);
  for (int slot : {7, 700}) {
    insert("again" + std::to_string(slot), two);
    EXPECT_EQ(map.entries[slot].p_servant, &two);
  }
  EXPECT_EQ(find("again700"), &two);
  EXPECT_EQ(find("next"), &two);
}

TEST_F(ActiveMap, LookupsFindTheFirstEntryAlsoDeactivated) {
  insert("a", one);
  insert("b", one);
  insert("a", two);
  EXPECT_EQ(find("a"), &one);
  EXPECT_EQ(find("aa"), nullptr);
  EXPECT_EQ(map.findOidByServant(&one), map.entries[0].oid);
  const ObjectId_var copy(map.copyOidByServant(&two));
  EXPECT_NE(&copy.in(), map.entries[2].oid);
  EXPECT_TRUE(oid_is_equivalent(copy.in(), oid_of("a")));
  PlainServant stranger;
  EXPECT_EQ(map.findOidByServant(&stranger), nullptr);
  EXPECT_EQ(map.copyOidByServant(&stranger), nullptr);

  map.deactivateByOid(oid_of("nobody"));
  map.deactivateByOid(oid_of("b"));
  EXPECT_EQ(map.entries[1].deactivated, 1);
  EXPECT_EQ(find("b"), &one);
  map.removeById(oid_of("b"));
  insert("c", two);
  EXPECT_EQ(map.entries[1].deactivated, 0);
}

TEST_F(ActiveMap, RemovingTakesTheFirstOfEachBlock) {
  insert("twice", one);
  insert("twice", two);
  for (int i = 2; i < ActiveObjectMap::SLOTS; ++i) insert(std::to_string(i), one);
  insert("twice", two);
  map.removeById(oid_of("twice"));
  EXPECT_EQ(map.entries[0].oid, nullptr);
  EXPECT_EQ(map.next->entries[0].oid, nullptr);
  map.removeById(oid_of("twice"), &one);
  EXPECT_EQ(find("twice"), &two);
  map.removeInserted(map.entries[1].oid, &one);
  EXPECT_EQ(find("twice"), &two);
  map.removeInserted(map.entries[1].oid, &two);
  EXPECT_EQ(find("twice"), nullptr);
}

TEST_F(ActiveMap, ServantsOfAClient) {
  unsigned char v4[16], v6[16], other_v6[16], zero[16] = {};
  ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::1", v6), 1);
  ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::2", other_v6), 1);
  std::memcpy(v4, v6, sizeof v4);
  ASSERT_EQ(inet_pton(AF_INET, "192.0.2.1", v4), 1);  // then twelve octets that do not count
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
  EXPECT_EQ(map.entries[1].fd, 5);  // outside a request a found entry keeps its client
  insert("local", one);             // takes the free slot: fd 0 and no address
  EXPECT_EQ(map.searchServantByClientData(0, zero, 0), &one);
}

TEST_F(ActiveMap, AForgottenServantIsInNoMap) {
  auto between = std::make_unique<ActiveObjectMap>();
  ActiveObjectMap second;
  for (int i = 0; i <= ActiveObjectMap::SLOTS; ++i) between->insertActiveObjectMap(make_oid("gone"), &one);
  between.reset();  // both its blocks leave the list of all blocks
  insert("a", one);
  insert("b", two);
  for (int i = 0; i < ActiveObjectMap::SLOTS; ++i) second.insertActiveObjectMap(make_oid("same"), &one);
  second.insertActiveObjectMap(make_oid("x"), &two);
  ActiveObjectMap::forget_servant(&one);
  EXPECT_EQ(ServantAccess::active_entries(one), 0u);
  EXPECT_EQ(find("a"), nullptr);
  EXPECT_EQ(second.findServantById(oid_of("same")), nullptr);
  EXPECT_EQ(find("b"), &two);
  EXPECT_EQ(second.findServantById(oid_of("x")), &two);
}

TEST_F(ActiveMap, EtherealizeHandsOverEachServantOnce) {
  ServantBase* const a = new PlainServant;
  ServantBase* const b = new PlainServant;
  insert("a", *a);
  insert("b", *b);
  DeletingActivator activator(map);
  map.etherealize(top, 1, 0, &activator, env);
  const decltype(activator.calls) expected = {{"a", top, a, true, false}, {"b", top, b, true, false}};
  EXPECT_EQ(activator.calls, expected);
  // The entries stay, but answer nothing and touch the servants no more.
  EXPECT_NE(map.entries[0].oid, nullptr);
  for (bool hold : {false, true}) EXPECT_EQ(map.findServantById(oid_of("a"), hold), nullptr);
  map.etherealize(top, 1, 0, &activator, env);
  EXPECT_EQ(activator.calls.size(), 2u);
  map.removeById(oid_of("b"));
}

TEST_F(ActiveMap, ClearingOneWayAndDeactivatingTheOtherDoNotBlockEachOther) {
  const POAInfoPtr record = record_of(top);
  std::vector<PlainServant> servants(8);
  const uint32_t bound = ZR_bound_objects();
  for (int round = 0; round < 20; ++round) {
    for (PlainServant& servant : servants) {
      const ObjectId_var oid(record->activate_object(&servant, env));
      CORBA::release(record->id_to_reference(oid.in(), env));
    }
    run_together(2, [&](std::size_t i) {
      if (i == 0) return record->active_object_map.load()->clear_servants(top);
      for (PlainServant& servant : servants) servant.deactivate_ObjectReference();
    });
    for (PlainServant& servant : servants) ActiveObjectMap::forget_servant(&servant);
    EXPECT_EQ(ZR_bound_objects(), bound);
  }
  for (PlainServant& servant : servants) {
    EXPECT_EQ(entries_of(*record, servant), 0);
    EXPECT_EQ(servant.get_ref_counter(), 0u);
    EXPECT_TRUE(ServantAccess::list_references(servant).empty());
  }
}

TEST(ServantLists, AddSearchRemove) {
  PlainServant a, b, c;
  POA_ServantList* list = nullptr;
  POA_ServantList::remove_servant(list, &a);
  for (ServantBase* servant : {&a, &b, &a, &c}) POA_ServantList::add_servant(list, servant);
  for (ServantBase* servant : {&a, &c}) POA_ServantList::remove_servant(list, servant);
  std::vector<ServantBase*> left;
  for (const POA_ServantList* node = list; node; node = node->get_next()) left.push_back(node->get_servant());
  EXPECT_THAT(left, testing::ElementsAre(&b, &a));  // the first of the same is removed
  EXPECT_TRUE(POA_ServantList::search_servant(list, &a));
  EXPECT_FALSE(POA_ServantList::search_servant(list, &c));
  for (ServantBase* servant : left) POA_ServantList::remove_servant(list, servant);
  EXPECT_EQ(list, nullptr);
}
