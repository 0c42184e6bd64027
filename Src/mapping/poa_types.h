// What the rows of module PortableServer know of its types (corba/detail/idl_types.h), by their forms in poa_cdr.h.
#pragma once

#include "corba/detail/describe.h"
#include "mapping/poa_cdr.h"

namespace CORBA::idl {

template <PortableServer::interface X>
struct ReferenceMoves<X> {
  static void free(X* reference) { release(reference); }
  static bool move(CDR* cdr, X*& reference) {
    if (cdr->direction == CDR_ENCODE) return move_plain(cdr, reference);
    X* fresh = nullptr;
    if (!move_plain(cdr, fresh)) return false;
    release(std::exchange(reference, fresh));
    return true;
  }
};

template <PortableServer::enumeration E>
struct Type<E> : ByValue<E, move_plain<E>> {};
/// A servant is passed by its address.
template <>
struct Type<PortableServer::ServantBase> : ByValue<PortableServer::ServantBase*, move_plain> {};
template <>
struct Type<PortableServer::ObjectId> : Variable<PortableServer::ObjectId, move_plain> {};
template <>
struct Type<PortableServer::POAList> : Variable<PortableServer::POAList, move_plain> {};
template <>
struct Type<PolicyList> : Variable<PolicyList, move_plain> {};

template <class E>
requires std::derived_from<E, UserExceptionOf<E>>
struct Type<E> {
  static bool each(const MoveMembers& members, E& e) {
    if constexpr (requires { Wire<E>::move(members.cdr, e); }) return Wire<E>::move(members.cdr, e);
    return true;
  }
};

}  // namespace CORBA::idl
