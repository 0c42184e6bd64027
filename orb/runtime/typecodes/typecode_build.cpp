// Making counted TypeCodes, and giving them back.
#include <algorithm>
#include <map>

#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

constexpr UShort max_fixed_digits = 31;

bool can_be_part(const TypeCode* type) {
  return type && type->kind() != tk_null && type->kind() != tk_void && type->kind() != tk_except;
}

/// Calls `see(const TypeCode&)` for each part.
template <class See>
void each_part(const TypeCode::Parameters& parameters, See&& see) {
  if (parameters.content && *parameters.content) see(**parameters.content);
  for (const TypeCode::Member& member : parameters.members) {
    if (member.type && *member.type) see(**member.type);
  }
}

/// How deep a constant is nested: they may contain themselves, and say nothing about it.
class ConstantDepth {
 public:
  ULong of(const TypeCode& type) {
    const auto [place, fresh] = known_.try_emplace(&type, 0);
    if (!fresh) return place->second;  // 0 while it is looked at: it contains itself
    ULong deepest = 0;
    each_part(type.parameters(), [&](const TypeCode& part) { deepest = std::max(deepest, of(part)); });
    return known_[&type] = deepest + 1;
  }

 private:
  std::map<const TypeCode*, ULong> known_;
};

bool has_right_parts(TCKind kind, const TypeCode::Parameters& parameters) {
  const auto right = [](const TypeCode::Member& member) {
    return can_be_part(member.type ? *member.type : nullptr);
  };
  if (has(kind, has_typed_members) && !std::ranges::all_of(parameters.members, right)) return false;
  const TypeCode* content = parameters.content ? *parameters.content : nullptr;
  switch (kind) {
    case tk_struct:
      return !parameters.members.empty();
    case tk_union:
      return is_discriminator(content) && parameters.default_index >= -1 &&
             parameters.default_index < static_cast<Long>(parameters.members.size());
    case tk_value:
      return !content || content->kind() == tk_value || content->kind() == tk_recursive;
    case tk_fixed:
      return is_fixed_size(parameters.length, parameters.scale);
    case tk_array:
      if (parameters.length == 0) return false;
      [[fallthrough]];
    default:
      return !has(kind, has_content) || can_be_part(content);
  }
}

}  // namespace

bool is_fixed_size(ULong digits, Long scale) {
  return digits > 0 && digits <= max_fixed_digits && scale >= 0 && scale <= static_cast<Long>(digits);
}

TypeCode::Graph::~Graph() {
  for (const TypeCode& node : nodes) {
    each_part(node.parameters(), [this](const TypeCode& part) {
      if (part.graph_ != this) release(const_cast<TypeCode*>(&part));
    });
  }
}

TypeCodeBuilder::TypeCodeBuilder(bool from_wire) : graph_(std::make_unique<TypeCode::Graph>()) {
  graph_->from_wire = from_wire;
}

TypeCodeBuilder::~TypeCodeBuilder() = default;

TypeCode* TypeCodeBuilder::add(TCKind kind) {
  TypeCode& node = graph_->nodes.emplace_back(kind);
  node.graph_ = graph_.get();
  return &node;
}

bool TypeCodeBuilder::complete(TypeCode* node, const TypeCode::Parameters& parameters) {
  if (!has_right_parts(node->kind(), parameters)) return false;
  ULong deepest = 0;
  bool open = node->kind() == tk_recursive;
  each_part(parameters, [&](const TypeCode& part) {
    const bool is_constant = !part.graph_ && !is_simple(part.kind());
    deepest = std::max(deepest, is_constant ? ConstantDepth().of(part) : part.depth_);
    open = open || part.open_;
  });
  if (deepest >= TypeCode::max_depth) return false;
  node->parameters_ = parameters;
  node->depth_ = deepest + 1;
  node->open_ = open;
  each_part(parameters, [&](const TypeCode& part) {
    if (!owns(part)) TypeCode::_duplicate(const_cast<TypeCode*>(&part));
  });
  return true;
}

const char* TypeCodeBuilder::text(std::string_view text) {
  return text.empty() ? "" : graph_->texts.emplace_back(text).c_str();
}

std::span<const TypeCode::Member> TypeCodeBuilder::members(std::vector<TypeCode::Member> rows) {
  if (rows.empty()) return {};
  return graph_->members.emplace_back(std::move(rows));
}

TypeCode* TypeCodeBuilder::finish(TypeCode* root) {
  graph_.release();
  return root;
}

TypeCode* make_typecode(TCKind kind, const TypeCode::Parameters& parameters) {
  TypeCodeBuilder builder;
  TypeCode* node = builder.add(kind);
  TypeCode::Parameters own = parameters;
  own.id = builder.text(parameters.id);
  own.name = builder.text(parameters.name);
  std::vector<TypeCode::Member> rows(parameters.members.begin(), parameters.members.end());
  // A part is named by its own cell from here on: the caller's may be gone soon.
  for (TypeCode::Member& row : rows) {
    row.name = builder.text(row.name);
    if (row.type && *row.type) row.type = (*row.type)->at();
  }
  own.content = own.content && *own.content ? (*own.content)->at() : nullptr;
  own.members = builder.members(std::move(rows));
  return builder.complete(node, own) ? builder.finish(node) : nullptr;
}

TypeCode* make_text_typecode(TCKind kind, ULong bound) {
  return bound == 0 ? simple_typecode(kind) : make_typecode(kind, {.length = bound});
}

TypeCode* TypeCode::_duplicate(TypeCode* type) {
  if (type && type->graph_) type->graph_->count.fetch_add(1, std::memory_order_relaxed);
  return type;
}

void release(TypeCode* type) {
  if (!type || !type->graph_ || type->graph_->count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  delete type->graph_;
}

}  // namespace CORBA
