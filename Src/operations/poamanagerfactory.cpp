// POA managers beside the root POA's.
#include <map>
#include <string>

#include "base/locks.h"
#include "base/raise.h"
#include "records/poainfo.h"
#include "records/poamanagerinfo.h"

namespace PortableServer {
namespace {

/// The managers of the process by id.
class Factory : public POAManagerFactory {
 public:
  POAManager* create_POAManager(const char* id, const CORBA::PolicyList&, CORBA::Environment& env) override {
    env.clear();
    if (!id) raise<CORBA::BAD_PARAM>(env, nullptr);
    MutexGuard guard(poa_mutex);
    if (!*id || made_.contains(id)) raise<ManagerAlreadyExists>(env, nullptr);
    default_poa_manager_info->hold_at_gate(env);
    auto record = std::make_unique<POAManagerInfo>(env);
    record->id = id;
    record->hold_at_gate(env);
    POAManagerInfo* const kept = record.release();  // like the root POA's, until the process ends
    made_.emplace(kept->id, kept);
    return POAManager::_duplicate(kept->poamanager_object);
  }

  POAManagerList* list(CORBA::Environment& env) override {
    env.clear();
    MutexGuard guard(poa_mutex);
    auto all = std::make_unique<POAManagerList>();
    all->length(static_cast<CORBA::ULong>(made_.size() + 1));
    CORBA::ULong at = 0;
    (*all)[at++] = POAManager::_duplicate(default_poa_manager_info->poamanager_object);
    for (const auto& [id, record] : made_) (*all)[at++] = POAManager::_duplicate(record->poamanager_object);
    return all.release();
  }

  POAManager* find(const char* id, CORBA::Environment& env) override {
    env.clear();
    if (!id) return nullptr;
    MutexGuard guard(poa_mutex);
    const auto found = made_.find(id);
    const POAManagerInfo* const record = !*id                   ? default_poa_manager_info
                                         : found == made_.end() ? nullptr
                                                                : found->second;
    return record ? POAManager::_duplicate(record->poamanager_object) : nullptr;
  }

 private:
  std::map<std::string, POAManagerInfo*, std::less<>> made_;  // guarded by poa_mutex
};

}  // namespace

POAManagerFactory* POA::the_POAManagerFactory(CORBA::Environment& env) {
  env.clear();
  if (!POAInfo::findPOAInfo(this, env)) raise<CORBA::BAD_PARAM>(env, nullptr);
  static Factory* const one = new Factory;  // references to it may be let go until the process ends
  return POAManagerFactory::_duplicate(one);
}

char* POAManager::get_id(CORBA::Environment& env) {
  env.clear();
  const POAManagerInfo* const record = POAManagerInfo::findPOAManagerInfo(this, env);
  if (!record) raise<CORBA::BAD_PARAM>(env, nullptr);
  return CORBA::string_dup(record->id.c_str());
}

}  // namespace PortableServer
