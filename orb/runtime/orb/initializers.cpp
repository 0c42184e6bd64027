// ORBInitializer: what a program has run for every ORB that is made.
#include "orb/interceptors.h"
#include "orb/pi_current.h"
#include "zrsv/thread_safety.h"

namespace CORBA {
namespace {

using namespace PortableInterceptor;

constexpr ULong wrong_order = OMGVMCID | 14;

struct Initializers {
  zrsv::Mutex mutex;
  std::vector<ORBInitializer_var> all ZR_GUARDED_BY(mutex);
};
Initializers& initializers() {
  static Initializers* const one =
      new Initializers;  // registered before main, and as long as the process lives
  return *one;
}

class InitInfo : public ORBInitInfo {
 public:
  InitInfo(const OrbPointer& orb, const StringSeq& arguments)
      : orb_(new NamedOrb(orb, OM_this_ORB)), arguments_(arguments) {}

  StringSeq* arguments() override { return check(), new StringSeq(arguments_); }
  char* orb_id() override { return check().id(); }
  void register_initial_reference(const char* id, Object* object) override {
    named([&](ORB& orb) { return orb.register_initial_reference(id, object), nullptr; });
  }
  Object* resolve_initial_references(const char* id) override {
    check();
    if (!post_) throw BAD_INV_ORDER(wrong_order);
    return named([&](ORB& orb) { return orb.resolve_initial_references(id); });
  }
  void add_client_request_interceptor(ClientRequestInterceptor_ptr interceptor) override {
    add(made_->client, interceptor);
  }
  void add_server_request_interceptor(ServerRequestInterceptor_ptr interceptor) override {
    add(made_->server, interceptor);
  }
  SlotId allocate_slot_id() override { return check(), new_slot(); }

  void enter_post_init() { post_ = true; }
  /// The ORB is made: no more calls.
  std::shared_ptr<Interceptors> finish() {
    orb_ = ORB::_nil();
    return made_;
  }

 private:
  ORB& check() const {
    if (is_nil(orb_.in())) throw OBJECT_NOT_EXIST();
    return *orb_.in();
  }
  /// With the exception of this interface for a name that cannot be.
  template <class Call>
  Object* named(Call&& call) {
    try {
      return call(check());
    } catch (const ORB::InvalidName&) {
      throw InvalidName();
    }
  }
  template <class X>
  void add(std::vector<ObjectVar<X>>& list, X* interceptor) {
    check();
    if (is_nil(interceptor)) throw BAD_PARAM();
    const String_var name = interceptor->name();
    for (const auto& other : list) {
      const String_var taken = other.in()->name();
      if (*name.in() && std::strcmp(name.in(), taken.in()) == 0) throw DuplicateName(name.in());
    }
    list.push_back(X::_duplicate(interceptor));
  }

  ORB_var orb_;
  const StringSeq arguments_;
  const std::shared_ptr<Interceptors> made_ = std::make_shared<Interceptors>();
  bool post_ = false;
};

void run_all(const std::vector<ORBInitializer_var>& all, InitInfo* info) {
  for (const ORBInitializer_var& one : all) one.in()->pre_init(info);
  info->enter_post_init();
  for (const ORBInitializer_var& one : all) one.in()->post_init(info);
}

}  // namespace

void run_initializers(const OrbPointer& orb, const StringSeq& arguments) {
  std::vector<ORBInitializer_var> all;
  {
    Initializers& registered = initializers();
    const zrsv::MutexLock lock(registered.mutex);
    all = registered.all;
  }
  if (all.empty()) return;
  const ObjectVar<InitInfo> info(new InitInfo(orb, arguments));
  try {
    run_all(all, info.in());
  } catch (const UserException& e) {
    info->finish();
    throw INITIALIZE();
  } catch (...) {
    info->finish();
    throw;
  }
  use_interceptors(orb, info->finish());
}

}  // namespace CORBA

void PortableInterceptor::register_orb_initializer(ORBInitializer_ptr initializer) {
  if (CORBA::is_nil(initializer)) throw CORBA::BAD_PARAM();
  CORBA::Initializers& registered = CORBA::initializers();
  const zrsv::MutexLock lock(registered.mutex);
  registered.all.push_back(ORBInitializer::_duplicate(initializer));
}
