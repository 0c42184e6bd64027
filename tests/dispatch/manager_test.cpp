// POA managers: the four states, held and discarded requests, deactivation; and the ring of requests.
#include "dispatch_fixture.h"
#include "records/queue.h"

using namespace PortableServer;

namespace {

class Managers : public Dispatch {};
BOTH_ROADS(Managers);

using State = POAManager::State;
using Calls = std::vector<std::string>;

/// The four operations, in the order of the columns of the table below.
void (*const operations[])(POAManager*, CORBA::Environment&) = {
    [](POAManager* m, CORBA::Environment& ev) { m->activate(ev); },
    [](POAManager* m, CORBA::Environment& ev) { m->hold_requests(0, ev); },
    [](POAManager* m, CORBA::Environment& ev) { m->discard_requests(0, ev); },
    [](POAManager* m, CORBA::Environment& ev) { m->deactivate(0, 0, ev); },
};
constexpr State states[] = {POAManager::HOLDING, POAManager::ACTIVE, POAManager::DISCARDING,
                            POAManager::INACTIVE};

/// What one operation does in one state; codes of the queue calls, one a character. "!": refused.
constexpr struct {
  State next;
  const char* codes;
} table[4][4] = {
    {{states[1], "5"}, {states[0], ""}, {states[2], "5"}, {states[3], "47"}},
    {{states[1], ""}, {states[0], "6"}, {states[2], ""}, {states[3], "47"}},
    {{states[1], ""}, {states[0], "6"}, {states[2], ""}, {states[3], "47"}},
    {{states[3], "!"}, {states[3], "!"}, {states[3], "!"}, {states[3], "!"}},
};

/// Puts things back: nothing is held by a test that is over.
class ManagerStates : public AdapterTest {
 protected:
  ManagerStates() { default_poa_manager->activate(); }
  ~ManagerStates() override {
    default_poa_manager->hold_requests(0);
    default_poa_manager->activate();
  }
  CoreCalls core;
};

}  // namespace

TEST_F(ManagerStates, Table) {
  const POAManagerInfo fresh;
  EXPECT_EQ(POAManager_var(fresh.poamanager_object)->get_state(), POAManager::HOLDING);
  for (std::size_t from = 0; from < 4; ++from) {
    for (std::size_t i = 0; i < 4; ++i) {
      SCOPED_TRACE("operation " + std::to_string(i) + " from " + std::to_string(states[from]));
      const auto& [next, codes] = table[from][i];
      POAManagerInfo record(states[from]);
      const POAManager_var manager(record.poamanager_object);
      EXPECT_EQ(manager->get_state(), states[from]);
      const auto call = [&](CORBA::Environment& ev) { operations[i](manager, ev); };
      Calls wanted;
      for (const char* code = codes; *code && *code != '!'; ++code) {
        wanted.push_back(std::string("queue ") + *code + " " + POA_impl_name.load());
        core.refuse(wanted.back());  // first it fails, and changes nothing
        expect_raised<POAManager::AdapterInactive>(call);
        EXPECT_EQ(manager->get_state(), states[from]);
      }
      core.refuse("nothing");
      core.take();
      *codes == '!' ? void(expect_raised<POAManager::AdapterInactive>(call))
                    : call(CORBA::Environment().self());
      EXPECT_EQ(core.take(), wanted);
      EXPECT_EQ(manager->get_state(), next);
    }
  }
}

// Whichever change comes first registers the process, instead of any queue call.
TEST_F(ManagerStates, TheFirstChangeRegisters) {
  const std::string name = CORBA::String_var(top->the_name()).in();
  core.take();  // of the set-up
  for (std::size_t from = 0; from < 2; ++from) {
    for (std::size_t i = 0; i < 4; ++i) {
      const Unregistered process;
      POAManagerInfo record(states[from]);
      const POAManager_var manager(record.poamanager_object);
      operations[i](manager, CORBA::Environment().self());
      EXPECT_EQ(core.take(), *table[from][i].codes ? Calls({"lookup " + name, "ready"}) : Calls{});
    }
  }
}

