// A POA's place in the tree, and the table of the POAs that are alive: what is known of a POA without its policies
// and its objects.
#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>

#include "base/locks.h"
#include "objects/objecthome.h"

class POANode;
/// In use: it stays until the last holder lets go, also when its POA is destroyed meanwhile.
using POANodePtr = std::shared_ptr<POANode>;

/// The part of a POAInfo, which each of them is, that stands in the tree. Any thread.
class POANode : public ObjectHome, public std::enable_shared_from_this<POANode> {
 public:
  POANode(const POANode&) = delete;
  POANode& operator=(const POANode&) = delete;
  ObjectHomePtr share() override { return shared_from_this(); }

  // ---- Those that are alive ----
  /// That of a POA object, or null. Never raises.
  static POANodePtr find_live(PortableServer::POA* object);
  static bool is_existent(const POANode* target);
  /// Into the table, which holds it.
  static void enter_live(const POANodePtr& node) ZR_REQUIRES(poa_mutex);
  bool is_live() const ZR_REQUIRES(poa_mutex);
  /// Unlinks it from its parent's children, and takes it out of the table.
  static void remove_from_list(POANode* target);

  // ---- The tree ----
  /// The child, or null.
  POANode* child_named(std::string_view name) const ZR_REQUIRES(poa_mutex);
  POANode* the_first_child() const ZR_REQUIRES(poa_mutex) { return first_child; }
  const char* the_adapter_name() const { return adapter_name; }
  /// Links a new child with a name, and enters it into the table. std::bad_alloc, and nothing changed.
  void link_child(const POANodePtr& child) ZR_REQUIRES(poa_mutex);
  /// Out of its parent's children and out of the table; false, and nothing changed, when its parent has no such child.
  bool unlink_from_parent() ZR_REQUIRES(poa_mutex);
  /// Writes the name part of the POA's references; false when there is no room.
  bool createNameReferenceData(CORBA_sequence_octet* referenceData) const;
  /// Octets of the name part in the references of a child of that name.
  std::size_t name_part_length(std::string_view name) const;

  POANode* first_child ZR_GUARDED_BY(poa_mutex) = nullptr;
  POANode* siblings ZR_GUARDED_BY(poa_mutex) = nullptr;  // the next child of the same parent; newest first
  POANode* parent = nullptr;           // set before it is linked, and kept when it is unlinked
  std::atomic<bool> destroyed{false};  // being destroyed, or gone; written under poa_mutex
  char* adapter_name = nullptr;        // owned

  static PortableServer::POA* root_poa;
  /// Counts the POAs that came, began to go, and went. While it stands, what was found in the tree is there.
  /// Written under poa_mutex.
  static std::atomic<std::uint64_t> tree_changes;

 protected:
  POANode() = default;
  ~POANode() override;

 private:
  static bool is_below(const POANode* parent, const POANode* target) ZR_REQUIRES(poa_mutex);

  POANode* newer_sibling ZR_GUARDED_BY(poa_mutex) = nullptr;
  std::unordered_map<std::string_view, POANode*> children ZR_GUARDED_BY(poa_mutex);  // by name
  POANodePtr parent_node;  // holds `parent` for as long as someone may follow it
};

extern POANode* root_poa_info;
