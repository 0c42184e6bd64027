// Names: where they are declared, and what they mean where they are used.
#pragma once

#include <string>
#include <vector>

#include "diagnostics.h"
#include "tree.h"

namespace idl {

std::string lower_case(const std::string& text);

/// The scopes around a place in the file, and the rules of declaring and finding names in them.
class Scopes {
 public:
  explicit Scopes(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  Scope& current() const { return *open_.back(); }
  const std::vector<Scope*>& open() const { return open_; }
  void enter(Scope& scope);
  void leave() { open_.pop_back(); }

  /// Enters a name in the current scope, or reports why it cannot be.
  void declare(Declaration& declaration);
  /// What a name means here, and from now on in this scope; null when that is nothing, which is reported.
  Declaration* resolve(const ScopedName& name);
  /// The same without report or effect.
  Declaration* look_up(const ScopedName& name) const;
  /// What a scope itself declares under exactly this name; null for nothing.
  static Declaration* declared_in(const Scope& scope, const std::string& name);

 private:
  struct Found {
    std::vector<const Scope::Entry*> entries;  // more than one when it is ambiguous
  };

  static const Scope::Entry* entry(const Scope& scope, const std::string& name);
  // As a member: only what the scope declares or inherits, not what was used in it.
  static Found find_in(const Scope& scope, const std::string& name, bool as_member = false);
  Found find_from_here(const std::string& name) const;
  Declaration* the_one(const Found& found, const Identifier& part);
  Declaration* step(Declaration& outer, const Identifier& part);
  void clash(Scope::Entry& other, Declaration& declaration);
  void clash_with_use(Scope::Entry& other, Declaration& declaration);
  void introduce(const Identifier& part, Declaration* declaration);
  void not_declared(const Identifier& part, const Scope* in);

  Diagnostics& diagnostics_;
  std::vector<Scope*> open_;
};

}  // namespace idl
