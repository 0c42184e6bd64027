// What the client receives when a request cannot be served, and that nothing stays behind.
#include <cstdlib>

#include "dispatch_fixture.h"

using namespace PortableServer;

namespace {

class Failures : public Dispatch {};
BOTH_ROADS(Failures);

/// A reference of this process with that reference data.
CORBA::Object_var with_data(std::string data, const char* impl = "somebody") {
  CORBA_sequence_octet octets{static_cast<CORBA::ULong>(data.size()), static_cast<CORBA::ULong>(data.size()),
                              reinterpret_cast<unsigned char*>(data.data())};
  auto* object = new CORBA::Object;
  object->set_ref(
      ZR_create_object_reference(&octets, Demo::Echo::repository_id, impl, CORBA::Environment()._evp));
  return object;
}

/// Reference data that names a POA of that path: N, name, NUL, USER_ID, M = 0.
std::string data_for(const std::string& path) {
  const auto word = [](std::size_t n) {
    return std::string{static_cast<char>(n & 0xFF), static_cast<char>(n >> 8 & 0xFF), 0, 0};
  };
  std::string data = word(path.size() + 1) + path + '\0';
  data.resize((data.size() + 3) / 4 * 4);
  return data + word(6) + word(0);
}

using Refuse = std::function<void()>;
/// Everything that a program may let escape, and what the client sees of it where it passes.
const struct Escape {
  const char* name;
  Refuse raise;
  const char* passed;
} escapes[] = {
    {"system", [] { throw CORBA::NO_RESOURCES(7, CORBA::COMPLETED_YES); }, "NO_RESOURCES 0x7 YES"},
    {"user", [] { throw POA::NoServant(); }, "UNKNOWN 0x0 NO"},
    {"forward", [] { throw ForwardRequest(); }, "UNKNOWN 0x0 NO"},
    {"plain", [] { throw CORBA::Exception(); }, "UNKNOWN 0x0 NO"},
    {"standard", [] { throw std::runtime_error("of the program"); }, "UNKNOWN 0x0 MAYBE"},
    {"memory", [] { throw std::bad_alloc(); }, "NO_MEMORY 0x0 MAYBE"},
    {"no exception class", [] { throw 1; }, "UNKNOWN 0x0 MAYBE"},
};

struct Row {
  const char* name;
  std::function<CORBA::Object_var(Scene&)> target;
  const char* outcome;
  std::vector<const char*> trace = {};
  const char* operation = "notes";
};

/// Calls the target both ways, on one road, and looks at every witness.
void check(const Row& row, Road road, POA* parent) {
  SCOPED_TRACE(row.name);
  Scene scene(parent);
  const CORBA::Object_var target = seen_from(road, row.target(scene));
  UpcallWitness upcalls;
  TraceRecorder trace;
  EXPECT_EQ(outcome(target, row.operation), row.outcome);
  for (const char* line : row.trace) EXPECT_TRUE(trace.has(line)) << line;
  const std::size_t expected = trace.count("call_cpp_handler called...") + 1;
  EXPECT_EQ(outcome(target, row.operation, /*response_expected=*/false), "sent");
  const auto handled = upcalls.wait_for(2);
  ASSERT_EQ(handled.size(), 2u);
  EXPECT_EQ(trace.count("call_cpp_handler called..."), expected);
  for (const Handled& one : handled) {
    EXPECT_EQ(one.operation, row.operation);
    EXPECT_EQ(one.major, static_cast<uint32_t>(CORBA_NO_EXCEPTION));  // the core never sees a failure
  }
  // GIOP 1.2: header of 12, request id, status, no contexts. Nobody reads a body that a oneway call would
  // have.
  EXPECT_TRUE(handled[0].response_expected);
  EXPECT_FALSE(handled[1].response_expected);
  ASSERT_EQ(handled[1].reply.size(), 24u);
  EXPECT_EQ(handled[1].reply[16], ZR_REPLY_SYSTEM_EXCEPTION);
  EXPECT_GT(handled[0].reply.size(), 24u);
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
  EXPECT_EQ(ServantAccess::target(scene.servant), nullptr);
  EXPECT_EQ(current_object(), "none");
}

CORBA::Object_var without_servant_manager(Scene& s) {
  return s.with(USE_SERVANT_MANAGER).reference("nobody");
}

CORBA::Object_var activated_by(Scene& s, decltype(Activator::on_incarnate) incarnate) {
  s.with(USE_SERVANT_MANAGER).poa->set_servant_manager(&s.activator);
  s.activator.on_incarnate = std::move(incarnate);
  return s.reference("new");
}

CORBA::Object_var located_by(Scene& s, decltype(Locator::on_preinvoke) preinvoke) {
  s.with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID).poa->set_servant_manager(&s.locator);
  s.locator.on_preinvoke = std::move(preinvoke);
  return s.reference("any");
}

}  // namespace

