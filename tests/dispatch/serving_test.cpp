// Requests that are served: by whom, how often a servant manager is asked, and what the servant sees.
#include <algorithm>
#include <barrier>
#include <set>

#include "dispatch_fixture.h"

using namespace PortableServer;
using testing::ElementsAre;

namespace {

class Serving : public Dispatch {};
BOTH_ROADS(Serving);

std::string who(Demo::Echo* echo) { return CORBA::String_var(echo->who()).in(); }

}  // namespace

TEST_P(Serving, BelowTheRootAndDeepDown) {
  TraceRecorder trace;
  TestServant at_root, deep;
  CORBA::Object_var object = root->servant_to_reference(&at_root);
  EXPECT_THAT(who(echo(object)), testing::StartsWith("rootPOA:"));
  EXPECT_TRUE(trace.has("  qualified_name="));
  const ObjectId_var id = root->reference_to_id(object);
  POA_var a = top->create_POA("A", nullptr, CORBA::PolicyList());
  POA_var b = a->create_POA("B", nullptr, policies(root, USER_ID));
  b->activate_object_with_id(oid("deep"), &deep);
  object = b->id_to_reference(oid("deep"));
  EXPECT_EQ(who(echo(object)), "B:deep");
  const CORBA::String_var name(top->the_name());
  EXPECT_TRUE(trace.has(std::string("  qualified_name=") + name.in() + "\xFF" + "A\xFF" + "B"));
  EXPECT_TRUE(trace.in_order({"call_cpp_handler called...", "  dsi_routine_cpp_poa call",
                              "dsi_routine_cpp_poa called...", "  POAInfo::reference_to_servant done",
                              "dsi_routine_cpp_poa end...", "call_cpp_handler end..."}));
  root->deactivate_object(id);
  top->destroy(false, false);
}

TEST_P(Serving, MissingPoasAreAskedOfTheAdapterActivator) {
  struct : PortableServer_AdapterActivator_impl {
    CORBA::Boolean unknown_adapter(POA* parent, const char* name, CORBA::Environment&) override {
      ++asked;
      return answer(parent, name);
    }
    std::function<bool(POA*, const char*)> answer;
    std::atomic<int> asked{0};
  } adapter;
  TestServant servant;
  POA_var lazy = top->create_POA("lazy", nullptr, policies(root, USER_ID, PERSISTENT));
  const CORBA::Object_var object = lazy->create_reference_with_id(oid("sleeper"), Demo::Echo::repository_id);
  lazy->destroy(false, false);
  top->the_activator(&adapter);
  const CORBA::Object_var seen = this->seen(object);
  adapter.answer = [](auto*, auto*) { return false; };
  EXPECT_EQ(outcome(seen, "who"), "UNKNOWN 0x0 NO");
  adapter.answer = [](auto*, auto*) { return true; };
  EXPECT_EQ(outcome(seen, "who"), "UNKNOWN 0x0 NO");
  adapter.answer = [](auto*, auto*) -> bool { throw CORBA::NO_RESOURCES(9); };
  EXPECT_EQ(outcome(seen, "who"), "NO_RESOURCES 0x9 NO");
  adapter.answer = [&](POA* parent, const char* name) {
    POA_var made = parent->create_POA(name, nullptr, policies(root, USER_ID, PERSISTENT));
    made->activate_object_with_id(oid("sleeper"), &servant);
    return true;
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(who(echo(object)), "lazy:sleeper");
  EXPECT_EQ(adapter.asked, 4);
  top->destroy(false, false);
}

TEST_P(Serving, ADefaultServantIsAnyoneUnlessSomeoneIsActive) {
  Scene scene(top);
  std::string inside;
  scene.servant.work = [&] { inside = "default for " + current_object(); };
  scene.other.work = [&] { inside = "particular for " + current_object(); };
  scene.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).activate("p", &scene.other).poa->set_servant(&scene.servant);
  for (const char* id : {"a", "b", "p"}) {
    EXPECT_EQ(outcome(seen(scene.reference(id)), "notes"), "done");
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
      EXPECT_TRUE(CORBA_object_is_equivalent(poa->get_ref(), scene.poa->get_ref()));
      EXPECT_EQ(current_object(), "none");  // the upcall's context comes with the servant
      return &scene.servant;
    };
    const Demo::Echo_var one = echo(scene.reference("one")), two = echo(scene.reference("two"));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(who(one), scene.name + ":one");
    EXPECT_THAT(asked, ElementsAre("one"));
    EXPECT_EQ(outcome(two, "who"), uniqueness == UNIQUE_ID ? "UNKNOWN 0x0 NO" : "done");
    EXPECT_THAT(asked, ElementsAre("one", "two"));
    EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
    scene.poa->deactivate_object(oid("one"));
    EXPECT_EQ(who(one), scene.name + ":one");
    EXPECT_THAT(asked, ElementsAre("one", "two", "one"));
  }
}

