#include <span>

#include "emit/emit.h"
#include "scopes.h"

namespace idl {
namespace {

/// What C++ puts behind a declaration's name to name what it has beside it.
using Suffixes = std::span<const char* const>;
constexpr const char* suffixes[] = {"_out", "_var", "_ptr"};
constexpr const char* suffixes_of_arrays[] = {"_out",   "_var", "_slice", "_forany",
                                              "_alloc", "_dup", "_copy",  "_free"};
const Suffixes of_number(suffixes, 1), of_value(suffixes, 2), of_reference(suffixes, 3);

Suffixes suffixes_of(const Declaration& one);
Suffixes suffixes_of(const Type& type) {
  switch (type.kind) {
    case TypeKind::Object:
      return of_reference;
    case TypeKind::Any:
    case TypeKind::String:
    case TypeKind::WString:
    case TypeKind::Sequence:
      return of_value;
    case TypeKind::Named: {
      const Declaration* const declared = meaning(type);
      return declared ? suffixes_of(*declared) : Suffixes();
    }
    default:
      return of_number;
  }
}
Suffixes suffixes_of(const Declaration& one) {
  if (const auto* alias = as<Typedef>(&one))
    return alias->declarator.dimensions.empty() ? suffixes_of(unalias(*alias->type)) : suffixes_of_arrays;
  if (one.kind == Kind::Interface) return of_reference;
  if (one.kind == Kind::Struct || one.kind == Kind::Union) return of_value;
  return one.kind == Kind::Enum ? of_number : Suffixes();
}

class Refusal {
 public:
  explicit Refusal(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(const Declaration& one) {
    if (one.kind == Kind::ValueType || one.kind == Kind::ValueBox)
      refuse(one.name.at, std::string(kind_name(one.kind)) + " " + quoted(one.name.text));
    const bool unnamed =
        one.kind == Kind::Parameter || one.kind == Kind::Operation || one.kind == Kind::Attribute;
    for (const Type* type : types_of(one)) {
      if (unalias(*type).kind == TypeKind::ValueBase) refuse(type->at, "'ValueBase'");
      if (unnamed && type->kind == TypeKind::Sequence)
        diagnostics_.error(type->at, "a sequence needs a name here: typedef it first");
      native(one, *type);
    }
    for (const char* suffix : suffixes_of(one)) beside(one, one.name.text + suffix);
  }

 private:
  // The library cannot copy or send what it does not know.
  void native(const Declaration& user, const Type& type) {
    const auto* alias = as<Typedef>(&user);
    bool holds = user.kind == Kind::Member || (alias && !alias->declarator.dimensions.empty());
    const Type* inner = &type;
    for (; inner->element; inner = inner->element) holds = true;
    const Declaration* const declared = meaning(*inner);
    if (holds && declared && declared->kind == Kind::Native)
      diagnostics_.error(type.at, quoted(declared->name.text) +
                                      " is native: no struct, union, exception, sequence or array holds it");
  }

  void beside(const Declaration& one, const std::string& name) {
    const auto* module = as<Module>(one.scope);
    const Scope* const scope = module && module->first ? module->first : one.scope;
    const Declaration* const other = scope ? Scopes::declared_in(*scope, name) : nullptr;
    if (other)
      diagnostics_.error(other->file() == 0 ? other->name.at : one.name.at,
                         quoted(name) + " is what C++ has beside " + quoted(one.name.text));
  }

  void refuse(const Location& at, const std::string& what) {
    diagnostics_.error(at, "no C++ is generated for " + what);
  }

  Diagnostics& diagnostics_;
};

}  // namespace

void refuse_what_has_no_mapping(Compilation& compilation) {
  Refusal refusal(compilation.diagnostics);
  try {
    walk(*compilation.tree.root, [&](const Declaration& one) {
      if (one.file() == 0) refusal.visit(one);
    });
  } catch (const GiveUp&) {
  }
}

}  // namespace idl
