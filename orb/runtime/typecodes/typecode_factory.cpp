#include "corba/typecode_factory.h"

#include <set>

#include "base/encoded_stream.h"
#include "base/raise.h"
#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

/// One row a member; names and types stay the caller's.
template <class Members>
std::vector<TypeCode::Member> rows_of(const Members& members) {
  std::vector<TypeCode::Member> rows;
  for (ULong i = 0; i < members.length(); ++i)
    rows.push_back({members[i].name.in(), &static_cast<TypeCode* const&>(members[i].type)});
  return rows;
}

bool is_default_label(const Any& label, const TypeCode* discriminator) {
  return TypeCode_var(label.type())->kind() == tk_octet && unalias(discriminator)->kind() != tk_octet;
}

/// The number of a label of that type; false for one of another type.
bool label_number(const Any& label, const TypeCode* discriminator, LongLong& number) {
  EncodedStream stream;
  if (!TypeCode_var(label.type())->equivalent(discriminator) || !label.encode_value(stream)) return false;
  CDR cdr = stream.reader();
  return move_discriminator(&cdr, discriminator, number);
}

/// Fills in the labels; the index of the default member, or -1.
Long set_labels(const UnionMemberSeq& members, const TypeCode* discriminator,
                std::vector<TypeCode::Member>& rows, Environment& ev) {
  Long default_index = -1;
  std::set<LongLong> numbers;
  for (ULong i = 0; i < members.length(); ++i) {
    if (is_default_label(members[i].label, discriminator)) {
      if (default_index >= 0) raise<BAD_PARAM>(ev);
      default_index = static_cast<Long>(i);
    } else if (!label_number(members[i].label, discriminator, rows[i].label) ||
               !numbers.insert(rows[i].label).second) {
      raise<BAD_PARAM>(ev);
    }
  }
  return default_index;
}

}  // namespace

TypeCode* TypeCodeFactory::create_struct_tc(const char* id, const char* name, const StructMemberSeq& members,
                                            Environment& ev) {
  return TypeCode::create_named_tc(tk_struct, {.id = id, .name = name, .members = rows_of(members)}, ev);
}

TypeCode* TypeCodeFactory::create_exception_tc(const char* id, const char* name,
                                               const StructMemberSeq& members, Environment& ev) {
  return TypeCode::create_named_tc(tk_except, {.id = id, .name = name, .members = rows_of(members)}, ev);
}

TypeCode* TypeCodeFactory::create_union_tc(const char* id, const char* name, TypeCode* discriminator,
                                           const UnionMemberSeq& members, Environment& ev) {
  ev.clear();
  if (!is_discriminator(discriminator)) raise<BAD_TYPECODE>(ev);
  auto rows = rows_of(members);
  const Long default_index = set_labels(members, discriminator, rows, ev);
  return TypeCode::create_named_tc(
      tk_union,
      {.id = id, .name = name, .members = rows, .content = &discriminator, .default_index = default_index},
      ev);
}

TypeCode* TypeCodeFactory::create_enum_tc(const char* id, const char* name, const EnumMemberSeq& members,
                                          Environment& ev) {
  std::vector<const char*> names;
  for (ULong i = 0; i < members.length(); ++i) names.push_back(members[i].in());
  return TypeCode::create_enum_tc(id, name, names, ev);
}

TypeCode* TypeCodeFactory::create_value_tc(const char* id, const char* name, ValueModifier modifier,
                                           TypeCode* concrete_base, const ValueMemberSeq& members,
                                           Environment& ev) {
  auto rows = rows_of(members);
  for (ULong i = 0; i < members.length(); ++i) rows[i].visibility = members[i].access;
  return TypeCode::create_named_tc(
      tk_value, {.id = id, .name = name, .members = rows, .content = &concrete_base, .modifier = modifier},
      ev);
}

TypeCode* TypeCodeFactory::create_alias_tc(const char* id, const char* name, TypeCode* original,
                                           Environment& ev) {
  return TypeCode::create_alias_tc(id, name, original, ev);
}
TypeCode* TypeCodeFactory::create_value_box_tc(const char* id, const char* name, TypeCode* boxed,
                                               Environment& ev) {
  return TypeCode::create_named_tc(tk_value_box, {.id = id, .name = name, .content = &boxed}, ev);
}
TypeCode* TypeCodeFactory::create_interface_tc(const char* id, const char* name, Environment& ev) {
  return TypeCode::create_named_tc(tk_objref, {id, name}, ev);
}
TypeCode* TypeCodeFactory::create_abstract_interface_tc(const char* id, const char* name, Environment& ev) {
  return TypeCode::create_named_tc(tk_abstract_interface, {id, name}, ev);
}
TypeCode* TypeCodeFactory::create_local_interface_tc(const char* id, const char* name, Environment& ev) {
  return TypeCode::create_named_tc(tk_local_interface, {id, name}, ev);
}
TypeCode* TypeCodeFactory::create_native_tc(const char* id, const char* name, Environment& ev) {
  return TypeCode::create_named_tc(tk_native, {id, name}, ev);
}
TypeCode* TypeCodeFactory::create_string_tc(ULong bound, Environment& ev) {
  return TypeCode::create_string_tc(bound, ev);
}
TypeCode* TypeCodeFactory::create_wstring_tc(ULong bound, Environment& ev) {
  return TypeCode::create_wstring_tc(bound, ev);
}
TypeCode* TypeCodeFactory::create_fixed_tc(UShort digits, Short scale, Environment& ev) {
  return TypeCode::create_fixed_tc(digits, scale, ev);
}
TypeCode* TypeCodeFactory::create_sequence_tc(ULong bound, TypeCode* element, Environment& ev) {
  return TypeCode::create_sequence_tc(bound, element, ev);
}
TypeCode* TypeCodeFactory::create_array_tc(ULong length, TypeCode* element, Environment& ev) {
  return TypeCode::create_array_tc(length, element, ev);
}
TypeCode* TypeCodeFactory::create_recursive_tc(const char* id, Environment& ev) {
  return TypeCode::create_recursive_tc(id, ev);
}

}  // namespace CORBA
