// POA managers: the four states, held and discarded requests, deactivation; and the ring of requests.
#include "dispatch_fixture.h"
#include "queue.h"

using namespace PortableServer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Managers : public Dispatch {};
BOTH_ROADS(Managers);
class ManagersOverSockets : public Managers {};  // order is that of a connection
INSTANTIATE_TEST_SUITE_P(Roads, ManagersOverSockets, testing::Values(Road::Socket), road_name);

using State = POAManager::State;

/// The four operations, in the order of the columns of the tables below.
const struct Operation {
  const char* name;
  void (*call)(POAManager*, CORBA::Environment&);
  const char* refused;  // trace of a refusal
  const char* end;
} operations[] = {
    {"activate", [](POAManager* m, CORBA::Environment& ev) { m->activate(ev); },
     "POAManagerInfo::activate [state is INACTIVE.]", "POAManagerInfo::activate end..."},
    {"hold_requests", [](POAManager* m, CORBA::Environment& ev) { m->hold_requests(0, ev); },
     "POAManagerInfo::hold_requests [state is INACTIVATE.]", "POAManagerInfo::hold_requests end..."},
    {"discard_requests", [](POAManager* m, CORBA::Environment& ev) { m->discard_requests(0, ev); },
     "POAManagerInfo::discard_requests [state is INACTIVATE.]", "POAManagerInfo::discard_requests end..."},
    {"deactivate", [](POAManager* m, CORBA::Environment& ev) { m->deactivate(0, 0, ev); },
     "POAManagerInfo::deactivate [state is INACTIVE.]", "POAManagerInfo::deactivate_requests end..."},
};
constexpr State states[] = {POAManager::HOLDING, POAManager::ACTIVE, POAManager::DISCARDING,
                            POAManager::INACTIVE};

/// What one operation does in one state; codes of the queue calls, one a character. "-": no effect, no end
/// trace.
constexpr struct {
  State next;
  const char* codes;
} table[4][4] = {
    {{states[1], "5"}, {states[0], "-"}, {states[2], "5"}, {states[3], "47"}},
    {{states[1], "-"}, {states[0], "6"}, {states[2], ""}, {states[3], "47"}},
    {{states[1], ""}, {states[0], "6"}, {states[2], "-"}, {states[3], "47"}},
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
};

}  // namespace

TEST_F(ManagerStates, Table) {
  for (State from : states) {
    for (std::size_t i = 0; i < 4; ++i) {
      const Operation& operation = operations[i];
      SCOPED_TRACE(std::string(operation.name) + " from " + std::to_string(from));
      const auto [next, codes] = table[from][i];
      POAManagerInfo record;
      const POAManager_var manager(record.poamanager_object);
      EXPECT_EQ(manager->get_state(), POAManager::HOLDING);
      record.set_state(from);
      CoreCalls core;
      TraceRecorder trace;
      if (*codes == '!') {
        expect_raised<POAManager::AdapterInactive>([&](auto& ev) { operation.call(manager, ev); });
        EXPECT_TRUE(trace.has(operation.refused));
      } else {
        operation.call(manager, CORBA::Environment().self());
      }
      EXPECT_EQ(trace.has(operation.end), *codes != '!' && *codes != '-');
      EXPECT_EQ(manager->get_state(), next);
      std::vector<std::string> wanted;
      for (const char* code = codes; *code >= '0'; ++code)
        wanted.push_back(std::string("queue ") + *code + " " + POA_impl_name.load());
      EXPECT_EQ(core.take(), wanted);
    }
  }
}

TEST_F(ManagerStates, ARefusalOfTheQueuesChangesNothing) {
  for (State from : {states[0], states[1], states[2]}) {
    for (std::size_t i = 0; i < 4; ++i) {
      for (const char* code = table[from][i].codes; *code >= '0'; ++code) {
        SCOPED_TRACE(std::string(operations[i].name) + " from " + std::to_string(from) + ", code " + *code);
        POAManagerInfo record;
        const POAManager_var manager(record.poamanager_object);
        record.set_state(from);
        CoreCalls core;
        core.refuse(std::string("queue ") + *code);
        TraceRecorder trace;
        expect_raised<POAManager::AdapterInactive>([&](auto& ev) { operations[i].call(manager, ev); });
        EXPECT_EQ(manager->get_state(), from);
        EXPECT_TRUE(trace.has(
            "ZR_queue_control_queue_group error,throw PortableServer::POAManager::AdapterInactive"));
      }
    }
  }
}