TEST_P(Failures, OnTheWayToTheServant) {
  static constexpr const char* bad_param = "BAD_PARAM 0x4b510007 NO";
  static constexpr const char* unknown = "UNKNOWN 0x0 NO";
  static constexpr const char* obj_adapter = "OBJ_ADAPTER 0x4b510302 NO";
  static constexpr const char* no_manager = "servantManager_ptr=NULL, throw CORBA::StExcep::OBJ_ADAPTER";
  const Row rows[] = {
      {"three octets",
       [](Scene&) { return with_data("abc"); },
       bad_param,
       {"reference_data is_nil!. throw CORBA::StExcep::BAD_PARAM.",
        "findPOAInfoByReference [reference_data length is 0.]"}},
      {"no name part",
       [](Scene&) { return with_data(std::string(12, '\0')); },
       bad_param,
       {"bad reference data. throw CORBA::StExcep::BAD_PARAM.",
        "findPOAInfoByReference [reference_data length is invalid.]"}},
      {"a name part past the end", [](Scene&) { return with_data(std::string("\x40\0\0\0name", 8)); },
       bad_param},
      {"the path too long", [](Scene&) { return with_data(data_for(std::string(1024, 'n'))); }, bad_param},
      {"the longest path", [](Scene&) { return with_data(data_for(std::string(1023, 'n'))); }, unknown},
      {"no such POA",
       [](Scene&) { return with_data(data_for("inner\xFFouter")); },
       unknown,
       {"  qualified_name=outer\xFFinner", "not found name,non adapter_act,throw AdapterNonExistent",
        "POAInfo::findChildByName [adapter_activator is nil.]"}},
      {"manager discarding",
       [](Scene& s) {
         return s.with().activate("o", &s.servant).manager->discard_requests(0), s.reference("o");
       },
       "TRANSIENT 0x4b510301 NO",
       {"poa is discarging, throw CORBA::StExcep::TRANSIENT", "dsi_routine_cpp_poa [state is DISCARDING.]"}},
      {"manager inactive",
       [](Scene& s) {
         return s.with().activate("o", &s.servant).manager->deactivate(0, 0), s.reference("o");
       },
       unknown,
       {"dsi_routine_cpp_poa [state is INACTIVE.]"}},
      {"not active",
       [](Scene& s) { return s.with().activate("o", &s.servant).reference("p"); },
       unknown,
       {"  POAInfo::preinvoke call", "POAInfo::preinvoke [wrong policy.]"}},
      {"deactivated",
       [](Scene& s) {
         CORBA::Object_var o = s.with().activate("o", &s.servant).poa->id_to_reference(oid("o"));
         s.poa->deactivate_object(oid("o"));
         return o;
       },
       unknown},
      {"no default servant", [](Scene& s) { return s.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).reference("o"); },
       unknown},
      {"marked for deletion",
       [](Scene& s) {
         s.with().activate("o", &s.servant).servant.set_to_be_deleted(1);
         s.servant.set_deleted(1);  // as if listed: a servant of the test is not to be deleted
         return s.reference("o");
       },
       unknown,
       {"dsi_routine_cpp_poa : throw OBJECT_NOT_EXIST"}},
      {"no servant activator",
       without_servant_manager,
       unknown,
       {no_manager, "POAInfo::incarnate [servant manager is nil.]"}},
      {"activator without servant",
       [](Scene& s) { return activated_by(s, [](auto&, auto*) { return nullptr; }); },
       unknown,
       {"servant=NULL,throw CORBA::StExcep::OBJ_ADAPTER", "POAInfo::incarnate [servant is nil.]"}},
      {"servant active already under UNIQUE_ID",
       [](Scene& s) {
         auto o = activated_by(s, [&s](auto&, auto*) { return &s.servant; });
         return s.activate("old", &s.servant), o;
       },
       unknown,
       {"unique_id,throw CORBA::StExcep::OBJ_ADAPTER", "POAInfo::incarnate [oid is nil.]"}},
      {"no servant locator",
       [](Scene& s) { return s.with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID).reference("o"); },
       obj_adapter,
       {"servantManager_ptr = NULL, throw CORBA::StExcep::OBJ_ADAPTER",
        "POAInfo::preinvoke [servant manager is nil.]"}},
      {"locator without servant",
       [](Scene& s) { return located_by(s, [](auto, auto&) { return nullptr; }); },
       obj_adapter,
       {"POAInfo::preinvoke [servant is nil.]"}},
      {"no such operation",
       [](Scene& s) { return s.with().activate("o", &s.servant).reference("o"); },
       "BAD_OPERATION 0x4b510306 NO",
       {"servant invoke faild.  throw BAD_OPERATION."},
       "nope"},
  };
  for (const Row& row : rows) check(row, GetParam(), top);
}

