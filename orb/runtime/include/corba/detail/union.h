// Unions (OMG IDL to C++, "Mapping for Union Types"): the base of generated union classes, and their description. A
// program sees of a union `switch (long) { case 1: string text; default: long number; }` a class U with
//
//   u.text("a");           sets the member, and the discriminator to its first label
//   u.text()               reads it; BAD_PARAM when another member is active
//   u._d()                 the discriminator; u._d(7) takes another label of the same member
//   u._default()           where no label is `default`: no member
//
// A fresh one has discriminator 0 and that label's member. Copies are deep. As any value it belongs to one thread at a
// time, reading included: a member that was never set is made when it is read.
#pragma once

#include <tuple>

#include "corba/detail/describe.h"

namespace CORBA {

/// Holds a value of one of the types V, or none; as std::variant does; types may be arrays.
template <class... V>
class OneOf {
 public:
  /// The index that says that there is no value.
  static constexpr unsigned none = sizeof...(V);
  template <unsigned I>
  using At = std::tuple_element_t<I, std::tuple<V...>>;

  OneOf() = default;
  OneOf(const OneOf& o) { copy(o); }
  OneOf(OneOf&& o) noexcept { steal(o); }
  ~OneOf() { clear(); }
  OneOf& operator=(const OneOf& o) {
    if (this != &o) *this = OneOf(o);
    return *this;
  }
  OneOf& operator=(OneOf&& o) noexcept {
    if (this != &o) {
      clear();
      steal(o);
    }
    return *this;
  }

  /// Which type there is a value of.
  unsigned index() const { return index_; }
  /// That value; nobody looks whether it is of type I.
  template <unsigned I>
  At<I>& get() {
    return *static_cast<At<I>*>(place());
  }
  /// Where the value stands, whatever its type.
  void* place() { return &storage_; }
  /// Makes a default value of type I, unless there is one of that type.
  void select(unsigned i) {
    if (i == index_) return;
    OneOf fresh;
    if (i < none) alternatives[i].make(fresh.place());
    fresh.index_ = i;
    *this = std::move(fresh);
  }

 private:
  static constexpr std::size_t largest = [] {
    std::size_t most = 0;
    for (std::size_t one : {sizeof(V)...}) most = one > most ? one : most;  // clang++ folds over 256 at most
    return most;
  }();
  /// What is done with a value of one type, by its place.
  struct Alternative {
    void (*make)(void*);
    void (*copy)(void*, const void*);
    void (*steal)(void*, void*);  // moves and destroys
    void (*destroy)(void*);
  };
  template <class T>
  struct Member {  // an array is copied and moved with what holds it
    T value{};
  };
  template <class M>
  static constexpr Alternative alternative{
      [](void* at) { new (at) M(); },
      [](void* at, const void* from) { new (at) M(*static_cast<const M*>(from)); },
      [](void* at, void* from) {
        new (at) M(std::move(*static_cast<M*>(from)));
        static_cast<M*>(from)->~M();
      },
      [](void* at) { static_cast<M*>(at)->~M(); }};
  static constexpr Alternative alternatives[] = {alternative<Member<V>>...};

  void clear() {
    if (index_ < none) alternatives[std::exchange(index_, none)].destroy(place());
    index_ = none;
  }
  void copy(const OneOf& o) {
    if (o.index_ < none) alternatives[o.index_].copy(place(), &o.storage_);
    index_ = o.index_;
  }
  void steal(OneOf& o) {
    if (o.index_ < none) alternatives[o.index_].steal(place(), o.place());
    index_ = std::exchange(o.index_, none);
  }

  alignas(V...) unsigned char storage_[largest];
  unsigned index_ = none;
};

/// Base of the generated class Self: a discriminator D and members of types V, in the order of their
/// declaration. Reading a member that is not the active one raises BAD_PARAM.
template <class Self, class D, class... V>
class Union {
 public:
  /// Which label is in force; of a union without one for it there is no member.
  D _d() const { return discriminator_; }
  /// Only to another label of the active member, else BAD_PARAM.
  void _d(D label) {
    if (idl::Type<Self>::member_of(label) != idl::Type<Self>::member_of(discriminator_)) refuse_bound();
    discriminator_ = label;
  }

  // For the accessors of the generated class and the description.

