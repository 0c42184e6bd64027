#include "scopes.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "parse.h"

namespace idl {
namespace {

// Where the names of a scope are entered.
Scope& table_of(const Scope& scope) {
  const auto* module = as<Module>(&scope);
  return const_cast<Scope&>(module && module->first ? *module->first : scope);
}

std::vector<const Scope*> ancestors_of(const Scope& scope) {
  std::vector<const Scope*> all;
  if (const auto* interface = as<Interface>(&scope))
    all.assign(interface->ancestors.begin(), interface->ancestors.end());
  if (const auto* value = as<ValueType>(&scope)) {
    all.assign(value->ancestors.begin(), value->ancestors.end());
    for (const Interface* supported : value->supports) {
      all.push_back(supported);
      all.insert(all.end(), supported->ancestors.begin(), supported->ancestors.end());
    }
  }
  return all;
}

bool has_ancestor(const Declaration& scope, const Declaration& ancestor) {
  const auto* in = as<Scope>(&scope);
  if (!in) return false;
  const std::vector<const Scope*> all = ancestors_of(*in);
  return std::find(all.begin(), all.end(), &ancestor) != all.end();
}

// Where a name that was used stands when another one that differs only in case was declared after it.
std::string exact_key(const std::string& name) { return "=" + name; }

// A second declaration that only continues or announces the first.
bool may_repeat(const Declaration& first, const Declaration& second) {
  if (first.kind != second.kind) return false;
  if (first.kind == Kind::Module) return true;
  const auto *a = as<Definable>(&first), *b = as<Definable>(&second);
  return a && b && (a->forward || b->forward);
}

}  // namespace

std::string lower_case(const std::string& text) {
  std::string small = text;
  for (char& c : small) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return small;
}

// The name of a scope may not be declared again directly in it.
void Scopes::enter(Scope& scope) {
  open_.push_back(&scope);
  if (scope.kind == Kind::Operation || scope.kind == Kind::Factory || scope.name.text.empty()) return;
  table_of(scope).table.try_emplace(lower_case(scope.name.text),
                                    Scope::Entry{scope.name.text, scope.name.at, &scope});
}

void Scopes::declare(Declaration& declaration) {
  Scope& scope = table_of(current());
  declaration.scope = &scope;
  const std::string key = lower_case(declaration.name.text);
  const auto [at, is_new] =
      scope.table.try_emplace(key, Scope::Entry{declaration.name.text, declaration.name.at, &declaration});
  if (is_new) return;
  Scope::Entry& other = at->second;
  const bool repeats = other.spelling == declaration.name.text && !other.used_only &&
                       other.declaration != &current() && may_repeat(*other.declaration, declaration);
  if (!repeats) return clash(other, declaration);
  if (auto* module = as<Module>(&declaration)) {
    module->first = static_cast<Module*>(other.declaration)->first;
    return;
  }
  if (!static_cast<Definable&>(declaration).forward) other.declaration = &declaration;
}

void Scopes::clash(Scope::Entry& other, Declaration& declaration) {
  const std::string name = quoted(declaration.name.text);
  const bool same = other.spelling == declaration.name.text;
  if (other.used_only) return clash_with_use(other, declaration);
  std::string message = name + " is declared already";
  if (other.declaration == &current())
    message = name + " is the name of the " + kind_name(current().kind) + " that this stands in";
  else if (!same)
    message = name + " and " + quoted(other.spelling) + " differ only in case";
  if (diagnostics_.error(declaration.name.at, message)) diagnostics_.note(other.at, "the other one is here");
}

// Strictly, `Account account` is as wrong as `Account Account`; but so many files have it that it passes.
void Scopes::clash_with_use(Scope::Entry& other, Declaration& declaration) {
  const std::string name = quoted(declaration.name.text), used = quoted(other.spelling);
  const bool same = other.spelling == declaration.name.text;
  const bool said = same
                        ? diagnostics_.error(declaration.name.at, name + " cannot be declared here, where " +
                                                                      used + " was used with another meaning")
                        : diagnostics_.warning(declaration.name.at, name + " differs only in case from " +
                                                                        used + ", which was used here");
  if (said) diagnostics_.note(other.at, "it was used here");
  if (same) return;
  const Scope::Entry use =
      std::exchange(other, {declaration.name.text, declaration.name.at, &declaration, false});
  table_of(current()).table[exact_key(use.spelling)] = use;
}

const Scope::Entry* Scopes::entry(const Scope& scope, const std::string& name) {
  const auto& table = table_of(scope).table;
  auto found = table.find(exact_key(name));
  if (found == table.end()) found = table.find(lower_case(name));
  return found == table.end() ? nullptr : &found->second;
}

Declaration* Scopes::declared_in(const Scope& scope, const std::string& name) {
  const Scope::Entry* const found = entry(scope, name);
  return found && !found->used_only && found->spelling == name && found->declaration != &scope
             ? found->declaration
             : nullptr;
}

// In the scope itself, else in what it inherits; what one base has replaced of another one's is hidden.
Scopes::Found Scopes::find_in(const Scope& scope, const std::string& name, bool as_member) {
  const Scope::Entry* const own = entry(scope, name);
  if (own && !(as_member && (own->used_only || own->declaration == &scope))) return {{own}};
  std::vector<std::pair<const Scope*, const Scope::Entry*>> inherited;
  for (const Scope* base : ancestors_of(scope))
    if (const Scope::Entry* one = entry(*base, name); one && !one->used_only)
      inherited.emplace_back(base, one);
  Found found;
  for (const auto& [base, one] : inherited) {
    const bool hidden = std::any_of(inherited.begin(), inherited.end(), [&, at = base](const auto& other) {
      return has_ancestor(*other.first, *at);
    });
    if (!hidden && std::find(found.entries.begin(), found.entries.end(), one) == found.entries.end())
      found.entries.push_back(one);
  }
  return found;
}

Scopes::Found Scopes::find_from_here(const std::string& name) const {
  for (auto scope = open_.rbegin(); scope != open_.rend(); ++scope)
    if (Found found = find_in(**scope, name); !found.entries.empty()) return found;
  return {};
}

Declaration* Scopes::the_one(const Found& found, const Identifier& part) {
  const Scope::Entry& first = *found.entries.front();
  if (found.entries.size() > 1) {
    if (diagnostics_.error(part.at, quoted(part.text) + " is ambiguous here"))
      for (const Scope::Entry* one : found.entries) diagnostics_.note(one->at, "it may be this one");
  } else if (first.spelling != part.text) {
    if (diagnostics_.error(part.at, quoted(part.text) + " is declared as " + quoted(first.spelling)))
      diagnostics_.note(first.at, "it is declared here");
  }
  return first.declaration;
}

// From a scope to what it declares or inherits.
Declaration* Scopes::step(Declaration& outer, const Identifier& part) {
  auto* scope = as<Scope>(&outer);
  if (!scope) {
    if (diagnostics_.error(
            part.at, quoted(outer.name.text) + " is " + a_kind(outer.kind) + ", and has no members to name"))
      diagnostics_.note(outer.name.at, "it is declared here");
    return nullptr;
  }
  const Found found = find_in(*scope, part.text, true);
  if (!found.entries.empty()) return the_one(found, part);
  not_declared(part, scope);
  return nullptr;
}

Declaration* Scopes::resolve(const ScopedName& name) {
  const Identifier& first = name.parts.front();
  const Found found = name.absolute ? find_in(*open_.front(), first.text) : find_from_here(first.text);
  if (found.entries.empty()) {
    not_declared(first, nullptr);
    return nullptr;
  }
  Declaration* at = the_one(found, first);
  if (!name.absolute) introduce(first, at);
  for (std::size_t i = 1; at && i < name.parts.size(); ++i) at = step(*at, name.parts[i]);
  return at;
}

Declaration* Scopes::look_up(const ScopedName& name) const {
  Declaration* at = nullptr;
  for (const Identifier& part : name.parts) {
    const auto* scope = as<Scope>(at);
    if (at && !scope) return nullptr;
    const Found found = scope           ? find_in(*scope, part.text, true)
                        : name.absolute ? find_in(*open_.front(), part.text)
                                        : find_from_here(part.text);
    if (found.entries.size() != 1) return nullptr;
    at = found.entries.front()->declaration;
  }
  return at;
}

// A name that is used stands for the same thing to the end of the scope, and of those around it up to the module.
void Scopes::introduce(const Identifier& part, Declaration* declaration) {
  for (auto scope = open_.rbegin(); scope != open_.rend() && (*scope)->kind != Kind::Module; ++scope)
    (*scope)->table.try_emplace(lower_case(part.text), Scope::Entry{part.text, part.at, declaration, true});
}

void Scopes::not_declared(const Identifier& part, const Scope* in) {
  const char* const keyword = keyword_in_any_case(part.text);
  if (keyword && part.text != keyword) return;  // reported as a word
  std::vector<std::string> candidates;
  const auto add = [&](const Scope& scope) {
    for (const auto& [key, one] : table_of(scope).table)
      if (!one.used_only) candidates.push_back(one.spelling);
  };
  static const std::vector<std::string> types = {"any",    "boolean",  "char",  "double",   "fixed",
                                                 "float",  "long",     "octet", "sequence", "short",
                                                 "string", "unsigned", "wchar", "wstring",  "Object"};
  if (!in) candidates = types;
  const std::vector<const Scope*> scopes =
      in ? std::vector<const Scope*>{in} : std::vector<const Scope*>(open_.begin(), open_.end());
  for (const Scope* scope : scopes) {
    add(*scope);
    for (const Scope* base : ancestors_of(*scope)) add(*base);
  }
  std::sort(candidates.begin(), candidates.end());
  const std::string meant = nearest(part.text, candidates);
  std::string message =
      quoted(part.text) + " is not declared " + (in ? "in " + quoted(full_name(*in)) : "here");
  if (!in && part.text == "CORBA")
    message += "; #include <orb.idl> declares it";
  else if (!meant.empty())
    message += "; did you mean " + quoted(meant) + "?";
  diagnostics_.error(part.at, message);
}

}  // namespace idl
