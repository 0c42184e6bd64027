// Lost clients and the lifespan tick.
#include <sys/socket.h>

#include "dispatch_fixture.h"

using namespace PortableServer;

namespace {

using Clock = std::chrono::steady_clock;

/// Of a servant that nobody is in.
const std::initializer_list<std::string_view> LISTED = {
    "ServantBase::servant_delete called...", "ServantBase::add_delete_list [Servant is added on DeleteList]",
    "ServantBase::servant_delete [ServantBase::add_delete_list invoke]",
    "ServantBase::servant_delete end..."};

/// Calls from a client of another address.
class Upcalls : public LostClients {
 protected:
  /// Calls the object through a socket, so that its entry knows the client.
  std::string call(CORBA::Object* object) { return outcome(seen_from(Road::Socket, object)); }
  static long descriptor(Scene& scene) {
    const PoaSemaphoreGuard guard(__LINE__);
    return known_clients[scene.record()->active_object_map.load()->entries[0].client].fd;
  }
  static void lose(long fd) {
    unsigned char host[] = {127, 0, 0, 1};
    call_disconnect_cpp_handler(fd, host, 0);
  }
};

}  // namespace

TEST_F(Upcalls, RegistrationOfTheCallback) {
  Callback other;
  expect_raised<CORBA::BAD_PARAM>([](auto& ev) { POAdisconnect::resetDisconnect(ev); });
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { POAdisconnect::resetDisconnect(&other, ev); });
  POAdisconnect::setDisconnect(&callback, own_ev);
  POAdisconnect::resetDisconnect(&other, own_ev);
  EXPECT_EQ(_disc_instance, &other);
  POAdisconnect::resetDisconnect(own_ev);
  EXPECT_EQ(_disc_instance, nullptr);
}

TEST_F(Upcalls, LostClients) {
  const struct {
    const char* name;
    std::function<bool(ServantBase*)> answer;  // null: nobody is registered
    bool released = false;
    long other_client = 0;  // added to the descriptor
  } rows[] = {{"nobody asked", nullptr},
              {"kept", [](auto*) { return false; }},
              {"raised", [](auto*) -> bool { throw CORBA::NO_RESOURCES(1); }},
              {"thrown", [](auto*) -> bool { throw std::runtime_error("x"); }},
              {"another client", [](auto*) { return true; }, false, 1000},
              {"released", [](auto*) { return true; }, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Callback asked;
    asked.answer = row.answer;
    POAdisconnect::setDisconnect(row.answer ? &asked : nullptr, own_ev);
    Scene place(top);
    TestServant* servant = mortal();
    const CORBA::Object_var object = place.with().activate("o", servant).reference("o");
    EXPECT_EQ(outcome(object), "done");
    EXPECT_EQ(descriptor(place), 0);  // a call of this process has no client data
    EXPECT_EQ(call(object), "done");
    TraceRecorder trace;
    lose(descriptor(place) + row.other_client);
    EXPECT_EQ(trace.in_order(LISTED), row.released);
    EXPECT_EQ(trace.has("  servant is deleted by POAdisconnect..."), row.released);
    EXPECT_EQ(asked.asked.size(), row.answer && row.other_client == 0 ? 1u : 0u);
    EXPECT_EQ(call(object), row.released ? "UNKNOWN 0x0 NO" : "done");
    EXPECT_EQ(alive, 1);  // not before the tick
    call_poa_inst_lifespan();
    EXPECT_EQ(alive, row.released ? 0 : 1);
    if (!row.released) place.poa->destroy(false, false), delete servant;
  }
}

// The whole road: the connection breaks while a request of it is in the servant.
TEST_F(Upcalls, ABrokenConnection) {
  TestServant* servant = mortal();
  Event inside, asked, go_on;
  callback.answer = [&](auto*) { return asked.set(), true; };
  POAdisconnect::setDisconnect(&callback, own_ev);
  const CORBA::Object_var object = scene.with().activate("o", servant).reference("o");
  servant->work = [&] {
    inside.set();
    EXPECT_TRUE(go_on.wait());
  };
  auto client = std::async(std::launch::async, [&] { return call(object); });
  ASSERT_TRUE(inside.wait());
  ::shutdown(static_cast<int>(descriptor(scene)), SHUT_RDWR);
  EXPECT_EQ(client.get().substr(0, 12), "COMM_FAILURE");
  ASSERT_TRUE(asked.wait());
  EXPECT_EQ(callback.objects, std::vector{scene.name + ":o"});
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 1);  // the request is still in it
  go_on.set();
  for (const auto end = Clock::now() + patience; alive > 0 && Clock::now() < end;) call_poa_inst_lifespan();
  EXPECT_EQ(alive, 0);
}

TEST_F(Upcalls, ALifespanEndsInTwoTicks) {
  std::vector<TestServant*> made;
  scene.activator.on_incarnate = [&](auto&, auto*) { return made.emplace_back(mortal()); };
  const CORBA::Object_var object = scene.with_activator().reference("o");
  EXPECT_EQ(call(object), "done");
  TestServant* servant = made.at(0);
  servant->set_timer(3600, own_ev);
  call_poa_inst_lifespan();
  EXPECT_EQ(call(object), "done");
  ASSERT_EQ(made.size(), 1u);
  servant->expire();
  {
    TraceRecorder trace;
    call_poa_inst_lifespan();
    EXPECT_TRUE(trace.in_order(LISTED));
    EXPECT_EQ(trace.count("ServantBase::add_delete_list called..."), 1u);
  }
  EXPECT_TRUE(servant->get_deleted() && servant->get_to_be_deleted());
  EXPECT_EQ(call(object), "done");  // by a new one
  EXPECT_EQ(alive, 2);
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 1);
  EXPECT_TRUE(servant_delete_list.empty());
  EXPECT_EQ(scene.poa->id_to_servant(oid("o")), made.at(1));
  scene.poa->destroy(false, false);
  delete made.at(1);
}

TEST_F(Upcalls, ALifespanThatEndsInTheMiddleOfARequest) {
  TestServant* servant = mortal();
  const CORBA::Object_var object = scene.with().activate("o", servant).reference("o");
  servant->work = [&] {
    servant->set_timer(3600);
    servant->expire();
    for (int i = 0; i < 3; ++i) call_poa_inst_lifespan();
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(!servant->get_deleted() && servant->get_to_be_deleted());
    servant->add_delete_list();  // as it was when the request came just after
    for (int i = 0; i < 3; ++i) call_poa_inst_lifespan();
    EXPECT_EQ(alive, 1);
  };
  EXPECT_EQ(call(object), "done");
  EXPECT_EQ(call(object), "UNKNOWN 0x0 NO");
  call_poa_inst_lifespan();
  EXPECT_EQ(alive, 0);
}