TEST_P(Failures, OfProgramCode) {
  static int postinvokes = 0;
  for (const Escape& escape : escapes) {
    SCOPED_TRACE(escape.name);
    const bool corba = std::string_view(escape.passed).find("MAYBE") == std::string_view::npos;
    const Refuse& refuse = escape.raise;
    const Row rows[] = {
        {"invoke",
         [&](Scene& s) {
           s.servant.in_invoke = refuse;
           return s.with().activate("o", &s.servant).reference("o");
         },
         escape.passed},
        {"invoke of a located servant",
         [&](Scene& s) {
           s.servant.in_invoke = refuse;
           s.locator.on_postinvoke = [](auto, auto, auto*) { ++postinvokes; };
           return located_by(s, [&s](auto, auto&) { return &s.servant; });
         },
         escape.passed},
        {"incarnate",  // raises plain exceptions, whatever the activator raised
         [&](Scene& s) { return activated_by(s, [&](auto&, auto*) { return refuse(), nullptr; }); },
         corba ? "UNKNOWN 0x0 NO" : escape.passed},
        {"preinvoke", [&](Scene& s) { return located_by(s, [&](auto, auto&) { return refuse(), nullptr; }); },
         escape.passed},
        {"postinvoke",
         [&](Scene& s) {
           s.locator.on_postinvoke = [&](auto, auto, auto*) { refuse(); };
           return located_by(s, [&s](auto, auto&) { return &s.servant; });
         },
         escape.passed},
    };
    for (const Row& row : rows) {
      if (std::string_view(escape.name) == "no exception class") {  // the core's part: no upcall to look at
        Scene scene(top);
        EXPECT_EQ(outcome(seen(row.target(scene)), "notes"), escape.passed) << row.name;
        EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
      } else {
        check(row, GetParam(), top);
      }
    }
  }
  EXPECT_EQ(postinvokes, 0);  // not after an exception
}

