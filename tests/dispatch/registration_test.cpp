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

class Variable {
 public:
  explicit Variable(const char* value) {
    if (value) ::setenv("ZR_IMPLID", value, 1);
  }
  ~Variable() { ::unsetenv("ZR_IMPLID"); }
};

class Registration : public AdapterTest {
 protected:
  std::string name_of(POA* poa) { return CORBA::String_var(poa->the_name()).in(); }
  const Unregistered process;
  CoreCalls core;
};

}  // namespace

TEST_F(Registration, OnceForTheProcess) {
  for (const char* variable : {"by-variable", static_cast<const char*>(nullptr)}) {
    const Unregistered anew;
    const Variable set(variable);
    POA_var a = root->create_POA(unique_name("A").c_str(), nullptr, CORBA::PolicyList());
    POA_var b = root->create_POA(unique_name("B").c_str(), nullptr, CORBA::PolicyList());
    const std::string name = variable ? variable : name_of(b);  // the newest child
    TraceRecorder trace;
    CORBA::Environment env;
    _POA_impl_is_ready(POAInfo::_boa, env);
    EXPECT_THAT(core.take(), ElementsAre("lookup " + name, "ready"));
    EXPECT_STREQ(POA_impl_name, name.c_str());
    EXPECT_EQ(POA_impl_is_ready_fl, 1);
    EXPECT_TRUE(trace.in_order(
        variable ? std::initializer_list<std::string_view>{"_POA_impl_is_ready called...",
                                                           "getenv(ZR_IMPLID)=by-variable",
                                                           "  CORBA_BOA_impl_is_ready call [ZR_IMPLID]",
                                                           "_POA_impl_is_ready end...[ZR_IMPLID]"}
                 : std::initializer_list<std::string_view>{
                       "_POA_impl_is_ready called...", "  CORBA_BOA_impl_is_ready call [ZR_IMPLID is NULL]",
                       "_POA_impl_is_ready end...[ZR_IMPLID is NULL]"}));
    _POA_impl_is_ready(POAInfo::_boa, env);
    EXPECT_THAT(core.take(), IsEmpty());
    OtherServant servant("IDL:test/OnceForTheProcess:1.0");
    const ObjectId_var id = a->activate_object(&servant);  // a new interface: entered, not announced
    EXPECT_THAT(core.take(), ElementsAre("lookup " + name));
    EXPECT_TRUE(trace.has("POAInfo::POA_impl_is_ready end...[flug is not 0]"));
    const ZRImplementationDef* entry = FindImplementationDef("IDL:test/OnceForTheProcess:1.0");
    ASSERT_NE(entry, nullptr);
    EXPECT_FALSE(entry->is_ready);
    a->destroy(false, false);
    b->destroy(false, false);
  }
}

TEST_F(Registration, OnceForEachInterface) {
  POA_var newest = root->create_POA(unique_name("newest").c_str(), nullptr, CORBA::PolicyList());
  const std::string lookup = "lookup " + name_of(newest);
  OtherServant one("IDL:test/A:1.0"), another("IDL:test/B:1.0");
  const ObjectId_var a = top->activate_object(&one);
  EXPECT_THAT(core.take(), ElementsAre(lookup, "ready"));
  EXPECT_STREQ(POA_impl_name, name_of(newest).c_str());
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
  const ObjectId_var c = top->activate_object(&another);
  EXPECT_THAT(core.take(), ElementsAre(lookup, "ready"));
  OtherServant again("IDL:test/B:1.0");
  const ObjectId_var d = top->activate_object(&again);
  EXPECT_THAT(core.take(), IsEmpty());
  newest->destroy(false, false);
  top->destroy(false, false);
}

