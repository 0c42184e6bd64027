#include "dispatch_fixture.h"

#include <dlfcn.h>

#include <cstdlib>

namespace {

std::atomic<UpcallWitness*> witness{nullptr};
std::atomic<CoreCalls*> core_calls{nullptr};

/// The ORB with options of these tests: no tick of its own, a short time limit. Every upcall passes the
/// witness.
class DispatchOrb : public testing::Environment {
 public:
  void SetUp() override {
    const std::string threads = std::to_string(requests_at_once);
    const char* options[] = {"test",  "-ORBTick",    "3600000",      "-ORBTimeout",
                             "20000", "-ORBThreads", threads.c_str()};
    char* argv[8] = {};
    int argc = 0;
    for (const char* option : options) argv[argc++] = const_cast<char*>(option);
    orb_ = CORBA_ORB_init(&argc, argv, "", CORBA::Environment()._evp);
    ASSERT_NE(orb_, nullptr);
    _cpp_poa_init = [](void* orb, void* boa) {
      void* root = _poa_init(orb, boa);
      _call_cpp_ = UpcallWitness::handle;
      return root;
    };
    ASSERT_NE(test_root_poa(), nullptr);
  }
  void TearDown() override { CORBA_ORB_destroy(orb_, CORBA::Environment()._evp); }

 private:
  void* orb_ = nullptr;
};

[[maybe_unused]] const auto* registered_before_the_tests_run =
    testing::AddGlobalTestEnvironment(new DispatchOrb);

std::string describe(const char* id, CORBA::ULong minor, CORBA::ULong completed) {
  constexpr const char* completions[] = {"YES", "NO", "MAYBE"};
  std::string name(id);
  name.erase(0, name.rfind('/') + 1);
  name.erase(name.find(':'));
  char line[100];
  std::snprintf(line, sizeof line, "%s 0x%x %s", name.c_str(), minor, completions[completed]);
  return line;
}

std::string describe(const CORBA_Environment& env) {
  return env._major == CORBA_SYSTEM_EXCEPTION ? describe(env._id, env._minor, env._completed) : env._id;
}

std::string failure(CORBA::ULong completed) {
  CORBA::Environment env;
  SetStdExReqLib(completed, env._evp);
  return describe(*env._evp);
}

}  // namespace

// ---- Calls ----------------------------------------------------------------------------------------------

std::string road_name(const testing::TestParamInfo<Road>& info) {
  return info.param == Road::InProcess ? "InProcess" : "Socket";
}

CORBA::Object_var seen_from(Road road, CORBA::Object* object) {
  if (road == Road::InProcess) return CORBA::Object::_duplicate(object);
  CORBA::Environment env;
  const CORBA::String_var own(ZR_object_to_corbaloc(test_orb(), object->get_ref(), env._evp));
  std::string text(own.in());
  const auto host = text.find("127.0.0.1");
  EXPECT_NE(host, std::string::npos) << text;
  text.replace(host, 9, "127.1");  // another text for the same place: not known to be this process
  auto* seen = new CORBA::Object;
  seen->set_ref(CORBA_ORB_string_to_object(test_orb(), text.c_str(), env._evp));
  return seen;
}

Demo::Echo_var echo_from(Road road, CORBA::Object* object) {
  const CORBA::Object_var seen = seen_from(road, object);
  auto* stub = new Demo::_st_Demo_Echo;
  stub->set_ref(CORBA_object_duplicate(seen->get_ref(), nullptr));
  return stub;
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
  CORBA::Environment env;
  if (!OM_req_lib_initiator_request_create(object->get_ref(), operation, response_expected, &request, &kind))
    return failure(CORBA_COMPLETED_NO);
  const CORBA::idl::request_guard guard(request, OM_req_lib_UNO_IIOP_initiator_request_complete);
  if (!OM_req_lib_UNO_IIOP_send_request(request)) return failure(CORBA_COMPLETED_NO);
  if (!response_expected) return "sent";
  if (!OM_req_lib_UNO_IIOP_recv_reply(request) || !OM_req_lib_UNO_IIOP_decode_reply_header(request, &status))
    return failure(CORBA_COMPLETED_MAYBE);
  if (status == ZR_REPLY_NO_EXCEPTION) return "done";
  const bool read = status == ZR_REPLY_SYSTEM_EXCEPTION
                        ? OM_req_lib_UNO_IIOP_decode_standard_excep(request, env._evp)
                        : OM_req_lib_UNO_IIOP_decode_user_excep_hdr(request, env._evp);
  return read ? describe(*env._evp) : "malformed";
}

// ---- Servants -------------------------------------------------------------------------------------------

PortableServer::ObjectId oid(const std::string& text) {
  const PortableServer::ObjectId_var id(PortableServer::string_to_ObjectId(text.c_str()));
  return id.in();
}

std::string text(const PortableServer::ObjectId& id) { return std::string(oid_view(id)); }

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

char* TestServant::echo_string(const char* s, CORBA::Environment&) {
  work();
  return CORBA::string_dup(s);
}

