// Repository ids: IDL:prefix/A/B:1.0, and the pragmas and declarations that change them.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "scopes.h"

namespace idl {

class RepositoryIds {
 public:
  RepositoryIds(const Scopes& scopes, Diagnostics& diagnostics)
      : scopes_(scopes), diagnostics_(diagnostics) {}

  /// Around what stands in a scope: a prefix given in it ends with it.
  void enter(const Scope& scope) { frames_.push_back({scope.file(), {}}); }
  void leave() { frames_.pop_back(); }
  /// Notes a declaration with the prefix that holds at its place.
  void declared(Declaration& declaration);
  void pragma(const Pragma& pragma);
  void type_id(const TypeId& line, Declaration* target);
  /// Gives all ids, when everything has been read.
  void finish();

 private:
  // A prefix holds in the file where it was given, so that an included file neither has nor leaves one.
  struct Frame {
    std::uint32_t file = 0;
    std::map<std::uint32_t, std::string> prefixes;
  };

  const std::string& prefix(std::uint32_t file) const;
  const std::string& type_prefix(const Declaration& declaration, const std::string& otherwise) const;
  void set_id(Declaration* target, const std::string& id, const Location& at);

  const Scopes& scopes_;
  Diagnostics& diagnostics_;
  std::vector<Frame> frames_{Frame{}};
  std::vector<std::pair<Declaration*, std::string>> declared_;
  std::unordered_map<const Declaration*, std::string> versions_;
  std::unordered_map<const Declaration*, std::string> type_prefixes_;
};

}  // namespace idl
