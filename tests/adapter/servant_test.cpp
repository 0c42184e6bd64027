// Servants: standard operations, counters, deferred deletion, timers, references, and the operations that
// every servant serves.
#include <gmock/gmock.h>

#include <ctime>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;

namespace {

constexpr const char* COUNTED_ID = "IDL:test/Counted:1.0";

/// Tells when it is deleted.
class CountedServant : public RefCountServantBase {
 public:
  explicit CountedServant(int* deleted = nullptr) : deleted_(deleted) { _intf = COUNTED_ID; }
  ~CountedServant() override {
    if (deleted_) ++*deleted_;
  }
  CORBA::ULong references() const { return _ref_count; }
  void no_interface() { _intf = nullptr; }

 private:
  int* deleted_;
};

class Servants : public AdapterTest {
 protected:
  CORBA::Object* new_reference(POA* poa, const char* oid) {
    return record_of(poa)->POACreateReference(oid_of(oid), "IDL:test/Plain:1.0", env);
  }
  static std::size_t nodes(const ServantBase& servant) {
    std::size_t count = 0;
    for (const ObjectRefList* node = ServantAccess::references(servant); node; node = node->get_next())
      ++count;
    return count;
  }

  CORBA::Environment env;
};

/// No lifespan tick gets between: it takes both locks.
class Lifespans : public Servants {
 protected:
  ~Lifespans() override {
    for (PlainServant* servant : made) {
      POA_ServantList::remove_servant(servant_delete_list, servant);
      delete servant;
    }
  }
  PlainServant* make() {
    made.push_back(new PlainServant);
    return made.back();
  }
  static int times_listed(const POA_ServantList* list, const ServantBase* servant) {
    int count = 0;
    for (; list; list = list->get_next()) count += list->get_servant() == servant;
    return count;
  }

  MutexGuard deletions{poa_svt_delete_mutex};
  MutexGuard lifespans{poa_svt_lifespan_mutex};
  std::vector<PlainServant*> made;
};

}  // namespace

// ---- Standard operations ------------------------------------------------------------------------

TEST_F(Servants, BaseBehaviour) {
  CountedServant servant;
  EXPECT_EQ(servant._default_POA(), nullptr);
  EXPECT_TRUE(servant._is_a(COUNTED_ID, env));
  for (const char* other :
       {"IDL:omg.org/CORBA/Object:1.0", "IDL:test/Counted:1.1", "", static_cast<const char*>(nullptr)})
    EXPECT_FALSE(servant._is_a(other, env));
  EXPECT_FALSE(servant._non_existent(env));
  EXPECT_STREQ(servant._primary_interface(oid_of("x"), top, env), COUNTED_ID);
  servant.no_interface();
  EXPECT_FALSE(servant._is_a(COUNTED_ID, env));
  EXPECT_EQ(DynamicImplementation()._this(), nullptr);
}

TEST_F(Servants, TheInterfaceComesFromTheRepository) {
  CountedServant servant;
  testing::internal::CaptureStderr();
  EXPECT_EQ(servant._get_interface(env), nullptr);
  servant.no_interface();
  EXPECT_EQ(servant._get_interface(env), nullptr);
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      testing::ContainsRegex("!!!Exception\t[0-9]+/[0-9]+ \\[Src/servantbase\\([0-9]+\\)\\]:\t"
                             "CORBA_USER_EXCEPTION:\tIDL:CORBA/StExcep/INTF_REPOS:1.0\\([0-9]+\\)\n"));
  ZR_register_interface(COUNTED_ID);
  CountedServant known;
  const CORBA::InterfaceDef_var definition(known._get_interface(env));
  ASSERT_NE(definition.in(), nullptr);
  EXPECT_NE(definition->get_ref(), nullptr);
}

TEST_F(Servants, CountsAndTheVarThatHoldsThem) {
  int deleted = 0;
  auto* a = new CountedServant(&deleted);
  auto* b = new CountedServant(&deleted);
  {
    ServantBase_var holds_a(a), holds_b(b);
    EXPECT_EQ(a->references(), 1u);
    ServantBase_var again(holds_a);
    EXPECT_EQ(a->references(), 2u);
    again = holds_a;
    EXPECT_EQ(a->references(), 2u);
    again = holds_b;
    EXPECT_EQ(a->references(), 1u);
    EXPECT_EQ(b->references(), 2u);
    EXPECT_EQ(deleted, 0);
  }
  EXPECT_EQ(deleted, 2);
}

