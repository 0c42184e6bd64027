#include "corba/orb.h"

#include <mutex>

#include "raise.h"

namespace CORBA {

void* OM_this_ORB = nullptr;

namespace {

std::mutex uses_mutex;
ULong uses = 0;  // guarded by uses_mutex: how often ORB_init succeeded and destroy has not undone it

/// `handle` while the ORB lives; BAD_INV_ORDER once it is destroyed.
void* live(void* handle, Environment& env) {
  env.clear();
  const std::lock_guard lock(uses_mutex);
  if (!handle || uses == 0) raise<BAD_INV_ORDER>(env);
  return handle;
}

std::unique_ptr<Object> own(void* handle) {
  if (!handle) return nullptr;
  auto object = std::make_unique<Object>();
  object->set_ref(handle);
  return object;
}

/// Services of the ORB core whose handles are no object references.
bool is_service(std::string_view name) {
  return name == "KQ_LightInterfaceRepository" || name == "ImplementationRepository";
}

/// The ORB core has no exception of its own for this.
bool is_unknown_name(const CORBA_Environment& record) {
  const char* id = CORBA_exception_id(&record);
  return id && (std::strcmp(id, BAD_PARAM::repository_id.value) == 0 ||
                std::strcmp(id, ORB::InvalidName::repository_id) == 0);
}

}  // namespace

// The handle is the process's, not a reference to be given back.
ORB::~ORB() { set_ref(nullptr); }

ORB* ORB::_duplicate(ORB* orb) {
  if (!orb) return nullptr;
  auto* made = new ORB;
  made->set_ref(orb->get_ref());
  return made;
}

ORB* ORB_init(int& argc, char** argv, const char* orb_id, Environment& env) {
  env.clear();
  auto orb = std::make_unique<ORB>();
  CORBA_Environment record{};
  {
    const std::lock_guard lock(uses_mutex);
    void* handle = CORBA_ORB_init(&argc, argv, orb_id, &record);
    if (handle) {
      ++uses;
      orb->set_ref(OM_this_ORB = handle);
    }
  }
  if (!orb->get_ref() && record._major == CORBA_NO_EXCEPTION) raise<INITIALIZE>(env);
  check_record(record, env);
  return orb.release();
}

Object* ORB::resolve_initial_references(const char* name, Environment& env) {
  void* orb = live(_ptr, env);
  if (!name || is_service(name)) raise<InvalidName>(env);
  CORBA_Environment record{};
  auto object = own(CORBA_ORB_resolve_initial_references(orb, name, &record));
  if (is_unknown_name(record)) {
    CORBA_exception_free(&record);
    raise<InvalidName>(env);
  }
  check_record(record, env);
  return object.release();
}

Object* ORB::string_to_object(const char* text, Environment& env) {
  void* orb = live(_ptr, env);
  CORBA_Environment record{};
  auto object = own(CORBA_ORB_string_to_object(orb, text, &record));
  check_record(record, env);
  return object.release();
}

char* ORB::object_to_string(Object* object, Environment& env) {
  void* orb = live(_ptr, env);
  CORBA_Environment record{};
  String_var text(CORBA_ORB_object_to_string(orb, object ? object->get_ref() : nullptr, &record));
  check_record(record, env);
  return text._retn();
}

void ORB::run(Environment& env) {
  CORBA_Environment record{};
  CORBA_ORB_run(live(_ptr, env), &record);
  check_record(record, env);
}

void ORB::shutdown(Boolean wait_for_completion, Environment& env) {
  CORBA_Environment record{};
  CORBA_ORB_shutdown(live(_ptr, env), wait_for_completion, &record);
  check_record(record, env);
}

void ORB::destroy(Environment& env) {
  void* orb = live(_ptr, env);
  {
    const std::lock_guard lock(uses_mutex);
    if (uses == 0) raise<BAD_INV_ORDER>(env);
    --uses;  // first, so that no other thread destroys the same use
  }
  CORBA_Environment record{};
  CORBA_ORB_destroy(orb, &record);
  const std::lock_guard lock(uses_mutex);
  if (record._major != CORBA_NO_EXCEPTION) ++uses;
  check_record(record, env);
  set_ref(nullptr);
  if (uses == 0) OM_this_ORB = nullptr;
}

}  // namespace CORBA
