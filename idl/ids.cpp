#include "ids.h"

#include <algorithm>
#include <cctype>

namespace idl {
namespace {

bool is_version(const std::string& text) {
  const std::size_t point = text.find('.');
  const auto number = [&](std::size_t from, std::size_t to) {
    return from < to && to - from <= 5 &&
           std::all_of(text.begin() + static_cast<std::ptrdiff_t>(from),
                       text.begin() + static_cast<std::ptrdiff_t>(to),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
  };
  return point != std::string::npos && number(0, point) && number(point + 1, text.size());
}

std::string path_of(const Declaration& declaration) {
  std::string path = full_name(declaration);
  for (std::size_t at; (at = path.find("::")) != std::string::npos;) path.replace(at, 2, "/");
  return path;
}

}  // namespace

void RepositoryIds::declared(Declaration& declaration) {
  declared_.emplace_back(&declaration, prefix(declaration.file()));
}

const std::string& RepositoryIds::prefix(std::uint32_t file) const {
  static const std::string none;
  for (auto frame = frames_.rbegin(); frame != frames_.rend(); ++frame) {
    if (const auto found = frame->prefixes.find(file); found != frame->prefixes.end()) return found->second;
    if (frame->file != file && frame + 1 != frames_.rend()) return none;  // included into the scope
  }
  return none;
}

void RepositoryIds::pragma(const Pragma& pragma) {
  if (pragma.of == Pragma::Of::Prefix) {
    frames_.back().prefixes[pragma.file()] = pragma.text;
    return;
  }
  Declaration* const target = scopes_.look_up(pragma.target);
  if (!target) {
    diagnostics_.error(pragma.name.at, quoted(pragma.target.text()) + " is not declared before this #pragma");
  } else if (pragma.of == Pragma::Of::Id) {
    set_id(target, pragma.text, pragma.name.at);
  } else if (!is_version(pragma.text)) {
    diagnostics_.error(pragma.name.at, quoted(pragma.text) + " is no version; one looks like 1.0");
  } else {
    const auto [known, is_new] = versions_.emplace(target, pragma.text);
    if (known->second != pragma.text)
      diagnostics_.error(pragma.name.at,
                         quoted(target->name.text) + " has version " + known->second + " already");
  }
}

void RepositoryIds::type_id(const TypeId& line, Declaration* target) {
  if (!target) return;
  if (!line.is_prefix) return set_id(target, line.text, line.name.at);
  const auto* module = as<Module>(target);
  if (!as<Scope>(target))
    diagnostics_.error(line.name.at,
                       quoted(target->name.text) + " is " + a_kind(target->kind) + ", no scope");
  else
    type_prefixes_[module ? module->first : target] = line.text;
}

void RepositoryIds::set_id(Declaration* target, const std::string& id, const Location& at) {
  if (id.find(':') == std::string::npos) {
    diagnostics_.error(at, quoted(id) + " is no repository id; one looks like IDL:A/B:1.0");
  } else if (!target->id.empty() && target->id != id) {
    diagnostics_.error(at,
                       quoted(target->name.text) + " has repository id " + quoted(target->id) + " already");
  } else {
    target->id = id;
  }
}

// The innermost typeprefix around a declaration wins over pragmas.
const std::string& RepositoryIds::type_prefix(const Declaration& declaration,
                                              const std::string& otherwise) const {
  for (const Declaration* at = &declaration; at; at = at->scope)
    if (const auto found = type_prefixes_.find(at); found != type_prefixes_.end()) return found->second;
  return otherwise;
}

void RepositoryIds::finish() {
  for (auto& [declaration, pragma_prefix] : declared_) {
    const std::string& prefix = type_prefix(*declaration, pragma_prefix);
    const auto version = versions_.find(declaration);
    if (declaration->id.empty())
      declaration->id = "IDL:" + (prefix.empty() ? "" : prefix + "/") + path_of(*declaration) + ":" +
                        (version == versions_.end() ? "1.0" : version->second);
  }
  for (auto& [declaration, unused] : declared_)
    if (auto* definable = as<Definable>(declaration); definable && definable->definition)
      definable->id = definable->definition->id;
}

}  // namespace idl