TEST_F(ManagerStates, AnObjectWithoutARecordIsRefused) {
  PortableServer_POAManager_impl stranger;
  for (const auto operation : operations)
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { operation(&stranger, ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { stranger.get_state(ev); });
}

TEST_P(Managers, HeldCallsAreAnsweredOnRelease) {
  Scene scene(top);
  const CORBA::Object_var object = seen(scene.with().activate("o", &scene.servant).reference("o"));
  std::atomic<int> served{0};
  scene.servant.work = [&] { ++served; };
  EXPECT_EQ(outcome(object), "done");
  for (bool discard : {false, true}) {
    served = 0;
    scene.manager->hold_requests(0);
    std::vector<std::future<std::string>> calls;
    for (int i = 0; i < 5; ++i) calls.push_back(outcome_of_a_thread(object));
    for (auto& call : calls) EXPECT_EQ(call.wait_for(a_while / 5), std::future_status::timeout);
    EXPECT_EQ(served, 0);
    discard ? scene.manager->discard_requests(0) : scene.manager->activate();
    for (auto& call : calls) EXPECT_EQ(call.get(), discard ? "TRANSIENT 0x4b510301 NO" : "done");
    EXPECT_EQ(served, discard ? 0 : 5);
  }
  scene.manager->activate();
  EXPECT_EQ(outcome(object), "done");
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
}

// All threads are in servants, each of which calls an object while requests are held: the release lets all of
// them go on.
TEST_P(Managers, HeldCallsOfServantsDoNotBlockEachOther) {
  Scene scene(top);
  // In process all that the ORB runs at once; over a socket each nested call needs one more.
  const int threads = GetParam() == Road::InProcess ? requests_at_once : requests_at_once / 2;
  const CORBA::Object_var inner = seen(scene.with().activate("i", &scene.other).reference("i"));
  const CORBA::Object_var object = seen(scene.activate("o", &scene.servant).reference("o"));
  std::atomic<int> inside{0};
  Event all_inside, held;
  scene.servant.work = [&] {
    if (++inside == threads) all_inside.set();
    EXPECT_TRUE(held.wait());
    EXPECT_EQ(outcome(inner), "done");
  };
  std::vector<std::future<std::string>> calls;
  for (int i = 0; i < threads; ++i) calls.push_back(outcome_of_a_thread(object));
  EXPECT_TRUE(all_inside.wait());
  scene.manager->hold_requests(0);
  held.set();
  EXPECT_EQ(calls.front().wait_for(a_while), std::future_status::timeout);
  scene.manager->activate();
  for (auto& call : calls) EXPECT_EQ(call.get(), "done");
}

TEST_P(Managers, DeactivationEtherealizesEveryObject) {
  for (bool wait_for_completion : {false, true}) {
    Scene scene(top), of_another(top);
    of_another.with_activator().activate("c", &of_another.servant);
    of_another.activator.on_etherealize = [&](auto, auto*, bool, bool) {
      EXPECT_NE(scene.manager->get_state(), POAManager::INACTIVE);
    };
    scene.with_activator().activate("a", &scene.servant).activate("b", &scene.other);
    TestServant deep;
    POA_var below =
        scene.poa->create_POA("below", scene.manager, policies(root, USER_ID, USE_SERVANT_MANAGER));
    below->set_servant_manager(&scene.activator);
    below->activate_object_with_id(oid("deep"), &deep);
    Calls ended;
    scene.activator.on_etherealize = [&](std::string id, ServantBase*, bool cleanup, bool remaining) {
      EXPECT_TRUE(cleanup);
      EXPECT_EQ(remaining, wait_for_completion);
      ended.push_back(id);
    };
    const CORBA::Object_var object = seen(scene.reference("a"));
    EXPECT_EQ(outcome(object), "done");
    scene.manager->deactivate(true, wait_for_completion);
    EXPECT_EQ(outcome(object), "UNKNOWN 0x0 NO");
    EXPECT_EQ(scene.manager->get_state(), POAManager::INACTIVE);
    scene.poa->destroy(true, false);
    EXPECT_THAT(ended, testing::UnorderedElementsAre("a", "b", "deep"));  // once each
  }
}

TEST_P(Managers, DeactivationThatCannotEtherealize) {
  for (bool raises : {false, true}) {
    Scene scene(top);
    raises ? scene.with_activator() : scene.with(USE_SERVANT_MANAGER);
    scene.activate("o", &scene.servant);
    scene.activator.on_etherealize = [](auto, auto*, bool, bool) { throw CORBA::NO_RESOURCES(1); };
    expect_raised<POAManager::AdapterInactive>([&](auto& ev) { scene.manager->deactivate(true, false, ev); });
    EXPECT_EQ(scene.manager->get_state(), POAManager::INACTIVE);
    EXPECT_EQ(outcome(seen(scene.reference("o"))), "UNKNOWN 0x0 NO");
  }
}

// A servant activator may work on the tree and on other managers while its objects go.
TEST_P(Managers, ActivatorsWorkOnTheTreeDuringDeactivation) {
  Scene going(top), staying(top);
  going.with_activator().activate("o", &going.servant);
  const CORBA::Object_var object = seen(staying.with().activate("o", &staying.servant).reference("o"));
  int calls = 0;
  going.activator.on_etherealize = [&](auto, auto*, bool, bool) {
    ++calls;
    staying.manager->hold_requests(0);
    staying.manager->activate();
    going.poa->destroy(true, false);
    expect_raised<POAManager::AdapterInactive>([&](auto& ev) { going.manager->activate(ev); });
  };
  going.manager->deactivate(true, false);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(outcome(object), "done");
}

TEST_F(ManagerStates, TheRingOfRequestsIsFirstInFirstOut) {
  Queue ring;
  CORBA::ServerRequest request;
  const CORBA::Object_var objects[] = {top->create_reference("IDL:x:1.0"),
                                       top->create_reference("IDL:x:1.0")};
  const auto get = [&](int wanted) {
    CORBA::ServerRequest* got = nullptr;
    CORBA::Object* target = nullptr;
    ring.get(got, target);
    EXPECT_TRUE(CORBA::Object_var(target)->_is_equivalent(objects[wanted % 2]));
    CORBA::release(got);
  };
  for (int start : {0, 700}) {  // full and empty at different places of the ring
    for (int i = 0; i < start; ++i) ring.insert(&request, objects[i % 2]), get(i);
    EXPECT_TRUE(ring.isEmpty());
    EXPECT_EQ(outcome([&] { get(0); }), "BAD_PARAM 0x4b510007 NO");
    for (int i = 0; i < Queue::SIZE; ++i) ring.insert(&request, objects[i % 2]);
    EXPECT_EQ(outcome([&] { ring.insert(&request, objects[0]); }), "IMP_LIMIT 0x4b510305 NO");
    for (int i = 0; i < Queue::SIZE; ++i) get(i);
  }
  ring.insert(&request, objects[0]);  // the ring releases what is left in it
}
