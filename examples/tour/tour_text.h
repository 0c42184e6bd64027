// How the programs of the tour print what went wrong.
#pragma once

#include <cstdio>
#include <string>

#include "corba.h"

/// "TRANSIENT (minor 0x4b510301, completed NO)", or a user exception's repository id.
inline std::string text_of(const CORBA::Exception& e) {
  const auto* system = dynamic_cast<const CORBA::SystemException*>(&e);
  if (!system) return *e.id() ? e.id() : "an exception without a name";
  constexpr const char* completed[] = {"YES", "NO", "MAYBE"};
  char detail[64];
  std::snprintf(detail, sizeof detail, " (minor 0x%x, completed %s)", system->minor(),
                completed[system->completed() % 3u]);
  return std::string(e._name()) + detail;
}
