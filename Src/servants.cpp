#include "servants.h"

#include <array>
#include <mutex>

namespace PortableServer {

/// The calls whose servants' addresses fall on it: several shelves, so that the requests of locators do not
/// meet at one mutex.
struct ServantInCall::Shelf {
  std::mutex mutex;  // a leaf: nothing is locked under it
  ServantInCall* first = nullptr;

  static Shelf& of(const ServantBase* servant) {
    static constinit std::array<Shelf, 16> shelves;  // nothing to make or destroy, whatever runs at the end
    return shelves[reinterpret_cast<std::uintptr_t>(servant) / sizeof(ServantBase) % shelves.size()];
  }
};

void ServantInCall::enter(const ServantBase* servant) {
  if (!servant) return;
  Shelf& shelf = Shelf::of(servant);
  const std::lock_guard lock(shelf.mutex);
  servant_ = servant;
  next_ = std::exchange(shelf.first, this);
}

ServantInCall::~ServantInCall() {
  if (!servant_) return;
  Shelf& shelf = Shelf::of(servant_);
  const std::lock_guard lock(shelf.mutex);
  ServantInCall** link = &shelf.first;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

bool ServantInCall::has(const ServantBase* servant) {
  Shelf& shelf = Shelf::of(servant);
  const std::lock_guard lock(shelf.mutex);
  const ServantInCall* call = shelf.first;
  while (call && call->servant_ != servant) call = call->next_;
  return call != nullptr;
}

}  // namespace PortableServer
