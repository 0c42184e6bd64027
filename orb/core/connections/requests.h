// Requests that wait, linked by themselves: keeping one more, or handing many over, needs no memory.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "references/reference.h"

namespace zrsv {

class Connection;
struct ServerRequest;

/// Requests in their order. Owns them. Its members are in server_request.cpp, where a request is known.
class Requests {
 public:
  Requests() = default;
  Requests(Requests&& o) noexcept { swap(o); }
  Requests& operator=(Requests&& o) noexcept {
    swap(o);
    return *this;
  }
  ~Requests();

  bool empty() const { return !first_; }
  std::size_t size() const { return count_; }
  void push_back(std::unique_ptr<ServerRequest> request);
  /// Null when there is none.
  std::unique_ptr<ServerRequest> pop_front();
  void append(Requests more);
  /// Takes out those that are wanted.
  template <class Wanted>
  Requests take_if(Wanted wanted) {
    Requests taken, kept;
    while (std::unique_ptr<ServerRequest> request = pop_front())
      (wanted(std::as_const(*request)) ? taken : kept).push_back(std::move(request));
    swap(kept);
    return taken;
  }

 private:
  void swap(Requests& o) noexcept {
    std::swap(first_, o.first_);
    std::swap(last_, o.last_);
    std::swap(count_, o.count_);
  }

  ServerRequest* first_ = nullptr;
  ServerRequest* last_ = nullptr;
  std::size_t count_ = 0;
};

/// What waits of one connection, or one call of this process, and is a part of it. Guarded by the mutex of the
/// Waiting that it stands in.
struct Line {
  Requests requests;
  Ref<Connection> of;  // while it stands there; null: a call of this process
  bool queued = false;
  bool lost = false;  // the end of the connection is to be reported
  Line* next = nullptr;
};

}  // namespace zrsv
