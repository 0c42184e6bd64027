// Lost clients and the lifespan tick.
#include <sys/socket.h>

#include "dispatch_fixture.h"

using namespace PortableServer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Disconnect : public POAdisconnect {
 public:
  CORBA::Boolean release_instance(POA* poa, ServantBase* servant, ObjectId& id,
                                  CORBA::Environment&) override {
    const CORBA::String_var name(poa->the_name());
    asked.push_back(name.in() + (":" + text(id)));
    return answer(servant);
  }
  std::vector<std::string> asked;
  std::function<bool(ServantBase*)> answer = [](auto*) { return true; };
};

/// Servants whose end a test can see, calls from a client of another address.
class Upcalls : public AdapterTest {
 protected:
  ~Upcalls() override {
    CORBA::Environment env;
    POAdisconnect::setDisconnect(nullptr, env);
  }
  TestServant* mortal() {
    auto* servant = new TestServant;
    ++alive;
    servant->gone = [this] {
      --alive;
      gone.set();
    };
    return servant;
  }
  /// Calls the object through a socket, so that its entry knows the client.
  std::string call(CORBA::Object* object) { return outcome(seen_from(Road::Socket, object), "notes"); }
  static long descriptor(Scene& scene) { return scene.record()->active_object_map.load()->entries[0].fd; }
  static void lose(long fd) {
    unsigned char host[] = {127, 0, 0, 1};
    call_disconnect_cpp_handler(fd, host, 0);
  }
  std::atomic<int> alive{0};
  Event gone;
};

}  // namespace

