#include "records/defaultservant.h"

using PortableServer::ServantBase;
using PortableServer::ServantUse;

DefaultServant::Oid DefaultServant::oid() const {
  const zrsv::MutexLock lock(mutex_);
  return oid_;
}

ServantUse DefaultServant::use() const {
  const zrsv::MutexLock lock(mutex_);
  return ServantUse(servant_);
}

ServantBase* DefaultServant::exchange(ServantBase* servant, Oid& oid) {
  const zrsv::MutexLock lock(mutex_);
  oid_.swap(oid);
  return servant_.exchange(servant);
}
