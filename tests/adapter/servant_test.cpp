// Servants: standard operations, counters, deferred deletion, timers and references.
#include <ctime>

#include "objects.h"

using namespace PortableServer;

namespace {

constexpr const char* COUNTED_ID = "IDL:test/Counted:1.0";

/// Tells when it is deleted.
class CountedServant : public RefCountServantBase {
 public:
  explicit CountedServant(int* deleted = nullptr) : deleted_(deleted) { _intf = COUNTED_ID; }
  ~CountedServant() override {
    if (deleted_) ++*deleted_;
  }
  CORBA::ULong references() const { return _ref_count; }

 private:
  int* deleted_;
};

class Servants : public ObjectTest {
 protected:
  CORBA::Object* new_reference(POA* poa, const ObjectId& oid) {
    return record_of(poa)->POACreateReference(oid, "IDL:test/Plain:1.0", own_ev);
  }
  std::size_t nodes() const {
    std::size_t count = 0;
    for (const ObjectRefList* node = ServantAccess::references(servant); node; node = node->get_next())
      ++count;
    return count;
  }
  std::size_t listed() const { return PortableServer::list_references(servant).size(); }
};

/// No lifespan tick gets between: it takes both locks.
class Lifespans : public Servants {
 protected:
  ~Lifespans() override { take_off(); }
  /// Takes the servant off the list; true when it was there.
  bool take_off() {
    POA_ServantList others;
    bool found = false;
    while (!servant_delete_list.empty()) {
      ServantBase* const each = servant_delete_list.pop();
      each == &servant ? void(found = true) : others.add(each);
    }
    servant_delete_list = others;
    return found;
  }

  MutexGuard deletions{poa_svt_delete_mutex};
  MutexGuard lifespans{poa_svt_lifespan_mutex};
};

}  // namespace

TEST_F(Servants, WhatItIs) {
  CountedServant counted;
  EXPECT_TRUE(counted._is_a(COUNTED_ID, own_ev));
  for (const char* id :
       {"IDL:omg.org/CORBA/Object:1.0", "IDL:test/Counted:1.1", "", static_cast<const char*>(nullptr)})
    EXPECT_FALSE(counted._is_a(id, own_ev));
  EXPECT_FALSE(counted._non_existent(own_ev));
  EXPECT_FALSE(PlainServant(nullptr)._is_a(COUNTED_ID, own_ev));

  testing::internal::CaptureStderr();
  EXPECT_EQ(counted._get_interface(own_ev), nullptr);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::ContainsRegex("!!!Exception\t[0-9]+/[0-9]+ \\[Src/servantbase\\([0-9]+\\)\\]:\t"
                                     "CORBA_USER_EXCEPTION:\tIDL:CORBA/StExcep/"
                                     "INTF_REPOS:1.0\\([0-9]+\\)\n"));
  ZR_register_interface(COUNTED_ID);
  const CORBA::Object_var reference(root->servant_to_reference(&counted));
  POAManager_var(root->the_POAManager())->activate();
  EXPECT_TRUE(CORBA::InterfaceDef_var(reference->_get_interface(own_ev))->get_ref());  // through the ORB
  root->deactivate_object(ObjectId_var(root->servant_to_id(&counted)));
}

TEST_F(Servants, CountsAndTheVarThatHoldsThem) {
  int deleted = 0;
  auto *first = new CountedServant(&deleted), *second = new CountedServant(&deleted);
  {
    ServantBase_var holds_first(first), holds_second(second), again(holds_first);
    again = holds_first;
    EXPECT_EQ(first->references(), 2u);
    again = holds_second;
    EXPECT_EQ(first->references(), 1u);
    EXPECT_EQ(second->references(), 2u);
    EXPECT_EQ(deleted, 0);
  }
  EXPECT_EQ(deleted, 2);
}

TEST_F(Lifespans, DeletionWaitsForTheLastRequestAndSparesDefaultServants) {
  servant.set_timer(1000, own_ev);
  servant.add_default_servant_ref();
  servant.servant_delete();
  EXPECT_FALSE(servant.get_to_be_deleted());
  EXPECT_EQ(servant_lifespan_list().size(), 1u);
  servant.rem_default_servant_ref();

  for (int i = 0; i < 2; ++i) ServantAccess::hold(servant);
  servant.servant_delete();
  EXPECT_TRUE(servant.get_to_be_deleted());
  ServantAccess::release(servant);
  EXPECT_FALSE(take_off());
  ServantAccess::release(servant);
  EXPECT_TRUE(servant.get_deleted());
  servant.servant_delete();
  EXPECT_TRUE(take_off());
  EXPECT_EQ(servant_lifespan_list().size(), 0u);
  EXPECT_EQ(servant.get_timer(), 0u);
}

