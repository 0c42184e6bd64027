// The creators, and copies of types: with a circle closed, or without names.
#include <map>

#include "base/raise.h"
#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

/// Copies types into the graph of a builder, once each, so that circles stay circles.
class GraphCopy {
 public:
  GraphCopy(TypeCodeBuilder& builder, bool names) : builder_(builder), names_(names) {}

  /// What stands for `id` becomes `root`, and only types that contain such a thing are copied.
  void close(const char* id, TypeCode* root) {
    id_ = id;
    root_ = root;
  }

  /// Completes `node` after the pattern of `parameters`. `apart`: the parts are not inside the type itself.
  bool fill(TypeCode* node, const TypeCode::Parameters& parameters, bool apart, ULong depth) {
    TypeCode::Parameters own = parameters;
    own.id = builder_.text(parameters.id);
    own.name = name(parameters.name);
    if (own.content && *own.content && !copy(own.content, apart, depth)) return false;
    std::vector<TypeCode::Member> rows(parameters.members.begin(), parameters.members.end());
    for (TypeCode::Member& row : rows) {
      row.name = name(row.name);
      if (row.type && *row.type && !copy(row.type, apart, depth)) return false;
    }
    own.members = builder_.members(std::move(rows));
    return builder_.complete(node, own);
  }

  bool copy(TypeCode* const*& part, bool apart, ULong depth) {
    TypeCode* made = copied(**part, apart, depth);
    if (made) part = made->at();
    return made != nullptr;
  }

 private:
  const char* name(const char* text) { return names_ ? builder_.text(text) : ""; }

  TypeCode* copied(TypeCode& type, bool apart, ULong depth) {
    if (is_root(type)) return apart ? root_ : nullptr;
    const bool stays = root_ ? !TypeCodeBuilder::is_open(type) : is_simple(type.kind());
    if (stays || depth == 0) return stays ? &type : nullptr;
    const auto [place, fresh] = copies_.try_emplace(&type, nullptr);
    if (!fresh) return place->second;
    TypeCode* node = copies_[&type] = builder_.add(type.kind());
    const bool inside_apart = apart || type.kind() == tk_sequence || type.kind() == tk_value;
    return fill(node, type.parameters(), inside_apart, depth - 1) ? node : nullptr;
  }

  bool is_root(const TypeCode& type) const {
    return root_ && type.kind() == tk_recursive && std::strcmp(type.parameters().id, id_) == 0;
  }

  TypeCodeBuilder& builder_;
  bool names_;
  const char* id_ = nullptr;
  TypeCode* root_ = nullptr;
  std::map<const TypeCode*, TypeCode*> copies_;
};

constexpr ULong max_copy_depth = 1024;  // types that go round in large circles

bool can_contain_itself(TCKind kind) { return kind == tk_struct || kind == tk_union || kind == tk_value; }

bool has_open_part(const TypeCode::Parameters& parameters) {
  if (parameters.content && *parameters.content && TypeCodeBuilder::is_open(**parameters.content))
    return true;
  for (const TypeCode::Member& row : parameters.members) {
    if (row.type && *row.type && TypeCodeBuilder::is_open(**row.type)) return true;
  }
  return false;
}

TypeCode* close_circles(TCKind kind, const TypeCode::Parameters& parameters) {
  TypeCodeBuilder builder;
  GraphCopy copy(builder, /*names=*/true);
  TypeCode* root = builder.add(kind);
  copy.close(parameters.id, root);
  return copy.fill(root, parameters, kind == tk_value, max_copy_depth) ? builder.finish(root) : nullptr;
}

TypeCode* made_or_raise(TypeCode* made, Environment& ev) {
  if (!made) raise<BAD_TYPECODE>(ev);
  return made;
}

