// TypeCodes of described types: built when they are first asked for, each once, and there until the process
// ends. A type may contain itself: its parts name its place, which is filled when they are done. Any thread may ask;
// what runs out of memory is built by the next one who asks.
#pragma once

#include <atomic>
#include <new>

#include "corba/typecode.h"

namespace CORBA::idl {

/// The description of D (corba/detail/idl_types.h).
template <class D>
struct Type;

/// Where the TypeCode of one type is, or will be. Its parts name each other by these places.
struct TypeCodePlace {
  TypeCode* type = nullptr;           // a constant
  std::atomic<bool> complete{false};  // with all of its parts
  bool begun = false;                 // by the thread that builds
};

/// Lets `build` fill the place, unless that was done or is going on further out, and gives the place. What
/// other threads see is complete. `build` asks for parts, and sets `type` to a constant made with new.
ZRSVCPP_API TypeCode* const* build_typecode(TypeCodePlace& place, void (*build)(TypeCodePlace& place));

/// The place of what `Build::make(TypeCode::Parameters&)` describes: it fills the parameters, and gives the
/// kind.
template <class Build>
TypeCode* const* typecode_built_by() {
  static constinit TypeCodePlace place;
  if (place.complete.load(std::memory_order_acquire)) return &place.type;
  return build_typecode(place, [](TypeCodePlace& into) {
    TypeCode::Parameters parameters;
    const TCKind kind = Build::make(parameters);
    into.type = new TypeCode(kind, parameters);
  });
}

/// The place of D's TypeCode. While a type is built it may be empty.
template <class D>
TypeCode* const* typecode_at() {
  return Type<D>::typecode_at();
}
/// D's TypeCode, a constant: releasing it is allowed and does nothing.
template <class D>
TypeCode* typecode() {
  return *Type<D>::typecode_at();
}

/// `_tc_X`: the TypeCode of D.
template <class D>
struct typecode_constant {
  operator TypeCode*() const { return typecode<D>(); }
  TypeCode* operator->() const { return typecode<D>(); }
};

// ---- What the descriptions share --------------------------------------------------------------------------

/// A string or sequence with a bound, or an array: the element, the length.
template <TCKind Kind, class Element, ULong Length>
struct BuildContent {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.length = Length;
    if constexpr (!std::is_void_v<Element>) parameters.content = typecode_at<Element>();
    return Kind;
  }
};
/// Another name for what Original builds; `Named` has `id` and `name`.
template <class Named, class Original>
struct BuildAlias {
  static TCKind make(TypeCode::Parameters& parameters) {
    parameters.id = Named::id;
    parameters.name = Named::name;
    parameters.content = Original::typecode_at();
    return tk_alias;
  }
};
/// Base of a description whose TypeCode Build makes.
template <class Build>
struct BuiltBy {
  static TypeCode* const* typecode_at() { return typecode_built_by<Build>(); }
};

}  // namespace CORBA::idl
