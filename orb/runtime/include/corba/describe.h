// Descriptions of the types that an IDL file defines: the specialisations of idl::Type that generated headers
// hold, one a type. What is written there is the type's repository id, its name and its members; CDR,
// TypeCode and Any operators come from that.
#pragma once

#include "corba/idl_types.h"

namespace CORBA::idl {

// ---- Members ----------------------------------------------------------------------------------------------

/// The descriptor that a member's C++ type stands for, when nothing is said.
template <class V>
struct DescriptorOf {
  using type = V;
};
template <>
struct DescriptorOf<String_mgr> {
  using type = string<>;
};
template <class X>
struct DescriptorOf<ObjectVar<X>> {
  using type = ref<X>;
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
struct ListMembers {
  std::vector<TypeCode::NamedType>& list;
  template <class V>
  bool operator()(const char* name, V& member) const {
    return (*this)(name, member, as<typename DescriptorOf<V>::type>);
  }
  template <class V, class D>
  bool operator()(const char* name, V&, D*) const {
    list.push_back({name, Type<D>::typecode()});
    return true;
  }
};

template <class T>
bool move_members(CDR* cdr, T& value) {
  return Type<T>::each(MoveMembers{cdr}, value);
}
using CreateWithMembers = TypeCode* (*)(const char*, const char*, const std::vector<TypeCode::NamedType>&,
                                        Environment&);
template <class T>
TypeCode* members_typecode(CreateWithMembers create) {
  static TypeCode* const type = [&] {
    std::vector<TypeCode::NamedType> members;
    T sample;
    Type<T>::each(ListMembers{members}, sample);
    return create(Type<T>::id, Type<T>::name, members, Environment().self());
  }();
  return type;
}

// ---- Bases of descriptions --------------------------------------------------------------------------------

/// A struct whose members are all of fixed length; the other structs. A description has `id`, `name`, `each`.
template <class T>
struct fixed_struct : Fixed<T, move_members<T>> {
  static TypeCode* typecode() { return members_typecode<T>(TypeCode::create_struct_tc); }
};
template <class T>
struct variable_struct : Variable<T, move_members<T>> {
  static TypeCode* typecode() { return members_typecode<T>(TypeCode::create_struct_tc); }
};

/// A user exception: `id`, `name`, `each`.
template <class E>
struct exception_type {
  static TypeCode* typecode() { return members_typecode<E>(TypeCode::create_exception_tc); }
};

/// An enum: `id`, `name`, `names`, the array of its enumerators' names.
template <class E>
bool move_enum(CDR* cdr, E& value) {
  auto number = static_cast<ULong>(value);
  if (!zrsv::move_value(cdr, &number) || number >= std::size(Type<E>::names)) return false;
  value = static_cast<E>(number);
  return true;
}
template <class E>
struct enumeration : ByValue<E, move_enum<E>> {
  static TypeCode* typecode() {
    static TypeCode* const type = TypeCode::create_enum_tc(
        Type<E>::id, Type<E>::name, {std::begin(Type<E>::names), std::end(Type<E>::names)});
    return type;
  }
};

/// A typedef of another type is a tag that says which: `Aliased`, `id`, `name`.
template <class Tag>
concept AliasTag = requires {
  typename Tag::Aliased;
};
template <AliasTag Tag>
struct Type<Tag> : Type<typename Tag::Aliased> {
  static TypeCode* typecode() {
    static TypeCode* const type =
        TypeCode::create_alias_tc(Tag::id, Tag::name, Type<typename Tag::Aliased>::typecode());
    return type;
  }
};

/// A typedef of a sequence: S is its class, D the descriptor of its elements.
template <class S, class D, ULong Bound = 0>
struct sequence_typedef : Variable<S, move_sequence<S, D, Bound>> {
  static TypeCode* typecode() {
    static TypeCode* const type = [] {
      const TypeCode_var sequence = TypeCode::create_sequence_tc(Bound, Type<D>::typecode());
      return TypeCode::create_alias_tc(Type<S>::id, Type<S>::name, sequence.in());
    }();
    return type;
  }
};

/// `_tc_X`: the TypeCode of D, made when it is first asked for.
template <class D>
struct typecode_constant {
  operator TypeCode*() const { return Type<D>::typecode(); }
  TypeCode* operator->() const { return Type<D>::typecode(); }
};

}  // namespace CORBA::idl

namespace CORBA {

// ---- Any --------------------------------------------------------------------------------------------------

template <class T>
concept DescribedValue = std::is_class_v<T> && requires {
  idl::Type<T>::id;
};
template <class T>
concept DescribedEnum = std::is_enum_v<T> && requires {
  idl::Type<T>::names;
};
template <class X>
concept ClientClass = std::derived_from<X, Object> && requires {
  X::interface_name;
};

}  // namespace CORBA
