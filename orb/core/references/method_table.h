// The operation tables of interfaces: for requests to the broker's own objects and for calls inside the
// process.
#pragma once

#include <string_view>

#include "zrsv.h"

namespace zrsv {

/// Null when interface `intf` has no table, or its table no such operation. Any thread.
ZR_skeleton find_skeleton(std::string_view intf, std::string_view operation);
ZR_method find_direct(std::string_view intf, std::string_view operation);
bool has_table(std::string_view intf);

}  // namespace zrsv