TEST_F(Servants, CopiesStartAfresh) {
  CountedServant source;
  source.add_ref_counter();
  source.add_default_servant_ref();
  source.set_to_be_deleted(1);
  source.set_deleted(1);
  source._add_ref();
  CountedServant copy(source);
  EXPECT_EQ(copy.get_ref_counter(), 0u);
  EXPECT_EQ(ServantAccess::default_count(copy), 0u);
  EXPECT_FALSE(copy.get_to_be_deleted());
  EXPECT_FALSE(copy.get_deleted());
  EXPECT_EQ(copy.references(), 1u);
  source = copy;
  EXPECT_EQ(source.get_ref_counter(), 1u);
  source.rem_default_servant_ref();
  source.rem_default_servant_ref();
  EXPECT_EQ(ServantAccess::default_count(source), 0u);  // never below 0
}

// ---- Deletion and lifespan ----------------------------------------------------------------------

TEST_F(Lifespans, AServantInUseIsListedWhenTheLastRequestEnds) {
  PlainServant* servant = make();
  servant->add_ref_counter();
  ServantAccess::hold(*servant);
  {
    TraceRecorder trace;
    servant->servant_delete();
    EXPECT_TRUE(trace.in_order({"ServantBase::servant_delete called...",
                                "ServantBase::servant_delete [Servant is to be deleted...]",
                                "ServantBase::servant_delete end..."}));
  }
  EXPECT_TRUE(servant->get_to_be_deleted());
  ServantAccess::release(*servant);
  EXPECT_EQ(times_listed(servant_delete_list, servant), 0);
  ServantAccess::release(*servant);
  EXPECT_EQ(times_listed(servant_delete_list, servant), 1);
  EXPECT_TRUE(servant->get_deleted());
  TraceRecorder trace;
  servant->servant_delete();
  EXPECT_EQ(times_listed(servant_delete_list, servant), 1);
  EXPECT_TRUE(trace.in_order({"ServantBase::add_delete_list [Servant is already added DeleteList]",
                              "ServantBase::servant_delete [ServantBase::add_delete_list invoke]"}));
}

TEST_F(Lifespans, DeletionClearsTheTimerAndSparesDefaultServants) {
  PlainServant* servant = make();
  servant->set_timer(1000, env);
  servant->add_default_servant_ref();
  TraceRecorder trace;
  servant->servant_delete();
  EXPECT_EQ(trace.lines(), std::vector<std::string>{"ServantBase::servant_delete called..."});
  EXPECT_FALSE(servant->get_to_be_deleted());
  servant->rem_default_servant_ref();
  servant->servant_delete();
  EXPECT_TRUE(trace.in_order({"ServantBase::add_delete_list [Servant is added on DeleteList]",
                              "ServantBase::servant_delete [timer of Servant is cleared...]"}));
  EXPECT_EQ(servant->get_timer(), 0u);
  EXPECT_EQ(times_listed(servant_lifespan_list, servant), 0);
}

TEST_F(Lifespans, TimersAreSetMovedAndCleared) {
  PlainServant* servant = make();
  const auto now = static_cast<CORBA::ULong>(std::time(nullptr));
  const auto set = [&](int seconds, const char* line) {
    TraceRecorder trace;
    servant->set_timer(seconds, env);
    EXPECT_EQ(line ? trace.count_starting(line) : trace.lines().size() - 1, 1u) << seconds;
    EXPECT_EQ(trace.lines().back(), "ServantBase::set_timer end...");
  };
  set(0, nullptr);
  EXPECT_EQ(times_listed(servant_lifespan_list, servant), 0);
  set(3000, "ServantBase::set_timer [timer of Servant = ");
  EXPECT_GE(servant->get_timer(), now + 3000);
  set(6000, "ServantBase::set_timer [timer is changed .. timer = ");
  EXPECT_GE(servant->get_timer(), now + 6000);
  EXPECT_LE(servant->get_timer(), now + 6100);
  EXPECT_EQ(times_listed(servant_lifespan_list, servant), 1);
  {
    TraceRecorder trace;
    const CORBA::ULong timer = servant->get_timer();
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { servant->set_timer(-1, ev); });
    EXPECT_TRUE(trace.in_order({"ServantBase::set_timer called...[timer = " + std::to_string(timer) + "]",
                                "ServantBase::set_timer",
                                "ServantBase::set_timer [timer is wrong .. throw BAD_PARAM]"}));
    EXPECT_EQ(servant->get_timer(), timer);
    EXPECT_EQ(times_listed(servant_lifespan_list, servant), 1);
  }
  set(0, "ServantBase::set_timer [timer is cleared .. timer = 0]");
  EXPECT_EQ(times_listed(servant_lifespan_list, servant), 0);
  {
    PlainServant gone;
    gone.set_timer(1000, env);
    EXPECT_EQ(times_listed(servant_lifespan_list, &gone), 1);
  }
  EXPECT_EQ(servant_lifespan_list, nullptr);
}