TEST_P(Serving, ASecondFirstRequestGivesItsServantBack) {
  Scene scene(top);
  scene.with(USE_SERVANT_MANAGER).poa->set_servant_manager(&scene.activator);
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
  auto first = std::async(std::launch::async, [&] { return outcome(object, "notes"); });
  EXPECT_EQ(outcome(seen(scene.reference("new")), "notes"), "done");
  EXPECT_EQ(first.get(), "done");
  ServantBase* active = scene.poa->id_to_servant(oid("new"));
  EXPECT_THAT(returned, ElementsAre(active == &scene.other ? &scene.servant : &scene.other));
  EXPECT_EQ(scene.servant.get_ref_counter() + scene.other.get_ref_counter(), 0u);
}

TEST_P(Serving, ALocatorIsAskedForEachCall) {
  Scene scene(top);
  scene.with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID).poa->set_servant_manager(&scene.locator);
  std::vector<std::string> log;
  CORBA::ULong next = 0xC0FFEE00;
  scene.locator.on_preinvoke = [&](std::string call, CORBA::ULong& cookie) {
    cookie = ++next;
    log.push_back("pre " + call + " " + std::to_string(cookie - 0xC0FFEE00));
    return &scene.servant;
  };
  scene.locator.on_postinvoke = [&](std::string call, CORBA::ULong cookie, ServantBase* servant) {
    EXPECT_EQ(servant, &scene.servant);
    log.push_back("post " + call + " " + std::to_string(cookie - 0xC0FFEE00));
  };
  scene.servant.work = [&] { log.push_back("in " + current_object().substr(scene.name.size() + 1)); };
  const CORBA::Object_var object = seen(scene.reference("x"));
  UpcallWitness upcalls;
  EXPECT_EQ(outcome(object, "notes"), "done");
  EXPECT_EQ(outcome(object, "nope"), "BAD_OPERATION 0x4b510306 NO");
  EXPECT_EQ(outcome(object, "who", false), "sent");
  upcalls.wait_for(3);
  EXPECT_THAT(log, ElementsAre("pre x.notes 1", "in x", "post x.notes 1", "pre x.nope 2", "pre x.who 3",
                               "in x", "post x.who 3"));
  EXPECT_EQ(scene.record()->active_object_map.load(), nullptr);
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
}

// A servant marked for deletion serves nobody: another one is made, and the old one goes.
TEST_P(Serving, MarkedServantsAreReplaced) {
  Scene scene(top);
  Event gone;
  auto* old = new TestServant;
  old->gone = [&] { gone.set(); };
  scene.with(USE_SERVANT_MANAGER).activate("o", old).poa->set_servant_manager(&scene.activator);
  scene.activator.on_incarnate = [&](auto&, auto*) { return &scene.servant; };
  old->servant_delete();
  EXPECT_EQ(outcome(seen(scene.reference("o")), "notes"), "done");
  EXPECT_FALSE(gone.wait(std::chrono::milliseconds(0)));
  call_poa_inst_lifespan();
  EXPECT_TRUE(gone.wait(std::chrono::milliseconds(0)));
  EXPECT_EQ(outcome(seen(scene.reference("o")), "notes"), "done");
  EXPECT_EQ(scene.poa->id_to_servant(oid("o")), &scene.servant);
}

// ---- POA Current ----------------------------------------------------------------------------------------