TEST_F(Lifespans, TimersAreSetMovedAndCleared) {
  const auto now = static_cast<CORBA::ULong>(std::time(nullptr));
  for (const CORBA::ULong seconds : {0u, 3000u, 6000u, 1000u, 0u}) {
    servant.set_timer(static_cast<CORBA::Long>(seconds), own_ev);
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { servant.set_timer(-1, ev); });
    EXPECT_EQ(servant_lifespan_list().size(), seconds != 0);
    EXPECT_GE(servant.get_timer(), seconds ? now + seconds : 0);
    EXPECT_LE(servant.get_timer(), seconds ? now + seconds + 100 : 0);
  }
  PlainServant().set_timer(1000, own_ev);
  EXPECT_EQ(servant_lifespan_list().size(), 0u) << "a servant that goes takes its timer along";
}

TEST_F(Servants, TimersOfManyThreads) {
  run_together(4, [&](std::size_t i) {
    CORBA::Environment own;
    for (int n = 0; n < 200; ++n) (n % 2 ? servant : other).set_timer(i % 2 ? 1000 : 0, own);
  });
  for (PlainServant* each : {&servant, &other}) each->set_timer(0, own_ev);
  MutexGuard guard(poa_svt_lifespan_mutex);
  EXPECT_EQ(servant_lifespan_list().size(), 0u);
}

TEST_F(Servants, AReferenceIsKeptOnceForEachPoaAndId) {
  const POA_var elsewhere = child(top, "elsewhere");
  EXPECT_EQ(servant.set_ObjectReference(nullptr, top, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(servant.set_ObjectReference(top, nullptr, 0, nullptr, nullptr), nullptr);

  CORBA::Object* kept = new_reference(top, a);
  EXPECT_EQ(servant.set_ObjectReference(top, kept, 0, nullptr, &b), kept);  // the id is the reference's own
  const CORBA::Object_var second(new_reference(top, a)), for_b(new_reference(top, b));
  EXPECT_EQ(servant.set_ObjectReference(top, second.in(), 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(servant.get_ObjectReference(top, &a), kept);
  EXPECT_EQ(servant.get_ObjectReference(elsewhere, &a), nullptr);

  CORBA::Object* own = servant.set_ObjectReference(top, for_b.in(), 1, nullptr, nullptr);
  ASSERT_TRUE(own && own != for_b.in());
  EXPECT_TRUE(own->_is_equivalent(for_b.in()));
  for (POA* poa : {top.in(), top.in(), static_cast<POA*>(nullptr)}) servant.clear_ObjectReference(poa, &a);
  EXPECT_EQ(servant.get_ObjectReference(top, &a), nullptr);
  EXPECT_EQ(servant.get_ObjectReference(top, &b), own);
  EXPECT_EQ(nodes(), 1u) << "no longer than what it holds";
}

TEST_F(Servants, ADefaultServantsReferencesGoByTheIdGiven) {
  servant.add_default_servant_ref();
  const CORBA::Object_var request(new_reference(top, a));
  EXPECT_EQ(servant.set_ObjectReference(top, request.in(), 1, nullptr, nullptr), nullptr);
  CORBA::Object* kept = servant.set_ObjectReference(top, request.in(), 1, nullptr, &b);
  EXPECT_TRUE(kept && servant.get_ObjectReference(top, &b) == kept);
}

TEST_F(Servants, NothingOfADestroyedPoaIsFollowed) {
  for (int round = 0; round < 20; ++round) {  // a new POA's object may come to lie where the old one's was
    POA_var poa = child(top, "short-lived");
    EXPECT_EQ(servant.get_ObjectReference(poa, &a), nullptr);
    CORBA::Object* reference = new_reference(poa, a);
    EXPECT_EQ(servant.set_ObjectReference(poa, reference, 0, nullptr, nullptr), reference);
    EXPECT_EQ(nodes(), round == 0 ? 1u : 2u);
    EXPECT_EQ(listed(), 1u);
    poa->destroy(false, false);
    const CORBA::Object_var late(round % 2 ? new_reference(top, b) : nullptr);
    EXPECT_EQ(servant.set_ObjectReference(poa, late.in(), 1, nullptr, nullptr), nullptr);
    EXPECT_EQ(listed(), 0u);
  }
  servant.deactivate_ObjectReference();
}

TEST_F(Servants, DeactivatingWithdrawsWhatIsItsOwn) {
  const POAInfoPtr many = make(MULTIPLE_ID, USER_ID);
  const uint32_t bound = ZR_bound_objects();
  for (const ObjectId* id : {&a, &b}) {
    many->activate_object_with_id(*id, &servant, own_ev);
    CORBA::release(many->id_to_reference(*id, own_ev));
  }
  {
    PoaSemaphoreGuard guard(__LINE__);
    many->active_object_map.load()->removeById(guard, "b");  // b goes over to another servant
  }
  many->activate_object_with_id(b, &other, own_ev);
  EXPECT_EQ(ZR_bound_objects(), bound + 2);

  servant.deactivate_ObjectReference();
  EXPECT_EQ(ZR_bound_objects(), bound);
  EXPECT_EQ(listed(), 0u);
  EXPECT_EQ(entries_of(*many, servant), 0);
  EXPECT_EQ(many->id_to_servant(b, own_ev), &other);
  many->deactivate_object(b, own_ev);
}
