// How TypeCodes are put together: the one place that makes counted ones.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corba/typecode.h"

namespace CORBA {

/// What belongs together and is freed together: a type that was created, or all types of one decoded description,
/// which may refer to each other in circles. Edges within a graph are not counted, edges to other graphs are.
struct TypeCode::Graph {
  std::atomic<ULong> count{1};
  bool from_wire = false;  // a node that occurs twice was encoded once
  std::list<TypeCode> nodes;
  std::list<std::string> texts;
  std::list<std::vector<Member>> members;

  Graph() = default;
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;
  ~Graph();
};

/// Makes the nodes of one graph.
class TypeCodeBuilder {
 public:
  explicit TypeCodeBuilder(bool from_wire = false);
  TypeCodeBuilder(TypeCodeBuilder&&) = default;
  TypeCodeBuilder& operator=(TypeCodeBuilder&&) = default;
  ~TypeCodeBuilder();

  /// A node without parameters yet: it may be named as a part already.
  TypeCode* add(TCKind kind);
  /// The node's parameters: parts are nodes of this graph, or types that are counted once more. False, and nothing
  /// taken, for what no type may be: a part that cannot be one, a struct or an array without octets, a union
  /// without a discriminator, nesting deeper than TypeCode::max_depth.
  bool complete(TypeCode* node, const TypeCode::Parameters& parameters);

  const char* text(std::string_view text);
  std::span<const TypeCode::Member> members(std::vector<TypeCode::Member> rows);
  /// Hands the graph out by one of its nodes, with one count.
  TypeCode* finish(TypeCode* root);

  static bool is_open(const TypeCode& type) { return type.open_; }
  bool owns(const TypeCode& type) const { return type.graph_ == graph_.get(); }
  static bool is_decoded(const TypeCode& type) { return type.graph_ && type.graph_->from_wire; }

 private:
  std::unique_ptr<TypeCode::Graph> graph_;
};

/// What kinds have.
enum TypeCodeTrait : unsigned {
  has_id = 1,
  has_members = 2,
  has_typed_members = 4,
  has_content = 8,
  has_length = 16
};
bool has(TCKind kind, TypeCodeTrait trait);

/// Kinds that are described by their number alone.
bool is_simple(TCKind kind);
/// The shared constant of a simple kind, or of a string or wide string without bound.
TypeCode* simple_typecode(TCKind kind);
/// A counted TypeCode of one node; null when no type may be so.
TypeCode* make_typecode(TCKind kind, const TypeCode::Parameters& parameters);
/// A string or wide string TypeCode; the shared constant when there is no bound.
TypeCode* make_text_typecode(TCKind kind, ULong bound);

/// The type behind all aliases, not duplicated; null for one that is still being made.
const TypeCode* unalias(const TypeCode* type);

/// Moves a discriminator value of that type by the stream's direction. False for a type that is none.
bool move_discriminator(CDR* cdr, const TypeCode* type, LongLong& value);
bool is_discriminator(const TypeCode* type);

bool is_fixed_size(ULong digits, Long scale);

}  // namespace CORBA
