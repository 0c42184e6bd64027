// Where requests wait that the object adapter cannot serve yet: at a POA manager that holds, at a POA that runs
// one request at a time. They wait without a thread.
#pragma once

#include <memory>

#include "zrsv/base.h"

namespace zrsv {

struct GatedRequests;

/// Any thread may use it. Whoever waits is let go when the gate goes. As a mutex, in an upcall:
///
///   if (!gate->enter(request)) return zrsv::wait_at(gate, request);  // the upcall is made again
///   ... serve ...
///   gate->leave();
class ZRSV_API Gate {
 public:
  enum class Kind : unsigned char {
    barrier,  // open or closed; opening it lets everybody go, in their order
    mutex     // lets one request through at a time
  };
  explicit Gate(Kind kind);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// Of a barrier, which is open at first. Opening it lets those go that wait, before any that come later.
  void close();
  void open();

  /// Of a mutex. True: `request` (the handle of the request that this thread runs) goes through, and nobody else
  /// does until leave(), which each true is followed by. Requests that wait come first.
  bool enter(void* request);
  void leave();

 private:
  friend struct GatedRequests;
  std::unique_ptr<GatedRequests> waiting_;
};

/// The request that this thread runs has to wait at the gate: the upcall returns without a reply, and is made again
/// later. When as many wait as may, it is answered TRANSIENT.
ZRSV_API void wait_at(const std::shared_ptr<Gate>& gate, void* request);

}  // namespace zrsv