// Whichever change comes first registers the process, instead of any queue call.
TEST_F(ManagerStates, TheFirstChangeRegisters) {
  const CORBA::String_var top_name(top->the_name());
  const std::string lookup = std::string("lookup ") + top_name.in();
  for (State from : {states[0], states[1], states[2]}) {
    for (std::size_t i = 0; i < 4; ++i) {
      const std::string_view codes = table[from][i].codes;
      SCOPED_TRACE(std::string(operations[i].name) + " from " + std::to_string(from));
      const Unregistered process;
      POAManagerInfo record;
      const POAManager_var manager(record.poamanager_object);
      record.set_state(from);
      CoreCalls core;
      operations[i].call(manager, CORBA::Environment().self());
      EXPECT_EQ(manager->get_state(), table[from][i].next);
      if (codes == "" || codes == "-") {
        EXPECT_THAT(core.take(), IsEmpty());
      } else {
        EXPECT_THAT(core.take(), ElementsAre(lookup, "ready"));
        EXPECT_STREQ(POA_impl_name, top_name.in());
      }
    }
  }
}

TEST_F(ManagerStates, AnObjectWithoutARecordIsRefused) {
  PortableServer_POAManager_impl stranger;
  for (const Operation& operation : operations)
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { operation.call(&stranger, ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { stranger.get_state(ev); });
}

// ---- Requests -------------------------------------------------------------------------------------------

TEST_P(Managers, HeldCallsAreAnsweredOnRelease) {
  Scene scene(top);
  const CORBA::Object_var object = seen(scene.with().activate("o", &scene.servant).reference("o"));
  std::atomic<int> served{0};
  scene.servant.work = [&] { ++served; };
  EXPECT_EQ(outcome(object, "notes"), "done");
  for (bool discard : {false, true}) {
    served = 0;
    scene.manager->hold_requests(0);
    std::vector<std::future<std::string>> calls;
    for (int i = 0; i < 5; ++i)
      calls.push_back(std::async(std::launch::async, [&] { return outcome(object, "notes"); }));
    for (auto& call : calls) EXPECT_EQ(call.wait_for(a_while / 5), std::future_status::timeout);
    EXPECT_EQ(served, 0);
    discard ? scene.manager->discard_requests(0) : scene.manager->activate();
    for (auto& call : calls) EXPECT_EQ(call.get(), discard ? "TRANSIENT 0x4b510301 NO" : "done");
    EXPECT_EQ(served, discard ? 0 : 5);
  }
  EXPECT_EQ(outcome(object, "notes"), "TRANSIENT 0x4b510301 NO");
  scene.manager->activate();
  EXPECT_EQ(outcome(object, "notes"), "done");
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
}

// A client's requests run in the order in which it sent them, held ones before those that came later.
TEST_P(ManagersOverSockets, HeldCallsKeepTheirOrder) {
  Scene scene(top);
  const Demo::Echo_var echo = this->echo(scene.with().activate("o", &scene.servant).reference("o"));
  std::vector<std::string> sent;
  scene.manager->hold_requests(0);
  for (int i = 0; i < 200; ++i) {
    sent.push_back(std::to_string(i));
    echo->note(sent.back().c_str());
  }
  auto last = std::async(std::launch::async, [&] { return outcome(echo, "notes"); });
  EXPECT_EQ(last.wait_for(a_while), std::future_status::timeout);
  scene.manager->activate();
  EXPECT_EQ(last.get(), "done");
  EXPECT_EQ(scene.servant.noted(), sent);
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
    EXPECT_EQ(outcome(inner, "notes"), "done");
  };
  std::vector<std::future<std::string>> calls;
  for (int i = 0; i < threads; ++i)
    calls.push_back(std::async(std::launch::async, [&] { return outcome(object, "notes"); }));
  EXPECT_TRUE(all_inside.wait());
  scene.manager->hold_requests(0);
  held.set();
  EXPECT_EQ(calls.front().wait_for(a_while), std::future_status::timeout);
  scene.manager->activate();
  for (auto& call : calls) EXPECT_EQ(call.get(), "done");
}

// ---- Deactivation ---------------------------------------------------------------------------------------

TEST_P(Managers, DeactivationEtherealizesEveryObject) {
  for (bool wait_for_completion : {false, true}) {
    Scene scene(top);
    scene.with(USE_SERVANT_MANAGER).poa->set_servant_manager(&scene.activator);
    TestServant below_servant;
    POA_var below =
        scene.poa->create_POA("below", scene.manager, policies(root, USER_ID, USE_SERVANT_MANAGER));
    below->set_servant_manager(&scene.activator);
    below->activate_object_with_id(oid("deep"), &below_servant);
    scene.activate("a", &scene.servant).activate("b", &scene.other);
    std::vector<std::string> ended;
    scene.activator.on_etherealize = [&](std::string id, ServantBase*, bool cleanup, bool remaining) {
      EXPECT_TRUE(cleanup);
      EXPECT_EQ(remaining, wait_for_completion);
      ended.push_back(id);
    };
    const CORBA::Object_var object = seen(scene.reference("a"));
    EXPECT_EQ(outcome(object, "notes"), "done");
    scene.manager->deactivate(true, wait_for_completion);
    EXPECT_THAT(ended, testing::UnorderedElementsAre("a", "b", "deep"));
    EXPECT_EQ(outcome(object, "notes"), "UNKNOWN 0x0 NO");
    EXPECT_EQ(scene.manager->get_state(), POAManager::INACTIVE);
    scene.poa->destroy(true, false);
    EXPECT_EQ(ended.size(), 3u);  // not a second time
  }
}