TypeCode* create_record(TCKind kind, const char* id, const char* name,
                        const std::vector<TypeCode::NamedType>& members, Environment& ev) {
  std::vector<TypeCode::Member> rows;
  rows.reserve(members.size());
  for (const TypeCode::NamedType& each : members) rows.push_back({each.name, &each.type});
  return TypeCode::create_named_tc(kind, {.id = id, .name = name, .members = rows}, ev);
}

TypeCode* create_list(TCKind kind, ULong length, TypeCode* element, Environment& ev) {
  ev.clear();
  return made_or_raise(make_typecode(kind, {.content = &element, .length = length}), ev);
}

}  // namespace

TypeCode* TypeCode::create_named_tc(TCKind kind, const Parameters& parameters, Environment& ev) {
  ev.clear();
  if (!has(kind, has_id) || !parameters.id || !parameters.name) raise<BAD_PARAM>(ev);
  for (const Member& each : parameters.members) {
    if (!each.name) raise<BAD_PARAM>(ev);
  }
  const bool circles = can_contain_itself(kind) && has_open_part(parameters);
  return made_or_raise(circles ? close_circles(kind, parameters) : make_typecode(kind, parameters), ev);
}

TypeCode* TypeCode::get_compact_typecode(Environment& ev) const {
  ev.clear();
  auto* self = const_cast<TypeCode*>(this);
  if (is_simple(kind_)) return self;
  TypeCodeBuilder builder;
  GraphCopy copy(builder, /*names=*/false);
  TypeCode* const* made = self->at();
  if (open_ || !copy.copy(made, true, max_copy_depth)) raise<BAD_TYPECODE>(ev);
  return builder.finish(*made);
}

TypeCode* TypeCode::create_struct_tc(const char* id, const char* name, const std::vector<NamedType>& members,
                                     Environment& ev) {
  return create_record(tk_struct, id, name, members, ev);
}

TypeCode* TypeCode::create_exception_tc(const char* id, const char* name,
                                        const std::vector<NamedType>& members, Environment& ev) {
  return create_record(tk_except, id, name, members, ev);
}

TypeCode* TypeCode::create_enum_tc(const char* id, const char* name, const std::vector<const char*>& members,
                                   Environment& ev) {
  std::vector<Member> rows;
  rows.reserve(members.size());
  for (const char* each : members) rows.push_back({each});
  return create_named_tc(tk_enum, {.id = id, .name = name, .members = rows}, ev);
}

TypeCode* TypeCode::create_alias_tc(const char* id, const char* name, TypeCode* original, Environment& ev) {
  return create_named_tc(tk_alias, {.id = id, .name = name, .content = &original}, ev);
}

TypeCode* TypeCode::create_interface_tc(const char* id, const char* name, Environment& ev) {
  return create_named_tc(tk_objref, {id, name}, ev);
}

TypeCode* TypeCode::create_string_tc(ULong bound, Environment& ev) {
  ev.clear();
  return make_text_typecode(tk_string, bound);
}

TypeCode* TypeCode::create_wstring_tc(ULong bound, Environment& ev) {
  ev.clear();
  return make_text_typecode(tk_wstring, bound);
}

TypeCode* TypeCode::create_fixed_tc(UShort digits, Short scale, Environment& ev) {
  ev.clear();
  if (!is_fixed_size(digits, scale)) raise<BAD_PARAM>(ev);
  return make_typecode(tk_fixed, {.length = digits, .scale = scale});
}

TypeCode* TypeCode::create_sequence_tc(ULong bound, TypeCode* element, Environment& ev) {
  return create_list(tk_sequence, bound, element, ev);
}

TypeCode* TypeCode::create_array_tc(ULong length, TypeCode* element, Environment& ev) {
  return create_list(tk_array, length, element, ev);
}

TypeCode* TypeCode::create_recursive_tc(const char* id, Environment& ev) {
  ev.clear();
  if (!id || !*id) raise<BAD_PARAM>(ev);
  return make_typecode(tk_recursive, {.id = id});
}

}  // namespace CORBA
