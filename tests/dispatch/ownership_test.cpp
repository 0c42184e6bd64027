// Whose a servant is: the library lets go of what the program has taken back, and of what the program's own
// calls have at hand.
#include <dlfcn.h>

#include <array>

#include "dispatch_fixture.h"
#include "servants_of_requests.h"

using namespace PortableServer;

namespace {

/// What a thread does when it gives the POA semaphore back the next time.
thread_local std::function<void()> at_release;

/// A servant that a test can see the end of: whoever touches it afterwards reads nonsense, or changes it.
class Grave {
 public:
  TestServant* servant() { return reinterpret_cast<TestServant*>(memory_.data()); }
  Grave() { new (memory_.data()) TestServant; }
  ~Grave() {
    if (!buried_) servant()->~TestServant();
  }
  void bury() {
    servant()->~TestServant();
    memory_.fill(0xDD);
    buried_ = true;
  }
  bool untouched() const {
    return buried_ && std::all_of(memory_.begin(), memory_.end(), [](unsigned char c) { return c == 0xDD; });
  }

 private:
  alignas(TestServant) std::array<unsigned char, sizeof(TestServant)> memory_;
  std::atomic<bool> buried_{false};
};

class Ownership : public LostClients {
 protected:
  static void tick(int times) {
    for (int i = 0; i < times; ++i) call_poa_inst_lifespan();
  }
  /// The object's entry looks as if that client had called it last.
  static void recorded_for(Scene& place, int slot, CORBA::Long fd) {
    auto& entry = place.record()->active_object_map.load()->entries[slot];
    const PoaSemaphoreGuard guard(__LINE__);
    entry.record_client(known_clients.enter(ClientData::at(fd, host, 0)));
  }
  static void lose(CORBA::Long fd) { call_disconnect_cpp_handler(fd, host, 0); }

  static inline unsigned char host[] = {192, 0, 2, 7};
};

}  // namespace

void ZR_poa_sem_release(uint32_t a, uint32_t line) {
  static auto* const real =
      reinterpret_cast<decltype(&ZR_poa_sem_release)>(::dlsym(RTLD_NEXT, "ZR_poa_sem_release"));
  real(a, line);
  if (const auto work = std::exchange(at_release, nullptr)) work();
}

// Wherever the teardown gives its lock back, another thread takes an object out and deletes its servant.
TEST_F(Ownership, ADeactivatedServantIsTheProgramsWhileItsPoaIsDestroyed) {
  bool reached = true;
  int taken_back_in_time = 0;
  for (int release = 0; reached; ++release) {
    SCOPED_TRACE(release);
    Scene place(top);
    Grave grave;
    place.with_activator().activate("p", &place.servant).activate("o", grave.servant());
    for (const char* id : {"o", "p"}) CORBA::release(place.poa->id_to_reference(oid(id)));
    std::future<void> taken_back;
    std::atomic<int> buried{0};
    const POAInfoPtr record = place.record();  // found before the teardown began
    std::function<void()> count;
    int before = release;
    count = [&] {
      if (before-- > 0) return void(at_release = count);
      taken_back = std::async(std::launch::async, [&] {
        CORBA::Environment own;
        if (outcome([&] { record->deactivate_object(oid("o"), own); }) == "done") grave.bury(), ++buried;
      });
      taken_back.wait_for(a_while);  // or it waits for a lock of the teardown
    };
    at_release = count;
    place.poa->destroy(true, false);
    reached = at_release == nullptr;
    at_release = nullptr;
    if (taken_back.valid()) taken_back.get();
    taken_back_in_time += buried;
    EXPECT_TRUE(buried == 0 || grave.untouched());
  }
  EXPECT_GT(taken_back_in_time, 0);
}

