#include "references/method_table.h"

#include <functional>
#include <map>
#include <string>

#include "references/environment.h"
#include "references/reference.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

namespace {

struct Operation {
  ZR_skeleton skeleton = nullptr;
  ZR_method direct = nullptr;
};
using Table = std::map<std::string, Operation, std::less<>>;

struct Tables {
  SharedMutex mutex;
  std::map<std::string, Table, std::less<>> of ZR_GUARDED_BY(mutex);
};

Tables& tables() {
  static Tables* const one = new Tables;  // requests may come until the process ends
  return *one;
}

Operation find(std::string_view intf, std::string_view operation) {
  Tables& all = tables();
  const SharedLock lock(all.mutex);
  const auto table = all.of.find(intf);
  if (table == all.of.end()) return {};
  const auto found = table->second.find(operation);
  return found == table->second.end() ? Operation{} : found->second;
}

// Which interface a table is for: the definition is a reference whose data is the interface's id.
std::string_view described_interface(void* intf_def) {
  const Reference* reference = as_reference(intf_def);
  if (!reference || !reference->is_local()) return {};
  return reference->data().empty() ? std::string_view(reference->intf_name()) : reference->data();
}

}  // namespace

ZR_skeleton find_skeleton(std::string_view intf, std::string_view operation) {
  return find(intf, operation).skeleton;
}
ZR_method find_direct(std::string_view intf, std::string_view operation) {
  return find(intf, operation).direct;
}

bool has_table(std::string_view intf) {
  Tables& all = tables();
  const SharedLock lock(all.mutex);
  return all.of.contains(intf);
}

}  // namespace zrsv

void CORBA_BOA_set_impl_methods(void* /*boa*/, CORBA_Environment* ev, void* intf_def,
                                const char* const* names, const ZR_skeleton* skeletons,
                                const ZR_method* direct) {
  using namespace zrsv;
  const std::string_view intf = described_interface(intf_def);
  if (intf.empty() || !names || !skeletons || !direct) return raise_standard(ev, "BAD_PARAM");
  guarded(ev, [&] {
    Table table;
    for (std::size_t i = 0; names[i]; ++i) table[names[i]] = {skeletons[i], direct[i]};
    Tables& all = tables();
    const SharedMutexLock lock(all.mutex);
    all.of.insert_or_assign(std::string(intf), std::move(table));
  });
}