TEST_F(Upcalls, RegistrationOfTheCallback) {
  Disconnect one, two;
  CORBA::Environment env;
  expect_raised<CORBA::BAD_PARAM>([](auto& ev) { POAdisconnect::resetDisconnect(ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { POAdisconnect::resetDisconnect(&two, ev); });
  EXPECT_EQ(_disc_instance, nullptr);
  POAdisconnect::setDisconnect(&one, env);
  POAdisconnect::resetDisconnect(&two, env);
  EXPECT_EQ(_disc_instance, &two);
  POAdisconnect::resetDisconnect(env);
  expect_raised<CORBA::BAD_PARAM>([](auto& ev) { POAdisconnect::resetDisconnect(ev); });
  POAdisconnect::setDisconnect(nullptr, env);
  EXPECT_EQ(_disc_instance, nullptr);
}

TEST_F(Upcalls, LostClients) {
  const struct {
    const char* name;
    bool registered;
    std::function<bool(ServantBase*)> answer;
    bool released;
    long other_client;  // added to the descriptor
  } rows[] = {
      {"nobody asked", false, [](auto*) { return true; }, false, 0},
      {"kept", true, [](auto*) { return false; }, false, 0},
      {"raised", true, [](auto*) -> bool { throw CORBA::NO_RESOURCES(1); }, false, 0},
      {"thrown", true, [](auto*) -> bool { throw std::runtime_error("x"); }, false, 0},
      {"another client", true, [](auto*) { return true; }, false, 1000},
      {"released", true, [](auto*) { return true; }, true, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Disconnect callback;
    callback.answer = row.answer;
    CORBA::Environment env;
    POAdisconnect::setDisconnect(row.registered ? &callback : nullptr, env);
    Scene scene(top);
    TestServant* servant = mortal();
    const CORBA::Object_var object = scene.with().activate("o", servant).reference("o");
    EXPECT_EQ(outcome(object, "notes"), "done");
    EXPECT_EQ(descriptor(scene), 0);  // a call of this process has no client data
    EXPECT_EQ(call(object), "done");
    ASSERT_GT(descriptor(scene), 0);
    TraceRecorder trace;
    lose(descriptor(scene) + row.other_client);
    const bool asked = row.registered && row.other_client == 0;
    EXPECT_EQ(callback.asked, asked ? std::vector{scene.name + ":o"} : std::vector<std::string>{});
    EXPECT_EQ(trace.has("  servant is deleted by POAdisconnect..."), row.released);
    EXPECT_EQ(call(object), row.released ? "UNKNOWN 0x0 NO" : "done");
    EXPECT_EQ(alive, 1);  // not before the tick
    EXPECT_EQ(servant->get_ref_counter(), 0u);
    call_poa_inst_lifespan();
    EXPECT_EQ(alive, row.released ? 0 : 1);
    if (!row.released) scene.poa->destroy(false, false), delete servant;
  }
}

TEST_F(Upcalls, AServantOfTwoPoasIsReleasedFromBoth) {
  Disconnect callback;
  CORBA::Environment env;
  POAdisconnect::setDisconnect(&callback, env);
  Scene one(top), two(top);
  TestServant* servant = mortal();
  one.with().activate("1", servant);
  two.with().activate("2", servant);
  const CORBA::Object_var first = one.poa->id_to_reference(oid("1")),
                          second = two.poa->id_to_reference(oid("2"));
  EXPECT_EQ(call(first), "done");
  EXPECT_EQ(call(second), "done");
  callback.answer = [&, asked = 0](auto*) mutable { return ++asked == 2; };
  lose(descriptor(one));
  EXPECT_THAT(callback.asked, ElementsAre(one.name + ":1", two.name + ":2"));
  EXPECT_EQ(call(first), "UNKNOWN 0x0 NO");
  EXPECT_EQ(call(second), "UNKNOWN 0x0 NO");
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 0);
}

// The whole road: the connection breaks while a request of it is in the servant.
TEST_F(Upcalls, ABrokenConnection) {
  Scene scene(top);
  TestServant* servant = mortal();
  Disconnect callback;
  Event inside, asked, go_on;
  callback.answer = [&](auto*) { return asked.set(), true; };
  CORBA::Environment env;
  POAdisconnect::setDisconnect(&callback, env);
  const CORBA::Object_var object = scene.with().activate("o", servant).reference("o");
  servant->work = [&] {
    inside.set();
    EXPECT_TRUE(go_on.wait());
  };
  UpcallWitness upcalls;
  auto client = std::async(std::launch::async, [&] { return call(object); });
  ASSERT_TRUE(inside.wait());
  ::shutdown(static_cast<int>(descriptor(scene)), SHUT_RDWR);
  EXPECT_EQ(client.get().substr(0, 12), "COMM_FAILURE");
  ASSERT_TRUE(asked.wait());
  EXPECT_THAT(callback.asked, ElementsAre(scene.name + ":o"));
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 1);  // the request is still in it
  POAdisconnect::setDisconnect(nullptr, env);
  go_on.set();
  upcalls.wait_for(1);
  call_poa_inst_lifespan();
  EXPECT_TRUE(gone.wait());
  EXPECT_EQ(alive, 0);
}

// ---- Lifespan -------------------------------------------------------------------------------------------

TEST_F(Upcalls, ALifespanEndsInTwoTicks) {
  Scene scene(top);
  scene.with(USE_SERVANT_MANAGER).poa->set_servant_manager(&scene.activator);
  std::vector<TestServant*> made;
  scene.activator.on_incarnate = [&](auto&, auto*) {
    made.push_back(mortal());
    return made.back();
  };
  const CORBA::Object_var object = scene.reference("o");
  EXPECT_EQ(call(object), "done");
  TestServant* servant = made.at(0);
  CORBA::Environment env;
  servant->set_timer(3600, env);
  call_poa_inst_lifespan();
  EXPECT_EQ(call(object), "done");
  ASSERT_EQ(made.size(), 1u);
  servant->expire();
  call_poa_inst_lifespan();
  EXPECT_TRUE(servant->get_deleted() && servant->get_to_be_deleted());
  EXPECT_FALSE(POA_ServantList::search_servant(servant_lifespan_list, servant));
  EXPECT_TRUE(POA_ServantList::search_servant(servant_delete_list, servant));
  EXPECT_EQ(call(object), "done");  // by a new one
  EXPECT_EQ(made.size(), 2u);
  EXPECT_EQ(alive, 2);
  TraceRecorder trace;
  call_poa_inst_lifespan();
  EXPECT_TRUE(trace.in_order(
      {"call_poa_inst_lifespan called...", "  Servant is deleted...", "call_poa_inst_lifespan end..."}));
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(servant_delete_list, nullptr);
  EXPECT_EQ(scene.poa->id_to_servant(oid("o")), made.at(1));
  scene.poa->destroy(false, false);
  delete made.at(1);
}

TEST_F(Upcalls, ALifespanThatEndsInTheMiddleOfARequest) {
  Scene scene(top);
  TestServant* servant = mortal();
  const CORBA::Object_var object = scene.with().activate("o", servant).reference("o");
  servant->work = [&] {
    servant->set_timer(3600);
    servant->expire();
    for (int i = 0; i < 3; ++i) call_poa_inst_lifespan();
    EXPECT_EQ(alive, 1);
    EXPECT_FALSE(servant->get_deleted());
    EXPECT_TRUE(servant->get_to_be_deleted());
  };
  TraceRecorder trace;
  EXPECT_EQ(call(object), "done");
  EXPECT_EQ(trace.count("  servant is added in delete list..."), 1u);
  EXPECT_EQ(call(object), "UNKNOWN 0x0 NO");
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 0);
}

TEST_F(Upcalls, WhatTheTickLeavesAlone) {
  Scene scene(top);
  TestServant no_default;
  scene.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).poa->set_servant(&scene.servant);
  scene.servant.servant_delete();  // a default servant stays
  no_default.set_timer(3600);
  no_default.set_timer(0);
  call_poa_inst_lifespan();
  call_poa_inst_lifespan();
  EXPECT_EQ(outcome(scene.reference("o"), "notes"), "done");
  EXPECT_FALSE(no_default.get_to_be_deleted());
  EXPECT_EQ(servant_lifespan_list, nullptr);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { no_default.set_timer(-1, ev); });
}