TEST_P(Managers, DeactivationThatCannotEtherealize) {
  const struct {
    const char* name;
    std::function<void(Scene&)> prepare;
    const char* trace;
  } rows[] = {
      {"no manager", [](Scene& s) { s.with(USE_SERVANT_MANAGER).activate("o", &s.servant); },
       "throw CORBA::StExcep::OBJ_ADAPTER"},
      {"the activator raises",
       [](Scene& s) {
         s.with(USE_SERVANT_MANAGER).activate("o", &s.servant).poa->set_servant_manager(&s.activator);
         s.activator.on_etherealize = [](std::string, auto*, bool, bool) { throw CORBA::NO_RESOURCES(1); };
       },
       "POAInfo::deactivate [PortableServer::POAManager::AdapterInactive.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Scene scene(top);
    row.prepare(scene);
    TraceRecorder trace;
    expect_raised<POAManager::AdapterInactive>([&](auto& ev) { scene.manager->deactivate(true, false, ev); });
    EXPECT_TRUE(trace.has(row.trace));
    EXPECT_EQ(scene.manager->get_state(), POAManager::INACTIVE);
    EXPECT_EQ(outcome(seen(scene.reference("o")), "notes"), "UNKNOWN 0x0 NO");
  }
}

// A servant activator may work on the tree and on other managers while its objects go.
TEST_P(Managers, ActivatorsWorkOnTheTreeDuringDeactivation) {
  Scene going(top), staying(top);
  going.with(USE_SERVANT_MANAGER).activate("o", &going.servant).poa->set_servant_manager(&going.activator);
  const CORBA::Object_var object = seen(staying.with().activate("o", &staying.servant).reference("o"));
  EXPECT_EQ(outcome(object, "notes"), "done");
  int calls = 0;
  going.activator.on_etherealize = [&](std::string, auto*, bool, bool) {
    ++calls;
    staying.manager->hold_requests(0);
    staying.manager->activate();
    going.poa->destroy(true, false);
    expect_raised<POAManager::AdapterInactive>([&](auto& ev) { going.manager->activate(ev); });
  };
  going.manager->deactivate(true, false);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(outcome(object, "notes"), "done");
}

// ---- The ring -------------------------------------------------------------------------------------------

TEST(RequestRing, FirstInFirstOut) {
  Queue ring;
  CORBA::ServerRequest request;
  std::vector<CORBA::Object_var> objects;
  for (int i = 0; i < Queue::SIZE; ++i) {
    objects.push_back(new CORBA::Object);
    CORBA::Octet octets[] = {static_cast<CORBA::Octet>(i), static_cast<CORBA::Octet>(i >> 8)};
    const CORBA_sequence_octet data{2, 2, octets};
    objects.back()->set_ref(
        ZR_create_object_reference(&data, "IDL:x:1.0", "ring", CORBA::Environment()._evp));
  }
  std::size_t next_in = 0, next_out = 0;
  const auto insert = [&] { ring.insert(&request, objects[next_in++ % objects.size()]); };
  const auto get = [&] {
    CORBA::ServerRequest* got = nullptr;
    CORBA::Object* target = nullptr;
    ring.get(got, target);
    const CORBA::Object_var owned(target);
    const CORBA::ObjectVar<CORBA::Object> owned_request(got);
    EXPECT_TRUE(
        CORBA_object_is_equivalent(target->get_ref(), objects[next_out++ % objects.size()]->get_ref()));
    EXPECT_NE(got, &request);
  };
  for (int offset : {0, 1, 700, 1023}) {  // full and empty at different places of the ring
    EXPECT_TRUE(ring.isEmpty());
    EXPECT_EQ(outcome(get), "BAD_PARAM 0x4b510007 NO");
    for (int i = 0; i < offset; ++i) insert(), get();
    for (int i = 0; i < Queue::SIZE; ++i) insert();
    EXPECT_EQ(outcome([&] { ring.insert(&request, objects[0]); }), "IMP_LIMIT 0x4b510305 NO");
    get();
    insert();
    EXPECT_EQ(outcome([&] { ring.insert(&request, objects[0]); }), "IMP_LIMIT 0x4b510305 NO");
    EXPECT_FALSE(ring.isEmpty());
    for (int i = 0; i < Queue::SIZE; ++i) get();
  }
  for (int i = 0; i < 10; ++i) insert();
  ring.removeAll();
  next_out = next_in;
  EXPECT_TRUE(ring.isEmpty());
  insert();
  get();
  insert();  // the ring releases what is left in it
}