// The skeleton writes what the operation declares; the adapter keeps out of it.
TEST_P(Failures, OfOperations) {
  Scene scene(top);
  scene.with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID).poa->set_servant_manager(&scene.locator);
  int postinvokes = 0;
  scene.locator.on_preinvoke = [&](auto, auto&) { return &scene.servant; };
  scene.locator.on_postinvoke = [&](auto, auto, auto*) { ++postinvokes; };
  const Demo::Echo_var echo = this->echo(scene.reference("o"));
  try {
    echo->refuse("why not", 5);
    ADD_FAILURE() << "nothing was raised";
  } catch (const Demo::Refused& e) {
    EXPECT_STREQ(e.why.in(), "why not");
    EXPECT_EQ(e.code, 5);
  }
  EXPECT_EQ(outcome(echo, "refuse"), "MARSHAL 0x0 NO");  // without arguments
  EXPECT_EQ(postinvokes, 1);                             // the request for which invoke answered true
  scene.servant.work = [] { throw CORBA::NO_PERMISSION(3, CORBA::COMPLETED_YES); };
  EXPECT_EQ(outcome(echo, "notes"), "NO_PERMISSION 0x3 YES");
  EXPECT_EQ(postinvokes, 2);
  EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
}

// The core gives no reference data: a reference that another server made, or none at all.
TEST_P(Failures, OfTargetsWithoutReferenceData) {
  Scene scene(top);
  const CORBA::Object_var object = seen(scene.with().activate("o", &scene.servant).reference("o"));
  void* foreign =
      CORBA_ORB_string_to_object(test_orb(), "corbaloc::elsewhere:1/key", CORBA::Environment()._evp);
  ASSERT_NE(foreign, nullptr);
  for (void* target : {foreign, static_cast<void*>(nullptr)}) {
    UpcallWitness upcalls;
    upcalls.redirect = [&](void*) { return target; };
    TraceRecorder trace;
    EXPECT_EQ(outcome(object, "notes"), "UNKNOWN 0x0 NO");
    EXPECT_TRUE(trace.in_order({"poa_info == NULL,throw PortableServer::POA::AdapterNonExistent",
                                "dsi_routine_cpp_poa [poa_info is null.]", "call_cpp_handler end..."}));
  }
  CORBA_object_release(foreign);
  expect_raised<CORBA::BAD_PARAM>([](auto& ev) { findPOAInfoByReference(nullptr, ev); });
}

// Without reference data in a reference of this process its ids name the POA.
TEST_P(Failures, ByIdsInsteadOfReferenceData) {
  const std::string impl = unique_name("impl");
  const CORBA::Object_var object = seen(with_data("", impl.c_str()));
  EXPECT_EQ(outcome(object, "who"), "UNKNOWN 0x0 NO");
  const struct {
    const char* variable;
    POA* parent_of_impl;
    std::string parent;
  } rows[] = {{nullptr, root, impl}, {"anything", nullptr, ""}};
  for (const auto& row : rows) {
    POA_var outer =
        row.parent_of_impl ? root->create_POA(impl.c_str(), nullptr, CORBA::PolicyList()) : nullptr;
    TestServant servant;
    POA_var poa = (outer.in() ? outer.in() : root)
                      ->create_POA(Demo::Echo::repository_id, nullptr,
                                   policies(root, USE_DEFAULT_SERVANT, MULTIPLE_ID));
    poa->set_servant(&servant);
    if (row.variable) ::setenv("ZR_IMPLID", row.variable, 1);
    std::string inside;
    servant.work = [&] { inside = current_object(); };
    TraceRecorder trace;
    EXPECT_EQ(outcome(object, "notes"), "done");
    EXPECT_TRUE(trace.has(std::string("POAInfo::findPOAInfoByReference ") +
                          (row.variable ? "" : "implid=" + impl + " ") +
                          "intfid=" + Demo::Echo::repository_id));
    EXPECT_EQ(inside, "none");  // there is a POA, and no id
    ::unsetenv("ZR_IMPLID");
    (outer.in() ? outer : poa)->destroy(false, false);
  }
}
