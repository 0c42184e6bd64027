// Calls that stubs make, of objects at hand and over a socket: the same comes of them, and what is at hand takes no
// memory.
#include "dispatch_fixture.h"
#include "replaced_new.h"

using namespace PortableServer;

namespace {

thread_local std::size_t allocations = 0;

class StubCalls : public Dispatch {};
BOTH_ROADS(StubCalls);

/// What one stub call comes to.
std::string called(Demo::Echo* echo) {
  return outcome([echo] { EXPECT_EQ(echo->notes(), 0); });
}

}  // namespace

void* allocate_for_new(std::size_t octets) noexcept {
  ++allocations;
  return std::malloc(octets ? octets : 1);
}

TEST_P(StubCalls, EndAsTheServantWants) {
  Scene scene(top);
  const Demo::Echo_var echo = this->echo(scene.with().activate("o", &scene.servant).reference("o"));
  EXPECT_EQ(echo->add(3, 4), 7);
  EXPECT_STREQ(CORBA::String_var(echo->echo_string("text")).in(), "text");
  try {
    echo->refuse("why", 5);
    ADD_FAILURE() << "not refused";
  } catch (const Demo::Refused& e) {
    EXPECT_STREQ(e.why.in(), "why");
    EXPECT_EQ(e.code, 5);
  }
  scene.servant.work = [] { throw CORBA::NO_PERMISSION(9, CORBA::COMPLETED_YES); };
  EXPECT_EQ(called(echo.in()), "NO_PERMISSION 0x9 YES");
  // A call in the midst of a call of the same object, both with results.
  scene.servant.work = [&] { EXPECT_EQ(echo->add(echo->add(1, 2), 3), 6); };
  EXPECT_EQ(called(echo.in()), "done");
  scene.manager->discard_requests(0);
  EXPECT_EQ(called(echo.in()), "TRANSIENT 0x4b510301 NO");
  EXPECT_EQ(outcome([&] { echo->note("nobody waits for it"); }), "done");
  scene.manager->activate();
  EXPECT_EQ(called(echo.in()), "done");
}

TEST_P(StubCalls, ThatAreTooLargeAreNotMade) {
  Scene scene(top);
  const Demo::Echo_var echo = this->echo(scene.with().activate("o", &scene.servant).reference("o"));
  Demo::Octets octets;
  octets.length(17 << 20);
  EXPECT_EQ(outcome([&] { Demo::Octets_var(echo->echo_octets(octets)); }), "IMP_LIMIT 0x1 NO");
  octets.length(1 << 20);
  EXPECT_EQ(Demo::Octets_var(echo->echo_octets(octets))->length(), 1u << 20);
}

// It becomes a message of that operation, and is run when the manager lets it go.
TEST_P(StubCalls, WaitForAManagerThatHolds) {
  Scene scene(top);
  const Demo::Echo_var echo = this->echo(scene.with().activate("o", &scene.servant).reference("o"));
  EXPECT_EQ(echo->notes(), 0);
  scene.manager->hold_requests(0);
  auto sum = std::async(std::launch::async, [&] { return echo->add(20, 22); });
  EXPECT_EQ(sum.wait_for(a_while), std::future_status::timeout);
  scene.manager->activate();
  ASSERT_EQ(sum.wait_for(patience), std::future_status::ready);
  EXPECT_EQ(sum.get(), 42);
}

using CallsAtHand = AdapterTest;

TEST_F(CallsAtHand, TakeNoMemory) {
  default_poa_manager->activate();
  Scene in_map(top), by_default(top), by_locator(top);
  in_map.with().activate("o", &in_map.servant);
  by_default.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).poa->set_servant(&by_default.servant);
  by_locator.with_locator();
  by_locator.locator.on_preinvoke = [&](const std::string&, CORBA::ULong&) { return &by_locator.servant; };
  for (Scene* scene : {&in_map, &by_default, &by_locator}) {
    const CORBA::Object_var object = scene->reference("o");
    const Demo::Echo_var echo = Demo::Echo::_narrow(object.in());
    for (int warm = 0; warm < 3; ++warm) EXPECT_EQ(echo->add(warm, 1), warm + 1);
    const std::size_t before = allocations;
    for (int i = 0; i < 100; ++i) EXPECT_EQ(echo->add(i, 1), i + 1);
    EXPECT_EQ(allocations, before) << scene->name;
  }
}
