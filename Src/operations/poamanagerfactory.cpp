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
    return with_memory(ev, [&] { return make(id, ev); });
  }

  POAManagerList* list(CORBA::Environment& ev) override {
    ev.clear();
    return with_memory(ev, [&] {
      MutexGuard guard(poa_mutex);
      auto all = std::make_unique<POAManagerList>();
      all->length(static_cast<CORBA::ULong>(made_.size() + 1));
      CORBA::ULong at = 0;
      (*all)[at++] = POAManager::_duplicate(default_poa_manager_info->poamanager_object);
      for (const auto& [id, record] : made_) (*all)[at++] = POAManager::_duplicate(record->poamanager_object);
      return all.release();
    });
  }

  POAManager* find(const char* id, CORBA::Environment& ev) override {
    ev.clear();
    if (!id) return nullptr;
    MutexGuard guard(poa_mutex);
    const auto found = made_.find(id);
    const POAManagerInfo* const record = !*id                   ? default_poa_manager_info
                                         : found == made_.end() ? nullptr
                                                                : found->second;
    return with_memory(ev,
                       [&] { return record ? POAManager::_duplicate(record->poamanager_object) : nullptr; });
  }

 private:
  POAManager* make(const char* id, CORBA::Environment& ev) {
    MutexGuard guard(poa_mutex);
    if (!*id || made_.contains(id)) raise<ManagerAlreadyExists>(ev, nullptr);
    default_poa_manager_info->hold_at_gate(ev);
    auto record = std::make_unique<POAManagerInfo>(ev);
    POAManager_var own = record->poamanager_object;  // goes with it
    record->id = id;
    record->hold_at_gate(ev);
    POAManager_var for_caller = POAManager::_duplicate(record->poamanager_object);
    const auto at = made_.emplace(id, nullptr).first;  // from here on nothing fails
    own._retn();
    at->second = record.release();  // like the root POA's, until the process ends
    return for_caller._retn();
  }

  std::map<std::string, POAManagerInfo*, std::less<>> made_ ZR_GUARDED_BY(poa_mutex);
};

}  // namespace

POAManagerFactory* POA::the_POAManagerFactory(CORBA::Environment& ev) {
  ev.clear();
  if (!POANode::find_live(this)) raise<CORBA::BAD_PARAM>(ev, nullptr);
  return with_memory(ev, [] {
    static Factory* const one = new Factory;  // references to it may be let go until the process ends
    return POAManagerFactory::_duplicate(one);
  });
}

}  // namespace PortableServer
