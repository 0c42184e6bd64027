// The two repositories: implementation names and interface ids.
#pragma once

#include <string>
#include <string_view>

namespace zrsv {

/// The definition of an implementation; what a handle of KQ_ImplementationRep_lookup_id points to. Never
/// freed, never moved.
struct ImplDef {
  std::string name;
};

/// Puts the repository of that file in force: one name a line, blanks around it ignored, "#" starts a
/// comment. With an empty path every name is known. Returns "" or the text of what is wrong, and then changes
/// nothing. Any thread.
std::string load_impl_repository(const std::string& path);

/// The definition of a name; null when the repository does not know it. Equal names give the same definition.
/// Any thread.
const ImplDef* find_impl(std::string_view name);

/// True for a name in the repository.
bool is_known_impl(std::string_view name);

/// True for an id that was handed to ZR_register_interface.
bool is_known_interface(std::string_view id);

}  // namespace zrsv
