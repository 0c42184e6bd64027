// The Echo interface without its skeleton.
#pragma once

#include "server_echo.h"

/// Reads each request itself: what the operation is called, its arguments by their types, the answer as a
/// value that knows its type. A bridge or a script interpreter serves interfaces this way that its compiler
/// never saw.
class DynamicEcho : public PortableServer::DynamicImplementation {
 public:
  explicit DynamicEcho(Shared& shared) : shared_(shared) {
    _intf = Demo::Echo::repository_id;
    shared_.born(this);
  }
  ~DynamicEcho() override { shared_.gone(this); }
  using DynamicImplementation::invoke;
  void invoke(CORBA::ServerRequest_ptr request) override;

 private:
  Shared& shared_;
};