TEST_F(Servants, TimersOfManyThreads) {
  PlainServant servants[2];
  run_together(4, [&](int i) {
    CORBA::Environment own;
    for (int n = 0; n < 200; ++n) servants[n % 2].set_timer(i % 2 ? 1000 : 0, own);
  });
  for (PlainServant& servant : servants) servant.set_timer(0, env);
  MutexGuard guard(poa_svt_lifespan_mutex);
  for (PlainServant& servant : servants)
    EXPECT_FALSE(POA_ServantList::search_servant(servant_lifespan_list, &servant));
}

// ---- References ---------------------------------------------------------------------------------

TEST_F(Servants, AReferenceIsKeptOnceForEachPoaAndId) {
  PlainServant servant;
  const ObjectId a = oid_of("a"), b = oid_of("b");
  const POA_var other = top->create_POA("other", nullptr, {});
  TraceRecorder trace;
  const auto ended = [&](const char* end) {
    return trace.lines().back() == std::string("ServantBase::") + end;
  };
  EXPECT_EQ(servant.get_ObjectReference(top, &a), nullptr);
  EXPECT_TRUE(ended("get_ObjectReference end...[poa or oid or _object_ref is NULL]"));
  EXPECT_EQ(servant.set_ObjectReference(nullptr, top, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(servant.set_ObjectReference(top, nullptr, 0, nullptr, nullptr), nullptr);
  EXPECT_TRUE(ended("set_ObjectReference end...[poa or ior is NULL]"));

  CORBA::Object* kept = new_reference(top, "a");
  EXPECT_EQ(servant.set_ObjectReference(top, kept, 0, nullptr, &b), kept);  // the id is the reference's own
  EXPECT_TRUE(ended("set_ObjectReference end...[ior added in or_list top]"));
  const CORBA::Object_var second(new_reference(top, "a")), for_b(new_reference(top, "b"));
  EXPECT_EQ(servant.set_ObjectReference(top, second.in(), 0, nullptr, nullptr), nullptr);
  EXPECT_TRUE(ended("set_ObjectReference end...[ior is changed. ]"));
  EXPECT_EQ(servant.get_ObjectReference(top, &a), kept);
  EXPECT_EQ(servant.get_ObjectReference(top, &b), nullptr);
  EXPECT_TRUE(ended("get_ObjectReference end...[return NULL]"));
  EXPECT_EQ(servant.get_ObjectReference(other, &a), nullptr);

  CORBA::Object* own = servant.set_ObjectReference(top, for_b.in(), 1, nullptr, nullptr);
  EXPECT_TRUE(ended("set_ObjectReference end...[ior added in or_list]"));
  ASSERT_NE(own, nullptr);
  EXPECT_NE(own, for_b.in());
  EXPECT_TRUE(CORBA_object_is_equivalent(own->get_ref(), for_b->get_ref()));

  servant.clear_ObjectReference(top, &a);
  EXPECT_TRUE(ended("clear_ObjectReference end...[poa_info is cleard and obj_ref is deleted]"));
  servant.clear_ObjectReference(top, &a);
  EXPECT_TRUE(ended("clear_ObjectReference end...[ior is not found in _object_ref]"));
  servant.clear_ObjectReference(nullptr, &a);
  EXPECT_TRUE(ended("clear_ObjectReference end...[poa or oid or ior or _object_ref = NULL]"));
  EXPECT_EQ(servant.get_ObjectReference(top, &b), own);
}

TEST_F(Servants, TheListIsNoLongerThanWhatItHolds) {
  PlainServant servant;
  for (int i = 0; i < 100; ++i) {
    const ObjectId oid = oid_of("o" + std::to_string(i));
    CORBA::Object* reference = new_reference(top, std::string(oid_view(oid)).c_str());
    TraceRecorder trace;
    EXPECT_EQ(servant.set_ObjectReference(top, reference, 0, nullptr, nullptr), reference);
    EXPECT_EQ(trace.lines().back() == "ServantBase::set_ObjectReference end...[ior added in or_list top]",
              i == 0);
    servant.clear_ObjectReference(top, &oid);
    EXPECT_LE(nodes(servant), 1u);
  }
}

TEST_F(Servants, ADefaultServantsReferencesGoByTheIdGiven) {
  PlainServant servant;
  servant.add_default_servant_ref();
  const ObjectId id = oid_of("default");
  const CORBA::Object_var request(new_reference(top, "anything"));
  EXPECT_EQ(servant.set_ObjectReference(top, request.in(), 1, nullptr, nullptr), nullptr);
  EXPECT_EQ(nodes(servant), 0u);
  CORBA::Object* kept = servant.set_ObjectReference(top, request.in(), 1, nullptr, &id);
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(servant.get_ObjectReference(top, &id), kept);
}

TEST_F(Servants, NothingOfADestroyedPoaIsFollowed) {
  PlainServant servant;
  const ObjectId a = oid_of("a");
  for (int round = 0; round < 20; ++round) {  // a new POA's object may come to lie where the old one's was
    POA* poa = top->create_POA("short-lived", nullptr, {});
    EXPECT_EQ(servant.get_ObjectReference(poa, &a), nullptr);
    CORBA::Object* reference = new_reference(poa, "a");
    EXPECT_EQ(servant.set_ObjectReference(poa, reference, 0, nullptr, nullptr), reference);
    EXPECT_EQ(nodes(servant), round == 0 ? 1u : 2u);
    EXPECT_EQ(ServantAccess::list_references(servant).size(), 1u);
    poa->destroy(false, false);
    const CORBA::Object_var late(round % 2 ? new_reference(top, "late") : nullptr);
    EXPECT_EQ(servant.set_ObjectReference(poa, late.in(), 1, nullptr, nullptr), nullptr);
    EXPECT_TRUE(ServantAccess::list_references(servant).empty());
    CORBA::release(poa);
  }
  servant.deactivate_ObjectReference();
}

TEST_F(Servants, DeactivatingWithdrawsWhatIsItsOwn) {
  const POA_var multiple = top->create_POA("multiple", nullptr, policies(root, MULTIPLE_ID, USER_ID));
  const POAInfoPtr unique = record_of(top), many = record_of(multiple);
  PlainServant servant, heir;
  const uint32_t bound = ZR_bound_objects();
  const ObjectId_var oid(unique->activate_object(&servant, env));
  CORBA::release(unique->id_to_reference(oid.in(), env));
  for (const char* id : {"x", "y"}) {
    many->activate_object_with_id(oid_of(id), &servant, env);
    CORBA::release(many->id_to_reference(oid_of(id), env));
  }
  many->active_object_map.load()->removeById(oid_of("y"));  // "y" goes over to another servant
  many->activate_object_with_id(oid_of("y"), &heir, env);
  EXPECT_EQ(ZR_bound_objects(), bound + 3);
  EXPECT_EQ(ServantAccess::list_references(servant).size(), 3u);

  TraceRecorder trace;
  servant.deactivate_ObjectReference();
  EXPECT_EQ(ZR_bound_objects(), bound);
  EXPECT_TRUE(ServantAccess::list_references(servant).empty());
  EXPECT_EQ(entries_of(*unique, servant) + entries_of(*many, servant), 0);
  EXPECT_EQ(many->id_to_servant(oid_of("y"), env), &heir);
  EXPECT_TRUE(trace.has("ServantBase::deactivate_ObjectReference end...[ior is not found in _object_ref]"));
  heir.deactivate_ObjectReference();
  EXPECT_TRUE(trace.has("ServantBase::deactivate_ObjectReference end...[_object_ref = NULL]"));
  many->deactivate_object(oid_of("y"), env);
}

// ---- Operations that every servant serves -------------------------------------------------------

TEST_F(Servants, TheObjectOperationsAreAnsweredThroughTheOrb) {
  static constexpr const char* id = "IDL:test/Answering:1.0";
  ZR_register_interface(id);
  PlainServant servant(id);
  const ObjectId_var oid(top->activate_object(&servant));
  const CORBA::Object_var reference(top->id_to_reference(oid.in()));
  POAManager_var manager(top->the_POAManager());
  manager->activate();
  const struct {
    const char* trace;
    std::function<bool()> call;
    bool answer;
  } rows[] = {
      {"_non_existent]", [&] { return reference->_non_existent(env) != 0; }, false},
      {"_is_a]", [&] { return reference->_is_a("IDL:test/Other:1.0", env) != 0; }, false},
      {"_get_interface_]",
       [&] { return CORBA::InterfaceDef_var(reference->_get_interface(env)).in() != nullptr; }, true},
  };
  for (const auto& row : rows) {
    TraceRecorder trace;
    EXPECT_EQ(row.call(), row.answer) << row.trace;
    std::size_t served = 0;
    for (const std::string& line : trace.lines())
      served += line.rfind("ServantBase::invoke end...[_OP_PortableServer_ServantBase_", 0) == 0 &&
                testing::Value(line, testing::EndsWith(row.trace));
    EXPECT_EQ(served, 1u) << row.trace;
    EXPECT_EQ(env.exception(), nullptr);
  }
  top->deactivate_object(oid.in());
}

TEST_F(Servants, OtherOperationsAreNotItsOwn) {
  PlainServant servant;
  for (const char* name : {"_interface", "", "_is_a2"}) {
    ZR_RequestInfo info{};
    info.operation = name;
    ZR_ServerRequest record{&info};
    CORBA::ServerRequest request;
    request.set_ref(&record);
    TraceRecorder trace;
    EXPECT_FALSE(servant.invoke(&request, env)) << name;
    EXPECT_EQ(trace.lines().back(), "PortableServer::ServantBase::invoke end...[return CORBA_FALSE]");
    request.set_ref(nullptr);
  }
}
