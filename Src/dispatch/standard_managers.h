// What the dispatch has to know of servant managers that use the standard's signatures.
#pragma once

#include <memory>

#include "poa.h"

namespace PortableServer {

/// What such a manager raised instead of giving a servant: it goes past the places that turn exceptions into others.
struct ManagerRefusal {
  std::shared_ptr<const CORBA::Exception> reason;
};

/// The pointers that locators gave as cookies, of the requests that this thread is in, innermost last.
class PendingCookies {
 public:
  /// Whether a preinvoke with the standard's signature gave a servant since `depth()` was `before`: then its
  /// postinvoke has to follow, whatever becomes of the request.
  static bool any_since(std::size_t before) { return depth() > before; }
  static std::size_t depth();
};

}  // namespace PortableServer