TEST_F(Registration, NothingWithoutAName) {
  top->destroy(false, false);
  ASSERT_EQ(root_poa_info->the_first_child(), nullptr);
  CORBA::Environment env;
  _POA_impl_is_ready(POAInfo::_boa, env);
  TestServant servant;
  const ObjectId_var id = root->activate_object(&servant);
  EXPECT_THAT(core.take(), IsEmpty());
  EXPECT_EQ(POA_impl_name.load(), nullptr);
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
  EXPECT_EQ(FindImplementationDef(Demo::Echo::repository_id), nullptr);
  root->deactivate_object(id);
}

TEST_F(Registration, FailuresOfTheCore) {
  OtherServant servant("IDL:test/Failures:1.0");
  const auto id = oid("x");
  const auto announce = [&](CORBA::Environment& ev) { POAInfo::POA_impl_is_ready(&servant, &id, ev); };
  const auto ready = [](CORBA::Environment& ev) { _POA_impl_is_ready(POAInfo::_boa, ev); };
  TraceRecorder trace;
  for (const char* refused : {"lookup", "ready"}) {
    const Unregistered anew;
    core.refuse(refused);
    trace.clear();
    expect_raised<CORBA::BAD_PARAM>(announce);
    EXPECT_EQ(trace.has("POAInfo::POA_impl_is_ready [KQ_ImplementationRep_lookup_id.]"), *refused == 'l');
    EXPECT_EQ(trace.has("_POAInfo::POA_impl_is_ready [CORBA_BOA_impl_is_ready.]"), *refused == 'r');
    const ZRImplementationDef* entry = FindImplementationDef("IDL:test/Failures:1.0");
    EXPECT_EQ(entry != nullptr, *refused == 'r');
    if (entry) {  // stays, not ready: not tried again
      core.take();
      EXPECT_FALSE(entry->is_ready);
      announce(CORBA::Environment().self());
      EXPECT_THAT(core.take(), IsEmpty());
    }
    expect_raised<CORBA::BAD_PARAM>(ready);
    EXPECT_EQ(trace.has("_POA_impl_is_ready [KQ_ImplementationRep_lookup_id.]"), *refused == 'l');
    EXPECT_EQ(trace.has("_POA_impl_is_ready [CORBA_BOA_impl_is_ready.]"), *refused == 'r');
    EXPECT_EQ(POA_impl_is_ready_fl, *refused == 'r');
  }
  const Unregistered anew;  // an activation that cannot be announced leaves nothing behind
  core.refuse("lookup");
  expect_raised<POA::ServantAlreadyActive>([&](auto& ev) { top->activate_object(&servant, ev); });
  core.refuse("nothing");
  const ObjectId_var active = top->activate_object(&servant);
  top->deactivate_object(active);
}

TEST_F(Registration, TheTableHas1024Entries) {
  std::vector<std::string> ids;
  for (int i = 0; i <= IMPL_DEF_CACHE_SIZE; ++i) ids.push_back("IDL:test/" + std::to_string(i) + ":1.0");
  for (int i = 0; i < IMPL_DEF_CACHE_SIZE; ++i) {
    const ZRImplementationDef* entry =
        InsertImplementationDef(ids[static_cast<std::size_t>(i)].c_str(), &ids);
    EXPECT_EQ(entry, &implDef_cache[i]);
  }
  EXPECT_EQ(InsertImplementationDef("IDL:test/7:1.0", nullptr), &implDef_cache[7]);
  EXPECT_EQ(implDef_cache[7].implDef, &ids);  // unchanged
  TraceRecorder trace;
  EXPECT_EQ(outcome([&] { InsertImplementationDef(ids.back().c_str(), nullptr); }),
            "NO_MEMORY 0x4b510001 NO");
  EXPECT_TRUE(trace.has("InsertImplementationDef [NO_MEMORY]"));
  OtherServant servant("IDL:test/one more:1.0");
  const auto id = oid("x");
  EXPECT_EQ(outcome([&] { POAInfo::POA_impl_is_ready(&servant, &id, CORBA::Environment().self()); }),
            "NO_MEMORY 0x4b510001 NO");
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
