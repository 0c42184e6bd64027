// Under which name, and when, the process is announced to the ORB core.
#include <cstdlib>

#include "dispatch_fixture.h"

using namespace PortableServer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class OtherServant : public TestServant {
 public:
  explicit OtherServant(const char* intf) { _intf = intf; }
};

class Registration : public AdapterTest {
 protected:
  POA_var child() { return root->create_POA(unique_name("child").c_str(), nullptr, CORBA::PolicyList()); }
  const Unregistered process;
  CoreCalls core;
  CORBA::Environment own_ev;
};

std::string name_of(POA* poa) { return CORBA::String_var(poa->the_name()).in(); }

}  // namespace

TEST_F(Registration, OnceForTheProcess) {
  for (const bool variable : {true, false}) {
    const Unregistered anew;
    if (variable) ::setenv("ZR_IMPLID", "by-variable", 1);
    POA_var a = child(), b = child();
    const std::string name = variable ? "by-variable" : name_of(b);  // the newest child
    _POA_impl_is_ready(core_handles.boa, own_ev);
    EXPECT_THAT(core.take(), ElementsAre("lookup " + name, "ready"));
    EXPECT_STREQ(POA_impl_name, name.c_str());
    EXPECT_EQ(POA_impl_is_ready_fl, 1);
    _POA_impl_is_ready(core_handles.boa, own_ev);
    EXPECT_THAT(core.take(), IsEmpty());
    OtherServant servant("IDL:test/OnceForTheProcess:1.0");
    const ObjectId_var id = a->activate_object(&servant);  // a new interface: entered, not announced
    EXPECT_THAT(core.take(), ElementsAre("lookup " + name));
    const ZRImplementationDef* entry = FindImplementationDef("IDL:test/OnceForTheProcess:1.0");
    EXPECT_TRUE(entry && !entry->is_ready);
    for (POA* poa : {a.in(), b.in()}) poa->destroy(false, false);
    ::unsetenv("ZR_IMPLID");
  }
}

TEST_F(Registration, OnceForEachInterface) {
  POA_var newest = child();
  OtherServant one("IDL:test/A:1.0"), another("IDL:test/B:1.0"), again("IDL:test/B:1.0");
  for (OtherServant* servant : {&one, &another}) {
    const ObjectId_var id = top->activate_object(servant);
    EXPECT_THAT(core.take(), ElementsAre("lookup " + name_of(newest), "ready"));
  }
  EXPECT_STREQ(POA_impl_name, name_of(newest).c_str());
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
  const ObjectId_var id = top->activate_object(&again);
  EXPECT_THAT(core.take(), IsEmpty());
  newest->destroy(false, false);
  top->destroy(false, false);
}

TEST_F(Registration, NothingWithoutAName) {
  top->destroy(false, false);
  ASSERT_EQ(root_poa_info->the_first_child(), nullptr);
  _POA_impl_is_ready(core_handles.boa, own_ev);
  TestServant servant;
  root->deactivate_object(ObjectId_var(root->activate_object(&servant)));
  EXPECT_THAT(core.take(), IsEmpty());
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
}

TEST_F(Registration, FailuresOfTheCore) {
  OtherServant servant("IDL:test/Failures:1.0");
  const auto activate = [&](CORBA::Environment& ev) { top->activate_object(&servant, ev); };
  const auto ready = [](CORBA::Environment& ev) { _POA_impl_is_ready(core_handles.boa, ev); };
  for (const bool lookup : {true, false}) {
    const Unregistered anew;
    core.refuse(lookup ? "lookup" : "ready");
    expect_raised<POA::ServantAlreadyActive>(activate);
    const ZRImplementationDef* entry = FindImplementationDef("IDL:test/Failures:1.0");
    EXPECT_EQ(entry == nullptr, lookup);
    EXPECT_TRUE(!entry || !entry->is_ready);
    expect_raised<CORBA::BAD_PARAM>(ready);
    EXPECT_EQ(POA_impl_is_ready_fl, !lookup);
    core.refuse("nothing");
    core.take();
    top->deactivate_object(ObjectId_var(top->activate_object(&servant)));  // nothing was left behind
    EXPECT_EQ(core.take().size(), lookup ? 2u : 0u);  // an entry that is not ready is not tried again
  }
}

TEST_F(Registration, TheTableHas1024Entries) {
  std::vector<std::string> names;  // the table keeps the texts that it is given
  for (int i = 0; i <= IMPL_DEF_CACHE_SIZE; ++i) names.push_back("IDL:test/" + std::to_string(i) + ":1.0");
  const auto insert = [&](std::size_t i) { return InsertImplementationDef(names[i].c_str(), &names); };
  for (std::size_t i = 0; i < IMPL_DEF_CACHE_SIZE; ++i) EXPECT_EQ(insert(i), &implDef_cache[i]);
  EXPECT_EQ(InsertImplementationDef("IDL:test/7:1.0", nullptr), &implDef_cache[7]);
  EXPECT_EQ(implDef_cache[7].implDef, &names);  // unchanged
  EXPECT_EQ(outcome([&] { insert(IMPL_DEF_CACHE_SIZE); }), "NO_MEMORY 0x4b510001 NO");
}

TEST_F(Registration, ManyThreadsRegisterAnInterfaceOnce) {
  std::vector<std::unique_ptr<OtherServant>> servants;
  std::vector<std::future<void>> threads;
  for (int i = 0; i < 8; ++i) servants.push_back(std::make_unique<OtherServant>("IDL:test/Many:1.0"));
  for (auto& servant : servants)
    threads.push_back(std::async(std::launch::async, [&] { delete top->activate_object(servant.get()); }));
  for (auto& thread : threads) thread.get();
  EXPECT_EQ(core.take().size(), 2u);
  top->destroy(false, false);
}
