// The lines that requests, and what follows them, write while tracing is on.
#include <regex>

#include "dispatch_fixture.h"

using namespace PortableServer;

namespace {

using Lines = std::vector<std::string>;

class RequestTrace : public AdapterTest {
 protected:
  RequestTrace() { default_poa_manager->activate(); }

  /// What `work` writes, with numbers left out, and the walks that prove a record alive.
  static Lines traced(const std::function<void()>& work) {
    Lines lines;
    const TraceRecorder trace;
    work();
    for (const std::string& line : trace.lines()) {
      if (line.find("is_existent") == std::string::npos)
        lines.push_back(std::regex_replace(line, std::regex("0x[0-9a-f]+"), "0x"));
    }
    return lines;
  }
  static Lines traced_request(CORBA::Object* object) {
    return traced([&] { EXPECT_EQ(outcome(object), "done"); });
  }
  /// These lines were written, with no other between them.
  static void has_part(const Lines& all, const Lines& part) {
    EXPECT_FALSE(std::search(all.begin(), all.end(), part.begin(), part.end()) == all.end())
        << testing::PrintToString(part) << "\nis no part of " << testing::PrintToString(all);
  }
  /// One after the other.
  static Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }

  Scene scene{top};
};

}  // namespace

// The id and the POA of a target are known by the time that the steps ask for them: their lines are there all the same.
TEST_F(RequestTrace, TheStepsOfARequest) {
  scene.with().activate("oid1", &scene.servant);
  const CORBA::Object_var object = scene.reference("oid1");
  const std::string outer = CORBA::String_var(top->the_name()).in(), inner = scene.name;
  const auto found = [](const std::string& name) {
    return Lines{"POAInfo::findChildByName called...",
                 "POAInfo::findChildByName end...[found name = " + name + " : return 0x]"};
  };
  const Lines get_oid = {"POAInfo::GetOid called...", "GetOid oid=6f696431", "POAInfo::GetOid end..."};
  const Lines find_poa =
      joined({{"findPOAInfoByReference called...", "  reference_name = " + inner + "\xFF" + outer,
               "  qualified_name=" + outer + "\xFF" + inner},
              found(outer),
              found(inner),
              {"findPOAInfoByReference end...[Reverse order of qualified name]"}});
  const auto length = std::to_string((4 + outer.size() + inner.size() + 2 + 3) / 4 * 4 + 12);
  EXPECT_EQ(
      traced_request(object),
      joined(
          {{"call_cpp_handler called...", "  dsi_routine_cpp_poa call", "dsi_routine_cpp_poa called..."},
           find_poa,
           {"  find poa.. poa_info=0x", "  _response_expected : 1", "  _request_type      : 3",
            "  _operation         : notes", "  _request           : 0x", "  __cdr              : 0x",
            "  POAInfo::reference_to_servant call", "POAInfo::reference_to_servant"},
           find_poa,
           {"POAInfo::reference_to_servant poa_info=0x aom=0x", "checkEmptyReferenceData called...",
            "checkEmptyReferenceData len=" + length + " return(0)", "checkEmptyReferenceData end...",
            "POAInfo::reference_to_id called...[aom = 0x, this = 0x]"},
           find_poa,
           get_oid,
           {"POAInfo::reference_to_id end...[return oid]", "ActiveObjectMap::findServantById called...",
            "  OM_ext_get_client_info_ip6 call", "  No client data!!!",
            "ActiveObjectMap::findServantById end...[return Servant]", "  POAInfo::reference_to_servant done",
            "ServantBase::set_ObjectReference called...[poa = 0x, ior = 0x]"},
           get_oid,
           {"ServantBase::set_ObjectReference end...[ior added in or_list top]",
            "  servant->invoke call [servant=0x]", "dsi_routine_cpp_poa end...",
            "call_cpp_handler end..."}}));
  has_part(traced([&] { CORBA::release(scene.poa->id_to_reference(oid("oid1"))); }),
           {"ServantBase::get_ObjectReference called...[poa = 0x]",
            "ServantBase::get_ObjectReference end...[return obj_ref : obj_ref = 0x]",
            "POAInfo::id_to_reference end... [return duplicated object reference]"});
}

