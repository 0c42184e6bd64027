#include "dispatch/requesttarget.h"

#include <cstdlib>
#include <string>

#include "base/locks.h"
#include "base/raise.h"
#include "objects/adapteractivation.h"
#include "zrsv/of_thread.h"

namespace {

/// The child of that name, asked of the adapter activator when it is not there, and waited for while one
/// fills it. In this order, because an activator makes itself known before it makes the POA.
POAInfoPtr ready_child(const POAInfoPtr& parent, const char* name, CORBA::Environment& ev) {
  POAInfoPtr child = parent->findChildByName(name, ev, 1);
  if (AdapterActivation::wait_for_others(parent->identity, name))
    child = parent->findChildByName(name, ev, 1);
  return child;
}

/// The POA of a reference without reference data: named by its implementation and interface ids.
POAInfoPtr find_by_ids(CORBA::Object* reference, CORBA::Environment& ev) {
  CORBA_Environment core{};
  const char* intf = ZR_object_get_IntfID(reference->get_ref(), 0, &core);
  POAInfoPtr parent = record_of(root_poa_info->shared_from_this());
  if (std::getenv("ZR_IMPLID")) {
    POA_TRACE("POAInfo::findPOAInfoByReference intfid=%s", intf);
  } else {
    const char* impl = ZR_object_get_ImplID(reference->get_ref(), 0, &core);
    POA_TRACE("POAInfo::findPOAInfoByReference implid=%s intfid=%s", impl, intf);
    parent = ready_child(parent, impl, ev);
  }
  return ready_child(parent, intf, ev);
}

/// The POA that the last request on the thread went to: the next one often goes there, too.
struct LastPoa {
  std::string front;  // of the data of its references: what stands before the object id and its length
  CORBA::ULong name_length = 0, id_assignment = 0;  // as they stand there
  std::weak_ptr<POAInfo> poa;
  std::uint64_t tree = 0;  // POANode::tree_changes when it was found
};

/// Under the tree's lock.
void remember(const ReferenceDataView& data, const POAInfoPtr& poa) {
  LastPoa* const last = zrsv::of_thread<LastPoa>();
  if (!last) return;
  const char* const start = data.name_part.data() - 4;
  last->tree = 0;  // until all is there
  last->front = {start, static_cast<std::size_t>(data.object_id.data() - 4 - start)};
  last->name_length = static_cast<CORBA::ULong>(data.name_part.size());
  last->id_assignment = data.id_assignment;
  last->poa = poa;
  last->tree = POANode::tree_changes;
}

/// Reads the data of one of its objects, and finds it, while the tree is what it was: one comparison says what was read
/// of it then. False when all is to be read.
bool read_as_last(const unsigned char* octets, uint32_t length, RequestTarget& target) {
  const LastPoa* const last = zrsv::of_thread<LastPoa>();
  if (!last || last->tree != POANode::tree_changes) return false;
  const std::string_view data(reinterpret_cast<const char*>(octets), length), front = last->front;
  if (!data.starts_with(front) || !target.data.parse_id(data.substr(front.size()))) return false;
  target.data.name_part = data.substr(4, last->name_length);
  target.data.id_assignment = last->id_assignment;
  target.poa = last->poa.lock();
  return target.poa && !AdapterActivation::any();
}

/// All POAs of the path are there, as a rule. Null when one is missing.
POAInfoPtr find_existing(std::string_view path, const ReferenceDataView& data) {
  MutexGuard guard(poa_mutex);
  POANode* poa = root_poa_info;
  for (PathNames names(path); const auto name = names.next();) {
    poa = poa->child_named(*name);
    if (!poa) return nullptr;
  }
  POAInfoPtr found = record_of(poa->shared_from_this());
  remember(data, found);
  return found;
}

/// POA by POA: missing ones are asked of adapter activators, and those that one is still filling are waited
/// for.
POAInfoPtr walk(std::string_view path, const ReferenceDataView& data, CORBA::Environment& ev) {
  if (path.empty()) return record_of(root_poa_info->shared_from_this());
  if (!OM_TRACE_IS_ON) {
    if (POAInfoPtr found = find_existing(path, data); found && !AdapterActivation::any()) return found;
  }
  POAInfoPtr poa = record_of(root_poa_info->shared_from_this());
  for (PathNames names(path); const auto name = names.next();)
    poa = ready_child(poa, std::string(*name).c_str(), ev);
  POA_TRACE("findPOAInfoByReference end...[Reverse order of qualified name]");
  return poa;
}

void trace_names(std::string_view path) {
  if (!OM_TRACE_IS_ON) return;
  POA_TRACE("  reference_name = %.*s", static_cast<int>(path.size()), path.data());
  std::string qualified;
  for (PathNames names(path); const auto name = names.next();) qualified.append(*name).append(poa_seperator);
  qualified.pop_back();
  POA_TRACE("  qualified_name=%s", qualified.c_str());
}

}  // namespace

RequestTarget RequestTarget::find(CORBA::Object* reference, CORBA::Environment& ev) {
  POA_TRACE("findPOAInfoByReference called...");
  if (CORBA::is_nil(reference)) {
    POA_TRACE("reference is_nil! throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference is nil.]");
  }
  RequestTarget target;
  target.object = reference;
  const unsigned char* octets = nullptr;
  uint32_t length = 0;
  if (!ZR_object_peek_id(reference->get_ref(), &octets, &length)) return target;
  if (length == 0) {
    target.poa = find_by_ids(reference, ev);
    return target;
  }
  if (length < 4) {
    POA_TRACE("reference_data is_nil!. throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference_data length is 0.]");
  }
  if (!OM_TRACE_IS_ON && read_as_last(octets, length, target)) [[likely]] {
    target.has_data = true;
    return target;
  }
  // No name part, parts that pass the end, and a path too long to have been made here are all refused alike.
  const bool whole = target.data.parse(octets, length) && !target.data.name_part.empty();
  const std::string_view path = whole ? target.data.path() : "";
  if (!whole || path.size() >= NAME_PART_MAXIMUM) {
    POA_TRACE("bad reference data. throw CORBA::StExcep::BAD_PARAM.");
    raise<CORBA::BAD_PARAM>(ev, "findPOAInfoByReference [reference_data length is invalid.]");
  }
  target.has_data = true;
  trace_names(path);
  target.poa = walk(path, target.data, ev);
  return target;
}

POAInfoPtr findPOAInfoByReference(CORBA::Object* reference, CORBA::Environment& ev) {
  return RequestTarget::find(reference, ev).poa;
}
