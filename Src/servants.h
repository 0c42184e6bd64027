// Servants that program code has in its hands.
#pragma once

#include "poa/servant.h"

namespace PortableServer {

/// While one lives, a call of the program has the servant (an activator's etherealize, a locator's postinvoke,
/// the callback for lost clients): the tick passes over it. Only the address is looked at, because the call
/// may delete the servant.
class ServantInCall {
 public:
  ServantInCall() = default;
  /// Null: of none.
  explicit ServantInCall(const ServantBase* servant) { enter(servant); }
  ~ServantInCall();
  ServantInCall(const ServantInCall&) = delete;
  ServantInCall& operator=(const ServantInCall&) = delete;

  /// Once. What was found in a map enters before the POA semaphore is given back.
  void enter(const ServantBase* servant);
  static bool has(const ServantBase* servant);

 private:
  struct Shelf;
  const ServantBase* servant_ = nullptr;
  ServantInCall* next_ = nullptr;  // on the shelf; guarded by its mutex
};

}  // namespace PortableServer
