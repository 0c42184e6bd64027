// Requests that are served: by whom, how often a servant manager is asked, and what the servant sees.
#include <barrier>
#include <set>
#include <thread>

#include "dispatch_fixture.h"

using namespace PortableServer;
using testing::ElementsAre;

namespace {

class Serving : public Dispatch {};
BOTH_ROADS(Serving);

struct Adapter : PortableServer_AdapterActivator_impl {
  CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA::Environment&) override {
    ++asked;
    return answer(parent, name);
  }
  std::function<bool(POA*, const char*)> answer;
  std::atomic<int> asked{0};
};

std::string who(Demo::Echo* echo) { return CORBA::String_var(echo->who()).in(); }

}  // namespace

TEST_P(Serving, APoaMayBeNamedLikeTheBrokersOwnObjects) {
  TestServant servant;
  const POA_var poa =
      top->create_POA("IDL:org.omg/PortableServer/POA:1.0", nullptr, policies(root, USER_ID, PERSISTENT));
  poa->activate_object_with_id(oid("x"), &servant);
  EXPECT_EQ(outcome(seen(CORBA::Object_var(poa->id_to_reference(oid("x"))))), "done");
}

TEST_P(Serving, MissingPoasAreAskedOfTheAdapterActivator) {
  Adapter adapter;
  TestServant servant;
  POA_var lazy = top->create_POA("lazy", nullptr, policies(root, USER_ID, PERSISTENT));
  const CORBA::Object_var object = lazy->create_reference_with_id(oid("sleeper"), Demo::Echo::repository_id);
  lazy->destroy(false, false);
  top->the_activator(&adapter);
  adapter.answer = [](auto*, auto*) { return false; };
  EXPECT_EQ(outcome(seen(object)), "UNKNOWN 0x0 NO");
  adapter.answer = [](auto*, auto*) -> bool { throw CORBA::NO_RESOURCES(9); };
  EXPECT_EQ(outcome(seen(object)), "NO_RESOURCES 0x9 NO");
  adapter.answer = [&](POA* parent, const char* name) {
    POA_var made = parent->create_POA(name, nullptr, policies(root, USER_ID, PERSISTENT));
    return made->activate_object_with_id(oid("sleeper"), &servant), true;
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(who(echo(object)), "lazy:sleeper");
  EXPECT_EQ(adapter.asked, 3);
  POA_var(top->find_POA("lazy", false))->destroy(false, false);
  std::future<std::string> second;  // comes when the POA is there and its object is not
  adapter.answer = [&](POA* parent, const char* name) {
    POA_var made = parent->create_POA(name, nullptr, policies(root, USER_ID, PERSISTENT));
    second = outcome_of_a_thread(object);
    EXPECT_EQ(second.wait_for(a_while), std::future_status::timeout);
    EXPECT_TRUE(made->_is_equivalent(POA_var(parent->find_POA(name, true))));
    return made->activate_object_with_id(oid("sleeper"), &servant), true;
  };
  EXPECT_EQ(outcome(object), "done");
  EXPECT_EQ(second.get(), "done");
  EXPECT_EQ(adapter.asked, 4);
  top->destroy(false, false);
}

TEST_P(Serving, FirstRequestsAtOnceAskTheAdapterActivatorOnce) {
  Adapter adapter;
  TestServant servant;
  POA_var lazy = top->create_POA("lazy", nullptr, policies(root, USER_ID, PERSISTENT));
  const CORBA::Object_var object = lazy->create_reference_with_id(oid("sleeper"), Demo::Echo::repository_id);
  top->the_activator(&adapter);
  adapter.answer = [&](POA* parent, const char* name) {
    POA_var made = parent->create_POA(name, nullptr, policies(root, USER_ID, PERSISTENT));
    std::this_thread::yield();
    return made->activate_object_with_id(oid("sleeper"), &servant), true;
  };
  constexpr int rounds = 300, threads = 4;
  std::atomic<int> done{0};
  std::barrier next(threads, [&]() noexcept {
    outcome([&] { POA_var(top->find_POA("lazy", false))->destroy(false, false); });
  });
  std::vector<std::jthread> calling;
  for (unsigned i = 0; i < threads; ++i) {
    calling.emplace_back([&, i, own = seen(object)] {
      for (unsigned round = 0; round < rounds; ++round) {
        next.arrive_and_wait();
        for (unsigned late = round * 37 * i % 3000; late > 0; --late)
          std::atomic_signal_fence(std::memory_order_seq_cst);
        done += outcome(own) == "done";
      }
    });
  }
  calling.clear();
  EXPECT_EQ(done, rounds * threads);
  EXPECT_EQ(adapter.asked, rounds);
  top->destroy(false, false);
}

// It makes its call with the whole tree locked, which the activator on the other thread waits for.
TEST_P(Serving, EtherealizeMayAskForAPoaThatIsBeingMade) {
  Adapter adapter;
  Scene scene(top);
  Event in_activator, in_etherealize;
  top->the_activator(&adapter);
  adapter.answer = [&](POA* parent, const char* name) {
    in_activator.set();
    EXPECT_TRUE(in_etherealize.wait());
    return POA_var(parent->create_POA(name, nullptr, policies(root, USER_ID))), true;
  };
  scene.with_activator().activator.on_etherealize = [&](auto, auto*, bool, bool) {
    in_etherealize.set();
    POA_var(top->find_POA("lazy", true));
  };
  scene.activate("o", &scene.servant);
  auto other = std::async(std::launch::async, [&] { POA_var(top->find_POA("lazy", true)); });
  ASSERT_TRUE(in_activator.wait());
  auto end = std::async(std::launch::async, [&] { scene.poa->destroy(true, true); });
  EXPECT_EQ(end.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  end.get();
  outcome([&] { other.get(); });
}

TEST_P(Serving, ADestructionLetsNoRequestInAnyMore) {
  Scene scene(top);
  Event known, in_etherealize, go_on;
  scene.with_activator().activator.on_etherealize = [&](std::string id, auto*, bool, bool) {
    if (id != "first") return;
    in_etherealize.set();
    EXPECT_TRUE(go_on.wait());
  };
  scene.activate("first", &scene.servant).activate("second", &scene.other);
  const CORBA::Object_var first = seen(scene.reference("first")), second = seen(scene.reference("second"));
  auto late = std::async(std::launch::async, [&] {
    for (int i = 0; i < 40; ++i) EXPECT_EQ(outcome(first), "done");  // the thread that serves knows the POA
    known.set();
    EXPECT_TRUE(in_etherealize.wait());
    return outcome(second);
  });
  ASSERT_TRUE(known.wait());
  auto end = std::async(std::launch::async, [&] { scene.poa->destroy(true, true); });
  EXPECT_EQ(late.wait_for(a_while), std::future_status::timeout);
  go_on.set();
  end.get();
  EXPECT_EQ(late.get(), "UNKNOWN 0x0 NO");
}

TEST_P(Serving, AServantKeepsTheReferenceOfEachObjectThatItIs) {
  Scene scene(top);
  scene.with();
  const ObjectId o = oid("o");
  for (int round = 0; round < 3; ++round) {
    scene.activate("o", &scene.servant);
    for (int call = 0; call < 2; ++call) {
      EXPECT_EQ(outcome(seen(scene.reference("o"))), "done");
      CORBA::Object* const kept = scene.servant.get_ObjectReference(scene.poa, &o);
      ASSERT_NE(kept, nullptr);
      EXPECT_TRUE(kept->_is_equivalent(scene.reference("o")));
      EXPECT_EQ(scene.servant.get_ObjectReference(scene.poa, &o), kept);
    }
    scene.poa->deactivate_object(o);
    EXPECT_EQ(scene.servant.get_ObjectReference(scene.poa, &o), nullptr);
  }
}

TEST_P(Serving, ADefaultServantIsAnyoneUnlessSomeoneIsActive) {
  Scene scene(top);
  std::string inside;
  scene.servant.work = [&] { inside = "default for " + current_object(); };
  scene.other.work = [&] { inside = "particular for " + current_object(); };
  scene.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).activate("p", &scene.other).poa->set_servant(&scene.servant);
  for (const char* id : {"a", "b", "p"}) {
    EXPECT_EQ(outcome(seen(scene.reference(id))), "done");
    EXPECT_EQ(inside, (*id == 'p' ? "particular for " : "default for ") + scene.name + ":" + id);
  }
  EXPECT_EQ(scene.servant.get_ref_counter() + scene.other.get_ref_counter(), 0u);
}

TEST_P(Serving, AnActivatorMakesAServantOnce) {
  for (IdUniquenessPolicyValue uniqueness : {UNIQUE_ID, MULTIPLE_ID}) {
    Scene scene(top);
    scene.with(USE_SERVANT_MANAGER, uniqueness).poa->set_servant_manager(&scene.activator);
    std::vector<std::string> asked;
    scene.activator.on_incarnate = [&](const ObjectId& id, POA* poa) {
      asked.push_back(text(id));
      EXPECT_TRUE(poa->_is_equivalent(scene.poa));
      EXPECT_EQ(current_object(), "none");  // the upcall's context comes with the servant
      return &scene.servant;
    };
    const Demo::Echo_var one = echo(scene.reference("one")), two = echo(scene.reference("two"));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(who(one), scene.name + ":one");
    EXPECT_EQ(outcome(two), uniqueness == UNIQUE_ID ? "UNKNOWN 0x0 NO" : "done");
    EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
    scene.poa->deactivate_object(oid("one"));
    EXPECT_EQ(who(one), scene.name + ":one");
    EXPECT_THAT(asked, ElementsAre("one", "two", "one"));
  }
}

TEST_P(Serving, ASecondFirstRequestGivesItsServantBack) {
  Scene scene(top);
  scene.with_activator();
  std::barrier both(2);
  std::atomic<int> asked{0};
  scene.activator.on_incarnate = [&](auto&, auto*) {
    TestServant* mine = asked++ == 0 ? &scene.servant : &scene.other;
    both.arrive_and_wait();
    return mine;
  };
  std::vector<ServantBase*> returned;
  scene.activator.on_etherealize = [&](std::string id, ServantBase* s, bool cleanup, bool remaining) {
    EXPECT_EQ(id, "new");
    EXPECT_FALSE(cleanup || remaining);
    returned.push_back(s);
  };
  const CORBA::Object_var object = seen(scene.reference("new"));
  auto first = outcome_of_a_thread(object);
  EXPECT_EQ(outcome(object), "done");
  EXPECT_EQ(first.get(), "done");
  ServantBase* active = scene.poa->id_to_servant(oid("new"));
  EXPECT_THAT(returned, ElementsAre(active == &scene.other ? &scene.servant : &scene.other));
  EXPECT_EQ(scene.servant.get_ref_counter() + scene.other.get_ref_counter(), 0u);
}

TEST_P(Serving, ALocatorIsAskedForEachCall) {
  Scene scene(top);
  std::vector<std::string> log;
  CORBA::ULong next = 0xC0FFEE00;
  scene.locator.on_preinvoke = [&](std::string call, CORBA::ULong& cookie) {
    cookie = ++next;
    log.push_back("pre " + call);
    return &scene.servant;
  };
  scene.locator.on_postinvoke = [&](std::string call, CORBA::ULong cookie, ServantBase* servant) {
    EXPECT_TRUE(servant == &scene.servant && cookie == next);
    log.push_back("post " + call);
  };
  scene.servant.work = [&] { log.push_back("in " + current_object().substr(scene.name.size() + 1)); };
  const CORBA::Object_var object = seen(scene.with_locator().reference("x"));
  EXPECT_EQ(outcome(object), "done");
  EXPECT_EQ(outcome(object, "nope"), "BAD_OPERATION 0x4b510306 NO");
  EXPECT_EQ(outcome(object), "done");
  EXPECT_THAT(log, ElementsAre("pre x.notes", "in x", "post x.notes", "pre x.nope", "pre x.notes", "in x",
                               "post x.notes"));
  EXPECT_EQ(scene.record()->active_object_map.load(), nullptr);
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
}

// A servant marked for deletion serves nobody: another one is made, and the old one goes.
TEST_P(Serving, MarkedServantsAreReplaced) {
  Scene scene(top);
  int ended = 0;
  auto* old = new TestServant;
  old->gone = [&] { ++ended; };
  const CORBA::Object_var object = seen(scene.with_activator().activate("o", old).reference("o"));
  scene.activator.on_incarnate = [&](auto&, auto*) { return &scene.servant; };
  old->servant_delete();
  EXPECT_EQ(outcome(object), "done");
  EXPECT_EQ(ended, 0);
  call_poa_inst_lifespan();
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(scene.poa->id_to_servant(oid("o")), &scene.servant);
}

TEST_P(Serving, CurrentBelongsToTheUpcall) {
  Scene scene(top);
  scene.with(MULTIPLE_ID).activate("outer", &scene.servant).activate("inner", &scene.servant);
  std::mutex mutex;
  std::multiset<std::string> seen_inside;
  std::barrier together(2);
  scene.servant.work = [&] {
    together.arrive_and_wait();  // both upcalls are in progress
    std::thread([] { EXPECT_EQ(current_object(), "none"); }).join();
    std::lock_guard lock(mutex);
    seen_inside.insert(current_object().substr(scene.name.size()));
  };
  const CORBA::Object_var outer = seen(scene.reference("outer")), inner = seen(scene.reference("inner"));
  auto other = outcome_of_a_thread(inner);
  EXPECT_EQ(outcome(outer), "done");
  EXPECT_EQ(other.get(), "done");
  EXPECT_THAT(seen_inside, ElementsAre(":inner", ":outer"));
  EXPECT_EQ(current_object(), "none");
  expect_raised<Current::NoContext>([](auto& ev) { poa_current->get_object_id(ev); });
}

TEST_P(Serving, NestedUpcallsSeeTheirOwnContext) {
  Scene scene(top);
  scene.with().activate("outer", &scene.servant).activate("inner", &scene.other);
  const CORBA::Object_var inside = seen(scene.reference("inner"));
  scene.other.work = [&] {
    EXPECT_EQ(current_object(), scene.name + ":inner");
    throw CORBA::NO_RESOURCES(1);
  };
  scene.servant.work = [&] {
    EXPECT_EQ(outcome(inside), "NO_RESOURCES 0x1 NO");
    EXPECT_EQ(current_object(), scene.name + ":outer");
    EXPECT_EQ(scene.servant.get_ref_counter(), 1u);
  };
  EXPECT_EQ(outcome(seen(scene.reference("outer"))), "done");
  EXPECT_EQ(scene.servant.get_ref_counter() + scene.other.get_ref_counter(), 0u);
}

TEST_P(Serving, ADynamicServantThatSaysNothingAnswersVoid) {
  class Silent : public DynamicImplementation {
   public:
    CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) override {
      return request->operation() == std::string_view("notes") || ServantBase::invoke(request, ev);
    }
  } silent;
  Scene scene(top);
  const CORBA::Object_var object = scene.with().activate("o", &silent).reference("o");
  EXPECT_EQ(outcome(seen(object)), "done");
  EXPECT_EQ(outcome(seen(object), "notes", false), "sent");
  EXPECT_FALSE(seen(object)->_non_existent());
}
