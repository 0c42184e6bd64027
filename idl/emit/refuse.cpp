#include "emit/emit.h"

namespace idl {
namespace {

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
