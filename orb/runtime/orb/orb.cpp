#include "corba/orb.h"

#include <algorithm>
#include <string_view>

#include "base/raise.h"
#include "corba/any.h"
#include "orb/interceptors.h"
#include "orb/orb_state.h"
#include "zrsv/initial_references.h"
#include "zrsv/thread_safety.h"

namespace CORBA {

void* OM_this_ORB = nullptr;

namespace {

constexpr ULong null_object = OMGVMCID | 27;

// ---- The options of the runtime -------------------------------------------------------------------------

zrsv::Mutex core_mutex;  // one ORB is made or ended at a time

bool take_configured(OrbOptions& options, std::string_view value) {
  const std::size_t equals = value.find('=');
  if (equals == 0 || equals == value.npos || equals + 1 == value.size()) return false;
  options.configured[std::string(value.substr(0, equals))] = value.substr(equals + 1);
  return true;
}

struct OptionRow {
  std::string_view name;
  bool (*take)(OrbOptions& options, std::string_view value);
  const char* help;
};

constexpr OptionRow option_rows[] = {
    {"-ORBid", [](OrbOptions& o, std::string_view value) { return o.id = value, true; }, "the id of the ORB"},
    {"-ORBInitRef", take_configured, "NAME=URL: what an initial reference is"},
    {"-ORBDefaultInitRef",
     [](OrbOptions& o, std::string_view value) { return o.default_url = value, !value.empty(); },
     "URL: what initial references that are not known are below"},
};

/// Moves the arguments that are not the runtime's own to `rest`. False for a bad one, with a log line.
bool take_options(int argc, char** argv, OrbOptions& options, std::vector<char*>& rest) {
  for (int i = 0; i < argc && argv; ++i) {
    const std::string_view name(argv[i] ? argv[i] : "");
    const auto* row = std::ranges::find(option_rows, name, &OptionRow::name);
    if (i == 0 || row == std::end(option_rows)) {
      rest.push_back(argv[i]);
      continue;
    }
    if (++i < argc && row->take(options, argv[i])) continue;
    OM_log("no value, or a bad one, after %s; it wants %s", row->name.data(), row->help);
    return false;
  }
  return true;
}

/// Starts a use of the ORB core with what the runtime left of the command line, and takes its options out.
void enter_core(int& argc, char** argv, std::vector<char*>& rest, Environment& ev) {
  int count = static_cast<int>(rest.size());
  rest.push_back(nullptr);
  CORBA_Environment record{};
  void* const handle = CORBA_ORB_init(&count, rest.data(), "", &record);
  check_record(record, ev);
  if (!handle) raise<INITIALIZE>(ev);
  if (OM_this_ORB != handle) OM_this_ORB = handle;  // read by others without a lock
  if (!argv || count == argc) return;
  std::copy_n(rest.data(), count + 1, argv);
  argc = count;
}

StringSeq copy_arguments(int argc, char** argv) {
  StringSeq arguments;
  for (int i = 0; i < argc && argv && argv[i]; ++i) {
    arguments.length(arguments.length() + 1);
    arguments[arguments.length() - 1] = const_cast<const char*>(argv[i]);
  }
  return arguments;
}

/// The program's initializers; where they fail, the ORB has never been.
void initialize(ORB* orb, const StringSeq& arguments) {
  try {
    run_initializers(state_of(*orb), arguments);
  } catch (...) {
    orb->destroy();
    throw;
  }
}

}  // namespace

ORB* ORB_init(int& argc, char** argv, const char* orb_id, Environment& ev) {
  ev.clear();
  OrbOptions options;
  std::vector<char*> rest;
  if (!take_options(argc, argv, options, rest)) raise<BAD_PARAM>(ev);
  if (orb_id && *orb_id) options.id = orb_id;
  const StringSeq arguments = copy_arguments(argc, argv);
  bool made = false;
  ORB_var orb;
  {
    const zrsv::MutexLock lock(core_mutex);
    enter_core(argc, argv, rest, ev);
    orb = new NamedOrb(orbs().enter(options, &made), OM_this_ORB);
  }
  if (made) initialize(orb.in(), arguments);
  return orb._retn();
}

// ---- The wrapper ------------------------------------------------------------------------------------------

// The handle is the process's, not a reference to be given back.
ORB::~ORB() { set_ref(nullptr); }

ORB* ORB::_duplicate(ORB* orb) { return orb ? new NamedOrb(state_of(*orb), orb->get_ref()) : nullptr; }

char* ORB::id(Environment& ev) { return string_dup(live(*this, ev)->id.c_str()); }

// ---- References -------------------------------------------------------------------------------------------

Object* ORB::resolve_initial_references(const char* name, Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  if (!name) raise<InvalidName>(ev);
  return resolve(orb, name, ev);
}

void ORB::register_initial_reference(const char* name, Object* object, Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  if (!name || !*name) raise<InvalidName>(ev);
  if (is_nil(object)) raise<BAD_PARAM>(ev, null_object, COMPLETED_NO);
  const std::vector<std::string> own = own_services(orb);
  const zrsv::MutexLock lock(orb->mutex);
  const bool taken = orb->registered.contains(name) || std::ranges::find(own, name) != own.end();
  if (taken) raise<InvalidName>(ev);
  orb->registered[name] = Object::_duplicate(object);
  zrsv::count_initial_reference_change();
}

ORB::ObjectIdList* ORB::list_initial_services(Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  std::vector<std::string> names = own_services(orb);
  {
    const zrsv::MutexLock lock(orb->mutex);
    for (const auto& [name, object] : orb->registered) names.push_back(name);
    for (const auto& [name, url] : orb->configured) names.push_back(name);
  }
  std::ranges::sort(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  auto list = std::make_unique<ObjectIdList>();
  list->length(static_cast<ULong>(names.size()));
  for (ULong i = 0; i < list->length(); ++i) (*list)[i] = names[i].c_str();
  return list.release();
}

Object* ORB::string_to_object(const char* text, Environment& ev) {
  return from_url(live(*this, ev), text, ev);
}

char* ORB::object_to_string(Object* object, Environment& ev) {
  live(*this, ev);
  CORBA_Environment record{};
  String_var text(CORBA_ORB_object_to_string(OM_this_ORB, object ? object->get_ref() : nullptr, &record));
  check_record(record, ev);
  return text._retn();
}

void ORB::register_key(const char* key, Object* object, Environment& ev) {
  live(*this, ev);
  CORBA_Environment record{};
  ZR_register_key(key, object ? object->get_ref() : nullptr, &record);
  check_record(record, ev);
}

Policy* ORB::create_policy(PolicyType type, const Any& value, Environment& ev) {
  live(*this, ev);
  return CORBA::create_policy(type, value, ev);
}

// ---- Serving ----------------------------------------------------------------------------------------------

void ORB::run(Environment& ev) {
  if (!orbs().wait_to_serve(live(*this, ev))) return;
  CORBA_Environment record{};
  CORBA_ORB_run(OM_this_ORB, &record);
  check_record(record, ev);
}

Boolean ORB::work_pending(Environment& ev) {
  CORBA_Environment record{};
  const Boolean pending = orbs().may_serve(live(*this, ev)) && ZR_work_pending(OM_this_ORB, &record);
  check_record(record, ev);
  return pending;
}

void ORB::perform_work(Environment& ev) {
  CORBA_Environment record{};
  if (orbs().may_serve(live(*this, ev))) ZR_perform_work(OM_this_ORB, &record);
  check_record(record, ev);
}

int ORB::work_descriptor(Environment& ev) {
  CORBA_Environment record{};
  const int descriptor = orbs().may_serve(live(*this, ev)) ? ZR_work_descriptor(OM_this_ORB, &record) : -1;
  check_record(record, ev);
  return descriptor;
}

void ORB::shutdown(Boolean wait_for_completion, Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  CORBA_Environment record{};
  if (orbs().may_serve(orb)) {
    CORBA_ORB_shutdown(OM_this_ORB, wait_for_completion, &record);
  } else {
    orbs().end_run(orb);
  }
  check_record(record, ev);
}

void ORB::destroy(Environment& ev) {
  const OrbPointer orb = live(*this, ev);
  CORBA_Environment record{};
  if (orbs().is_last_use_of_server(orb)) CORBA_ORB_shutdown(OM_this_ORB, 1, &record);
  check_record(record, ev);  // a servant cannot wait for its own end
  {
    const zrsv::MutexLock lock(core_mutex);
    if (!orbs().leave(orb)) raise<BAD_INV_ORDER>(ev);
    CORBA_ORB_destroy(OM_this_ORB, &record);
    check_record(record, ev);
    set_ref(nullptr);
    if (!orbs().standard()) OM_this_ORB = nullptr;
  }
  if (!orbs().lives(orb)) destroy_interceptors(orb);
}

}  // namespace CORBA
