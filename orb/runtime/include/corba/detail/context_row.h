// The context parameter in the row of an operation (corba/detail/row.h). Generated headers include this where their IDL
// has a context clause.
#pragma once

#include "corba/context.h"
#include "corba/detail/idl_types.h"

namespace CORBA::idl {

/// The context of an operation whose clause lists `Patterns`, an array of texts: names, or beginnings with a * behind.
/// It is the last in parameter on the wire, and in C++ a Context_ptr.
template <const auto& Patterns>
struct context {};

/// What of a context fits the patterns, as names and values in turn; null has nothing.
ZRSVCPP_API bool write_context(CDR* cdr, const Context* context, const char* const* patterns,
                               std::size_t count);
/// A new context of what was sent. False when it does not decode.
ZRSVCPP_API bool read_context(CDR* cdr, Context*& context);

template <const auto& Patterns>
struct Type<context<Patterns>> {
  struct Own {
    static void free(Context* context) { release(context); }
    static bool move(CDR* cdr, Context*& context) {
      return cdr->direction == CDR_ENCODE ? write_context(cdr, context, Patterns, std::size(Patterns))
                                          : read_context(cdr, context);
    }
  };
  using InArg = PointerArg<Context*, Own, Context*>;
};

}  // namespace CORBA::idl
