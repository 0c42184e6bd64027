// Objects under keys that people write: corbaloc:iiop:host:port/Bank.
#pragma once

#include <string>
#include <string_view>

#include "references/reference.h"

namespace zrsv {

/// From now on `key` leads to `object`; null takes it away. A key in the form that this library mints is never
/// looked up here.
void name_object(std::string key, Ref<Reference> object);
/// The object of that key, or null.
Ref<Reference> named_object(std::string_view key);

}  // namespace zrsv
