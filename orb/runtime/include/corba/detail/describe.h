// Descriptions of the types that an IDL file defines: the specialisations of idl::Type that generated headers
// hold, one a type. What is written there is the type's repository id, its name and its members; CDR,
// TypeCode and Any operators come from that. Of `struct Entry { string<10> text; long amount; };`:
//
//   template <> struct Type<Bank::Entry> : variable_struct<Bank::Entry>
//     id, name     "IDL:Bank/Entry:1.0", "Entry"
//     each         visit("text", value.text, as<string<10>>) && visit("amount", value.amount)
//
// `each` names the members in the order of the IDL and stops at the first that fails. It serves whatever goes over the
// members: marshalling, the TypeCode, the layout in memory (corba/detail/flat.h).
#pragma once

#include "corba/detail/idl_types.h"

namespace CORBA::idl {

// ---- Members ----------------------------------------------------------------------------------------------

/// The descriptor that a member's C++ type stands for, when nothing is said: the type itself, but for what owns
/// something.
template <class V>
struct DescriptorOf {
  using type = V;
};
template <>
struct DescriptorOf<String_mgr> {
  using type = string<>;
};
template <>
struct DescriptorOf<WString_mgr> {
  using type = wstring<>;
};
template <class X>
struct DescriptorOf<ObjectVar<X>> {
  using type = ref<X>;
};
template <>
struct DescriptorOf<TypeCode_var> {
  using type = TypeCode;
};

/// A descriptor as an argument, for members whose C++ type does not say it: `as<string<10>>`.
template <class D>
inline constexpr D* as = nullptr;

/// What the `each` of a description is called with, once a member: its name, the member, and its descriptor
/// where that is not plain from its C++ type.
struct MoveMembers {
  CDR* cdr;
  template <class V>
  bool operator()(const char*, V& member) const {
    return Type<typename DescriptorOf<V>::type>::move(cdr, member);
  }
  template <class V, class D>
  bool operator()(const char*, V& member, D*) const {
    return Type<D>::move(cdr, member);
  }
};
/// Adds a row a member, for a TypeCode.
struct ListMembers {
  std::vector<TypeCode::Member>& list;
  template <class V>
  bool operator()(const char* name, V& member) const {
    return (*this)(name, member, as<typename DescriptorOf<V>::type>);
  }
  template <class V, class D>
  bool operator()(const char* name, V&, D*) const {
    list.push_back({name, typecode_at<D>()});
    return true;
  }
};

/// The members one after the other, by the stream's direction.
template <class T>
bool move_members(CDR* cdr, T& value) {
  return Type<T>::each(MoveMembers{cdr}, value);
}
/// The same members for as long as the process lives, as the TypeCode that they are part of.
inline std::span<const TypeCode::Member> lasting(const std::vector<TypeCode::Member>& list) {
  if (list.empty()) return {};
  auto* kept = new TypeCode::Member[list.size()];
  for (std::size_t i = 0; i < list.size(); ++i) kept[i] = list[i];
  return {kept, list.size()};
}
/// The members of a type with `each`, as its TypeCode has them.
template <class T>
void list_members(TypeCode::Parameters& parameters) {
  std::vector<TypeCode::Member> list;
  T sample;
  Type<T>::each(ListMembers{list}, sample);
  parameters.members = lasting(list);
}
/// The TypeCode of a type that has members; Kind is tk_struct or tk_except.
template <class T, TCKind Kind>
struct BuildMembers {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.id = Type<T>::id;
    parameters.name = Type<T>::name;
    list_members<T>(parameters);
    return Kind;
  }
};

// ---- Bases of descriptions --------------------------------------------------------------------------------

/// A struct whose members are all of fixed length; the other structs. A description has `id`, `name`, `each`.
template <class T>
struct fixed_struct : Fixed<T, move_members<T>>, BuiltBy<BuildMembers<T, tk_struct>> {};
template <class T>
struct variable_struct : Variable<T, move_members<T>>, BuiltBy<BuildMembers<T, tk_struct>> {};

/// A user exception: `id`, `name`, `each`.
template <class E>
struct exception_type : BuiltBy<BuildMembers<E, tk_except>> {
  /// As an Any holds it: its id goes in front of its members.
  static bool move(CDR* cdr, E& e) {
    const char* id = E::repository_id;
    return Wire<const char*>::move(cdr, id) && std::strcmp(id, E::repository_id) == 0 && move_members(cdr, e);
  }
};

/// An enum: `id`, `name`, `names`, the array of its enumerators' names.
template <class E>
bool move_enum(CDR* cdr, E& value) {
  auto number = static_cast<ULong>(value);
  if (!zrsv::move_value(cdr, &number) || number >= std::size(Type<E>::names)) return false;
  value = static_cast<E>(number);
  return true;
}
/// Its TypeCode; a member an enumerator, without a type.
template <class E>
struct BuildEnum {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.id = Type<E>::id;
    parameters.name = Type<E>::name;
    std::vector<TypeCode::Member> list;
    for (const char* name : Type<E>::names) list.push_back({name});
    parameters.members = lasting(list);
    return tk_enum;
  }
};
/// What the description of an enum derives from: the enumerator's number travels, and one past the last does not
/// decode.
template <class E>
struct enumeration : ByValue<E, move_enum<E>>, BuiltBy<BuildEnum<E>> {};

/// A typedef of another type is a tag that says which: `Aliased`, `id`, `name`.
template <class Tag>
concept AliasTag = requires {
  typename Tag::Aliased;
};
/// It is what the other type is, but for its TypeCode.
template <AliasTag Tag>
struct Type<Tag> : Type<typename Tag::Aliased> {
  static TypeCode* const* typecode_at() {
    return typecode_built_by<BuildAlias<Tag, Type<typename Tag::Aliased>>>();
  }
};

/// A sequence class S of elements D, without and with a name of its own.
template <class S, class D, ULong Bound = 0>
struct anonymous_sequence : Variable<S, move_sequence<S, D, Bound>>,
                            BuiltBy<BuildContent<tk_sequence, D, Bound>> {};
template <class S, class D, ULong Bound = 0>
struct sequence_typedef : anonymous_sequence<S, D, Bound> {
  static TypeCode* const* typecode_at() {
    return typecode_built_by<BuildAlias<Type<S>, anonymous_sequence<S, D, Bound>>>();
  }
};

}  // namespace CORBA::idl
