// From names and texts to references.
#include <strings.h>

#include <fstream>
#include <string_view>

#include "base/raise.h"
#include "orb/orb_state.h"
#include "orb/pi_current.h"

namespace CORBA {
namespace {

constexpr ULong bad_scheme = OMGVMCID | 7, bad_address = OMGVMCID | 8, bad_scheme_part = OMGVMCID | 9;
constexpr std::size_t longest_text = 1 << 20;  // of a file that holds a reference

/// Policies of all calls of an ORB.
class OrbManager : public PolicyManager {
 public:
  explicit OrbManager(OrbPointer orb) : orb_(std::move(orb)) {}

  PolicyList* get_policy_overrides(const PolicyTypeSeq& types, Environment& ev) override {
    ev.clear();
    const zrsv::MutexLock lock(orb_->mutex);
    return orb_->overrides.list(types);
  }
  void set_policy_overrides(const PolicyList& policies, SetOverrideType how, Environment& ev) override {
    ev.clear();
    const zrsv::MutexLock lock(orb_->mutex);
    orb_->overrides.set(policies, how, ev);
    orbs().set_limit(orb_, orb_->overrides.time_limit());
  }

 private:
  const OrbPointer orb_;
};

/// The ORB core has no exception of its own for this.
bool is_unknown_name(const CORBA_Environment& record) {
  const char* id = CORBA_exception_id(&record);
  return id && std::strcmp(id, BAD_PARAM::repository_id.value) == 0;
}

/// An initial reference of the object adapter.
Object* resolve_in_core(const OrbPointer& orb, const std::string& name, Environment& ev) {
  if (!orbs().own_server(orb)) raise<ORB::InvalidName>(ev);
  CORBA_Environment record{};
  void* const handle = CORBA_ORB_resolve_initial_references(OM_this_ORB, name.c_str(), &record);
  if (is_unknown_name(record)) {
    CORBA_exception_free(&record);
    raise<ORB::InvalidName>(ev);
  }
  check_record(record, ev);
  auto object = std::make_unique<Object>();
  object->set_ref(handle);
  return object.release();
}

bool is_of_core(std::string_view name) { return name == "RootPOA" || name == "POACurrent"; }

std::string text_of_file(const std::string& path, Environment& ev) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  for (char c = 0; text.size() <= longest_text && file.get(c);) text += c;
  if (text.size() > longest_text || !file.eof()) raise<BAD_PARAM>(ev, bad_address, COMPLETED_NO);
  constexpr const char* blanks = " \t\r\n";
  const std::size_t start = text.find_first_not_of(blanks);
  if (start == text.npos) raise<BAD_PARAM>(ev, bad_address, COMPLETED_NO);
  return text.substr(start, text.find_last_not_of(blanks) + 1 - start);
}

bool has_scheme(std::string_view text, std::string_view scheme) {
  return text.size() >= scheme.size() && ::strncasecmp(text.data(), scheme.data(), scheme.size()) == 0;
}

/// "corbaloc:rir:/NAME"; no name stands for the naming service.
Object* from_rir(const OrbPointer& orb, std::string_view rest, Environment& ev) {
  if (!rest.empty() && rest.front() != '/') raise<BAD_PARAM>(ev, bad_scheme_part, COMPLETED_NO);
  const std::string name(rest.empty() ? rest : rest.substr(1));
  try {
    return resolve(orb, name.empty() ? "NameService" : name, ev);
  } catch (const ORB::InvalidName&) {
    raise<BAD_PARAM>(ev, bad_scheme_part, COMPLETED_NO);
  }
}

Object* from_core_text(const OrbPointer& orb, const char* text, Environment& ev) {
  CORBA_Environment record{};
  void* const handle = CORBA_ORB_string_to_object(OM_this_ORB, text, &record);
  if (is_unknown_name(record)) {
    CORBA_exception_free(&record);
    const bool known = has_scheme(text, "IOR:") || has_scheme(text, "corbaloc:");
    raise<BAD_PARAM>(ev, known ? bad_scheme_part : bad_scheme, COMPLETED_NO);
  }
  check_record(record, ev);
  return own_reference(orb, handle);
}

}  // namespace

Object* own_reference(const OrbPointer& orb, void* handle) {
  if (!handle) return nullptr;
  auto object = std::make_unique<Object>();
  object->set_ref(handle);
  if (orbs().is_server(orb)) return object.release();
  void* const scoped = zrsv::object_in_scope(handle, orb);
  CORBA_object_release(handle);
  object->set_ref(scoped);
  return object.release();
}

std::vector<std::string> own_services(const OrbPointer& orb) {
  std::vector<std::string> names{"ORBPolicyManager", "PICurrent", "PolicyCurrent"};
  const OrbPointer server = orbs().standard();
  if (server == orb || orbs().may_serve(orb)) names.insert(names.end(), {"RootPOA", "POACurrent"});
  return names;
}

Object* resolve(const OrbPointer& orb, const std::string& name, Environment& ev) {
  std::string configured, by_default;
  {
    const zrsv::MutexLock lock(orb->mutex);
    if (const auto found = orb->registered.find(name); found != orb->registered.end())
      return Object::_duplicate(found->second.in());
    if (const auto found = orb->configured.find(name); found != orb->configured.end())
      configured = found->second;
    if (!orb->default_url.empty()) by_default = orb->default_url + '/' + name;
  }
  if (!configured.empty()) return from_url(orb, configured.c_str(), ev);
  if (is_of_core(name)) return resolve_in_core(orb, name, ev);
  if (name == "ORBPolicyManager") return new OrbManager(orb);
  if (name == "PolicyCurrent") return policy_current();
  if (name == "PICurrent") return pi_current();
  if (by_default.empty() || name.empty()) raise<ORB::InvalidName>(ev);
  return from_url(orb, by_default.c_str(), ev);
}

Object* from_url(const OrbPointer& orb, const char* text, Environment& ev) {
  constexpr std::string_view file = "file://", rir = "corbaloc:rir:";
  if (!text) raise<BAD_PARAM>(ev, bad_scheme, COMPLETED_NO);
  if (has_scheme(text, rir)) return from_rir(orb, std::string_view(text).substr(rir.size()), ev);
  if (!has_scheme(text, file)) return from_core_text(orb, text, ev);
  const std::string inner = text_of_file(text + file.size(), ev);
  if (has_scheme(inner, file))
    raise<BAD_PARAM>(ev, bad_address, COMPLETED_NO);  // files that name one another
  return from_url(orb, inner.c_str(), ev);
}

}  // namespace CORBA