CORBA::Long TestServant::add(CORBA::Long a, CORBA::Long b, CORBA::Environment&) {
  work();
  return a + b;
}

Demo::Octets* TestServant::echo_octets(const Demo::Octets& data, CORBA::Environment&) {
  work();
  return new Demo::Octets(data);
}

void TestServant::refuse(const char* why, CORBA::Long code, CORBA::Environment&) {
  work();
  throw Demo::Refused(why, code);
}

void TestServant::note(const char* s, CORBA::Environment&) {
  {
    std::lock_guard lock(mutex_);
    notes_.emplace_back(s);
  }
  work();
}

CORBA::Long TestServant::notes(CORBA::Environment&) {
  work();
  return static_cast<CORBA::Long>(noted().size());
}

std::vector<std::string> TestServant::noted() {
  std::lock_guard lock(mutex_);
  return notes_;
}

char* TestServant::who(CORBA::Environment&) {
  work();
  return CORBA::string_dup(current_object().c_str());
}

void TestServant::sleep_ms(CORBA::ULong, CORBA::Environment&) { work(); }

CORBA::Boolean TestServant::invoke(CORBA::ServerRequest* request, CORBA::Environment& env) {
  if (!in_invoke) return Echo::invoke(request, env);
  in_invoke();
  return 1;
}

Scene::~Scene() {
  try {
    if (poa.in()) poa->destroy(false, false);
  } catch (const CORBA::BAD_PARAM&) {  // the test did it
  }
  CORBA::release(manager);
}

// ---- Witnesses ------------------------------------------------------------------------------------------

UpcallWitness::UpcallWitness() { witness = this; }
UpcallWitness::~UpcallWitness() { witness = nullptr; }

void UpcallWitness::handle(void* target, void* request, CORBA_Environment* env) {
  UpcallWitness* one = witness;
  call_cpp_handler(one ? one->redirect(target) : target, request, env);
  if (!one) return;
  const ZR_RequestInfo& info = *static_cast<ZR_ServerRequest*>(request)->info;
  CDR* cdr = nullptr;
  OM_req_lib_UNO_IIOP_get_cdr(info.request, &cdr);
  std::lock_guard lock(one->mutex_);
  one->handled_.push_back(
      {info.operation, info.response_expected != 0, env->_major, std::string(cdr->out_base, cdr->out_next)});
  one->more_.notify_all();
}

std::vector<Handled> UpcallWitness::wait_for(std::size_t count) {
  std::unique_lock lock(mutex_);
  EXPECT_TRUE(more_.wait_for(lock, patience, [&] { return handled_.size() >= count; }));
  return handled_;
}

CoreCalls::CoreCalls() { core_calls = this; }
CoreCalls::~CoreCalls() { core_calls = nullptr; }

std::vector<std::string> CoreCalls::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

void CoreCalls::refuse(std::string start) {
  std::lock_guard lock(mutex_);
  refused_ = std::move(start);
}

bool CoreCalls::note(const std::string& call) {
  std::lock_guard lock(mutex_);
  calls_.push_back(call);
  return call.rfind(refused_, 0) == 0;
}

namespace {

/// Notes a call of the core. True: it is to fail, and does.
bool refused(const std::string& call, CORBA_Environment* env) {
  CoreCalls* calls = core_calls;
  if (!calls || !calls->note(call)) return false;
  CORBA_BOA_set_standard_exception(env, "IDL:CORBA/StExcep/NO_RESOURCES:1.0", 0, CORBA_COMPLETED_NO);
  return true;
}

template <class Function>
Function* in_the_core(const char* name, Function*) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The adapter is linked into this program, so its calls of these come here first.

void ZR_queue_control_queue_group(uint32_t a, const char* name, int code, uint32_t b,
                                  CORBA_Environment* env) {
  static auto* const real = in_the_core("ZR_queue_control_queue_group", &ZR_queue_control_queue_group);
  if (!refused("queue " + std::to_string(code) + " " + name, env)) real(a, name, code, b, env);
}

void* KQ_ImplementationRep_lookup_id(void* rep, const char* name, CORBA_Environment* env) {
  static auto* const real = in_the_core("KQ_ImplementationRep_lookup_id", &KQ_ImplementationRep_lookup_id);
  return refused(std::string("lookup ") + name, env) ? nullptr : real(rep, name, env);
}

void CORBA_BOA_impl_is_ready(void* boa, void* definition, CORBA_Environment* env) {
  static auto* const real = in_the_core("CORBA_BOA_impl_is_ready", &CORBA_BOA_impl_is_ready);
  if (!refused("ready", env)) real(boa, definition, env);
}

Unregistered::Unregistered()
    : name_(POA_impl_name.exchange(nullptr)), ready_(POA_impl_is_ready_fl.exchange(0)) {
  clear_implementation_table();
}

Unregistered::~Unregistered() {
  clear_implementation_table();
  CORBA::string_free(const_cast<char*>(POA_impl_name.exchange(name_)));
  POA_impl_is_ready_fl = ready_;
}
