// CORBA::ORB: initial references, texts, several ORBs, a loop of the program's own.

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <set>

#include "scratch.h"
#include "server.h"

namespace {

using CORBA::Object_var;

/// What the call raises, by name; "" for nothing.
template <class Call>
std::string raised(Call&& call) {
  try {
    call();
    return "";
  } catch (const CORBA::Exception& e) {
    return e._name();
  }
}

class OrbTest : public StandardTest {};

TEST_F(OrbTest, InitialReferencesAreRegisteredConfiguredAndListed) {
  const CORBA::String_var ior = orb->object_to_string(echo);
  const CORBA::ORB_var client =
      make_orb({"-ORBInitRef", std::string("Configured=") + ior.in(), "-ORBDefaultInitRef",
                "corbaloc:iiop:1.2@localhost:" + port(), "-ORBid", "client"});
  client->register_initial_reference("Registered", echo);
  orb->register_key("ByDefault", echo);
  EXPECT_STREQ(CORBA::String_var(client->id()).in(), "client");
  EXPECT_STREQ(CORBA::String_var(orb->id()).in(), "");

  for (const char* name : {"Registered", "Configured", "ByDefault"}) {
    SCOPED_TRACE(name);
    const Object_var object = client->resolve_initial_references(name);
    const Demo::Echo_var found = Demo::Echo::_narrow(object);
    ASSERT_FALSE(CORBA::is_nil(found));
    EXPECT_EQ(found->add(1, 2), 3);
    const Object_var by_text = client->string_to_object((std::string("corbaloc:rir:/") + name).c_str());
    EXPECT_TRUE(by_text->_is_equivalent(object));
    EXPECT_STREQ(CORBA::String_var(CORBA::ORB_var(found->_get_orb())->id()).in(),
                 name == std::string("ByDefault")
                     ? "client"
                     : CORBA::String_var(CORBA::ORB_var(object->_get_orb())->id()).in());
  }
  const CORBA::ORB::ObjectIdList_var list = client->list_initial_services();
  std::set<std::string> names;
  for (CORBA::ULong i = 0; i < list->length(); ++i) names.insert(list[i]);
  EXPECT_EQ(names, (std::set<std::string>{"Configured", "ORBPolicyManager", "PICurrent", "PolicyCurrent",
                                          "Registered"}));

  for (const char* name : {"Registered", "ORBPolicyManager", ""})
    EXPECT_EQ(raised([&] { client->register_initial_reference(name, echo); }), "InvalidName") << name;
  EXPECT_EQ(raised([&] { client->register_initial_reference("Nil", nullptr); }), "BAD_PARAM");
  EXPECT_EQ(raised([&] { orb->resolve_initial_references("Registered"); }), "InvalidName") << "another ORB's";
  EXPECT_EQ(raised([&] { client->resolve_initial_references("RootPOA"); }), "InvalidName") << "another ORB's";
  client->destroy();
}

TEST_F(OrbTest, OptionsAreTakenOutOfTheCommandLine) {
  char program[] = "p", id[] = "-ORBid", mine[] = "mine", other[] = "other", ref[] = "-ORBInitRef",
       bad[] = "=";
  char* argv[] = {program, id, mine, other, nullptr, nullptr};
  int argc = 4;
  const CORBA::ORB_var made = CORBA::ORB_init(argc, argv);
  EXPECT_EQ(argc, 2);
  EXPECT_STREQ(argv[1], "other");
  EXPECT_EQ(argv[2], nullptr);
  EXPECT_STREQ(CORBA::String_var(made->id()).in(), "mine");
  made->destroy();
  char* wrong[] = {program, ref, bad, nullptr};
  EXPECT_EQ(raised([&] { CORBA::ORB_init(argc = 3, wrong); }), "BAD_PARAM");
  EXPECT_EQ(raised([&] { CORBA::ORB_init(argc = 2, wrong); }), "BAD_PARAM") << "no value";
}

TEST_F(OrbTest, FilesHoldReferences) {
  const Scratch scratch;
  std::string path;
  const auto resolve = [&](const std::string& content) {
    path = scratch.write("echo.ior", content);
    const Object_var object = orb->string_to_object(("file://" + path).c_str());
    return object->_is_equivalent(echo);
  };
  const std::string ior = CORBA::String_var(orb->object_to_string(echo)).in();
  EXPECT_TRUE(resolve(ior));
  EXPECT_TRUE(resolve("  " + ior + "\r\n"));
  for (const std::string& content : {std::string(), std::string(" \n"), std::string("nonsense"),
                                     "file://" + path, std::string(2 << 20, 'x')})
    EXPECT_EQ(raised([&] { resolve(content); }), "BAD_PARAM") << content.substr(0, 20);
  EXPECT_EQ(raised([&] { orb->string_to_object("file:///no/such/file"); }), "BAD_PARAM");
  EXPECT_EQ(raised([&] { orb->string_to_object("corbaloc:rir:/NoSuchName"); }), "BAD_PARAM");
}

TEST_F(OrbTest, KeysThatPeopleWriteReachObjects) {
  const Demo::Echo_var far = far_echo(orb);
  EXPECT_EQ(far->add(2, 3), 5);
  far->note("one way");
  EXPECT_EQ(servant->noted.get_future().get(), "one way");
  // An object of another server: this one sends the client there, for a request and for a question where it is.
  const Object_var elsewhere = orb->string_to_object(StandardTest::far("Echo").c_str());
  orb->register_key("Elsewhere", elsewhere);
  const Object_var sent_on = orb->string_to_object(StandardTest::far("Elsewhere").c_str());
  const Demo::Echo_var there = Demo::Echo::_narrow(sent_on);
  EXPECT_EQ(there->add(4, 5), 9);

  orb->register_key("Echo", nullptr);
  const Object_var gone = orb->string_to_object(StandardTest::far("Echo").c_str());
  EXPECT_EQ(raised([&] { gone->_is_a("IDL:test/Other:1.0"); }), "OBJECT_NOT_EXIST");
  CORBA::Environment ev;
  EXPECT_TRUE(gone->_non_existent(ev)) << "the same, as an answer";
  EXPECT_EQ(ev.exception(), nullptr);
  CORBA::PolicyList_var inconsistent;
  EXPECT_TRUE(gone->_validate_connection(inconsistent.out())) << "its server answers";
  EXPECT_EQ(raised([&] { orb->register_key("", echo); }), "BAD_PARAM");
}

// One destroyed under load, the other loses nothing.
TEST_F(OrbTest, OrbsAreIndependent) {
  const CORBA::ORB_var first = make_orb({}, "first"), second = make_orb({}, "second");
  const Demo::Echo_var of_first = far_echo(first), of_second = far_echo(second);
  std::atomic<bool> stop{false};
  std::atomic<int> done{0}, refused{0}, lost{0};
  std::thread load([&] {
    while (!stop) raised([&] { done += of_second->add(1, 1) == 2; }) == "" || ++lost;
  });
  std::thread ending([&] {
    while (refused == 0) raised([&] { of_first->add(1, 1); }) == "BAD_INV_ORDER" && ++refused;
  });
  std::thread running([&] { second->run(); });  // a client that does nothing else
  while (done < 100) std::this_thread::yield();
  first->destroy();
  ending.join();
  for (const int so_far = done; done < so_far + 100;) std::this_thread::yield();
  second->shutdown(false);
  running.join();
  stop = true;
  load.join();
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(of_second->add(1, 1), 2) << "a client's shutdown ends its run() alone";
  EXPECT_EQ(raised([&] { CORBA::String_var(first->id()); }), "BAD_INV_ORDER");
  second->destroy();
  EXPECT_EQ(raised([&] { of_second->add(1, 1); }), "BAD_INV_ORDER");
  EXPECT_EQ(echo->add(1, 1), 2);
}

// A thread remembers the root POA for `_this`, as long as it is that of an ORB that serves.
TEST(TwoOrbs, ThisLeadsToTheRootPoaThatServes) {
  EchoServant servant;
  for (const char* id : {"first", "second"}) {
    const CORBA::ORB_var orb = make_orb({}, id);
    for (int start = 0; start < 2; ++start) {
      for (int i = 0; i < 3; ++i) EXPECT_FALSE(CORBA::is_nil(Demo::Echo_var(servant._this()).in()));
      EXPECT_GE(orb->work_descriptor(), 0) << "it serves";
      orb->shutdown(true);
    }
    orb->destroy();
    EXPECT_EQ(raised([&] { Demo::Echo_var(servant._this()); }), "BAD_INV_ORDER");
  }
}

// run() waits as long as it is open which of two ORBs will serve.
TEST(TwoOrbs, WhoMayServeAtLastIsWoken) {
  for (const bool by_the_others_end : {true, false}) {
    const CORBA::ORB_var first = make_orb({}, "first"), second = make_orb({}, "second");
    auto running = std::async(std::launch::async, [&] { second->run(); });
    EXPECT_EQ(running.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    if (by_the_others_end) {
      first->destroy();
    } else {
      EXPECT_FALSE(CORBA::is_nil(Object_var(second->resolve_initial_references("RootPOA"))));
    }
    second->shutdown(false);
    EXPECT_EQ(running.wait_for(std::chrono::seconds(3)), std::future_status::ready);
    if (!by_the_others_end) first->destroy();
    second->destroy();
  }
}

// ---- A loop of the program's own ----

class LoopTest : public StandardTest {
 protected:
  LoopTest() : StandardTest({}, Serving::ByTheProgram) {
    watch(orb->work_descriptor());
    watch(other_);
  }
  ~LoopTest() override {
    ::close(epoll_);
    ::close(other_);
  }

  /// One round of the loop: the descriptor that had something, -1 when nothing came in time.
  int turn(int milliseconds = 20'000) {
    epoll_event event{};
    if (::epoll_wait(epoll_, &event, 1, milliseconds) != 1) return -1;
    if (event.data.fd != other_) {
      EXPECT_TRUE(orb->work_pending());
      orb->perform_work();
    }
    return event.data.fd;
  }
  /// A call on another thread, while this one runs the loop.
  template <class Call>
  auto meanwhile(Call&& call) {
    return std::async(std::launch::async, std::forward<Call>(call));
  }
  Demo::Echo_var find_far() {
    auto asked = meanwhile([&] { return far_echo(orb); });
    while (asked.wait_for(std::chrono::seconds(0)) != std::future_status::ready && turn(10) >= -1) continue;
    return asked.get();
  }

  const int other_ = ::eventfd(0, EFD_NONBLOCK);  // what the program waits for besides

 private:
  void watch(int descriptor) {
    ASSERT_GE(descriptor, 0);
    epoll_event event{EPOLLIN, {.fd = descriptor}};
    ASSERT_EQ(::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event), 0);
  }
  const int epoll_ = ::epoll_create1(0);
};

TEST_F(LoopTest, RequestsRunInTheProgramsOwnLoop) {
  EXPECT_FALSE(orb->work_pending());
  const Demo::Echo_var far = find_far();
  std::vector<std::future<CORBA::Long>> calls;
  for (int i = 0; i < 3; ++i) calls.push_back(meanwhile([&, i] { return far->add(i, i); }));
  for (int done = 0; done < 3; ++done) {
    EXPECT_EQ(servant->calls, done) << "one request a turn";
    ASSERT_EQ(turn(), orb->work_descriptor());
    EXPECT_EQ(servant->thread.load(), std::this_thread::get_id());
  }
  for (int i = 0; i < 3; ++i) EXPECT_EQ(calls[static_cast<std::size_t>(i)].get(), 2 * i);
  EXPECT_EQ(turn(0), -1) << "nothing waits";
  orb->perform_work();  // nothing

  const std::uint64_t one = 1;
  ASSERT_EQ(::write(other_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
  EXPECT_EQ(turn(), other_) << "the program's own events come through";
  EXPECT_EQ(echo->add(1, 1), 2) << "the program's own call waits for nobody";
  orb->shutdown(true);
  EXPECT_EQ(raised([&] { orb->perform_work(); }), "BAD_INV_ORDER");
}

TEST_F(LoopTest, RunTakesOverWhatWaits) {
  const Demo::Echo_var far = find_far();
  auto call = meanwhile([&] { return far->add(1, 2); });
  while (!orb->work_pending()) std::this_thread::yield();
  std::thread runner([&] { orb->run(); });
  EXPECT_EQ(call.get(), 3);
  EXPECT_NE(servant->thread.load(), std::this_thread::get_id());
  orb->shutdown(true);
  runner.join();
}

}  // namespace
