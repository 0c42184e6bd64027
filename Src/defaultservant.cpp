#include "defaultservant.h"

using PortableServer::ServantBase;
using PortableServer::ServantUse;

DefaultServant::Oid DefaultServant::oid() const {
  std::lock_guard lock(mutex_);
  return oid_;
}

ServantUse DefaultServant::use() const {
  std::lock_guard lock(mutex_);
  return ServantUse(servant_);
}

ServantBase* DefaultServant::exchange(ServantBase* servant, Oid& oid) {
  std::lock_guard lock(mutex_);
  oid_.swap(oid);
  return servant_.exchange(servant);
}