  /// Makes member I the active one, with a copy of `value`, which may be a part of the old one.
  template <unsigned I, class T>
  void _set(D label, T&& value) {
    typename OneOf<V...>::template At<I> fresh{};
    fresh = std::forward<T>(value);
    members_.select(I);
    members_.template get<I>() = std::move(fresh);
    discriminator_ = label;
  }
  /// The same of an array, which may be another member's.
  template <unsigned I, class Tag>
  void _set_array(D label, const ArraySlice<Tag>* value) {
    OneOf<V...> fresh;
    fresh.select(I);
    array_copy_slice<Tag>(fresh.template get<I>(), value);
    members_ = std::move(fresh);
    discriminator_ = label;
  }
  /// Member I. BAD_PARAM when the discriminator names another one.
  template <unsigned I>
  typename OneOf<V...>::template At<I>& _get() const {
    if (idl::Type<Self>::member_of(discriminator_) != I) refuse_bound();
    members_.select(I);
    return members_.template get<I>();
  }
  /// Makes that label's member the active one, default if it was not, and gives its place: to be decoded into.
  void* _select(D label) {
    members_.select(idl::Type<Self>::member_of(label));
    discriminator_ = label;
    return members_.place();
  }

 private:
  D discriminator_{};
  mutable OneOf<V...> members_;  // a member that was never set is made when it is read
};

namespace idl {

/// One label of a union: its value and the position of its member.
template <class D>
struct Label {
  D value;
  unsigned member;
};

/// What unions share: U is the class, D the discriminator, M the descriptors of its members. A description
/// has `id`, `name`, `members` (their names), `labels`, and `default_member`: the position of the member with
/// label default, or the number of members when there is none.
template <class U, class D, class... M>
struct union_moves {
  static constexpr unsigned none = sizeof...(M);
  /// The position of the member that a discriminator chooses.
  static unsigned member_of(D value) {
    for (const auto& label : Type<U>::labels)
      if (label.value == value) return label.member;
    return Type<U>::default_member;
  }
  /// The discriminator, then the member that it chooses, if any.
  static bool move_union(CDR* cdr, U& value) {
    D discriminator = value._d();
    if (!Type<D>::move(cdr, discriminator)) return false;
    const unsigned member = member_of(discriminator);
    void* place = value._select(discriminator);
    return member == none || moves[member](cdr, place);
  }

 private:
  template <class X>
  static constexpr auto move_of =
      [](CDR* cdr, void* at) -> bool { return Type<X>::move(cdr, *static_cast<ValueOf<X>*>(at)); };
  static constexpr bool (*moves[])(CDR*, void*) = {move_of<M>...};
};
template <class U, class D, class... M>
bool move_union(CDR* cdr, U& value) {
  return union_moves<U, D, M...>::move_union(cdr, value);
}
/// A label as TypeCodes hold it: characters as octets.
template <class D>
constexpr LongLong label_number(D value) {
  if constexpr (std::is_same_v<D, Char>) return static_cast<Octet>(value);
  return static_cast<LongLong>(value);
}
/// The TypeCode: a member a label, the default one last.
template <class U, class D, class... M>
struct BuildUnion {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.id = Type<U>::id;
    parameters.name = Type<U>::name;
    parameters.content = typecode_at<D>();
    TypeCode* const* const types[] = {typecode_at<M>()...};
    std::vector<TypeCode::Member> list;
    for (const auto& label : Type<U>::labels)
      list.push_back({Type<U>::members[label.member], types[label.member], label_number(label.value)});
    if (Type<U>::default_member < sizeof...(M)) {
      parameters.default_index = static_cast<Long>(list.size());
      list.push_back({Type<U>::members[Type<U>::default_member], types[Type<U>::default_member]});
    }
    parameters.members = lasting(list);
    return tk_union;
  }
};
/// What a description derives from: of a union whose members are all of fixed length, and of others.
template <class U, class D, class... M>
struct fixed_union : Fixed<U, move_union<U, D, M...>>,
                     union_moves<U, D, M...>,
                     BuiltBy<BuildUnion<U, D, M...>> {};
template <class U, class D, class... M>
struct variable_union : Variable<U, move_union<U, D, M...>>,
                        union_moves<U, D, M...>,
                        BuiltBy<BuildUnion<U, D, M...>> {};

}  // namespace idl
}  // namespace CORBA
