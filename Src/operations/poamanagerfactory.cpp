// POA managers beside the root POA's.
#include <map>
#include <string>

#include "base/locks.h"
#include "base/raise.h"
#include "records/poamanagerinfo.h"
#include "records/poanode.h"

namespace PortableServer {
namespace {

/// The managers of the process by id.
class Factory : public POAManagerFactory {
 public:
  POAManager* create_POAManager(const char* id, const CORBA::PolicyList&, CORBA::Environment& ev) override {
    ev.clear();
    if (!id) raise<CORBA::BAD_PARAM>(ev, nullptr);
    MutexGuard guard(poa_mutex);
    if (!*id || made_.contains(id)) raise<ManagerAlreadyExists>(ev, nullptr);
    default_poa_manager_info->hold_at_gate(ev);
    auto record = std::make_unique<POAManagerInfo>(ev);
    record->id = id;
    record->hold_at_gate(ev);
    POAManagerInfo* const kept = record.release();  // like the root POA's, until the process ends
    made_.emplace(kept->id, kept);
    return POAManager::_duplicate(kept->poamanager_object);
  }

  POAManagerList* list(CORBA::Environment& ev) override {
    ev.clear();
    MutexGuard guard(poa_mutex);
    auto all = std::make_unique<POAManagerList>();
    all->length(static_cast<CORBA::ULong>(made_.size() + 1));
    CORBA::ULong at = 0;
    (*all)[at++] = POAManager::_duplicate(default_poa_manager_info->poamanager_object);
    for (const auto& [id, record] : made_) (*all)[at++] = POAManager::_duplicate(record->poamanager_object);
    return all.release();
  }

  POAManager* find(const char* id, CORBA::Environment& ev) override {
    ev.clear();
    if (!id) return nullptr;
    MutexGuard guard(poa_mutex);
    const auto found = made_.find(id);
    const POAManagerInfo* const record = !*id                   ? default_poa_manager_info
                                         : found == made_.end() ? nullptr
                                                                : found->second;
    return record ? POAManager::_duplicate(record->poamanager_object) : nullptr;
  }

 private:
  std::map<std::string, POAManagerInfo*, std::less<>> made_ ZR_GUARDED_BY(poa_mutex);
};

}  // namespace

POAManagerFactory* POA::the_POAManagerFactory(CORBA::Environment& ev) {
  ev.clear();
  if (!POANode::find_live(this)) raise<CORBA::BAD_PARAM>(ev, nullptr);
  static Factory* const one = new Factory;  // references to it may be let go until the process ends
  return POAManagerFactory::_duplicate(one);
}

char* POAManager::get_id(CORBA::Environment& ev) {
  ev.clear();
  const POAManagerInfo* const record = POAManagerInfo::findPOAManagerInfo(this, ev);
  if (!record) raise<CORBA::BAD_PARAM>(ev, nullptr);
  return CORBA::string_dup(record->id.c_str());
}

}  // namespace PortableServer
