#include "records/poanode.h"

#include <cstring>
#include <utility>

#include "base/trace.h"
#include "objects/referencedata.h"
#include "zrsv/of_thread.h"

PortableServer::POA* POANode::root_poa = nullptr;
std::atomic<std::uint64_t> POANode::tree_changes{1};

POANode* root_poa_info = nullptr;

// ---- Those that are alive ----

namespace {

/// By identity; it owns them. Never destroyed: POAs live until the process ends.
std::unordered_map<Identity, POANodePtr>& live_nodes() ZR_REQUIRES(poa_mutex) {
  static auto& nodes = *new std::unordered_map<Identity, POANodePtr>;
  return nodes;
}

/// The one that the thread found last.
struct LastNode {
  Identity identity = 0;
  std::weak_ptr<POANode> node;
  std::uint64_t tree = 0;  // POANode::tree_changes when it was found
};

POANodePtr live_node(Identity identity) {
  LastNode* const last = zrsv::of_thread<LastNode>();
  if (last && last->identity == identity && last->tree == POANode::tree_changes)
    if (POANodePtr node = last->node.lock()) return node;
  MutexGuard guard(poa_mutex);
  const auto found = live_nodes().find(identity);
  if (found == live_nodes().end()) return nullptr;
  if (last) *last = {identity, found->second, POANode::tree_changes};
  return found->second;
}

}  // namespace

POANode::~POANode() { CORBA::string_free(adapter_name); }

POANodePtr POANode::find_live(PortableServer::POA* object) {
  POA_TRACE("POAInfo::findPOAInfo called...");
  Identity wanted = 0;
  switch (read_reference_data(object, &wanted, sizeof wanted)) {
    case DataRead::failed:
      POA_TRACE("POAInfo::findPOAInfo end... [return NULL : exeption]");
      return nullptr;
    case DataRead::too_short:
      POA_TRACE("POAInfo::findPOAInfo end... [return NULL 1]");
      return nullptr;
    case DataRead::whole:
      break;
  }
  POANodePtr node = live_node(wanted);
  // The table is the proof of life; the walk through the tree is for its trace lines.
  if (!node || (OM_TRACE_IS_ON && !is_existent(node.get()))) {
    POA_TRACE("POAInfo::findPOAInfo end... [return NULL 2]");
    return nullptr;
  }
  POA_TRACE("POAInfo::findPOAInfo end... [find POAInfo]");
  return node;
}

bool POANode::is_existent(const POANode* target) {
  POA_TRACE("POAInfo::is_existent called...");
  if (!target) return false;
  if (!root_poa_info) {
    POA_TRACE("not exist...");
    return false;
  }
  MutexGuard guard(poa_mutex);
  const bool exists = is_below(root_poa_info, target);
  POA_TRACE("POAInfo::is_existent end...");
  return exists;
}

bool POANode::is_below(const POANode* parent, const POANode* target) {
  POA_TRACE("POAInfo::is_existent_sub called...");
  if (parent == target) return true;
  for (const POANode* child = parent->first_child; child; child = child->siblings) {
    if (child == target) {
      POA_TRACE("POAInfo::is_existent_sub end...[exist]");
      return true;
    }
    if (is_below(child, target)) return true;
  }
  POA_TRACE("POAInfo::is_existent_sub end...[not exist]");
  return false;
}

void POANode::enter_live(const POANodePtr& node) {
  live_nodes().emplace(node->identity, node);
  ++tree_changes;
}

bool POANode::is_live() const { return live_nodes().count(identity) != 0; }

void POANode::remove_from_list(POANode* target) {
  POA_TRACE("POAInfo::remove_from_list called...");
  if (!target || !root_poa_info) return;
  const POANodePtr hold = target->shared_from_this();  // so that it is deleted with the lock given back
  MutexGuard guard(poa_mutex);
  const bool is_first = target->parent && target->parent->first_child == target;
  const bool removed = target->unlink_from_parent();
  if (is_first) return;
  if (removed) {
    POA_TRACE("POAInfo::remove_from_list end...[removed. POAInfo=0x%lx]", trace_address(target));
  } else {
    POA_TRACE("POAInfo::remove_from_list end...[not removed]");
  }
}

// ---- The tree ----

POANode* POANode::child_named(std::string_view name) const {
  const auto found = children.find(name);
  return found == children.end() ? nullptr : found->second;
}

void POANode::link_child(const POANodePtr& child) {
  const auto named = children.emplace(child->adapter_name, child.get()).first;
  try {
    enter_live(child);  // from here on nothing fails
  } catch (...) {
    children.erase(named);
    throw;
  }
  child->parent = this;
  child->parent_node = shared_from_this();
  child->siblings = first_child;
  if (first_child) first_child->newer_sibling = child.get();
  first_child = child.get();
}

bool POANode::unlink_from_parent() {
  if (!parent || parent->child_named(adapter_name) != this) return false;
  parent->children.erase(adapter_name);
  (newer_sibling ? newer_sibling->siblings : parent->first_child) = siblings;
  if (siblings) siblings->newer_sibling = newer_sibling;
  live_nodes().erase(identity);
  ++tree_changes;
  return true;
}

// ---- Its name in references ----

bool POANode::createNameReferenceData(CORBA_sequence_octet* referenceData) const {
  POA_TRACE("POAInfo::createNameReferenceData called...");
  SequenceWriter out(*referenceData);
  for (const POANode* poa = this; poa && poa != root_poa_info; poa = poa->parent) {
    if (out.used() != 0 && !out.put(poa_seperator)) return false;
    if (!out.put(poa->adapter_name)) return false;
  }
  POA_TRACE("createNameReferenceData end...[length = %d]", static_cast<int>(out.used()));
  return out.put(std::string_view("\0", 1)) && out.finish();
}

std::size_t POANode::name_part_length(std::string_view name) const {
  std::size_t length = name.size() + 1;
  for (const POANode* poa = this; poa && poa != root_poa_info; poa = poa->parent)
    length += std::strlen(poa->adapter_name) + 1;
  return length;
}
