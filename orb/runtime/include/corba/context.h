// Contexts: properties that travel with the calls of operations with a context clause (CORBA, "Context Object").
// Generated headers include this where their IDL has such a clause, and give the operation one more in parameter, of
// type CORBA::Context_ptr: what of it fits the clause travels, and the servant gets a context of that. Nil has
// nothing.
#pragma once

#include <map>

#include "corba/nvlist.h"
#include "zrsv/thread_safety.h"

namespace CORBA {

/// For get_values: look into that one context only, not into those around it.
inline constexpr Flags CTX_RESTRICT_SCOPE = 15;

/// Named texts, and a parent whose texts count where there is none of that name here. Counted as local objects are.
/// A pattern is a name, or its beginning with a * behind. Any thread.
///
///   CORBA::Context_var context;
///   orb->get_default_context(context.out());
///   CORBA::Context_var mine;
///   context->create_child("mine", mine.out());
///   CORBA::Any language;
///   language <<= "en";
///   mine->set_one_value("language", language);
class ZRSVCPP_API Context : public virtual LocalObject {
 public:
  using Properties = std::map<std::string, std::string, std::less<>>;

  /// A null name is an empty one; the parent, which may be nil, is counted once more.
  Context(const char* name, Context* parent, Properties properties = {})
      : name_(name ? name : ""), parent_(_duplicate(parent)), properties_(std::move(properties)) {}
  ~Context() override;
  static Context* _nil() { return nullptr; }
  static Context* _duplicate(Context* p) { return idl::duplicate_local(p); }

  /// The name that it was made with, "" for the process's own. Both stay the context's own; the parent is nil for one
  /// that has none.
  const char* context_name() const { return name_.c_str(); }
  Context* parent() const { return parent_.in(); }
  /// A new context in this one, for the caller to release; it keeps this one alive.
  void create_child(const char* name, Context*& child, CORBA_ENV);

  /// BAD_PARAM for a name that is empty, and for a value that is no string. A value that is there is replaced.
  void set_one_value(const char* name, const Any& value, CORBA_ENV);
  /// All of the list, or none; flags say nothing. BAD_PARAM for a nil list, an empty name, and a value that is no
  /// string.
  void set_values(NVList* values, CORBA_ENV);
  /// Those of this context that fit the pattern, not those around it. BAD_CONTEXT when none does.
  void delete_values(const char* pattern, CORBA_ENV);
  /// A new list of the values that fit, of this context and those around it, the nearest of each name; the caller
  /// releases it. Where `start_scope` is not empty the search begins at the first context of that name.
  /// BAD_CONTEXT when there is no such context, or nothing fits.
  void get_values(const char* start_scope, Flags flags, const char* pattern, NVList*& values, CORBA_ENV);

  /// Adds what fits, here or around, and is not in `found` yet.
  void collect(std::string_view pattern, bool restricted, Properties& found) const;

 private:
  const std::string name_;
  const ObjectVar<Context> parent_;
  mutable zrsv::Mutex mutex_;
  Properties properties_ ZR_GUARDED_BY(mutex_);
};
using Context_ptr = Context*;
using Context_var = ObjectVar<Context>;
using Context_out = ObjectOut<Context>;

}  // namespace CORBA
