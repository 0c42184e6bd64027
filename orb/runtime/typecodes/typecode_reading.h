// What the two encoded forms of TypeCodes have in common. Each form is a reader of numbers, texts and nested
// TypeCodes; what it reads is put together here.
#pragma once

#include <memory>

#include "typecodes/typecode_details.h"

namespace CORBA {

/// The number of elements of some encoding is never trusted further than the octets behind it reach.
inline bool fits(ULong count, std::size_t shortest, std::size_t left) {
  return std::uint64_t{count} * shortest <= left;
}

/// The parameters of one node, while they are read. `depth` is how many more levels may be nested.
template <class Reader>
class ParameterReader {
 public:
  ParameterReader(Reader& reader, TypeCodeBuilder& builder, TypeCode* node, ULong depth)
      : reader_(reader), builder_(builder), node_(node), depth_(depth) {}

  bool read() {
    if (!has(kind(), has_id)) return list() && builder_.complete(node_, parameters_);
    if (!text(parameters_.id) || !text(parameters_.name) || !head()) return false;
    return (!has(kind(), has_members) || members()) && builder_.complete(node_, parameters_);
  }

 private:
  TCKind kind() const { return node_->kind(); }

  bool text(const char*& into) {
    std::string_view view;
    if (!reader_.text(&view)) return false;
    into = builder_.text(view);
    return true;
  }

  bool part(TypeCode* const*& into, TypeCode* type) {
    if (type) into = type->at();
    return type != nullptr;
  }

  bool list() {
    return part(parameters_.content, reader_.element(depth_)) && reader_.length(&parameters_.length);
  }

  /// What stands between the name and the members.
  bool head() {
    switch (kind()) {
      case tk_alias:
      case tk_value_box:
        return part(parameters_.content, reader_.nested(depth_));
      case tk_union:
        return part(parameters_.content, reader_.nested(depth_)) && is_discriminator(*parameters_.content) &&
               reader_.number(&parameters_.default_index);
      case tk_value:
        return reader_.number(&parameters_.modifier) && part(parameters_.content, reader_.nested(depth_)) &&
               base();
      default:
        return true;
    }
  }

  bool base() {
    if ((*parameters_.content)->kind() == tk_null) parameters_.content = nullptr;
    return true;
  }

  bool members() {
    ULong count = 0;
    if (!reader_.count(&count)) return false;
    std::vector<TypeCode::Member> rows;
    for (ULong i = 0; i < count; ++i) {
      TypeCode::Member row;
      if (!member(row)) return false;
      rows.push_back(row);
    }
    parameters_.members = builder_.members(std::move(rows));
    return true;
  }

  bool member(TypeCode::Member& row) {
    if (kind() == tk_union && !reader_.label(*parameters_.content, &row.label)) return false;
    if (!text(row.name)) return false;
    if (kind() != tk_enum && !part(row.type, reader_.nested(depth_))) return false;
    return kind() != tk_value || reader_.number(&row.visibility);
  }

  Reader& reader_;
  TypeCodeBuilder& builder_;
  TypeCode* node_;
  ULong depth_;
  TypeCode::Parameters parameters_;
};

/// Completes `node`; false for what is malformed.
template <class Reader>
bool read_parameters(Reader& reader, TypeCodeBuilder& builder, TypeCode* node, ULong depth) {
  return ParameterReader<Reader>(reader, builder, node, depth).read();
}

}  // namespace CORBA
