#include "references/repository.h"

#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "references/environment.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

using Names = std::set<std::string, std::less<>>;

struct Implementations {
  Mutex mutex;
  std::optional<Names> listed ZR_GUARDED_BY(mutex);  // nothing: every name is known
  // Only grows, so that handles stay good.
  std::map<std::string, ImplDef, std::less<>> definitions ZR_GUARDED_BY(mutex);
};

Implementations& implementations() {
  static auto& one = *new Implementations;
  return one;
}

struct Interfaces {
  Mutex mutex;
  std::set<std::string_view> ids ZR_GUARDED_BY(mutex);
};

/// Made on first use: interfaces are registered while static objects are constructed.
Interfaces& interfaces() {
  static auto& one = *new Interfaces;
  return one;
}

/// The name on a line of the file; empty when there is none.
std::string_view name_of(std::string_view line) {
  constexpr std::string_view blanks = " \t\r";
  line = line.substr(0, line.find('#'));
  const std::size_t first = line.find_first_not_of(blanks);
  if (first == line.npos) return {};
  return line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

bool is_listed(const Implementations& table, std::string_view name) ZR_REQUIRES(table.mutex) {
  return !table.listed || table.listed->contains(name);
}

}  // namespace

std::string load_impl_repository(const std::string& path) {
  std::optional<Names> listed;
  if (!path.empty()) {
    std::ifstream file(path);
    listed.emplace();
    std::string line;
    while (std::getline(file, line)) {
      if (const std::string_view name = name_of(line); !name.empty()) listed->emplace(name);
    }
    if (!file.is_open() || file.bad()) return "implementation repository '" + path + "' cannot be read";
  }
  Implementations& table = implementations();
  const MutexLock lock(table.mutex);
  table.listed = std::move(listed);
  return {};
}

const ImplDef* find_impl(std::string_view name) {
  Implementations& table = implementations();
  const MutexLock lock(table.mutex);
  if (!is_listed(table, name)) return nullptr;
  const auto found = table.definitions.find(name);
  if (found != table.definitions.end()) return &found->second;
  return &table.definitions.emplace(name, ImplDef{std::string(name)}).first->second;
}

bool is_known_impl(std::string_view name) {
  Implementations& table = implementations();
  const MutexLock lock(table.mutex);
  return is_listed(table, name);
}

bool is_known_interface(std::string_view id) {
  Interfaces& table = interfaces();
  const MutexLock lock(table.mutex);
  return table.ids.contains(id);
}

}  // namespace zrsv

using namespace zrsv;

void* KQ_ImplementationRep_lookup_id(void* /*impl_rep*/, const char* name, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> void* {
    const ImplDef* found = name ? find_impl(name) : nullptr;
    if (!found) raise_standard(ev, name ? "NO_IMPLEMENT" : "BAD_PARAM");
    return const_cast<ImplDef*>(found);  // the C interface has no constant handles
  });
}

void* CORBA_Repository_lookup_id(void* /*intf_rep*/, const char* id, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> void* {
    if (id && is_known_interface(id)) {
      return Reference::make_local("IDL:CORBA/InterfaceDef:1.0", "IDL:omg.org/CORBA/InterfaceDef:1.0", id)
          .release();
    }
    raise_standard(ev, id ? "INTF_REPOS" : "BAD_PARAM");
    return nullptr;
  });
}

void ZR_register_interface(const char* id) {
  if (!id) return;
  Interfaces& table = interfaces();
  const MutexLock lock(table.mutex);
  table.ids.insert(id);
}