TEST_P(Serving, CurrentBelongsToTheUpcall) {
  Scene scene(top);
  scene.with(MULTIPLE_ID).activate("outer", &scene.servant).activate("inner", &scene.servant);
  for (auto* operation : {+[] { poa_current->get_POA(); }, +[] { poa_current->get_object_id(); }})
    EXPECT_EQ(outcome(operation), Current::NoContext::repository_id);
  expect_raised<Current::NoContext>([](auto& ev) { poa_current->get_POA(ev); });
  std::mutex mutex;
  std::set<std::string> seen_inside;
  std::barrier together(2);
  const auto see = [&] {
    std::lock_guard lock(mutex);
    seen_inside.insert(current_object());
  };
  scene.servant.work = [&] {
    see();
    together.arrive_and_wait();  // both upcalls are in progress
    see();
    std::thread([] { EXPECT_EQ(current_object(), "none"); }).join();
  };
  const CORBA::Object_var outer = seen(scene.reference("outer")), inner = seen(scene.reference("inner"));
  auto other = std::async(std::launch::async, [&] { return outcome(inner, "notes"); });
  EXPECT_EQ(outcome(outer, "notes"), "done");
  EXPECT_EQ(other.get(), "done");
  EXPECT_THAT(seen_inside, ElementsAre(scene.name + ":inner", scene.name + ":outer"));
  EXPECT_EQ(current_object(), "none");
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
    EXPECT_EQ(current_object(), scene.name + ":outer");
    EXPECT_EQ(outcome(inside, "notes"), "NO_RESOURCES 0x1 NO");
    EXPECT_EQ(current_object(), scene.name + ":outer");
    EXPECT_EQ(scene.servant.get_ref_counter(), 1u);
  };
  EXPECT_EQ(outcome(seen(scene.reference("outer")), "notes"), "done");
  EXPECT_EQ(scene.servant.get_ref_counter() + scene.other.get_ref_counter(), 0u);
}

// ---- Dynamic servants -----------------------------------------------------------------------------------

TEST_P(Serving, DynamicServants) {
  struct : DynamicImplementation {
    CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& env) override {
      return answer(*request) || ServantBase::invoke(request, env);
    }
    const char* _primary_interface(const ObjectId&, POA*, CORBA::Environment&) override {
      return Demo::Echo::repository_id;
    }
    bool answer(CORBA::ServerRequest& request) {
      const std::string_view operation = request.operation();
      if (operation == "silent") return request.arguments(new CORBA::NVList), true;
      if (operation == "system") return request.set_exception(CORBA::NO_PERMISSION(4)), true;
      if (operation == "note") return noted = true, request.arguments(new CORBA::NVList), true;
      if (operation != "add") return false;
      auto* list = new CORBA::NVList;
      for (int i = 0; i < 2; ++i) {
        CORBA::Any number;
        number.replace(CORBA::_tc_long, nullptr, 0);
        list->add_value("", number, CORBA::ARG_IN);
      }
      request.arguments(list);
      CORBA::Long a = 0, b = 0;
      CORBA::Any sum;
      *list->item(0)->value() >>= a;
      *list->item(1)->value() >>= b;
      sum <<= a + b;
      return request.set_result(sum), true;
    }
    std::atomic<bool> noted{false};
  } servant;
  Scene scene(top);
  const CORBA::Object_var object = scene.with().activate("o", &servant).reference("o");
  const CORBA::Object_var seen = this->seen(object);
  TraceRecorder trace;
  UpcallWitness upcalls;
  EXPECT_EQ(echo(object)->add(19, 23), 42);
  EXPECT_TRUE(trace.has("  using DSI..."));
  EXPECT_EQ(outcome(seen, "silent"), "done");
  EXPECT_EQ(outcome(seen, "system"), "NO_PERMISSION 0x4 NO");
  EXPECT_EQ(outcome(seen, "add"), "MARSHAL 0x0 NO");  // without arguments
  EXPECT_EQ(outcome(seen, "_non_existent"), "done");
  EXPECT_EQ(outcome(seen, "nope"), "BAD_OPERATION 0x4b510306 NO");
  EXPECT_EQ(outcome(seen, "note", false), "sent");
  EXPECT_EQ(upcalls.wait_for(7).back().reply.size(), 0u);
  EXPECT_TRUE(servant.noted);
  EXPECT_EQ(servant.get_ref_counter(), 0u);
}
