// What the client receives when a request cannot be served, and that nothing stays behind.
#include <cstdlib>

#include "dispatch_fixture.h"

using namespace PortableServer;

namespace {

class Failures : public Dispatch {};
BOTH_ROADS(Failures);

constexpr const char* unknown = "UNKNOWN 0x0 NO";

/// A reference of this process with that reference data.
CORBA::Object_var with_data(std::string data, const char* impl = "somebody") {
  const auto length = static_cast<CORBA::ULong>(data.size());
  const CORBA_sequence_octet octets{length, length, reinterpret_cast<unsigned char*>(data.data())};
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

/// The object "o" of a POA that was just made.
CORBA::Object_var o_of(Scene& s) { return s.reference("o"); }
CORBA::Object_var o_active(Scene& s) { return o_of(s.with().activate("o", &s.servant)); }

}  // namespace

TEST_P(Failures, OnTheWayToTheServant) {
  static constexpr const char* bad_param = "BAD_PARAM 0x4b510007 NO";
  static constexpr const char* obj_adapter = "OBJ_ADAPTER 0x4b510302 NO";
  const struct {
    const char* name;
    std::function<CORBA::Object_var(Scene&)> target;
    std::string outcome;
    const char* trace = "call_cpp_handler end...";
  } rows[] = {
      {"three octets", [](Scene&) { return with_data("abc"); }, bad_param,
       "findPOAInfoByReference [reference_data length is 0.]"},
      {"no name part", [](Scene&) { return with_data(std::string(12, '\0')); }, bad_param,
       "findPOAInfoByReference [reference_data length is invalid.]"},
      {"a name part past the end", [](Scene&) { return with_data("\x40name---"); }, bad_param},
      {"the path too long", [](Scene&) { return with_data(data_for(std::string(1024, 'n'))); }, bad_param},
      {"no such POA", [](Scene&) { return with_data(data_for("inner\xFFouter")); }, unknown,
       "  qualified_name=outer\xFFinner"},
      {"not active", [](Scene& s) { return o_of(s.with()); }, unknown, "POAInfo::preinvoke [wrong policy.]"},
      {"no default servant", [](Scene& s) { return o_of(s.with(USE_DEFAULT_SERVANT, MULTIPLE_ID)); },
       unknown},
      {"marked for deletion",
       [](Scene& s) {
         s.servant.set_to_be_deleted(1);
         s.servant.set_deleted(1);  // as if listed: a servant of the test is not to be deleted
         return o_active(s);
       },
       unknown, "dsi_routine_cpp_poa : throw OBJECT_NOT_EXIST"},
      {"no servant activator", [](Scene& s) { return o_of(s.with(USE_SERVANT_MANAGER)); }, unknown,
       "POAInfo::incarnate [servant manager is nil.]"},
      {"activator without servant", [](Scene& s) { return o_of(s.with_activator()); }, unknown,
       "POAInfo::incarnate [servant is nil.]"},
      {"no servant locator",
       [](Scene& s) { return o_of(s.with(NON_RETAIN, USE_SERVANT_MANAGER, MULTIPLE_ID)); }, obj_adapter,
       "POAInfo::preinvoke [servant manager is nil.]"},
      {"locator without servant", [](Scene& s) { return o_of(s.with_locator()); }, obj_adapter,
       "POAInfo::preinvoke [servant is nil.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Scene scene(top);
    const CORBA::Object_var target = seen(row.target(scene));
    TraceRecorder trace;
    EXPECT_EQ(outcome(target), row.outcome);
    EXPECT_TRUE(trace.has(row.trace));
    EXPECT_EQ(scene.servant.get_ref_counter(), 0u);
    EXPECT_EQ(ServantAccess::target(scene.servant), nullptr);
    EXPECT_EQ(current_object(), "none");
  }
}

TEST_P(Failures, OfProgramCode) {
  const struct {
    std::function<void()> raise;
    const char* passed;  // where the exception keeps its type
  } escapes[] = {{[] { throw CORBA::NO_RESOURCES(7, CORBA::COMPLETED_YES); }, "NO_RESOURCES 0x7 YES"},
                 {[] { throw POA::NoServant(); }, unknown},
                 {[] { throw ForwardRequest(); }, unknown},
                 {[] { throw CORBA::Exception(); }, unknown},
                 {[] { throw std::runtime_error("of the program"); }, "UNKNOWN 0x0 MAYBE"},
                 {[] { throw std::bad_alloc(); }, "NO_MEMORY 0x0 MAYBE"},
                 {[] { throw 1; }, "UNKNOWN 0x0 MAYBE"}};
  for (const auto& escape : escapes) {
    for (const std::string place : {"incarnate", "preinvoke", "invoke", "postinvoke"}) {
      SCOPED_TRACE(place + ", " + escape.passed);
      Scene s(top);
      int postinvokes = 0;
      const auto at = [&](const char* here) { return here == place ? escape.raise() : void(); };
      s.activator.on_incarnate = [&](auto&, auto*) { return at("incarnate"), nullptr; };
      s.locator.on_preinvoke = [&](auto, auto&) { return at("preinvoke"), &s.servant; };
      s.servant.in_invoke = [&] { at("invoke"); };
      s.locator.on_postinvoke = [&](auto, auto, auto*) { ++postinvokes, at("postinvoke"); };
      // What an activator raises of CORBA's is a plain exception, whatever it was.
      const bool plain = place == "incarnate" && !std::strstr(escape.passed, "MAYBE");
      const CORBA::Object_var object = o_of(place == "incarnate" ? s.with_activator() : s.with_locator());
      EXPECT_EQ(outcome(seen(object)), plain ? unknown : escape.passed);
      EXPECT_EQ(postinvokes, place == "postinvoke");  // not after an exception
      EXPECT_EQ(s.servant.get_ref_counter(), 0u);
      EXPECT_EQ(current_object(), "none");
    }
  }
}

// A thread knows the data of the POA that it was in last by sight, all but the id and its length.
TEST_P(Failures, OfAnObjectOfThePoaOfTheLastRequest) {
  Scene s(top);
  s.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).poa->set_servant(&s.servant);
  std::string served;
  s.servant.work = [&] { served = current_object(); };
  const auto call = [&](const CORBA::Object_var& object) {
    served = "nobody";
    return outcome(seen(object));
  };
  const auto serves = [&](const std::string& id) {
    EXPECT_EQ(call(s.reference(id)), "done");
    EXPECT_EQ(served, s.name + ":" + id);
  };
  for (const char* id : {"longer", "o", "other", "o"}) serves(id);
  const CORBA::Object_var good = s.reference("longer");
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  ASSERT_TRUE(ZR_object_peek_id(good->get_ref(), &octets, &length));
  const std::string data(octets, octets + length);
  for (std::size_t cut = 4; cut < data.size(); ++cut) {
    serves("o");
    EXPECT_EQ(call(with_data(data.substr(0, cut))), "BAD_PARAM 0x4b510007 NO") << cut;
    EXPECT_EQ(served, "nobody");
  }
  serves("o");
  EXPECT_EQ(call(with_data(data + "behind it")), "done");
  EXPECT_EQ(served, s.name + ":longer");
}

// Without reference data in a reference of this process its ids name the POA.
TEST_P(Failures, ByIdsInsteadOfReferenceData) {
  const std::string impl = unique_name("impl"), intf = Demo::Echo::repository_id;
  const CORBA::Object_var object = seen(with_data("", impl.c_str()));
  EXPECT_EQ(outcome(object), unknown);
  for (const bool variable : {false, true}) {  // with it set, the implementation id names no POA
    POA_var outer = root->create_POA(impl.c_str(), nullptr, CORBA::PolicyList());
    TestServant servant;
    POA_var poa = (variable ? root : outer.in())
                      ->create_POA(intf.c_str(), nullptr, policies(root, USE_DEFAULT_SERVANT, MULTIPLE_ID));
    poa->set_servant(&servant);
    if (variable) ::setenv("ZR_IMPLID", "anything", 1);
    servant.work = [&] { EXPECT_EQ(current_object(), "none"); };  // there is a POA, and no id
    TraceRecorder trace;
    EXPECT_EQ(outcome(object), "done");
    EXPECT_TRUE(trace.has("POAInfo::findPOAInfoByReference " + (variable ? "" : "implid=" + impl + " ") +
                          "intfid=" + intf));
    ::unsetenv("ZR_IMPLID");
    poa->destroy(false, false);
    outer->destroy(false, false);
  }
}
