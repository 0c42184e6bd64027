// Questions about types that several passes and the emitter ask.
#pragma once

#include <unordered_map>

#include "tree.h"

namespace idl {

/// Whether a union can be switched by it: an integer, char, wchar, boolean, octet or an enum.
bool discriminates(const Type& type);

/// Finds what keeps values of a type inside their process: a native type or a local interface. Each declaration is
/// looked into once.
class LocalParts {
 public:
  /// The declaration that stands in the way; null when there is none.
  const Declaration* of(const Type& type);
  const Declaration* of(const Declaration& declared);

 private:
  std::unordered_map<const Declaration*, const Declaration*> known_;
};

}  // namespace idl