TEST_F(Ownership, WhatTheCallbackForLostClientsTakesBackIsTheProgramsAtOnce) {
  POAdisconnect::setDisconnect(&callback, own_ev);
  for (const bool answer : {true, false}) {
    SCOPED_TRACE(answer);
    Scene place(top);
    Grave grave;
    place.with().activate("o", grave.servant());
    CORBA::release(place.poa->id_to_reference(oid("o")));
    recorded_for(place, 0, 77);
    callback.answer = [&](auto*) {
      place.poa->deactivate_object(oid("o"));
      return grave.bury(), answer;
    };
    lose(77);
    tick(2);
    EXPECT_TRUE(grave.untouched());
  }
}

// Each row: how a servant comes to be listed for deletion, and the call that has it then.
TEST_F(Ownership, TheTickPassesOverServantsInACallOfTheProgram) {
  const auto deactivated = [](Scene& s) { s.poa->deactivate_object(oid("o")); };
  const struct {
    const char* name;
    bool by_locator;
    std::function<void(Scene&, TestServant&)> listed;
    std::function<void(Scene&)> call;
  } rows[] = {
      {"deleted, then deactivated", false, [](Scene&, TestServant& s) { s.servant_delete(); }, deactivated},
      {"deleted, then the POA goes", false, [](Scene&, TestServant& s) { s.servant_delete(); },
       [](Scene& s) { s.poa->destroy(1, 1); }},
      {"its lifespan is over", false,
       [](Scene&, TestServant& s) {
         s.set_timer(3600);
         s.expire();
         call_poa_inst_lifespan();
       },
       deactivated},
      {"deleted, then its client is lost", false,
       [](Scene& s, TestServant& servant) {
         CORBA::release(s.poa->id_to_reference(oid("o")));
         recorded_for(s, 0, 77);
         servant.servant_delete();
       },
       [](Scene&) { lose(77); }},
      {"a locator's, deleted in its operation", true,
       [](Scene&, TestServant& s) { s.work = [&s] { s.servant_delete(); }; },
       [](Scene& s) { EXPECT_EQ(outcome(s.reference("o")), "done"); }},
  };
  POAdisconnect::setDisconnect(&callback, own_ev);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Scene place(top);
    TestServant* servant = mortal();
    bool called = false;
    const auto during = [&](ServantBase* has) {
      called = true;
      tick(2);
      EXPECT_EQ(alive, 1);
      EXPECT_EQ(has, servant);
    };
    place.activator.on_etherealize = [&](auto, ServantBase* s, bool, bool) { during(s); };
    callback.answer = [&](ServantBase* s) { return during(s), false; };
    place.locator.on_preinvoke = [&](auto, auto&) { return servant; };
    place.locator.on_postinvoke = [&](auto, auto, ServantBase* s) { during(s); };
    row.by_locator ? place.with_locator() : place.with_activator().activate("o", servant);
    row.listed(place, *servant);
    row.call(place);
    EXPECT_TRUE(called);
    tick(1);
    EXPECT_EQ(alive, 0);
  }
}

TEST_F(Ownership, TheDefaultServantOfADestroyedPoaCanBeDeleted) {
  TestServant* servant = mortal();
  scene.with(NON_RETAIN, USE_DEFAULT_SERVANT, MULTIPLE_ID).poa->set_servant(servant);
  servant->servant_delete();
  tick(1);
  EXPECT_EQ(alive, 1);
  scene.poa->destroy(false, false);
  servant->servant_delete();
  tick(1);
  EXPECT_EQ(alive, 0);
}

// A program that makes a servant its default servant, and forgot that it is to go, loses nothing but its requests.
TEST_F(Ownership, AServantThatIsToGoStaysWhileItIsADefaultServant) {
  TestServant* const servant = mortal();
  scene.with(USE_DEFAULT_SERVANT, MULTIPLE_ID);
  servant->servant_delete();
  scene.poa->set_servant(servant);
  tick(2);
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(outcome(scene.reference("any")), "UNKNOWN 0x0 NO");
  scene.poa->set_servant(nullptr);
  tick(1);
  EXPECT_EQ(alive, 0);
}

