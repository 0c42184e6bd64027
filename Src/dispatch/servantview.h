// What interceptors see of a request's servant.
#pragma once

#include "dispatch/requesttarget.h"
#include "poa/servant.h"
#include "zrsv/request_watch.h"

class InterceptedServant : public zrsv::ServantView {
 public:
  InterceptedServant(const RequestTarget& target, PortableServer::ServantBase& servant)
      : target_(target), servant_(servant) {}

  std::string_view object_id() const override { return target_.data.object_id; }
  std::vector<std::string> adapter() const override {
    std::vector<std::string> names{"RootPOA"};
    PathNames path(target_.data.path());
    while (const auto name = path.next()) names.emplace_back(*name);
    return names;
  }
  std::string interface() const override {
    const BorrowedObjectId id(target_.data.object_id);
    const char* const found = servant_._primary_interface(id.get(), target_.poa->poa_object);
    return found ? found : "";
  }
  bool is_a(const char* repository_id) const override { return servant_._is_a(repository_id); }

 private:
  const RequestTarget& target_;
  PortableServer::ServantBase& servant_;
};
