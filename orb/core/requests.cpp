#include "requests.h"

#include "server_request.h"

namespace zrsv {

Requests::~Requests() {
  while (pop_front()) continue;
}

void Requests::push_back(std::unique_ptr<ServerRequest> request) {
  ServerRequest* const last = request.release();
  (first_ ? last_->next : first_) = last;
  last_ = last;
  ++count_;
}

std::unique_ptr<ServerRequest> Requests::pop_front() {
  std::unique_ptr<ServerRequest> request(first_);
  if (!request) return request;
  first_ = std::exchange(request->next, nullptr);
  --count_;
  return request;
}

void Requests::append(Requests more) {
  while (std::unique_ptr<ServerRequest> request = more.pop_front()) push_back(std::move(request));
}

}  // namespace zrsv