TEST_F(RequestTrace, OfServantsThatAManagerMakes) {
  scene.with(USE_SERVANT_MANAGER, MULTIPLE_ID).activate("other", &scene.other);
  scene.poa->set_servant_manager(&scene.activator);
  scene.activator.on_incarnate = [&](auto&, auto*) { return &scene.servant; };
  has_part(traced_request(scene.reference("made")),
           {"POAInfo::reference_to_id end...[return oid]", "POAInfo::get_servant_manager called...",
            "POAInfo::get_servant_manager end...[return ServantManager", "  ServantActivator->incarnate call",
            "ActiveObjectMap::findOidByServant called...[p_servant = 0x]",
            "ActiveObjectMap::findOidByServant end...[return NULL]",
            "POAInfo::PortableServer_ObjectId_duplicate called..."});
  Scene located(top);
  located.with_locator().locator.on_preinvoke = [&](auto, auto&) { return &located.servant; };
  has_part(
      traced_request(located.reference("any")),
      {"  servant->invoke call [servant=0x]", "  POAInfo::postinvoke call", "POAInfo::postinvoke called...",
       "  POAInfo::reference_to_id call", "POAInfo::reference_to_id called...[aom = 0x, this = 0x]"});
}

TEST_F(RequestTrace, OfADefaultServantThatIsReplaced) {
  scene.with(USE_DEFAULT_SERVANT, MULTIPLE_ID).poa->set_servant(&scene.servant);
  has_part(traced_request(scene.reference("any")),
           {"checkEmptyReferenceData end...", "POAInfo::get_servant called...", "POAInfo::get_servant end...",
            "  POAInfo::reference_to_servant done",
            "ServantBase::set_ObjectReference called...[poa = 0x, ior = 0x]",
            "ServantBase::set_ObjectReference end...[ior added in or_list top]"});
  has_part(traced([&] { scene.poa->set_servant(&scene.other); }),
           {"POAInfo::set_servant called...[POAInfo = 0x, servant = 0x]", "POAInfo::genSystemId called...",
            "  oid = 0x", "POAInfo::genSystemId end...", "POAInfo::set_servant end..."});
  scene.poa->set_servant(nullptr);
}

// Tracing changes nothing: a POA that went in its own operation is not looked for, which would ask for another one.
TEST_F(RequestTrace, AsksForNoPoaThatIsGone) {
  struct : PortableServer_AdapterActivator_impl {
    CORBA::Boolean unknown_adapter(POA*, const char*, CORBA::Environment&) override { return ++asked, false; }
    int asked = 0;
  } adapter;
  top->the_activator(&adapter);
  scene.with_locator().locator.on_preinvoke = [&](auto, auto&) { return &scene.servant; };
  scene.servant.work = [&] { scene.poa->destroy(false, false); };
  traced_request(scene.reference("any"));
  EXPECT_EQ(adapter.asked, 0);
  top->the_activator(nullptr);
}

// The servant is let go of before what it left in the environment is told.
TEST_F(RequestTrace, OfAMarkedServantThatRaises) {
  class Raising : public TestServant {
    CORBA::Boolean invoke(CORBA::ServerRequest* request, CORBA::Environment& ev) override {
      const CORBA::Boolean served = TestServant::invoke(request, ev);
      servant_delete();
      ev.exception(new Demo::Refused("so", 1));
      return served;
    }
  };
  scene.with().activate("o", new Raising);
  has_part(
      traced_request(scene.reference("o")),
      {"  servant is added in delete list...", "ServantBase::add_delete_list called...",
       "ServantBase::add_delete_list [Servant is added on DeleteList]", "ServantBase::add_delete_list end...",
       "exception-id IDL:Demo/Refused:1.0", "dsi_routine_cpp_poa end...", "call_cpp_handler end..."});
  call_poa_inst_lifespan();
}
