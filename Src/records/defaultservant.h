// A POA's default servant.
#pragma once

#include <atomic>
#include <memory>

#include "objects/servants.h"
#include "poa/types.h"
#include "zrsv/thread_safety.h"

/// The servant (the program's) and the id that it has for as long as it is installed. Any thread.
class DefaultServant {
 public:
  using Oid = std::shared_ptr<const PortableServer::ObjectId>;

  PortableServer::ServantBase* get() const { return servant_; }
  /// Null when there is none.
  Oid oid() const;
  /// In use before it can be taken away.
  PortableServer::ServantUse use() const;
  /// Installs a servant (null: none) and gives the one before. `oid` becomes that one's.
  PortableServer::ServantBase* exchange(PortableServer::ServantBase* servant, Oid& oid);

 private:
  mutable zrsv::Mutex mutex_;                                   // a leaf
  std::atomic<PortableServer::ServantBase*> servant_{nullptr};  // changed under mutex_
  Oid oid_ ZR_GUARDED_BY(mutex_);
};