TEST_F(Ownership, ServantsMadeForOneRequestEachNestAndAreNotLost) {
  scene.locator.on_preinvoke = [&](std::string call, auto&) {
    std::unique_ptr<TestServant> servant(mortal());
    if (call.starts_with("outer")) {
      servant->work = [&] {
        for (const char* operation : {"notes", "nope", "notes"}) outcome(scene.reference("inner"), operation);
        EXPECT_EQ(alive, 1);  // this one
      };
    }
    return ServantsOfRequests::keep(std::move(servant));
  };
  scene.locator.on_postinvoke = [](auto...) { ServantsOfRequests::drop_ended(); };
  const CORBA::Object_var outer = scene.with_locator().reference("outer");
  EXPECT_EQ(outcome(outer), "done");
  EXPECT_EQ(alive, 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(outcome(outer, "nope"), "BAD_OPERATION 0x4b510306 NO");
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(outcome(outer), "done");
  EXPECT_EQ(alive, 0);
}

// Of an activator's objects the one that was used longest ago goes, and none that a request is in.
TEST_F(Ownership, TheLongestUnusedObjectsOfAnActivatorGo) {
  scene.with_activator().poa->set_incarnation_limit(3);
  std::vector<std::string> made, gone;
  Event in, go_on;
  scene.activator.on_incarnate = [&](const ObjectId& id, POA*) {
    TestServant* const servant = mortal();
    if (made.emplace_back(text(id)) == "busy") servant->work = [&] { EXPECT_TRUE((in.set(), go_on.wait())); };
    return servant;
  };
  scene.activator.on_etherealize = [&](std::string id, ServantBase* servant, bool, bool) {
    gone.push_back(id);
    delete servant;
  };
  const auto call = [&](const char* id) { EXPECT_EQ(outcome(scene.reference(id)), "done"); };
  for (const char* id : {"a", "b", "c", "a", "d"}) call(id);
  EXPECT_THAT(gone, testing::ElementsAre("b"));
  scene.activate("own", &scene.servant);  // what the program activated is none of them
  const CORBA::Object_var busy_object = scene.reference("busy");
  auto busy = outcome_of_a_thread(busy_object);
  ASSERT_TRUE(in.wait());
  for (const char* id : {"e", "f", "g", "h"}) call(id);
  EXPECT_THAT(gone, testing::ElementsAre("b", "c", "a", "d", "e", "f"));
  scene.poa->deactivate_object(oid("g"));
  call("own");
  go_on.set();
  EXPECT_EQ(busy.get(), "done");
  for (const char* id : {"i", "h", "j"}) call(id);
  EXPECT_THAT(gone, testing::ElementsAre("b", "c", "a", "d", "e", "f", "g", "busy"));
  scene.activator.on_etherealize = [&](auto, ServantBase* servant, bool, bool) {
    delete servant;
    throw CORBA::NO_RESOURCES();
  };
  call("k");  // which is no affair of the client
  EXPECT_EQ(alive, 3);
  scene.poa->set_incarnation_limit(0);
  for (const char* id : {"l", "m"}) call(id);
  EXPECT_EQ(alive, 5);
  expect_raised<POA::WrongPolicy>([&](CORBA::Environment& ev) { top->set_incarnation_limit(1, ev); });
  scene.activator.on_etherealize = [&](auto, ServantBase* servant, bool, bool) {
    if (servant != &scene.servant) delete servant;
  };
  scene.poa->destroy(true, false);  // the rest goes with the POA
  EXPECT_EQ(alive, 0);
}

TEST_F(Ownership, IdsThatClientsMakeUpTakeBoundedMemory) {
  constexpr int limit = 20, ids = 5000;
  std::mutex mutex;
  std::map<std::string, int> in_service;  // guarded by mutex
  scene.with_activator().poa->set_incarnation_limit(limit);
  scene.activator.on_incarnate = [&](const ObjectId& id, POA*) {
    std::lock_guard lock(mutex);
    EXPECT_EQ(++in_service[text(id)], 1);
    return mortal();
  };
  std::atomic<int> most{0};
  scene.activator.on_etherealize = [&](std::string id, ServantBase* servant, bool, bool) {
    most = std::max(most.load(), alive.load());
    delete servant;
    std::lock_guard lock(mutex);
    EXPECT_EQ(--in_service[id], 0) << id;
  };
  const auto clients = [&](const std::string& prefix) {
    return std::async(std::launch::async, [&, prefix] {
      for (int i = 0; i < ids; ++i) EXPECT_EQ(outcome(scene.reference(prefix + std::to_string(i))), "done");
    });
  };
  auto one = clients("one "), two = clients("two ");
  one.get(), two.get();
  EXPECT_LE(most, limit + 2);
  EXPECT_EQ(alive, limit);
  EXPECT_EQ(in_service.size(), 2u * ids);
  scene.poa->destroy(true, true);
  EXPECT_EQ(alive, 0);
  for (const auto& [id, count] : in_service) EXPECT_EQ(count, 0) << id;
}

// The manager's deactivation hands servants over; an object activated after that is a new one.
TEST_F(Ownership, AnEtherealizedServantIsActivatedAgain) {
  int handed_over = 0;
  scene.activator.on_etherealize = [&](auto, auto*, bool, bool) { ++handed_over; };
  scene.with_activator().activate("o", &scene.servant);
  scene.manager->deactivate(1, 0);
  EXPECT_EQ(handed_over, 1);
  scene.activate("o", &scene.servant);
  EXPECT_EQ(scene.poa->id_to_servant(oid("o")), &scene.servant);
  scene.poa->deactivate_object(oid("o"));
  EXPECT_EQ(handed_over, 2);
  EXPECT_THROW(scene.poa->id_to_servant(oid("o")), POA::ObjectNotActive);
  scene.poa->destroy(1, 0);
  EXPECT_EQ(handed_over, 2);
}

TEST_F(Ownership, EachServantOfALostClientIsAskedAboutOnceAndThenForgotten) {
  callback.answer = [](auto*) { return false; };
  POAdisconnect::setDisconnect(&callback, own_ev);
  Scene second(top);
  scene.with().activate("0", &scene.servant).activate("1", &scene.other);
  second.with(MULTIPLE_ID).activate("0", &second.servant).activate("1", &second.servant);
  for (Scene* place : {&scene, &second})
    for (int slot : {0, 1}) {
      CORBA::release(place->poa->id_to_reference(oid(std::to_string(slot))));
      recorded_for(*place, slot, 77);
    }
  lose(77);
  // The last one has two references, and stays in the end.
  EXPECT_THAT(callback.asked,
              testing::UnorderedElementsAre(&scene.servant, &scene.other, &second.servant, &second.servant));
  callback.asked.clear();
  lose(77);
  EXPECT_TRUE(callback.asked.empty());

  recorded_for(scene, 1, 77);  // another client with the same descriptor
  lose(77);
  EXPECT_THAT(callback.asked, testing::ElementsAre(&scene.other));

  callback.asked.clear();  // one with a request in it is asked about again when that has ended
  recorded_for(scene, 0, 77);
  ServantAccess::hold(scene.servant);
  lose(77);
  ServantAccess::release(scene.servant);
  for (int i = 0; i < 2; ++i) lose(77);
  EXPECT_THAT(callback.asked, testing::ElementsAre(&scene.servant, &scene.servant));

  callback.asked.clear();  // and once, however many objects it is
  for (int slot : {0, 1}) recorded_for(second, slot, 77);
  {
    const ServantUse request(&second.servant);
    lose(77);
  }
  EXPECT_EQ(callback.asked.size(), 2u);
  lose(77);
}
