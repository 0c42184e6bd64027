#include "dispatch_fixture.h"

#include <dlfcn.h>

#include <sstream>

#include "no_leftovers.h"

namespace {

/// The ORB with options of these tests: no tick of its own.
class DispatchOrb : public testing::Environment {
 public:
  void SetUp() override {
    std::string words[] = {"test", "-ORBTick", "3600000", "-ORBThreads", std::to_string(requests_at_once)};
    char* argv[6] = {};
    int argc = 0;
    for (std::string& word : words) argv[argc++] = word.data();
    orb_ = CORBA_ORB_init(&argc, argv, "", CORBA::Environment()._evp);
    ASSERT_NE(orb_, nullptr);
    ASSERT_NE(test_root_poa(), nullptr);
  }
  void TearDown() override { destroy_wholly(orb_, CORBA::Environment()._evp); }

 private:
  void* orb_ = nullptr;
};

[[maybe_unused]] const auto* registered_before_the_tests_run =
    testing::AddGlobalTestEnvironment(new DispatchOrb);

std::string describe(const char* id, CORBA::ULong minor, CORBA::ULong completed) {
  constexpr const char* completions[] = {"YES", "NO", "MAYBE"};
  const std::string_view name(id);
  const auto start = name.rfind('/') + 1;
  std::ostringstream line;
  line << name.substr(start, name.find(':', start) - start) << " 0x" << std::hex << minor;
  return line.str() + " " + completions[completed];
}

std::string describe(const CORBA_Environment& ev) {
  return ev._major == CORBA_SYSTEM_EXCEPTION ? describe(ev._id, ev._minor, ev._completed) : ev._id;
}

std::string failure(CORBA::ULong completed) {
  CORBA::Environment ev;
  SetStdExReqLib(completed, ev._evp);
  return describe(*ev._evp);
}

}  // namespace

CORBA::Object_var seen_from(Road road, CORBA::Object* object) {
  if (road == Road::InProcess) return CORBA::Object::_duplicate(object);
  CORBA::Environment ev;
  const CORBA::String_var own(ZR_object_to_corbaloc(test_orb(), object->get_ref(), ev._evp));
  std::string text(own.in());
  const auto host = text.find("127.0.0.1");
  EXPECT_NE(host, std::string::npos) << text;
  text.replace(host, 9, "127.1");  // another text for the same place: not known to be this process
  auto* seen = new CORBA::Object;
  seen->set_ref(CORBA_ORB_string_to_object(test_orb(), text.c_str(), ev._evp));
  return seen;
}

std::string outcome(const std::function<void()>& call) {
  try {
    call();
    return "done";
  } catch (const CORBA::SystemException& e) {
    return describe(e.id(), e.minor(), e.completed());
  } catch (const CORBA::Exception& e) {
    return e.id();
  }
}

std::string outcome(CORBA::Object* object, const char* operation, bool response_expected) {
  void* request = nullptr;
  uint32_t kind = 0, status = 0;
  CORBA::Environment ev;
  if (!OM_req_lib_initiator_request_create(object->get_ref(), operation, response_expected, &request, &kind))
    return failure(CORBA_COMPLETED_NO);
  const std::unique_ptr<void, void (*)(void*)> guard(request, OM_req_lib_UNO_IIOP_initiator_request_complete);
  if (!OM_req_lib_UNO_IIOP_send_request(request)) return failure(CORBA_COMPLETED_NO);
  if (!response_expected) return "sent";
  if (!OM_req_lib_UNO_IIOP_recv_reply(request) || !OM_req_lib_UNO_IIOP_decode_reply_header(request, &status))
    return failure(CORBA_COMPLETED_MAYBE);
  if (status == ZR_REPLY_NO_EXCEPTION) return "done";
  const bool read = status == ZR_REPLY_SYSTEM_EXCEPTION
                        ? OM_req_lib_UNO_IIOP_decode_standard_excep(request, ev._evp)
                        : OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request, ev._evp);
  return read ? describe(*ev._evp) : "malformed";
}

std::string current_object() {
  try {
    const PortableServer::POA_var poa = poa_current->get_POA();
    const CORBA::String_var name(poa->the_name());
    const PortableServer::ObjectId_var id = poa_current->get_object_id();
    return name.in() + (":" + text(id.in()));
  } catch (const PortableServer::Current::NoContext&) {
    return "none";
  }
}

namespace {

/// Notes a call of the core. True: it is to fail, and does.
bool refused(const std::string& call, CORBA_Environment* ev) {
  CoreCalls* calls = CoreCalls::current;
  if (!calls || !calls->note(call)) return false;
  CORBA_BOA_set_standard_exception(ev, "IDL:CORBA/StExcep/NO_RESOURCES:1.0", 0, CORBA_COMPLETED_NO);
  return true;
}

template <class Function>
Function* in_the_core(const char* name, Function*) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The adapter is linked into this program, so its calls of these come here first.

void ZR_queue_control_queue_group(uint32_t a, const char* name, int code, uint32_t b, CORBA_Environment* ev) {
  static auto* const real = in_the_core("ZR_queue_control_queue_group", &ZR_queue_control_queue_group);
  if (!refused("queue " + std::to_string(code) + " " + name, ev)) real(a, name, code, b, ev);
}

void* KQ_ImplementationRep_lookup_id(void* rep, const char* name, CORBA_Environment* ev) {
  static auto* const real = in_the_core("KQ_ImplementationRep_lookup_id", &KQ_ImplementationRep_lookup_id);
  return refused(std::string("lookup ") + name, ev) ? nullptr : real(rep, name, ev);
}

void CORBA_BOA_impl_is_ready(void* boa, void* definition, CORBA_Environment* ev) {
  static auto* const real = in_the_core("CORBA_BOA_impl_is_ready", &CORBA_BOA_impl_is_ready);
  if (!refused("ready", ev)) real(boa, definition, ev);
}
